// Time-phased planning: low-level codes, netting by day, lot rules, lead
// times, pegging and action messages.
#include "mrp/phased.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <tuple>
#include <type_traits>

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

// Deepest level of each item below the top, parents before components.
std::map<int32_t, int> LowLevelCodes(const std::map<int32_t, const Item*>& items) {
  std::map<int32_t, int> level;
  std::map<int32_t, int> state;  // 1 on the path, 2 done
  std::function<void(int32_t, int)> visit = [&](int32_t id, int depth) {
    auto it = items.find(id);
    if (it == items.end()) {
      ThrowInvalid("a bill names item " + std::to_string(id) + ", which is not planned");
    }
    if (state[id] == 1) {
      ThrowInvalid("the bills of item " + it->second->number + " lead back to it");
    }
    if (level.count(id) && level[id] >= depth && state[id] == 2) return;
    level[id] = std::max(level.count(id) ? level[id] : 0, depth);
    state[id] = 1;
    for (const Component& c : it->second->components) visit(c.item, depth + 1);
    state[id] = 2;
  };
  for (const auto& [id, item] : items) {
    if (!level.count(id)) visit(id, 0);
  }
  return level;
}

// An order's quantity after the lot rules, with the rules that applied.
double ApplyLotRules(double need, const Parameters& p, std::vector<Reason>& reasons) {
  double qty = need;
  if (p.min_qty > 0 && qty < p.min_qty - kTolerance) {
    qty = p.min_qty;
    reasons.push_back({"minimum", p.min_qty, 0});
  }
  if (p.multiple > 0) {
    const double rounded = std::ceil(qty / p.multiple - kTolerance) * p.multiple;
    if (rounded > qty + kTolerance) reasons.push_back({"multiple", p.multiple, 0});
    qty = rounded;
  }
  return qty;
}

struct Supply {
  Day day;
  double qty;
};

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

