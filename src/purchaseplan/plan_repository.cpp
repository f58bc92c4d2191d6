// Purchase plans and their lines on the ERP database.
#include "purchaseplan/plan_repository.h"

#include "record/column_value.h"
#include "record/erp_codes.h"

namespace mrpcalc::repo {
namespace {

using Row = std::vector<Variant>;

}  // namespace

Date ServerNow(db::Connection& c) { return c.QueryValue("select " + c.dialect().Now()).ToDate(); }

std::optional<int32_t> LargestPlanId(db::Connection& c) {
  const Variant max_id = c.QueryValue("select max(FInterID) from PurchasePlan");
  if (max_id.IsNull() || max_id.IsEmpty()) return std::nullopt;
  return max_id.ToLong();
}

std::vector<std::string> PlanNumbersStartingWith(db::Connection& c,
                                                 const std::string& folded_prefix) {
  std::vector<std::string> out;
  c.QueryRows("select FBillNo from PurchasePlan where " + c.dialect().CaseFolded("FBillNo") +
                  " like ?",
              {folded_prefix + "%"}, [&](Row& r) { out.push_back(TextValue(r[0])); });
  return out;
}

void InsertPlanHeader(db::Connection& c, const std::string& bill_no, int32_t inter_id,
                      const Date& date, int32_t biller) {
  c.Execute("insert into PurchasePlan (FBillNo, FInterID, FDate, FBillerID) values (?, ?, ?, ?)",
            {bill_no, inter_id, date, biller});
}

std::map<std::string, int32_t> PlanIdsByNumber(db::Connection& c,
                                               const std::vector<std::string>& numbers) {
  std::vector<std::string> folded;
  for (const auto& no : numbers) folded.push_back(FoldKey(no));
  std::map<std::string, int32_t> ids;
  db::QueryIn(c, folded,
              "select FBillNo, FInterID from PurchasePlan where " +
                  c.dialect().CaseFolded("FBillNo") + " in (%IDS%) order by FInterID",
              [&](Row& r) { ids.try_emplace(FoldKey(TextValue(r[0])), r[1].ToLong()); });
  return ids;
}

Variant PlanDate(db::Connection& c, const std::string& bill_no) {
  return c.QueryValue("select FDate from PurchasePlan where " + c.dialect().TextIs("FBillNo") +
                          " order by FInterID",
                      {FoldKey(bill_no)});
}

void InsertPlanLines(db::Connection& c, const std::string& bill_no, int32_t inter_id,
                     const std::vector<NewPlanLine>& lines) {
  auto insert = c.Prepare(
      "insert into PurchasePlanEntry (FBillNo, FInterID, FEntryID, FItemID, FAuxPropID, FSupplyID,"
      " FQty, FPrice, FAmount, FUnitID, FAuxQty, FAuxPrice, FTaxRate, FDate, FNote)"
      " values (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  for (const NewPlanLine& l : lines) {
    insert->Execute({bill_no, inter_id, l.entry_id, l.item_id, l.aux_prop_id, l.supply_id, l.qty,
                     l.price, l.amount, l.unit_id, l.aux_qty, l.aux_price, l.tax_rate, l.date,
                     l.note});
  }
}

void UpdatePlanLines(db::Connection& c, const std::vector<PlanLineEdit>& edits) {
  auto update = c.Prepare(
      "update PurchasePlanEntry set FSupplyID = ?, FDate = ?, FPrice = ?, FAmount = FQty * ?,"
      " FPushQty = ?, FTaxRate = ?, FCess = ?, FNote = ? where FInterID = ? and FEntryID = ?");
  for (const PlanLineEdit& e : edits) {
    update->Execute({e.supply_id, e.date, e.price, e.price, e.push_qty, e.tax_rate,
                     e.discount_rate, e.note, e.line.first, e.line.second});
  }
}

std::map<PlanLineKey, int32_t> ClosingStates(db::Connection& c,
                                             const std::vector<int32_t>& plans) {
  std::map<PlanLineKey, int32_t> states;
  db::QueryIn(c, plans,
              "select FInterID, FEntryID, FClosed from PurchasePlanEntry where FInterID in (%IDS%)",
              [&](Row& r) {
                states[{r[0].ToLong(), r[1].ToLong()}] = r[2].IsNull() ? -1 : r[2].ToLong();
              });
  return states;
}

void SetClosingState(db::Connection& c, const std::vector<PlanLineKey>& lines, int32_t from,
                     int32_t to) {
  auto update = c.Prepare(
      "update PurchasePlanEntry set FClosed = ? where FClosed = ? and FInterID = ? and FEntryID = ?");
  for (const auto& [plan, entry] : lines) update->Execute({to, from, plan, entry});
}

std::vector<int32_t> PlansWithClosedLines(db::Connection& c, const std::vector<int32_t>& plans) {
  std::vector<int32_t> out;
  db::QueryIn(c, plans,
              "select distinct FInterID from PurchasePlanEntry where FClosed <> ?"
              " and FInterID in (%IDS%)",
              [&](Row& r) { out.push_back(r[0].ToLong()); }, {kPlanLineOpen});
  return out;
}

std::map<PlanLineKey, PlanLineProgress> PlanLineProgresses(db::Connection& c,
                                                           const std::vector<int32_t>& plans) {
  std::map<PlanLineKey, PlanLineProgress> lines;
  db::QueryIn(c, plans,
              "select FInterID, FEntryID, FQty, FPushQty, FPurchaseFinishQty, FClosed, FBillNo"
              " from PurchasePlanEntry where FInterID in (%IDS%)",
              [&](Row& r) {
                PlanLineProgress p;
                p.qty = r[2].IsNull() ? 0 : r[2].ToDouble();
                p.push_qty = r[3].IsNull() ? 0 : r[3].ToDouble();
                p.finished = r[4].IsNull() ? 0 : r[4].ToDouble();
                p.closed = r[5].IsNull() ? 0 : r[5].ToLong();
                p.bill_no = TextValue(r[6]);
                lines[{r[0].ToLong(), r[1].ToLong()}] = p;
              });
  return lines;
}

void WritePlanLineProgress(db::Connection& c,
                           const std::map<PlanLineKey, PlanLineProgress>& lines) {
  auto update = c.Prepare(
      "update PurchasePlanEntry set FPurchaseFinishQty = ?, FClosed = ? where FInterID = ? and "
      "FEntryID = ?");
  for (const auto& [key, p] : lines) {
    if (p.dirty) update->Execute({p.finished, p.closed, key.first, key.second});
  }
}

void AddPurchased(db::Connection& c, const std::map<PlanLineKey, double>& quantities,
                  bool take_back) {
  auto quantity = c.Prepare(
      std::string("update PurchasePlanEntry set FPurchaseFinishQty = FPurchaseFinishQty ") +
      (take_back ? "-" : "+") + " ? where FInterID = ? and FEntryID = ?");
  // FClosed: 1 fully purchased, 0 open; 2, closed by hand, stays.
  auto state = c.Prepare(
      "update PurchasePlanEntry set FClosed = case when FPurchaseFinishQty >= FQty then 1 else 0 "
      "end where FInterID = ? and FEntryID = ? and FClosed <> ?");
  for (const auto& [line, qty] : quantities) quantity->Execute({qty, line.first, line.second});
  for (const auto& [line, qty] : quantities) {
    state->Execute({line.first, line.second, kPlanLineClosedByHand});
  }
}

void RecordPushed(db::Connection& c, const std::map<PlanLineKey, double>& quantities) {
  auto progress = c.Prepare(
      "update PurchasePlanEntry set FPushQty = 0, FPurchaseFinishQty = FPurchaseFinishQty + ?"
      " where FInterID = ? and FEntryID = ?");
  for (const auto& [line, qty] : quantities) progress->Execute({qty, line.first, line.second});
}

void CloseFullyPurchased(db::Connection& c) {
  c.Execute("update PurchasePlanEntry set FClosed = ? where FPurchaseFinishQty >= FQty",
            {kPlanLineFullyPurchased});
}

// Columns of the report, in report order up to FFinishDate, then the
// decimals and the supplier's rights text.
constexpr const char* kReportSelect =
    "select u1.FBillNo, u1.FInterID, u1.FEntryID, u1.FItemID, u1.FAuxPropID, u1.FSupplyID, u1.FQty,"
    " case when u1.FPushQty = 0 then case when u1.FQty - u1.FPurchaseFinishQty < 0 then 0"
    "  else u1.FQty - u1.FPurchaseFinishQty end else u1.FPushQty end,"
    " u1.FDate, u1.FPrice, u1.FAmount, u1.FTaxRate, u1.FCess, u1.FTaxAmount, u1.FNote, u1.FUnitID,"
    " u1.FAuxPrice, u1.FAuxQty, u1.FClosed, u1.FPurchaseFinishQty,"
    " case when u1.FQty - u1.FPurchaseFinishQty < 0 then 0 else u1.FQty - u1.FPurchaseFinishQty "
    "end,"
    " C.FNumber, C.FName, C.FModel, S.FNumber, S.FName, A.FName, U.FName,"
    " case when u1.FClosed <> 0 then 'Y' else '' end, v1.FDate, u1.FDate,"
    " C.FQtyDecimal, C.FPriceDecimal, S.FRightUserID"
    " from PurchasePlan v1 inner join PurchasePlanEntry u1 on v1.FInterID = u1.FInterID"
    " inner join t_ICItem C on u1.FItemID = C.FItemID"
    " left join t_Supplier S on u1.FSupplyID = S.FItemID"
    " left join t_AuxItem A on u1.FAuxPropID = A.FItemID"
    " inner join t_MeasureUnit U on u1.FUnitID = U.FItemID where 1 = 1";

void PlanReportRows(db::Connection& c, const PlanReportFilter& f, const db::RowSink& each) {
  const db::Dialect& d = c.dialect();
  std::string sql = kReportSelect;
  db::Params params;
  auto text = [&](const std::optional<std::string>& value, const char* column, const char* op) {
    if (!value) return;
    sql += " and " + d.CaseFolded(column) + op + "?";
    params.emplace_back(FoldKey(*value));
  };
  if (f.bill_no) {
    sql += " and " + d.TextIs("u1.FBillNo");
    params.emplace_back(FoldKey(*f.bill_no));
  } else {
    if (f.from) {
      sql += " and v1.FDate >= ?";
      params.emplace_back(*f.from);
    }
    if (f.to) {
      sql += " and v1.FDate <= ?";
      params.emplace_back(*f.to);
    }
    text(f.item_from, "C.FNumber", " >= ");
    text(f.item_to, "C.FNumber", " <= ");
    text(f.bill_from, "u1.FBillNo", " >= ");
    text(f.bill_to, "u1.FBillNo", " <= ");
    if (f.open_only) sql += " and u1.FClosed = 0";
  }
  sql += " order by v1.FDate, " + d.CaseFolded("v1.FBillNo") + ", " + d.CaseFolded("C.FNumber") +
         ", u1.FInterID, u1.FEntryID";
  c.QueryRows(sql, params, each);
}

void DeletePlans(db::Connection& c, const std::vector<int32_t>& plans) {
  for (const char* statement :
       {"delete from PurchasePlan where FInterID in (%IDS%)",
        "delete from PurchasePlanEntry where FInterID in (%IDS%)",
        "delete from PurchasePlanOrder where FPurchasePlanInterID in (%IDS%)",
        "delete from PurchaseLink where FInterID in (%IDS%)"}) {
    db::ExecuteIn(c, plans, statement);
  }
}

}  // namespace mrpcalc::repo
