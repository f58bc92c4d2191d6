// Time-phased plans as rows.
#include "mrp/phased_rows.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <functional>
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

// Rows made as they are written: `visit(i, cells)` gives row i's values.
class LazyRows final : public RowSource {
 public:
  using Visitor = std::function<void(size_t, CellVisitor&)>;
  LazyRows(const KeyList& keys, size_t size, Visitor visit)
      : keys_(keys), size_(size), visit_(std::move(visit)) {}
  size_t size() const override { return size_; }
  const KeyList& keys() const override { return keys_; }
  void Visit(size_t i, CellVisitor& cells) const override { visit_(i, cells); }

 private:
  KeyList keys_;
  size_t size_;
  Visitor visit_;
};

// Items by id, for their numbers and names.
std::unordered_map<int32_t, const Item*> ById(const Input& input) {
  std::unordered_map<int32_t, const Item*> out;
  out.reserve(input.items.size());
  for (const Item& i : input.items) out[i.id] = &i;
  return out;
}

std::string Joined(const std::vector<Reason>& reasons, bool chinese = false) {
  std::string text;
  for (const Reason& r : reasons) text += (text.empty() ? "" : "; ") + r.text(chinese);
  return text;
}

}  // namespace

VectorPtr PlannedOrderRows(const PlanPtr& plan, bool with_pegging) {
  static const KeyList keys =
      MakeKeyList({"FItemID", "FItemNumber", "FItemName", "FKind", "FSupplyID", "FQty", "FDue",
                   "FRelease", "FLate", "FReasons", "FPegging", "FUnitID"});
  // Rows are written in order: an item's pegging is worked out once, at
  // its first order.
  struct Cache {
    int32_t item = -1;
    size_t first = 0;  // the item's first order
    std::vector<std::vector<Requirement>> pegs;
  };
  auto cache = std::make_shared<Cache>();
  return Vector::Create(std::make_shared<LazyRows>(
      keys, plan->result.orders.size(), [plan, with_pegging, cache](size_t i, CellVisitor& c) {
        const Input& in = plan->input;
        const Result& result = plan->result;
        const PlannedOrder& o = result.orders[i];
        const Item& item = *FindItem(in, o.item);
        c.Long(o.item);
        c.Text(item.number);
        c.Text(item.name);
        c.Text(item.made ? "production" : "purchase");
        c.Long(item.supplier);
        c.Double(o.qty);
        c.Text(DateText(o.due));
        c.Text(DateText(o.release));
        c.Long(o.late ? 1 : 0);
        c.Text(Joined(Reasons(in, result, o)));
        std::string pegs;
        if (with_pegging) {
          if (cache->item != o.item || i < cache->first) {
            cache->item = o.item;
            cache->first = i;
            while (cache->first > 0 && result.orders[cache->first - 1].item == o.item) --cache->first;
            cache->pegs = Pegs(in, result, o.item);
          }
          for (const Requirement& p : cache->pegs.at(i - cache->first)) {
            pegs += (pegs.empty() ? "" : "; ") + SourceText(in, result, p) + " " + FormatDouble(p.qty);
          }
        }
        c.Text(pegs);
        c.Long(item.unit);
      }));
}

VectorPtr ItemRows(const PlanPtr& plan, std::map<int32_t, std::string> supplier_numbers) {
  static const KeyList keys = MakeKeyList(
      {"FItemID", "FItemNumber", "FItemName", "FKind", "FSupplyID", "FSupplyNumber", "FOnHand",
       "FSafety", "FOrders", "FQty", "FLate", "FShortage", "FBelowSafety", "FNoSupplier",
       "FActions"});
  struct Tally {
    int32_t orders = 0, late = 0, actions = 0;
    double qty = 0;
  };
  auto tally = std::make_shared<std::vector<Tally>>(plan->input.items.size());
  std::unordered_map<int32_t, size_t> position;
  for (size_t k = 0; k < plan->input.items.size(); ++k) position[plan->input.items[k].id] = k;
  for (const PlannedOrder& o : plan->result.orders) {
    Tally& t = (*tally)[position.at(o.item)];
    ++t.orders;
    t.late += o.late;
    t.qty += o.qty;
  }
  for (const ActionMessage& a : plan->result.actions) ++(*tally)[position.at(a.item)].actions;
  auto numbers = std::make_shared<std::map<int32_t, std::string>>(std::move(supplier_numbers));
  return Vector::Create(std::make_shared<LazyRows>(
      keys, plan->input.items.size(), [plan, tally, numbers](size_t k, CellVisitor& c) {
        const Item& i = plan->input.items[k];
        const Tally& t = (*tally)[k];
        const auto safety_of = plan->result.safety.find(i.id);
        const double safety = safety_of == plan->result.safety.end() ? 0 : safety_of->second;
        const auto supplier = numbers->find(i.supplier);
        const bool has_supplier = supplier != numbers->end();
        c.Long(i.id);
        c.Text(i.number);
        c.Text(i.name);
        c.Text(i.made ? "production" : "purchase");
        c.Long(i.supplier);
        c.Text(has_supplier ? supplier->second : "");
        c.Double(i.on_hand);
        c.Double(safety);
        c.Long(t.orders);
        c.Double(t.qty);
        c.Long(t.late);
        c.Long(t.orders > 0 ? 1 : 0);
        c.Long(i.on_hand < safety ? 1 : 0);
        c.Long(!i.made && t.orders > 0 && !has_supplier ? 1 : 0);
        c.Long(t.actions);
      }));
}

