// Source documents of purchase plans on the ERP database.
#include "purchaseplan/plan_source_repository.h"

#include "record/column_value.h"
#include "record/erp_codes.h"
#include "record/error.h"

namespace mrpcalc::repo {
namespace {

using Row = std::vector<Variant>;
using OptNum = std::optional<double>;
using OptText = std::optional<std::string>;

OptNum Num(const Variant& v) { return v.IsNull() || v.IsEmpty() ? OptNum() : OptNum(v.ToDouble()); }
OptText Text(const Variant& v) { return v.IsNull() ? OptText() : OptText(TextValue(v)); }
Variant Cell(const OptNum& v) { return v ? Variant(*v) : Variant::Null(); }
Variant Cell(const OptText& v) { return v ? Variant(*v) : Variant::Null(); }

const char* TableOf(int32_t tran_type) {
  switch (tran_type) {
    case kTranSalesOrder:
      return "SEOrder";
    case kTranProductionTask:
      return "ICMO";
    case kTranOutsourcingTask:
      return "ICOutMO";
    default:
      throw Error(ErrorCategory::kInternal,
                  "source type " + std::to_string(tran_type) + " has no document table");
  }
}

const char* TaskTable(int32_t tran_type) {
  if (tran_type == kTranSalesOrder) {
    throw Error(ErrorCategory::kInternal, "a sales order is not a task");
  }
  return TableOf(tran_type);
}

}  // namespace

std::vector<PlanSource> TaskSources(db::Connection& c, int32_t tran_type,
                                    const std::vector<std::string>& bills,
                                    const std::vector<int32_t>& ids) {
  std::vector<PlanSource> out;
  const std::string select =
      std::string(
          "select v.FInterID, v.FBillNo, t_M.FMeasureUnitID, t_M.FCoefficient,"
          " v.FStockFinishQty, v.FPurchasePlanBillNo from ") +
      TaskTable(tran_type) + " v left join t_MeasureUnit t_M on t_M.FMeasureUnitID = v.FUnitID";
  auto take = [&](Row& r) {
    out.push_back({r[0].ToLong(), 0, TextValue(r[1]), !r[2].IsNull(), Num(r[3]), Num(r[4]),
                   std::nullopt, Text(r[5])});
  };
  db::QueryIn(c, bills, select + " where " + c.dialect().CaseFolded("v.FBillNo") + " in (%IDS%)",
              take);
  db::QueryIn(c, ids, select + " where v.FInterID in (%IDS%)", take);
  return out;
}

std::vector<PlanSource> SalesLineSources(db::Connection& c, const std::vector<int32_t>& orders) {
  std::vector<PlanSource> out;
  db::QueryIn(c, orders,
              "select v.FInterID, v.FEntryID, t_M.FMeasureUnitID, t_M.FCoefficient,"
              " v.FStockFinishQty, v.FBaseUnitStockFinishQty, v.FPurchasePlanBillNo"
              " from SEOrderEntry v left join t_MeasureUnit t_M on t_M.FMeasureUnitID = v.FUnitID"
              " where v.FInterID in (%IDS%)",
              [&](Row& r) {
                out.push_back({r[0].ToLong(), r[1].ToLong(), {}, !r[2].IsNull(), Num(r[3]),
                               Num(r[4]), Num(r[5]), Text(r[6])});
              });
  return out;
}

void WriteTaskSources(db::Connection& c, int32_t tran_type, const std::vector<PlanSource>& tasks) {
  auto update = c.Prepare(std::string("update ") + TaskTable(tran_type) +
                          " set FStockFinishQty = ?, FPurchasePlanBillNo = ? where FInterID = ?");
  for (const PlanSource& s : tasks) update->Execute({Cell(s.finished), Cell(s.list), s.inter_id});
}

void WriteSalesLineSources(db::Connection& c, const std::vector<PlanSource>& lines) {
  auto update = c.Prepare(
      "update SEOrderEntry set FStockFinishQty = ?, FBaseUnitStockFinishQty = ?,"
      " FPurchasePlanBillNo = ? where FInterID = ? and FEntryID = ?");
  for (const PlanSource& s : lines) {
    update->Execute(
        {Cell(s.finished), Cell(s.base_finished), Cell(s.list), s.inter_id, s.entry_id});
  }
}

void ClearLegacyPlanZeros(db::Connection& c, int32_t tran_type) {
  c.Execute(std::string("update ") + TaskTable(tran_type) +
            " set FPurchasePlanBillNo = '' where FPurchasePlanBillNo = '0'");
}

std::multimap<std::string, int32_t> TaskIdsByBill(db::Connection& c, int32_t tran_type,
                                                  const std::vector<std::string>& bills) {
  std::multimap<std::string, int32_t> out;
  db::QueryIn(c, bills,
              std::string("select FBillNo, FInterID from ") + TaskTable(tran_type) + " where " +
                  c.dialect().CaseFolded("FBillNo") + " in (%IDS%) order by FInterID",
              [&](Row& r) { out.emplace(FoldKey(TextValue(r[0])), r[1].ToLong()); });
  return out;
}

std::vector<std::pair<int32_t, std::string>> BillNumbers(db::Connection& c, int32_t tran_type,
                                                         const std::vector<int32_t>& ids) {
  std::vector<std::pair<int32_t, std::string>> out;
  db::QueryIn(c, ids,
              std::string("select FInterID, FBillNo from ") + TableOf(tran_type) +
                  " where FInterID in (%IDS%) order by FInterID",
              [&](Row& r) { out.emplace_back(r[0].ToLong(), TextValue(r[1])); });
  return out;
}

std::map<std::pair<int32_t, int32_t>, std::string> SalesLineBillNumbers(
    db::Connection& c, const std::vector<int32_t>& orders) {
  std::map<std::pair<int32_t, int32_t>, std::string> out;
  db::QueryIn(c, orders,
              "select SE.FInterID, SE.FEntryID, S.FBillNo from SEOrder S"
              " inner join SEOrderEntry SE on S.FInterID = SE.FInterID"
              " where SE.FInterID in (%IDS%)",
              [&](Row& r) { out[{r[0].ToLong(), r[1].ToLong()}] = TextValue(r[2]); });
  return out;
}

}  // namespace mrpcalc::repo
