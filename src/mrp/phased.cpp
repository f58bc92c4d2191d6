// Time-phased planning: low-level codes, netting by day, lot rules, lead
// times, pegging and action messages.
#include "mrp/phased.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <unordered_map>

#include "record/error.h"

namespace mrpcalc::mrp::phased {
namespace {

constexpr int64_t kSecondsPerDay = 86400;
constexpr double kTolerance = 1e-9;  // quantities this close are equal

std::string Figure(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%.10g", v);
  return text;
}

// An order's quantity after the lot rules, with the rules that applied.
double ApplyLotRules(double need, const Parameters& p, uint8_t& rules) {
  double qty = need;
  if (p.min_qty > 0 && qty < p.min_qty - kTolerance) {
    qty = p.min_qty;
    rules |= kMinimumRule;
  }
  if (p.multiple > 0) {
    const double rounded = std::ceil(qty / p.multiple - kTolerance) * p.multiple;
    if (rounded > qty + kTolerance) rules |= kMultipleRule;
    qty = rounded;
  }
  return qty;
}

// Working days over a span, for lead times in constant time: the k-th
// working day of the span and, per day, how many fall on or before it.
// Days outside the span ask the calendar.
class WorkingDays {
 public:
  WorkingDays(const Calendar& calendar, Day from, Day to) : calendar_(calendar), from_(from) {
    if (to < from) return;
    upto_.resize(size_t(to - from + 1));
    for (Day d = from; d <= to; ++d) {
      if (calendar.IsWorking(d)) days_.push_back(d);
      upto_[size_t(d - from)] = int32_t(days_.size());
    }
  }
  Day Before(Day day, int n) const {
    if (day >= from_ && day - from_ < Day(upto_.size())) {
      const int32_t k = upto_[size_t(day - from_)] - 1 - n;  // the working day on or before, then n back
      if (upto_[size_t(day - from_)] > 0 && k >= 0) return days_[size_t(k)];
    }
    return calendar_.WorkingDaysBefore(day, n);
  }

