// Time-phased planning, the calculation alone: dated requirements netted
// day by day against stock and scheduled receipts, with lead times on a
// working calendar, lot rules and safety stock, giving planned orders with
// their due and release dates, the reasons that shaped each, and action
// messages for the open supply. A second planning mode beside the ERP's
// report, which stays as it is; with every parameter at its default (no
// lead time, no lot rule, no safety stock) the planned quantity of each
// item is its net requirement.
//
// Days are whole days counted from the ERP's zero date (1899-12-30).
#pragma once

#include <array>
#include <cstdint>
#include <utility>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "record/date.h"

namespace mrpcalc::mrp::phased {

using Day = int32_t;
Day DayOf(const Date& date);
Date DateOf(Day day);

// Working weekdays (Monday first) and holidays.
struct Calendar {
  std::array<bool, 7> working = {true, true, true, true, true, false, false};
  std::set<Day> holidays;

  bool IsWorking(Day day) const;
  // The working day `n` working days before `day` (n 0: `day` itself, or
  // the working day before it when it is not one).
  Day WorkingDaysBefore(Day day, int n) const;
  // The day `n` working days after `day`.
  Day WorkingDaysAfter(Day day, int n) const;
};

// What shapes an item's planned orders; the defaults change nothing.
struct Parameters {
  int lead_time = 0;                   // working days, purchase or fixed production
  double lead_time_per_unit = 0;       // working days per unit made, rounded up
  double safety_stock = 0;
  double min_qty = 0, multiple = 0, max_qty = 0;  // 0: no rule; the maximum splits
  int order_period = 0;                // days of demand grouped into one order
  int firm_fence = 0;                  // working days from today no order is planned in
  double safety_days = 0;              // safety stock as days of the average daily need, added
};

// One need of an item on a day: a demand line (its text in
// Input::sources), or a parent's planned order.
struct Requirement {
  Day day = 0;
  int32_t source = 0;  // >= 0: Input::sources[source]; < 0: the planned order -source - 1
  double qty = 0;
};

// Open supply of an item: a purchase order line or production task.
struct Receipt {
  std::string id;
  Day day = 0;
  double qty = 0;
};

struct Component {
  int32_t item = 0;
  double qty_per = 0;  // per unit of the parent
};

struct Item {
  int32_t id = 0;
  std::string number;
  bool made = false;  // planned orders are production orders
  Parameters parameters;
  double on_hand = 0;
  std::vector<Receipt> receipts;
  std::vector<Requirement> demand;  // independent demand
  std::vector<Component> components;
  std::string name;
  int32_t supplier = 0;  // the default supplier, 0 for none
  int32_t unit = 0;
};

// A rule that shaped a planned order, as data: a code and its figures.
struct Reason {
  const char* code = "";  // "net", "safety", "minimum", "multiple", "maximum", "period", "lead", "late", "fence"
  double value = 0;
  Day day = 0;
  // In English, or in Chinese for the workbench's planners.
  std::string text(bool chinese = false) const;
};

// The rules an order met beyond its net requirement and lead time.
enum Rule : uint8_t {
  kSafetyRule = 1,
  kMinimumRule = 2,
  kMultipleRule = 4,
  kMaximumRule = 8,
  kPeriodRule = 16,
  kFenceRule = 32,
};

// A planned order, kept small (a factory plans hundreds of thousands):
// its reasons and pegging are worked out when asked for (Reasons, Pegs).
struct PlannedOrder {
  int32_t item = 0;
  Day due = 0, release = 0;
  int32_t lead = 0;  // working days from release to due
  double qty = 0;
  double net = 0;     // the need on its due day the stock did not cover
  uint8_t rules = 0;  // Rule bits
  bool late = false;  // its release day is before today
};

struct ActionMessage {
  std::string kind;  // "expedite", "defer", "cancel"
  int32_t item = 0;
  std::string receipt;
  Day from = 0, to = 0;  // its day, and the day it is needed (cancel: none)
  double qty = 0;
};

struct Input {
  std::vector<Item> items;
  std::vector<std::string> sources;  // what Requirement::source names: "SEORD000001/2"
  Calendar calendar;
  Day today = 0;
};

struct Result {
  std::vector<PlannedOrder> orders;     // by item's low-level code, item, due day
  std::vector<ActionMessage> actions;   // by item, receipt day
  std::map<int32_t, int> low_level;     // item -> its deepest level (0: top)
  std::map<int32_t, std::vector<Requirement>> gross;  // item -> every need, by day
  std::map<int32_t, std::vector<Receipt>> scheduled;  // item -> open supply, on the day planned
  std::map<int32_t, double> safety;  // item -> safety stock kept, days of cover worked out
  Day first_day = 0, last_day = 0;   // the first and last day the plan touches, today among them
};

// The textbook record of one item over buckets of `days` days from
// `first`: gross requirements (its own demand and its parents' planned
// orders), scheduled receipts (open supply as planned, on the day it is
// needed), projected on hand at each bucket's end, net requirements,
// planned receipts (due) and planned releases.
struct Bucket {
  Day from = 0;  // the bucket's first day
  double gross = 0, scheduled = 0, projected = 0, net = 0, planned_receipts = 0,
         planned_releases = 0;
};
std::vector<Bucket> Buckets(const Input& input, const Result& result, int32_t item, Day first,
                            int days, int count);
// The same over buckets of any length: bucket k runs from bounds[k] to the
// day before bounds[k + 1]. Items are looked up by id (input.items in id
// order, as the bridge makes them, is searched by halving).
std::vector<Bucket> Buckets(const Input& input, const Result& result, int32_t item,
                            const std::vector<Day>& bounds);

// Plans every item, parents before their components. Throws invalid input
// for a bill that leads back to itself or a component that is no item.
Result Plan(const Input& input);

// The rules that shaped an order, in the order they applied: its net
// requirement, safety stock, order period, minimum, multiple, maximum,
// lead time, lateness and firm time fence.
std::vector<Reason> Reasons(const Input& input, const Result& result, const PlannedOrder& order);
// Pegging: stock, open supply and then the planned orders cover an item's
// needs first come, first served; what an order covers are its pegs. By
// order of the item, in result.orders' order.
std::vector<std::vector<Requirement>> Pegs(const Input& input, const Result& result, int32_t item);
// A need's origin as text: its demand line, or "planned A due 2026-12-08".
std::string SourceText(const Input& input, const Result& result, const Requirement& need);
// An item by id; nullptr when the plan has none.
const Item* FindItem(const Input& input, int32_t item);

// What changed in an item's planned orders from one run to the next. The
// orders of an item are paired in due order, equal ones first; a pair that
// differs is moved (its due day), resized (its quantity) or both.
struct Change {
  std::string kind;  // "added", "removed", "moved", "resized", "moved and resized"
  int32_t item = 0;
  Day due_before = 0, due_after = 0;
  double qty_before = 0, qty_after = 0;
};
std::vector<Change> Compare(const std::vector<PlannedOrder>& before,
                            const std::vector<PlannedOrder>& after);

}  // namespace mrpcalc::mrp::phased
