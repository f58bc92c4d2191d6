// Time-phased plans as rows.
#include "mrp/phased_rows.h"

#include <algorithm>
#include <unordered_map>

#include "record/error.h"
#include "record/text.h"

namespace mrpcalc::mrp::phased {
namespace {

VectorPtr Rows(const KeyList& keys, std::vector<std::vector<Variant>> values) {
  auto rows = Vector::Create();
  for (auto& cells : values) {
    auto row = Dictionary::Create(keys);
    for (size_t i = 0; i < cells.size(); ++i) row->SetAt(i, std::move(cells[i]));
    rows->Add(row);
  }
  return rows;
}

std::string DateText(Day day) { return DateOf(day).ToDateString(); }

// Items by id, for their numbers and names.
std::unordered_map<int32_t, const Item*> ById(const Input& input) {
  std::unordered_map<int32_t, const Item*> out;
  out.reserve(input.items.size());
  for (const Item& i : input.items) out[i.id] = &i;
  return out;
}

std::string Joined(const std::vector<Reason>& reasons) {
  std::string text;
  for (const Reason& r : reasons) text += (text.empty() ? "" : "; ") + r.text();
  return text;
}

}  // namespace

VectorPtr PlannedOrderRows(const Input& input, const Result& result, bool with_pegging) {
  static const KeyList keys =
      MakeKeyList({"FItemID", "FItemNumber", "FItemName", "FKind", "FSupplyID", "FQty", "FDue",
                   "FRelease", "FLate", "FReasons", "FPegging", "FUnitID"});
  const auto items = ById(input);
  std::vector<std::vector<Variant>> values;
  values.reserve(result.orders.size());
  for (const PlannedOrder& o : result.orders) {
    const Item& item = *items.at(o.item);
    std::string pegs;
    for (const Requirement& p : with_pegging ? o.pegs : std::vector<Requirement>{}) {
      pegs += (pegs.empty() ? "" : "; ") + p.source + " " + FormatDouble(p.qty);
    }
    values.push_back({o.item, item.number, item.name, item.made ? "production" : "purchase",
                      item.supplier, o.qty, DateText(o.due), DateText(o.release),
                      o.late ? 1 : 0, Joined(o.reasons), pegs, item.unit});
  }
  return Rows(keys, std::move(values));
}

VectorPtr ItemRows(const Input& input, const Result& result,
                   const std::map<int32_t, std::string>& supplier_numbers) {
  static const KeyList keys = MakeKeyList(
      {"FItemID", "FItemNumber", "FItemName", "FKind", "FSupplyID", "FSupplyNumber", "FOnHand",
       "FSafety", "FOrders", "FQty", "FLate", "FShortage", "FBelowSafety", "FNoSupplier",
       "FActions"});
  struct Tally {
    int orders = 0, late = 0, actions = 0;
    double qty = 0;
  };
  std::unordered_map<int32_t, Tally> tally;
  for (const PlannedOrder& o : result.orders) {
    Tally& t = tally[o.item];
    ++t.orders;
    t.late += o.late;
    t.qty += o.qty;
  }
  for (const ActionMessage& a : result.actions) ++tally[a.item].actions;
  std::vector<std::vector<Variant>> values;
  for (const Item& i : input.items) {
    const Tally& t = tally[i.id];
    const auto safety_of = result.safety.find(i.id);
    const double safety = safety_of == result.safety.end() ? 0 : safety_of->second;
    const auto supplier = supplier_numbers.find(i.supplier);
    values.push_back({i.id, i.number, i.name, i.made ? "production" : "purchase", i.supplier,
                      supplier == supplier_numbers.end() ? "" : supplier->second, i.on_hand, safety,
                      t.orders, t.qty, t.late, t.orders > 0 ? 1 : 0, i.on_hand < safety ? 1 : 0,
                      !i.made && t.orders > 0 && supplier == supplier_numbers.end() ? 1 : 0,
                      t.actions});
  }
  return Rows(keys, std::move(values));
}

VectorPtr ActionRows(const Input& input, const Result& result) {
  static const KeyList keys = MakeKeyList(
      {"FKind", "FItemID", "FItemNumber", "FReceipt", "FDate", "FNeeded", "FQty"});
  const auto items = ById(input);
  std::vector<std::vector<Variant>> values;
  for (const ActionMessage& a : result.actions) {
    values.push_back({a.kind, a.item, items.at(a.item)->number, a.receipt, DateText(a.from),
                      a.kind == "cancel" ? Variant::Null() : Variant(DateText(a.to)), a.qty});
  }
  return Rows(keys, std::move(values));
}

std::vector<Day> BucketBounds(const std::string& size, Day from, Day to) {
  std::vector<Day> bounds;
  if (to < from) to = from;
  if (size == "day" || size == "week") {
    const int days = size == "day" ? 1 : 7;
    // Weeks start on Monday (day 2 counted from the zero date, a Saturday).
    Day start = size == "day" ? from : from - ((from + 5) % 7 + 7) % 7;
    for (; start <= to; start += days) bounds.push_back(start);
    bounds.push_back(start);
    return bounds;
  }
  if (size == "month") {
    const Date first = DateOf(from);
    int year = first.year(), month = first.month();
    for (;;) {
      const Day start = DayOf(Date::FromParts(year, month, 1));
      bounds.push_back(start);
      if (start > to) break;
      if (++month == 13) {
        month = 1;
        ++year;
      }
    }
    return bounds;
  }
  ThrowInvalid("a bucket is \"day\", \"week\" or \"month\", not \"" + size + "\"");
}

std::pair<Day, Day> Horizon(const Input& input, const Result& result) {
  Day from = input.today, to = input.today;
  auto widen = [&](Day d) {
    from = std::min(from, d);
    to = std::max(to, d);
  };
  for (const auto& [item, needs] : result.gross) {
    for (const Requirement& r : needs) widen(r.day);
  }
  for (const PlannedOrder& o : result.orders) {
    widen(o.due);
    widen(o.release);
  }
  for (const auto& [item, receipts] : result.scheduled) {
    for (const Receipt& r : receipts) widen(r.day);
  }
  return {from, to};
}

VectorPtr BucketRows(const Input& input, const Result& result, const std::string& size,
                     int32_t item) {
  static const KeyList keys =
      MakeKeyList({"FItemID", "FItemNumber", "FFrom", "FGross", "FScheduled", "FProjected", "FNet",
                   "FPlannedReceipts", "FPlannedReleases"});
  const auto [from, to] = Horizon(input, result);
  const std::vector<Day> bounds = BucketBounds(size, from, to);
  std::vector<std::vector<Variant>> values;
  bool found = item == 0;
  for (const Item& i : input.items) {
    if (item != 0 && i.id != item) continue;
    found = true;
    const bool active = result.gross.count(i.id) || result.scheduled.count(i.id) || i.on_hand != 0;
    if (item == 0 && !active) continue;
    for (const Bucket& b : Buckets(input, result, i.id, bounds)) {
      values.push_back({i.id, i.number, DateText(b.from), b.gross, b.scheduled, b.projected, b.net,
                        b.planned_receipts, b.planned_releases});
    }
  }
  if (!found) throw Error(ErrorCategory::kNotFound, "no planned item " + std::to_string(item));
  return Rows(keys, std::move(values));
}

std::vector<repo::SavedOrder> OrdersToSave(const Input& input, const Result& result) {
  const auto items = ById(input);
  std::vector<repo::SavedOrder> out;
  out.reserve(result.orders.size());
  for (const PlannedOrder& o : result.orders) {
    out.push_back({o.item, items.at(o.item)->number, o.qty, o.due, o.release, o.late,
                   Joined(o.reasons)});
  }
  return out;
}

VectorPtr ChangeRows(const std::vector<repo::SavedOrder>& before,
                     const std::vector<repo::SavedOrder>& after) {
  static const KeyList keys = MakeKeyList(
      {"FKind", "FItemID", "FItemNumber", "FDueBefore", "FDueAfter", "FQtyBefore", "FQtyAfter"});
  std::unordered_map<int32_t, std::string> numbers;
  auto as_orders = [&](const std::vector<repo::SavedOrder>& saved) {
    std::vector<PlannedOrder> orders;
    for (const repo::SavedOrder& s : saved) {
      numbers[s.item] = s.number;
      PlannedOrder o;
      o.item = s.item;
      o.qty = s.qty;
      o.due = s.due;
      o.release = s.release;
      orders.push_back(std::move(o));
    }
    return orders;
  };
  const auto was = as_orders(before), is = as_orders(after);
  std::vector<std::vector<Variant>> values;
  for (const Change& c : Compare(was, is)) {
    const bool had = c.kind != "added", has = c.kind != "removed";
    values.push_back({c.kind, c.item, numbers[c.item],
                      had ? Variant(DateText(c.due_before)) : Variant::Null(),
                      has ? Variant(DateText(c.due_after)) : Variant::Null(),
                      had ? Variant(c.qty_before) : Variant::Null(),
                      has ? Variant(c.qty_after) : Variant::Null()});
  }
  return Rows(keys, std::move(values));
}

}  // namespace mrpcalc::mrp::phased