 private:
  const Calendar& calendar_;
  Day from_;
  std::vector<int32_t> upto_;
  std::vector<Day> days_;
};

struct Supply {
  Day day;
  double qty;
};

// The orders of one item: neighbours, by low-level code, then item.
std::pair<std::vector<PlannedOrder>::const_iterator, std::vector<PlannedOrder>::const_iterator>
OrdersOf(const Result& result, int32_t item) {
  const auto level = result.low_level.find(item);
  const int lev = level == result.low_level.end() ? 0 : level->second;
  auto key = [&](const PlannedOrder& o) {
    auto l = result.low_level.find(o.item);
    return std::pair(l == result.low_level.end() ? 0 : l->second, o.item);
  };
  return std::equal_range(result.orders.begin(), result.orders.end(), std::pair(lev, item),
                          [&](const auto& a, const auto& b) {
                            if constexpr (std::is_same_v<std::decay_t<decltype(a)>, PlannedOrder>) {
                              return key(a) < b;
                            } else {
                              return a < key(b);
                            }
                          });
}

}  // namespace

Day DayOf(const Date& date) { return static_cast<Day>(date.serial_seconds() / kSecondsPerDay); }

Date DateOf(Day day) {
  // The civil date of a day count (days from 1970-01-01, as in the
  // proleptic Gregorian calendar), the zero date being day -25569 of it.
  const int64_t z = static_cast<int64_t>(day) - 25569 + 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  const int d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  const int m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  const int y = static_cast<int>(yoe + era * 400 + (m <= 2 ? 1 : 0));
  return Date::FromParts(y, m, d);
}

bool Calendar::IsWorking(Day day) const {
  const int weekday = ((day + 5) % 7 + 7) % 7;  // 1899-12-30 was a Saturday; Monday is 0
  return working[static_cast<size_t>(weekday)] && !holidays.count(day);
}

Day Calendar::WorkingDaysAfter(Day day, int n) const {
  if (std::none_of(working.begin(), working.end(), [](bool w) { return w; })) {
    ThrowInvalid("the calendar has no working weekday");
  }
  for (int k = 0; k < n; ++k) {
    ++day;
    while (!IsWorking(day)) ++day;
  }
  return day;
}

Day Calendar::WorkingDaysBefore(Day day, int n) const {
  if (std::none_of(working.begin(), working.end(), [](bool w) { return w; })) {
    ThrowInvalid("the calendar has no working weekday");
  }
  while (!IsWorking(day)) --day;
  for (int k = 0; k < n; ++k) {
    --day;
    while (!IsWorking(day)) --day;
  }
  return day;
}

std::string Reason::text(bool chinese) const {
  // The code's text, not its address: a code may come from another unit.
  const std::string_view code = this->code;
  const std::string v = Figure(value);
  if (chinese) {
    if (code == "net") return "净需求 " + v;
    if (code == "safety") return "安全库存 " + v;
    if (code == "minimum") return "提高到最小订购量 " + v;
    if (code == "multiple") return "按倍数 " + v + " 向上取整";
    if (code == "maximum") return "按最大订购量 " + v + " 拆分";
    if (code == "period") return "合并 " + v + " 天的需求";
    if (code == "lead") return "提前期 " + v + " 个工作日";
    if (code == "late") return "延迟 " + v + " 天";
    if (code == "fence") return "在冻结期内";
    return std::string(code);
  }
  if (code == "net") return "net requirement " + v;
  if (code == "safety") return "safety stock " + v;
  if (code == "minimum") return "raised to the minimum " + v;
  if (code == "multiple") return "rounded up to a multiple of " + v;
  if (code == "maximum") return "split at the maximum " + v;
  if (code == "period") return "demand of " + v + " days grouped";
  if (code == "lead") return "lead time " + v + " working days";
  if (code == "late") return v + " days late";
  if (code == "fence") return "inside the firm time fence";
  return std::string(code);
}

std::vector<Bucket> Buckets(const Input& input, const Result& result, int32_t item, Day first,
                            int days, int count) {
  if (days < 1 || count < 0) ThrowInvalid("a bucket is at least one day");
  std::vector<Day> bounds;
  for (int k = 0; k <= count; ++k) bounds.push_back(first + k * days);
  return Buckets(input, result, item, bounds);
}

std::vector<Bucket> Buckets(const Input& input, const Result& result, int32_t item,
                            const std::vector<Day>& bounds) {
  for (size_t k = 1; k < bounds.size(); ++k) {
    if (bounds[k] <= bounds[k - 1]) ThrowInvalid("a bucket is at least one day");
  }
  const Item* it = FindItem(input, item);
  if (!it) throw Error(ErrorCategory::kNotFound, "no planned item " + std::to_string(item));
  static const std::vector<Requirement> no_needs;
  static const std::vector<Receipt> no_receipts;
  const auto g = result.gross.find(item);
  const auto& needs = g == result.gross.end() ? no_needs : g->second;
  const auto sc = result.scheduled.find(item);
  const auto& receipts = sc == result.scheduled.end() ? no_receipts : sc->second;
  const auto [first_order, last_order] = OrdersOf(result, item);
  std::vector<Bucket> out;
  if (bounds.size() < 2) return out;
  const size_t count = bounds.size() - 1;
  out.resize(count);
  for (size_t k = 0; k < count; ++k) out[k].from = bounds[k];
  // Each figure into its bucket; what falls before the first rolls into
  // the opening stock, what falls after the last is left out.
  double opening = it->on_hand;
  auto place = [&](Day day, double qty, double Bucket::*figure, double sign) {
    if (day < bounds.front()) {
      opening += sign * qty;
      return;
    }
    if (day >= bounds.back()) return;
    const size_t k = static_cast<size_t>(
        std::upper_bound(bounds.begin(), bounds.end(), day) - bounds.begin() - 1);
    out[k].*figure += qty;
  };
  for (const Requirement& r : needs) place(r.day, r.qty, &Bucket::gross, -1);
  for (const Receipt& r : receipts) place(r.day, r.qty, &Bucket::scheduled, 1);
  for (auto o = first_order; o != last_order; ++o) {
    place(o->due, o->qty, &Bucket::planned_receipts, 1);
    if (o->release >= bounds.front() && o->release < bounds.back()) {
      const size_t k = static_cast<size_t>(
          std::upper_bound(bounds.begin(), bounds.end(), o->release) - bounds.begin() - 1);
      out[k].planned_releases += o->qty;
    }
  }
  const auto safety_of = result.safety.find(item);
  const double safety = safety_of == result.safety.end() ? 0 : safety_of->second;
  double projected = opening;
  for (Bucket& b : out) {
    const double available = projected + b.scheduled;
    b.net = std::max(0.0, b.gross + safety - available);
    projected = available - b.gross + b.planned_receipts;
    b.projected = projected;
  }
  return out;
}

const Item* FindItem(const Input& input, int32_t id) {
  auto found = std::lower_bound(input.items.begin(), input.items.end(), id,
                                [](const Item& i, int32_t v) { return i.id < v; });
  if (found != input.items.end() && found->id == id) return &*found;
  // Items not in id order are looked through.
  for (const Item& i : input.items) {
    if (i.id == id) return &i;
  }
  return nullptr;
}

Result Plan(const Input& input) {
  Result result;
  const size_t n = input.items.size();
  // Items by position; ids to positions.
  std::unordered_map<int32_t, uint32_t> position;
  position.reserve(n);
  for (size_t k = 0; k < n; ++k) position[input.items[k].id] = uint32_t(k);
  auto position_of = [&](int32_t id) {
    auto it = position.find(id);
    if (it == position.end()) {
      ThrowInvalid("a bill names item " + std::to_string(id) + ", which is not planned");
    }
    return it->second;
  };

  // Low-level codes: the deepest level of each item below the top, by a
  // walk that finds the items in an order where parents come first.
  std::vector<std::vector<uint32_t>> children(n);
  std::vector<uint32_t> parents_left(n, 0);
  for (size_t k = 0; k < n; ++k) {
    for (const Component& c : input.items[k].components) {
      const uint32_t child = position_of(c.item);
      children[k].push_back(child);
      ++parents_left[child];
    }
  }
  std::vector<int> level(n, 0);
  std::vector<uint32_t> ready, topological;
  topological.reserve(n);
  for (uint32_t k = 0; k < n; ++k) {
    if (parents_left[k] == 0) ready.push_back(k);
  }
  while (!ready.empty()) {
    const uint32_t k = ready.back();
    ready.pop_back();
    topological.push_back(k);
    for (uint32_t child : children[k]) {
      level[child] = std::max(level[child], level[k] + 1);
      if (--parents_left[child] == 0) ready.push_back(child);
    }
  }
  if (topological.size() != n) {
    for (uint32_t k = 0; k < n; ++k) {
      if (parents_left[k] > 0) {
        ThrowInvalid("the bills of item " + input.items[k].number + " lead back to it");
      }
    }
  }
  for (size_t k = 0; k < n; ++k) result.low_level.emplace_hint(result.low_level.end(), input.items[k].id, level[k]);
  std::vector<uint32_t> order(n);
  for (uint32_t k = 0; k < n; ++k) order[k] = k;
  std::sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
    return std::pair(level[a], input.items[a].id) < std::pair(level[b], input.items[b].id);
  });

  // The span lead times work in: every day named, well widened.
  Day first = input.today, last = input.today;
  for (const Item& item : input.items) {
    for (const Requirement& r : item.demand) {
      first = std::min(first, r.day);
      last = std::max(last, r.day);
    }
    for (const Receipt& r : item.receipts) {
      first = std::min(first, r.day);
      last = std::max(last, r.day);
    }
  }
  const WorkingDays working(input.calendar, first - 1500, last + 30);

  std::vector<std::vector<Requirement>> dependent(n), gross(n);
  std::vector<double> safety(n, 0.0);
  // The end of each firm time fence, from today, worked out once per length.
  std::vector<Day> fence_end;
  auto fence = [&](int days) {
    while (fence_end.size() <= size_t(days)) {
      fence_end.push_back(fence_end.empty() ? input.today
                                            : input.calendar.WorkingDaysAfter(fence_end.back(), 1));
    }
    return fence_end[size_t(days)];
  };
  std::vector<Supply> supply;
  for (const uint32_t k : order) {
    const Item* item = &input.items[k];
    const Parameters& p = item->parameters;
    // Its own demand first, then its parents' orders: on one day they are
    // covered in that order.
    std::vector<Requirement> needs;
    needs.reserve(item->demand.size() + dependent[k].size());
    needs.insert(needs.end(), item->demand.begin(), item->demand.end());
    needs.insert(needs.end(), dependent[k].begin(), dependent[k].end());
    std::vector<Requirement>().swap(dependent[k]);
    std::stable_sort(needs.begin(), needs.end(),
                     [](const Requirement& a, const Requirement& b) { return a.day < b.day; });
    // Days of cover: the average need per day from today (or the first
    // need, when earlier) to the last need.
    double safety_stock = p.safety_stock;
    if (p.safety_days > 0 && !needs.empty()) {
      double total = 0;
      for (const Requirement& r : needs) total += r.qty;
      const Day from = std::min(input.today, needs.front().day);
      safety_stock += p.safety_days * total / (needs.back().day - from + 1);
    }
    safety[k] = safety_stock;
    std::vector<Receipt> receipts = item->receipts;
    std::stable_sort(receipts.begin(), receipts.end(),
                     [](const Receipt& a, const Receipt& b) { return a.day < b.day; });

    // Each open receipt against the day it is first needed: the day the
    // needs outrun the stock above safety and the receipts before it.
    supply.clear();
    double available = item->on_hand - safety_stock;
    size_t next_need = 0;
    double needed_so_far = 0;
    for (const Receipt& receipt : receipts) {
      while (next_need < needs.size() &&
             needed_so_far + needs[next_need].qty <= available + kTolerance) {
        needed_so_far += needs[next_need].qty;
        ++next_need;
      }
      if (next_need == needs.size()) {
        result.actions.push_back({"cancel", item->id, receipt.id, receipt.day, 0, receipt.qty});
        continue;
      }
      const Day needed = needs[next_need].day;
      if (needed < receipt.day) {
        result.actions.push_back({"expedite", item->id, receipt.id, receipt.day, needed, receipt.qty});
      } else if (needed > receipt.day) {
        result.actions.push_back({"defer", item->id, receipt.id, receipt.day, needed, receipt.qty});
      }
      // Planned as arriving when needed, as its message says.
      supply.push_back({needed, receipt.qty});
      result.scheduled[item->id].push_back({receipt.id, needed, receipt.qty});
      available += receipt.qty;
    }

    // Netting day by day; a shortage becomes planned orders due that day.
    double projected = item->on_hand;
    size_t next_supply = 0;
    const size_t first_order = result.orders.size();
    for (size_t i = 0; i < needs.size();) {
      const Day day = needs[i].day;
      while (next_supply < supply.size() && supply[next_supply].day <= day) {
        projected += supply[next_supply++].qty;
      }
      double gross = 0;
      for (; i < needs.size() && needs[i].day == day; ++i) gross += needs[i].qty;
      projected -= gross;
      if (projected >= safety_stock - kTolerance) continue;
      uint8_t rules = 0;
      double need = safety_stock - projected;
      const double uncovered = std::max(0.0, -projected);  // demand the stock does not cover
      if (need - uncovered > kTolerance) rules |= kSafetyRule;
      // The demand of the order period rides on this order.
      if (p.order_period > 0) {
        double ahead = 0;
        for (size_t k2 = i; k2 < needs.size() && needs[k2].day < day + p.order_period; ++k2) {
          ahead += needs[k2].qty;
        }
        for (size_t s2 = next_supply; s2 < supply.size() && supply[s2].day < day + p.order_period;
             ++s2) {
          ahead -= supply[s2].qty;
        }
        if (ahead > kTolerance) {
          need += ahead;
          rules |= kPeriodRule;
        }
      }
      double qty = ApplyLotRules(need, p, rules);
      // The maximum splits the order; it does not cap it.
      const bool split = p.max_qty > 0 && qty > p.max_qty + kTolerance;
      if (split) rules |= kMaximumRule;
      for (double left = qty; left > kTolerance; left -= split ? p.max_qty : left) {
        const double piece = split ? std::min(left, p.max_qty) : left;
        PlannedOrder o;
        o.item = item->id;
        o.qty = piece;
        o.due = day;
        o.net = uncovered;
        o.rules = rules;
        o.lead = p.lead_time + static_cast<int>(std::ceil(p.lead_time_per_unit * piece - kTolerance));
        o.release = working.Before(day, o.lead);
        o.late = o.release < input.today;
        if (p.firm_fence > 0 && o.due < fence(p.firm_fence)) {
          o.rules |= kFenceRule;
        }
        projected += piece;
        result.orders.push_back(o);
        if (!split) break;
      }
    }

    // What this item's orders need of their components, when they start;
    // each need names its order.
    for (size_t index = first_order; index < result.orders.size(); ++index) {
      const PlannedOrder& o = result.orders[index];
      for (size_t c = 0; c < item->components.size(); ++c) {
        dependent[children[k][c]].push_back(
            {o.release, -static_cast<int32_t>(index) - 1, o.qty * item->components[c].qty_per});
      }
    }
    gross[k] = std::move(needs);
  }
  // Into the maps in the items' order (by id, as the bridge gives them).
  for (size_t k = 0; k < n; ++k) {
    result.gross.emplace_hint(result.gross.end(), input.items[k].id, std::move(gross[k]));
    if (safety[k] != 0) result.safety.emplace_hint(result.safety.end(), input.items[k].id, safety[k]);
  }
  // The horizon: every need, receipt as planned, due and release day.
  result.first_day = result.last_day = input.today;
  auto widen = [&](Day d) {
    result.first_day = std::min(result.first_day, d);
    result.last_day = std::max(result.last_day, d);
  };
  for (const auto& [id, needs] : result.gross) {
    if (!needs.empty()) {
      widen(needs.front().day);
      widen(needs.back().day);
    }
  }
  for (const auto& [id, receipts] : result.scheduled) {
    for (const Receipt& r : receipts) widen(r.day);
  }
  for (const PlannedOrder& o : result.orders) {
    widen(o.due);
    widen(o.release);
  }
  std::stable_sort(result.actions.begin(), result.actions.end(),
                   [](const ActionMessage& x, const ActionMessage& y) {
                     return std::tie(x.item, x.from) < std::tie(y.item, y.from);
                   });
  return result;
}

