// The time-phased planning commands.
#include "cli/phased.h"

#include <fmt/core.h>

#include <array>
#include <iostream>
#include <nlohmann/json.hpp>

#include "cli/buyer.h"
#include "db/connection.h"
#include "mrp/mrp_data_info.h"
#include "mrp/phased_repository.h"
#include "mrp/phased_rows.h"
#include "record/error.h"
#include "record/text.h"
#include "schema/erp_schema.h"

namespace mrpcalc::cli {
namespace {

namespace phased = mrp::phased;

phased::Day Today(const std::string& text) {
  return text.empty() ? phased::DayOf(Date::Now().StartOfDay()) : phased::ParseDay(text, "--today");
}

// A session on the database with our own tables in place.
db::ConnectionPtr Open(const std::string& dsn) {
  auto c = db::Open(dsn);
  schema::UpgradeOwnTables(*c, schema::Upgrade::kWithErpTables);
  return c;
}

// What a run was asked, kept with it.
std::string Settings(const PhasedOptions& o, phased::Day today) {
  const mrp::ReportRequest& r = o.report;
  nlohmann::json s = {{"bills", r.bills},           {"sub_id", r.sub_id},
                      {"today", phased::DateOf(today).ToDateString()},
                      {"now_stock", r.now_stock},   {"save_stock", r.save_stock},
                      {"moving", r.moving},         {"producing", r.producing},
                      {"virtual", r.virtual_stock}, {"warehouses", r.warehouses}};
  return s.dump();
}

int32_t PlannedItem(const phased::Input& input, const std::string& number) {
  for (const phased::Item& i : input.items) {
    if (FoldKey(i.number) == FoldKey(number)) return i.id;
  }
  throw Error(ErrorCategory::kNotFound, "item \"" + number + "\" is not in the plan");
}

}  // namespace

int RunPhased(const Host& host, const PhasedOptions& o) {
  const phased::Day today = Today(o.today);
  MrpDataInfo info(host);
  const auto plan = std::make_shared<const MrpDataInfo::PhasedPlan>(
      info.GetPhasedPlanFor(o.dsn, o.report, today));
  for (const auto& m : host.messages->messages()) std::cerr << m << "\n";
  if (o.save) {
    auto c = Open(o.dsn);
    db::Transaction tx(*c);
    const int32_t id = repo::SaveRun(*c, o.report.user, Settings(o, today),
                                     phased::OrdersToSave(plan->input, plan->result));
    tx.Commit();
    std::cerr << "saved as run " << id << "\n";
  }
  if (o.actions) {
    PrintRows(phased::ActionRows(plan->input, plan->result), o.format,
              {{"action", "FKind", -8},
               {"item", "FItemNumber", -8},
               {"receipt", "FReceipt", -16},
               {"date", "FDate", -10},
               {"needed", "FNeeded", -10},
               {"qty", "FQty", 10}});
    return 0;
  }
  if (!o.bucket.empty()) {
    const int32_t item = o.item.empty() ? 0 : PlannedItem(plan->input, o.item);
    PrintRows(phased::BucketRows(plan, o.bucket, item), o.format,
              {{"item", "FItemNumber", -8},
               {"from", "FFrom", -10},
               {"gross", "FGross", 10},
               {"sched", "FScheduled", 10},
               {"on hand", "FProjected", 10},
               {"net", "FNet", 10},
               {"receipts", "FPlannedReceipts", 10},
               {"releases", "FPlannedReleases", 10}});
    return 0;
  }
  PrintRows(phased::PlannedOrderRows(plan), o.format,
            {{"item", "FItemNumber", -8},
             {"name", "FItemName", -12},
             {"kind", "FKind", -10},
             {"qty", "FQty", 10},
             {"due", "FDue", -10},
             {"release", "FRelease", -10},
             {"late", "FLate", 4},
             {"why", "FReasons", -40}});
  return 0;
}

int RunPhasedRuns(const PhasedOptions& o) {
  auto c = Open(o.dsn);
  const VectorPtr rows = phased::RunRows(repo::ReadRuns(*c));
  PrintRows(rows, o.format,
            {{"run", "FRunID", 5}, {"created", "FCreated", -19}, {"user", "FUserID", 5},
             {"settings", "FSettings", -60}});
  return 0;
}

int RunPhasedDiff(const PhasedOptions& o) {
  auto c = Open(o.dsn);
  for (int id : {o.before, o.after}) {
    if (!repo::ReadRun(*c, id)) throw Error(ErrorCategory::kNotFound, "no run " + std::to_string(id));
  }
  const VectorPtr rows =
      phased::ChangeRows(repo::ReadRunOrders(*c, o.before), repo::ReadRunOrders(*c, o.after));
  if (o.format == "table" && rows->Count() == 0) {
    fmt::print("no planned order changed from run {} to run {}\n", o.before, o.after);
    return 0;
  }
  PrintRows(rows, o.format,
            {{"change", "FKind", -17},
             {"item", "FItemNumber", -8},
             {"due was", "FDueBefore", -10},
             {"due now", "FDueAfter", -10},
             {"qty was", "FQtyBefore", 10},
             {"qty now", "FQtyAfter", 10}});
  return 0;
}

int RunPhasedParamSet(const PhasedOptions& o) {
  auto c = Open(o.dsn);
  phased::PlanningParameters p = o.parameters;
  db::Transaction tx(*c);
  p.item = repo::ItemIdByNumber(*c, o.item);
  p.supplier = o.supplier.empty() ? 0 : repo::SupplierIdByNumber(*c, o.supplier);
  repo::WritePlanningParameters(*c, p);
  tx.Commit();
  fmt::print("set the planning parameters of {}{}\n", o.item,
             o.supplier.empty() ? "" : " for supplier " + o.supplier);
  return 0;
}

int RunPhasedParamList(const PhasedOptions& o) {
  auto c = Open(o.dsn);
  std::vector<int32_t> items;
  if (!o.item.empty()) items.push_back(repo::ItemIdByNumber(*c, o.item));
  auto rows = Vector::Create();
  for (const auto& p : repo::ReadPlanningParameters(*c, items)) {
    auto row = Dictionary::Create();
    row->Set("FItemID", p.item);
    row->Set("FSupplyID", p.supplier);
    row->Set("FLeadTime", p.lead_time);
    row->Set("FProdLeadTime", p.production_lead_time);
    row->Set("FProdLeadPerUnit", p.production_lead_per_unit);
    row->Set("FSafetyQty", p.safety_qty);
    row->Set("FSafetyDays", p.safety_days);
    row->Set("FMinQty", p.min_qty);
    row->Set("FMultiple", p.multiple);
    row->Set("FMaxQty", p.max_qty);
    row->Set("FOrderPeriod", p.order_period);
    row->Set("FFirmFence", p.firm_fence);
    rows->Add(row);
  }
  PrintRows(rows, o.format,
            {{"item", "FItemID", 6},    {"supplier", "FSupplyID", 8}, {"lead", "FLeadTime", 5},
             {"make", "FProdLeadTime", 5}, {"per unit", "FProdLeadPerUnit", 8},
             {"safety", "FSafetyQty", 8}, {"days", "FSafetyDays", 5}, {"min", "FMinQty", 8},
             {"multiple", "FMultiple", 8}, {"max", "FMaxQty", 8}, {"period", "FOrderPeriod", 6},
             {"fence", "FFirmFence", 5}});
  return 0;
}

int RunPhasedParamDelete(const PhasedOptions& o) {
  auto c = Open(o.dsn);
  db::Transaction tx(*c);
  const int32_t item = repo::ItemIdByNumber(*c, o.item);
  const int32_t supplier = o.supplier.empty() ? 0 : repo::SupplierIdByNumber(*c, o.supplier);
  if (!repo::DeletePlanningParameters(*c, item, supplier)) {
    throw Error(ErrorCategory::kNotFound, "item " + o.item + " has no planning parameters" +
                                              (o.supplier.empty() ? "" : " for " + o.supplier));
  }
  tx.Commit();
  fmt::print("deleted the planning parameters of {}\n", o.item);
  return 0;
}

int RunPhasedCalendar(const PhasedOptions& o) {
  auto c = Open(o.dsn);
  {
    db::Transaction tx(*c);
    std::array<bool, 7> week = repo::ReadCalendar(*c).working;
    for (const std::string& w : o.weekdays) {
      const auto eq = w.find('=');
      int day = 0, working = -1;
      if (eq != std::string::npos) {
        try {
          day = std::stoi(w.substr(0, eq));
          working = std::stoi(w.substr(eq + 1));
        } catch (const std::exception&) {
          day = 0;
        }
      }
      if (day < 1 || day > 7 || (working != 0 && working != 1)) {
        ThrowInvalid("--weekday takes DAY=0 or DAY=1, DAY 1 (Monday) to 7, not \"" + w + "\"");
      }
      week[size_t(day - 1)] = working == 1;
    }
    if (!o.weekdays.empty()) repo::WriteWorkingWeek(*c, week);
    for (const std::string& h : o.holidays) repo::AddHoliday(*c, phased::ParseDay(h, "--holiday"));
    for (const std::string& h : o.not_holidays) {
      if (!repo::RemoveHoliday(*c, phased::ParseDay(h, "--working"))) {
        throw Error(ErrorCategory::kNotFound, h + " is not a holiday");
      }
    }
    tx.Commit();
  }
  const phased::Calendar calendar = repo::ReadCalendar(*c);
  static const char* const kNames[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
  std::string week;
  for (size_t d = 0; d < 7; ++d) {
    if (calendar.working[d]) week += (week.empty() ? "" : " ") + std::string(kNames[d]);
  }
  fmt::print("working weekdays: {}\n", week);
  std::string holidays;
  for (phased::Day h : calendar.holidays) {
    holidays += (holidays.empty() ? "" : " ") + phased::DateOf(h).ToDateString();
  }
  fmt::print("holidays: {}\n", holidays.empty() ? "none" : holidays);
  return 0;
}

}  // namespace mrpcalc::cli
