// The buyer's purchase-plan commands.
#include "cli/plans.h"

#include <fmt/core.h>

#include <iostream>
#include <map>
#include <set>

#include "cli/buyer.h"
#include "db/connection.h"
#include "mrp/open_demand.h"
#include "purchaseplan/plan_repository.h"
#include "purchaseplan/purchase_plan.h"
#include "record/error.h"
#include "record/text.h"

namespace mrpcalc::cli {
namespace {

const std::vector<Column> kPlanColumns = {{"plan", "FBillNo", -14},
                                          {"line", "FKey", -8},
                                          {"item", "FItemNumber", -6},
                                          {"name", "FItemName", -10},
                                          {"supplier", "FSupplyNumber", -8},
                                          {"qty", "FQty", 9},
                                          {"to push", "FPushQty", 9},
                                          {"ordered", "FPurchaseFinishQty", 9},
                                          {"price", "FPrice", 8},
                                          {"closed", "FClosed", 6},
                                          {"needed on", "FFinishDate", -10},
                                          {"sources", "FSourceNo", -24}};

// The source lines of the named bills (every open one when none is named),
// as the plan links them: what each still needs, in base units.
VectorPtr SourceLines(const std::string& dsn, const std::vector<std::string>& bills) {
  auto c = db::Open(dsn);
  auto rows = Vector::Create();
  for (const auto& l : mrp::OpenDemandOf(*c, bills)) {
    auto row = Dictionary::Create();
    row->Set("Ftrantype", l.tran_type);
    row->Set("FBillNo", l.bill_no);
    row->Set("FInterID", l.inter_id);
    row->Set("FEntryID", l.entry_id);
    row->Set("FQty", l.open_qty);
    rows->Add(row);
  }
  return rows;
}

// The plan lines named by their keys ("1000_1"), as the report gives them.
std::vector<DictionaryPtr> PlanLines(const Host& host, const std::string& dsn,
                                     const std::vector<std::string>& keys) {
  PurchasePlanInfo info(host);
  std::string none;
  const VectorPtr all = info.GetRptData(dsn, Dictionary::Create(), 1, none);
  std::vector<DictionaryPtr> out;
  for (const auto& key : keys) {
    DictionaryPtr found;
    for (const auto& row : all->rows()) {
      if (row->Get("FKey").ToText() == key) found = row;
    }
    if (!found) ThrowInvalid("no plan line " + key + " (plan lines are named as 1000_1)");
    out.push_back(found);
  }
  return out;
}

VectorPtr Push(const Host& host, const std::string& dsn, const std::vector<DictionaryPtr>& lines,
               int biller, const Date& date, std::string& ids) {
  auto push = Vector::Create();
  for (const auto& l : lines) {
    const std::string key = l->Get("FKey").ToText();
    if (l->Get("FSupplyID").IsNull() || l->Get("FSupplyID").ToLong() == 0) {
      ThrowInvalid("plan line " + key + " has no supplier: give it one before pushing");
    }
    auto part = Dictionary::Create();
    part->Set("FKey", key);
    part->Set("FInterID", l->Get("FInterID"));
    part->Set("FEntryID", l->Get("FEntryID"));
    part->Set("FItemID", l->Get("FItemID"));
    part->Set("FBillNo", l->Get("FBillNo"));
    part->Set("FPushQty", l->Get("FPushQty"));
    auto parts = Vector::Create();
    parts->Add(part);
    auto row = Dictionary::Create();
    for (const char* k : {"FKey", "FSupplyID", "FItemID", "FAuxPropID", "FUnitID", "FPushQty",
                          "FPrice", "FDiscountRate", "FTaxRate", "FMemo", "FFinishDate", "FBillNo",
                          "FIsMerge", "FStartKey", "FEndKey", "FMergeSumQty"}) {
      row->Set(k, l->Get(k));
    }
    row->Set("EntryDataVct", parts);
    push->Add(row);
  }
  PurchasePlanUpdate update(host);
  return update.PushBill(dsn, push, biller, ids, date);
}

Date DayOf(const std::string& text) {
  if (text.empty()) return Date::Now().StartOfDay();
  const auto d = Date::Parse(text);
  if (!d) ThrowInvalid("\"" + text + "\" is not a date (YYYY-MM-DD)");
  return *d;
}

const std::vector<Column> kRefusalColumns = {{"plan", "FBillNo", -14},
                                             {"line", "FEntryID", 4},
                                             {"done", "Succeed", 4},
                                             {"closed", "FClosed", 6},
                                             {"message", "Error", -40}};

}  // namespace

int RunPlanSave(const Host& host, const PlanOptions& o) {
  const VectorPtr lines = LinesToBuy(ReadRowsFile(o.report), o.suppliers);
  PurchasePlanUpdate update(host);
  const std::string no =
      update.UpdatePurchasePlan(o.dsn, SourceLines(o.dsn, o.bills), lines, o.user);
  fmt::print("saved purchase plan {} with {} line(s)\n", no, lines->Count());
  return 0;
}

int RunPlanList(const Host& host, const PlanOptions& o) {
  auto filter = Dictionary::Create();
  if (!o.from.empty()) filter->Set("BDate", DayOf(o.from));
  if (!o.to.empty()) filter->Set("EDate", DayOf(o.to));
  if (!o.first_item.empty()) filter->Set("BItemNumber", o.first_item);
  if (!o.last_item.empty()) filter->Set("EItemNumber", o.last_item);
  if (!o.first_bill.empty()) filter->Set("BBillNo", o.first_bill);
  if (!o.last_bill.empty()) filter->Set("EBillNo", o.last_bill);
  if (o.open_only) filter->Set("Closed", 1);
  PurchasePlanInfo info(host);
  std::string bill_no = o.bill_no;
  PrintRows(info.GetRptData(o.dsn, filter, o.user, bill_no), o.format, kPlanColumns);
  return 0;
}

int RunPlanPush(const Host& host, const PlanOptions& o) {
  std::string ids;
  const VectorPtr made =
      Push(host, o.dsn, PlanLines(host, o.dsn, o.lines), o.user, DayOf(o.date), ids);
  PrintRows(made, o.format,
            {{"order", "FBillNO", -18},
             {"id", "FInterID", 5},
             {"supplier", "FSupplyName", -24},
             {"date", "FDate", -10}});
  return 0;
}

int RunPlanClose(const Host& host, const PlanOptions& o, bool reopen) {
  auto rows = Vector::Create();
  for (const auto& key : o.lines) {
    const size_t cut = key.find('_');
    const auto ids = db::ParseIdList(
        cut == std::string::npos ? "" : key.substr(0, cut) + "," + key.substr(cut + 1),
        "plan line " + key);
    if (ids.size() != 2) ThrowInvalid("plan line \"" + key + "\" is not PLAN_LINE, e.g. 1000_1");
    auto row = Dictionary::Create();
    row->Set("FInterID", ids[0]);
    row->Set("FEntryID", ids[1]);
    rows->Add(row);
  }
  PurchasePlanUpdate update(host);
  const VectorPtr done =
      reopen ? update.UnClosePurchasePlan(o.dsn, rows) : update.ClosePurchasePlan(o.dsn, rows);
  PrintRows(done, o.format,
            {{"plan", "FInterID", 6},
             {"line", "FEntryID", 4},
             {"done", "Succeed", 4},
             {"closed", "FClosed", 6},
             {"message", "Error", -40}});
  return 0;
}

int RunPlanDelete(const Host& host, const PlanOptions& o) {
  std::map<std::string, int32_t> ids;
  {
    auto c = db::Open(o.dsn);
    ids = repo::PlanIdsByNumber(*c, o.plans);
  }
  auto rows = Vector::Create();
  for (const auto& no : o.plans) {
    auto it = ids.find(FoldKey(no));
    if (it == ids.end()) ThrowInvalid("no purchase plan " + no);
    auto row = Dictionary::Create();
    row->Set("FInterID", it->second);
    row->Set("FBillNo", no);
    rows->Add(row);
  }
  PurchasePlanUpdate update(host);
  PrintRows(update.DeletePurchasePlan(o.dsn, rows), o.format, kRefusalColumns);
  return 0;
}

void RunDemoPlans(const Host& host, const std::string& dsn, const VectorPtr& report) {
  fmt::print(
      "\nThe plan stage: the same suggestions saved as a purchase plan "
      "(UpdatePurchasePlan), made from every open source document:\n\n");
  PurchasePlanUpdate update(host);
  const std::string no =
      update.UpdatePurchasePlan(dsn, SourceLines(dsn, {}), LinesToBuy(report, kDemoSuppliers), 16);
  PurchasePlanInfo info(host);
  std::string bill_no = no;
  const VectorPtr lines = info.GetRptData(dsn, Dictionary::Create(), 1, bill_no);
  PrintRows(lines, "table", kPlanColumns);
  if (lines->Count() < 2) return;
  fmt::print("\nIts first two lines pushed into purchase orders (PushBill):\n\n");
  std::string ids;
  PrintRows(Push(host, dsn, {lines->Item(1), lines->Item(2)}, 16, Date::Now().StartOfDay(), ids),
            "table",
            {{"order", "FBillNO", -18},
             {"id", "FInterID", 5},
             {"supplier", "FSupplyName", -24},
             {"date", "FDate", -10}});
  fmt::print(
      "\nIts last line closed by hand (ClosePurchasePlan), and the plan's deletion "
      "refused (DeletePurchasePlan):\n\n");
  auto last = Dictionary::Create();
  last->Set("FInterID", lines->Item(lines->Count())->Get("FInterID"));
  last->Set("FEntryID", lines->Item(lines->Count())->Get("FEntryID"));
  auto closing = Vector::Create();
  closing->Add(last);
  update.ClosePurchasePlan(dsn, closing);
  auto plan = Dictionary::Create();
  plan->Set("FInterID", lines->Item(1)->Get("FInterID"));
  plan->Set("FBillNo", no);
  auto deleting = Vector::Create();
  deleting->Add(plan);
  PrintRows(update.DeletePurchasePlan(dsn, deleting), "table", kRefusalColumns);
  fmt::print("\nThe plan now:\n\n");
  PrintRows(info.GetRptData(dsn, Dictionary::Create(), 1, bill_no), "table", kPlanColumns);
}

}  // namespace mrpcalc::cli