std::vector<Reason> Reasons(const Input& input, const Result& result, const PlannedOrder& o) {
  const Item* item = FindItem(input, o.item);
  if (!item) throw Error(ErrorCategory::kNotFound, "no planned item " + std::to_string(o.item));
  const Parameters& p = item->parameters;
  std::vector<Reason> out;
  out.push_back({"net", o.net, o.due});
  if (o.rules & kSafetyRule) {
    const auto safety = result.safety.find(o.item);
    out.push_back({"safety", safety == result.safety.end() ? 0 : safety->second, o.due});
  }
  if (o.rules & kPeriodRule) out.push_back({"period", double(p.order_period), o.due});
  if (o.rules & kMinimumRule) out.push_back({"minimum", p.min_qty, 0});
  if (o.rules & kMultipleRule) out.push_back({"multiple", p.multiple, 0});
  if (o.rules & kMaximumRule) out.push_back({"maximum", p.max_qty, o.due});
  if (o.lead > 0) out.push_back({"lead", double(o.lead), o.release});
  if (o.late) out.push_back({"late", double(input.today - o.release), o.release});
  if (o.rules & kFenceRule) out.push_back({"fence", double(p.firm_fence), o.due});
  return out;
}

std::vector<std::vector<Requirement>> Pegs(const Input& input, const Result& result, int32_t id) {
  const Item* item = FindItem(input, id);
  if (!item) throw Error(ErrorCategory::kNotFound, "no planned item " + std::to_string(id));
  double free = item->on_hand;
  if (auto s = result.scheduled.find(id); s != result.scheduled.end()) {
    for (const Receipt& r : s->second) free += r.qty;
  }
  std::vector<std::pair<const Requirement*, double>> open;
  if (auto g = result.gross.find(id); g != result.gross.end()) {
    for (const Requirement& r : g->second) {
      const double taken = std::min(free, r.qty);
      free -= taken;
      if (r.qty - taken > kTolerance) open.push_back({&r, r.qty - taken});
    }
  }
  std::vector<std::vector<Requirement>> out;
  size_t next_open = 0;
  const auto [first, last] = OrdersOf(result, id);
  for (auto it = first; it != last; ++it) {
    const PlannedOrder& o = *it;
    std::vector<Requirement>& pegs = out.emplace_back();
    double left = o.qty;
    while (left > kTolerance && next_open < open.size()) {
      auto& [r, qty] = open[next_open];
      const double taken = std::min(left, qty);
      pegs.push_back({r->day, r->source, taken});
      left -= taken;
      qty -= taken;
      if (qty <= kTolerance) ++next_open;
    }
  }
  return out;
}

