// Source documents of MRP demand on the ERP database.
#include "mrpserver/source_repository.h"

#include "record/column_value.h"
#include "record/erp_codes.h"
#include "record/error.h"

namespace mrpcalc::repo {
namespace {

using Row = std::vector<Variant>;

const char* TaskTable(int32_t tran_type) {
  if (tran_type == kTranProductionTask) return "ICMO";
  if (tran_type == kTranOutsourcingTask) return "ICOutMO";
  throw Error(ErrorCategory::kInternal,
              "source type " + std::to_string(tran_type) + " is not a task");
}

constexpr const char* kSalesSql =
    "select v1.FTranType, v1.FBillNo, u1.FItemID, u1.FAuxPropID, t2.FName, u1.FAuxQty,"
    " u1.FInterID, u1.FEntryID, t1.FName, t1.FNumber, t1.FModel, t1.FUnitID, u1.FUnitID,"
    " (select FName from t_MeasureUnit where FMeasureUnitID = t1.FUnitID),"
    " case when u1.FQty - u1.FBaseUnitStockFinishQty > 0"
    "  then u1.FQty - u1.FBaseUnitStockFinishQty else 0 end,"
    " t1.FQtyDecimal, t1.FPriceDecimal"
    " from SEOrderEntry u1 inner join SEOrder v1 on u1.FInterID = v1.FInterID"
    " inner join t_ICItem t1 on u1.FItemID = t1.FItemID"
    " left join t_AuxItem t2 on u1.FAuxPropID = t2.FItemID"
    " where t1.FErpClsID <> 1 and u1.FInterID in (%IDS%)";

std::string TaskSql(const char* table) {
  return std::string(
             "select v1.FTranType, v1.FBillNo, v1.FItemID, v1.FAuxPropID, t2.FName, v1.FAuxQty,"
             " v1.FInterID, 0, t1.FName, t1.FNumber, t1.FModel, t1.FUnitID, v1.FUnitID,"
             " (select FName from t_MeasureUnit where FMeasureUnitID = t1.FUnitID),"
             " case when v1.FQty - v1.FStockFinishQty * coalesce(t_M.FCoefficient, 1) > 0"
             "  then v1.FQty - v1.FStockFinishQty * coalesce(t_M.FCoefficient, 1) else 0 end,"
             " t1.FQtyDecimal, t1.FPriceDecimal from ") +
         table +
         " v1 inner join t_ICItem t1 on v1.FItemID = t1.FItemID"
         " left join t_AuxItem t2 on v1.FAuxPropID = t2.FItemID"
         " inner join t_MeasureUnit t_M on t_M.FMeasureUnitID = v1.FUnitID"
         " where v1.FInterID in (%IDS%)";
}

}  // namespace

void SalesLinesToSelect(db::Connection& c, const std::vector<int32_t>& orders,
                        const db::RowSink& each) {
  db::QueryIn(c, orders, kSalesSql, each);
}

void TasksToSelect(db::Connection& c, int32_t tran_type, const std::vector<int32_t>& ids,
                   const db::RowSink& each) {
  db::QueryIn(c, ids, TaskSql(TaskTable(tran_type)), each);
}

std::vector<TaskUnit> TasksByBillNumber(db::Connection& c, int32_t tran_type,
                                        const std::vector<std::string>& bills) {
  std::vector<TaskUnit> out;
  db::QueryIn(c, bills,
              std::string("select v.FInterID, v.FBillNo, t_M.FCoefficient from ") +
                  TaskTable(tran_type) +
                  " v inner join t_MeasureUnit t_M on t_M.FMeasureUnitID = v.FUnitID"
                  " where " + c.dialect().CaseFolded("v.FBillNo") + " in (%IDS%)",
              [&](Row& r) { out.push_back({r[0].ToLong(), TextValue(r[1]), std::move(r[2])}); });
  return out;
}

void AddTaskFinished(db::Connection& c, int32_t tran_type,
                     const std::vector<std::pair<int32_t, Variant>>& additions) {
  auto update = c.Prepare(std::string("update ") + TaskTable(tran_type) +
                          " set FStockFinishQty = FStockFinishQty + ? where FInterID = ?");
  for (const auto& [id, add] : additions) update->Execute({add, id});
}

std::vector<SalesLineUnit> SalesLineUnits(db::Connection& c, const std::vector<int32_t>& orders) {
  std::vector<SalesLineUnit> out;
  db::QueryIn(c, orders,
              "select u.FInterID, u.FEntryID, t_M.FCoefficient from SEOrderEntry u"
              " inner join t_MeasureUnit t_M on t_M.FMeasureUnitID = u.FUnitID"
              " where u.FInterID in (%IDS%)",
              [&](Row& r) { out.push_back({r[0].ToLong(), r[1].ToLong(), std::move(r[2])}); });
  return out;
}

void AddSalesLineFinished(
    db::Connection& c, const std::vector<std::tuple<int32_t, int32_t, Variant, double>>& lines) {
  auto update = c.Prepare(
      "update SEOrderEntry set FStockFinishQty = FBaseUnitStockFinishQty + ?,"
      " FBaseUnitStockFinishQty = FBaseUnitStockFinishQty + ? where FInterID = ? and FEntryID = ?");
  for (const auto& [inter, entry, finished, base] : lines) {
    update->Execute({finished, base, inter, entry});
  }
}

}  // namespace mrpcalc::repo