VectorPtr OrderRowsOf(const PlanPtr& plan, int32_t item, const std::string& kind, bool english) {
  static const KeyList keys =
      MakeKeyList({"FOrder", "FItemID", "FItemNumber", "FItemName", "FKind", "FSupplyID", "FQty",
                   "FDue", "FRelease", "FLate", "FReasons", "FUnitID"});
  if (!kind.empty() && kind != "purchase" && kind != "production") {
    ThrowInvalid("an order's kind is \"purchase\" or \"production\", not \"" + kind + "\"");
  }
  const Input& in = plan->input;
  const Result& result = plan->result;
  if (item != 0 && !FindItem(in, item)) {
    throw Error(ErrorCategory::kNotFound, "no planned item " + std::to_string(item));
  }
  std::vector<std::vector<Variant>> values;
  for (size_t n = 0; n < result.orders.size(); ++n) {
    const PlannedOrder& o = result.orders[n];
    if (item != 0 && o.item != item) continue;
    const Item& i = *FindItem(in, o.item);
    const char* made = i.made ? "production" : "purchase";
    if (!kind.empty() && kind != made) continue;
    values.push_back({int32_t(n), o.item, i.number, i.name, made, i.supplier, o.qty,
                      DateText(o.due), DateText(o.release), o.late ? 1 : 0,
                      Joined(Reasons(in, result, o), !english), i.unit});
  }
  return Rows(keys, std::move(values));
}

VectorPtr SupplierRows(const PlanPtr& plan, const std::map<int32_t, std::string>& supplier_numbers) {
  static const KeyList keys =
      MakeKeyList({"FSupplyID", "FSupplyNumber", "FLines", "FQty", "FRelease", "FLate"});
  struct Group {
    int32_t lines = 0, late = 0;
    double qty = 0;
    Day release = 0;
  };
  std::map<int32_t, Group> groups;
  for (const PlannedOrder& o : plan->result.orders) {
    const Item& i = *FindItem(plan->input, o.item);
    if (i.made) continue;
    const int32_t supplier = supplier_numbers.count(i.supplier) ? i.supplier : 0;
    Group& g = groups[supplier];
    g.release = g.lines == 0 ? o.release : std::min(g.release, o.release);
    ++g.lines;
    g.late += o.late;
    g.qty += o.qty;
  }
  std::vector<std::vector<Variant>> values;
  for (const auto& [supplier, g] : groups) {
    const auto number = supplier_numbers.find(supplier);
    values.push_back({supplier, number == supplier_numbers.end() ? "" : number->second, g.lines,
                      g.qty, DateText(g.release), g.late});
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

std::pair<Day, Day> Horizon(const Input&, const Result& result) {
  return {result.first_day, result.last_day};
}

VectorPtr BucketRows(const PlanPtr& plan, const std::string& size, int32_t item) {
  static const KeyList keys =
      MakeKeyList({"FItemID", "FItemNumber", "FFrom", "FGross", "FScheduled", "FProjected", "FNet",
                   "FPlannedReceipts", "FPlannedReleases"});
  const Input& in = plan->input;
  const Result& result = plan->result;
  const auto [from, to] = Horizon(in, result);
  auto bounds = std::make_shared<const std::vector<Day>>(BucketBounds(size, from, to));
  // The items shown: one, or each with anything needed, scheduled or on hand.
  auto shown = std::make_shared<std::vector<const Item*>>();
  if (item != 0) {
    const Item* one = FindItem(in, item);
    if (!one) throw Error(ErrorCategory::kNotFound, "no planned item " + std::to_string(item));
    shown->push_back(one);
  } else {
    for (const Item& i : in.items) {
      const auto g = result.gross.find(i.id);
      if ((g != result.gross.end() && !g->second.empty()) || result.scheduled.count(i.id) ||
          i.on_hand != 0) {
        shown->push_back(&i);
      }
    }
  }
  const size_t per_item = bounds->size() - 1;
  // Rows are written in order: each item's buckets are worked out once.
  struct Cache {
    size_t item = SIZE_MAX;
    std::vector<Bucket> buckets;
  };
  auto cache = std::make_shared<Cache>();
  return Vector::Create(std::make_shared<LazyRows>(
      keys, shown->size() * per_item,
      [plan, bounds, shown, per_item, cache](size_t row, CellVisitor& c) {
        const size_t k = row / per_item;
        const Item& i = *(*shown)[k];
        if (cache->item != k) {
          cache->item = k;
          cache->buckets = Buckets(plan->input, plan->result, i.id, *bounds);
        }
        const Bucket& b = cache->buckets[row % per_item];
        c.Long(i.id);
        c.Text(i.number);
        c.Text(DateText(b.from));
        for (double v : {b.gross, b.scheduled, b.projected, b.net, b.planned_receipts,
                         b.planned_releases}) {
          c.Double(v);
        }
      }));
}

Day ParseDay(const std::string& text, const std::string& what) {
  const auto date = Date::Parse(text);
  if (!date) ThrowInvalid(what + " \"" + text + "\" is not a date (YYYY-MM-DD)");
  return DayOf(*date);
}

VectorPtr RunRows(const std::vector<repo::SavedRun>& runs) {
  static const KeyList keys = MakeKeyList({"FRunID", "FCreated", "FUserID", "FSettings"});
  std::vector<std::vector<Variant>> values;
  for (const repo::SavedRun& r : runs) values.push_back({r.id, r.created.ToString(), r.user, r.settings});
  return Rows(keys, std::move(values));
}

std::vector<repo::SavedOrder> OrdersToSave(const Input& input, const Result& result) {
  const auto items = ById(input);
  std::vector<repo::SavedOrder> out;
  out.reserve(result.orders.size());
  for (const PlannedOrder& o : result.orders) {
    out.push_back({o.item, items.at(o.item)->number, o.qty, o.due, o.release, o.late,
                   Joined(Reasons(input, result, o))});
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