std::string SourceText(const Input& input, const Result& result, const Requirement& need) {
  if (need.source >= 0) {
    return size_t(need.source) < input.sources.size() ? input.sources[size_t(need.source)] : "";
  }
  const size_t index = size_t(-(need.source + 1));
  if (index >= result.orders.size()) return "";
  const PlannedOrder& parent = result.orders[index];
  const Item* item = FindItem(input, parent.item);
  return "planned " + (item ? item->number : std::to_string(parent.item)) + " due " +
         DateOf(parent.due).ToDateString();
}

std::vector<Change> Compare(const std::vector<PlannedOrder>& before,
                            const std::vector<PlannedOrder>& after) {
  using Orders = std::map<int32_t, std::vector<const PlannedOrder*>>;
  auto by_item = [](const std::vector<PlannedOrder>& orders) {
    Orders out;
    for (const PlannedOrder& o : orders) out[o.item].push_back(&o);
    for (auto& [item, list] : out) {
      std::stable_sort(list.begin(), list.end(),
                       [](const PlannedOrder* a, const PlannedOrder* b) { return a->due < b->due; });
    }
    return out;
  };
  const Orders old_orders = by_item(before), new_orders = by_item(after);
  std::set<int32_t> items;
  for (const auto& [item, list] : old_orders) items.insert(item);
  for (const auto& [item, list] : new_orders) items.insert(item);
  auto same_qty = [](double a, double b) { return std::fabs(a - b) <= kTolerance; };
  std::vector<Change> changes;
  for (int32_t item : items) {
    static const std::vector<const PlannedOrder*> none;
    auto o = old_orders.find(item), n = new_orders.find(item);
    std::vector<const PlannedOrder*> was = o == old_orders.end() ? none : o->second;
    std::vector<const PlannedOrder*> is = n == new_orders.end() ? none : n->second;
    // Orders unchanged pair first, whatever moved around them.
    for (auto w = was.begin(); w != was.end();) {
      auto match = std::find_if(is.begin(), is.end(), [&](const PlannedOrder* x) {
        return x->due == (*w)->due && same_qty(x->qty, (*w)->qty);
      });
      if (match == is.end()) {
        ++w;
        continue;
      }
      is.erase(match);
      w = was.erase(w);
    }
    const size_t paired = std::min(was.size(), is.size());
    for (size_t k = 0; k < paired; ++k) {
      const bool moved = was[k]->due != is[k]->due, resized = !same_qty(was[k]->qty, is[k]->qty);
      changes.push_back({moved && resized ? "moved and resized" : moved ? "moved" : "resized", item,
                         was[k]->due, is[k]->due, was[k]->qty, is[k]->qty});
    }
    for (size_t k = paired; k < was.size(); ++k)
      changes.push_back({"removed", item, was[k]->due, 0, was[k]->qty, 0});
    for (size_t k = paired; k < is.size(); ++k)
      changes.push_back({"added", item, 0, is[k]->due, 0, is[k]->qty});
  }
  return changes;
}

}  // namespace mrpcalc::mrp::phased