std::string Reason::text() const {
  if (code == "net") return "net requirement " + Figure(value);
  if (code == "safety") return "safety stock " + Figure(value);
  if (code == "minimum") return "raised to the minimum " + Figure(value);
  if (code == "multiple") return "rounded up to a multiple of " + Figure(value);
  if (code == "maximum") return "split at the maximum " + Figure(value);
  if (code == "period") return "demand of " + Figure(value) + " days grouped";
  if (code == "lead") return "lead time " + Figure(value) + " working days";
  if (code == "late") return Figure(value) + " days late";
  if (code == "fence") return "inside the firm time fence";
  return code;
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
  const Item* it = nullptr;
  const bool by_id = std::is_sorted(input.items.begin(), input.items.end(),
                                    [](const Item& a, const Item& b) { return a.id < b.id; });
  if (by_id) {
    auto found = std::lower_bound(input.items.begin(), input.items.end(), item,
                                  [](const Item& i, int32_t id) { return i.id < id; });
    if (found != input.items.end() && found->id == item) it = &*found;
  } else {
    for (const Item& i : input.items) {
      if (i.id == item) it = &i;
    }
  }
  if (!it) throw Error(ErrorCategory::kNotFound, "no planned item " + std::to_string(item));
  static const std::vector<Requirement> no_needs;
  static const std::vector<Receipt> no_receipts;
  const auto g = result.gross.find(item);
  const auto& needs = g == result.gross.end() ? no_needs : g->second;
  const auto sc = result.scheduled.find(item);
  const auto& receipts = sc == result.scheduled.end() ? no_receipts : sc->second;
  // The item's orders are neighbours: by low-level code, then item.
  const auto level = result.low_level.find(item);
  const int lev = level == result.low_level.end() ? 0 : level->second;
  auto key = [&](const PlannedOrder& o) {
    auto l = result.low_level.find(o.item);
    return std::pair(l == result.low_level.end() ? 0 : l->second, o.item);
  };
  auto [first_order, last_order] = std::equal_range(
      result.orders.begin(), result.orders.end(), std::pair(lev, item),
      [&](const auto& a, const auto& b) {
        if constexpr (std::is_same_v<std::decay_t<decltype(a)>, PlannedOrder>) {
          return key(a) < b;
        } else {
          return a < key(b);
        }
      });
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

Result Plan(const Input& input) {
  Result result;
  std::map<int32_t, const Item*> items;
  for (const Item& item : input.items) items[item.id] = &item;
  result.low_level = LowLevelCodes(items);
  std::vector<const Item*> order;
  for (const auto& [id, item] : items) order.push_back(item);
  std::stable_sort(order.begin(), order.end(), [&](const Item* a, const Item* b) {
    return result.low_level[a->id] < result.low_level[b->id];
  });

  std::map<int32_t, std::vector<Requirement>> dependent;
  for (const Item* item : order) {
    const Parameters& p = item->parameters;
    std::vector<Requirement> needs = item->demand;
    for (const Requirement& r : dependent[item->id]) needs.push_back(r);
    std::stable_sort(needs.begin(), needs.end(),
                     [](const Requirement& a, const Requirement& b) { return a.day < b.day; });
    // Days of cover: the average need per day from today (or the first
    // need, when earlier) to the last need.
    double safety_stock = p.safety_stock;
    if (p.safety_days > 0 && !needs.empty()) {
      double total = 0;
      for (const Requirement& r : needs) total += r.qty;
      const Day first = std::min(input.today, needs.front().day);
      safety_stock += p.safety_days * total / (needs.back().day - first + 1);
    }
    result.safety[item->id] = safety_stock;
    std::vector<Receipt> receipts = item->receipts;
    std::stable_sort(receipts.begin(), receipts.end(),
                     [](const Receipt& a, const Receipt& b) { return a.day < b.day; });

    // Each open receipt against the day it is first needed: the day the
    // needs outrun the stock above safety and the receipts before it.
    std::vector<Supply> supply;
    double available = item->on_hand - safety_stock;
    size_t next_need = 0;
    double needed_so_far = 0;
    for (const Receipt& receipt : receipts) {
      while (next_need < needs.size() && needed_so_far + needs[next_need].qty <= available + kTolerance) {
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

    result.gross[item->id] = needs;
    // Netting day by day; a shortage becomes planned orders due that day.
    double projected = item->on_hand;
    size_t next_supply = 0;
    std::vector<size_t> planned_here;
    for (size_t i = 0; i < needs.size();) {
      const Day day = needs[i].day;
      while (next_supply < supply.size() && supply[next_supply].day <= day) {
        projected += supply[next_supply++].qty;
      }
      double gross = 0;
      for (; i < needs.size() && needs[i].day == day; ++i) gross += needs[i].qty;
      projected -= gross;
      if (projected >= safety_stock - kTolerance) continue;
      std::vector<Reason> reasons;
      double need = safety_stock - projected;
      const double uncovered = std::max(0.0, -projected);  // demand the stock does not cover
      reasons.push_back({"net", uncovered, day});
      if (need - uncovered > kTolerance) reasons.push_back({"safety", safety_stock, day});
      // The demand of the order period rides on this order.
      if (p.order_period > 0) {
        double ahead = 0;
        size_t k = i;
        for (; k < needs.size() && needs[k].day < day + p.order_period; ++k) ahead += needs[k].qty;
        for (size_t s = next_supply; s < supply.size() && supply[s].day < day + p.order_period; ++s) {
          ahead -= supply[s].qty;
        }
        if (ahead > kTolerance) {
          need += ahead;
          reasons.push_back({"period", static_cast<double>(p.order_period), day});
        }
      }
      double qty = ApplyLotRules(need, p, reasons);
      // The maximum splits the order; it does not cap it.
      std::vector<double> pieces;
      if (p.max_qty > 0 && qty > p.max_qty + kTolerance) {
        reasons.push_back({"maximum", p.max_qty, day});
        for (double left = qty; left > kTolerance; left -= p.max_qty) {
          pieces.push_back(std::min(left, p.max_qty));
        }
      } else {
        pieces.push_back(qty);
      }
      for (double piece : pieces) {
        PlannedOrder o;
        o.item = item->id;
        o.qty = piece;
        o.due = day;
        const int lead = p.lead_time + static_cast<int>(std::ceil(p.lead_time_per_unit * piece - kTolerance));
        o.release = input.calendar.WorkingDaysBefore(day, lead);
        o.reasons = reasons;
        if (lead > 0) o.reasons.push_back({"lead", static_cast<double>(lead), o.release});
        if (o.release < input.today) {
          o.late = true;
          o.reasons.push_back({"late", static_cast<double>(input.today - o.release), o.release});
        }
        if (p.firm_fence > 0 && o.due < input.calendar.WorkingDaysAfter(input.today, p.firm_fence)) {
          o.reasons.push_back({"fence", static_cast<double>(p.firm_fence), o.due});
        }
        projected += piece;
        planned_here.push_back(result.orders.size());
        result.orders.push_back(std::move(o));
      }
    }

    // Pegging: stock, receipts and then the planned orders cover the needs
    // first come, first served; what an order covers is its pegs.
    double free = item->on_hand;
    for (const Supply& s : supply) free += s.qty;
    std::vector<std::pair<const Requirement*, double>> open;
    for (const Requirement& r : needs) {
      const double taken = std::min(free, r.qty);
      free -= taken;
      if (r.qty - taken > kTolerance) open.push_back({&r, r.qty - taken});
    }
    size_t next_open = 0;
    for (size_t index : planned_here) {
      PlannedOrder& o = result.orders[index];
      double left = o.qty;
      while (left > kTolerance && next_open < open.size()) {
        auto& [r, qty] = open[next_open];
        const double taken = std::min(left, qty);
        o.pegs.push_back({r->day, taken, r->source});
        left -= taken;
        qty -= taken;
        if (qty <= kTolerance) ++next_open;
      }
      // What this item's order needs of its components, when it starts.
      for (const Component& c : item->components) {
        dependent[c.item].push_back({o.release, o.qty * c.qty_per,
                                     "planned " + item->number + " due " + DateOf(o.due).ToDateString()});
      }
    }
  }
  std::stable_sort(result.actions.begin(), result.actions.end(),
                   [](const ActionMessage& x, const ActionMessage& y) {
                     return std::tie(x.item, x.from) < std::tie(y.item, y.from);
                   });
  return result;
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
