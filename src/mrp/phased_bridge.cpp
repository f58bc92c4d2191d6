// The ERP's data as a time-phased plan's input.
#include "mrp/phased_bridge.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <unordered_map>

#include "mrp/explosion.h"
#include "mrp/numeric.h"

namespace mrpcalc::mrp::phased {
namespace {

bool IsMadeClass(const mrp::Item* item) {
  return item && item->erp_cls &&
         (*item->erp_cls == kClsAssembled || *item->erp_cls == kClsMadeVirtual);
}

// A bill's lines as quantities per unit of its product, added up per
// component (two lines of one component are one need).
void AddLines(const BomIndex& boms, int bom_type, const BomHeader& bill,
              std::vector<Component>& per_unit) {
  const int32_t position = boms.Position(bill.inter_id);
  if (position < 0) return;
  for (const auto& line : boms.LinesAt(position)) {
    const OptNum qty = LineQty(bom_type, 1.0, line, bill.qty, bill.inter_id);
    if (!qty) continue;
    auto same = std::find_if(per_unit.begin(), per_unit.end(),
                             [&](const Component& c) { return c.item == line.item_id; });
    if (same == per_unit.end()) {
      per_unit.push_back({line.item_id, *qty});
    } else {
      same->qty_per += *qty;
    }
  }
}

}  // namespace

Input FromErp(const mrp::Input& in, const BomIndex& boms, const Sources& sources) {
  const Options& o = in.options;
  CheckBomType(o.bom_type);
  Input out;
  out.calendar = sources.calendar;
  out.today = sources.today;

  // Independent demand: the lines, a task of the demand's kind as its
  // material plan prorated to the line.
  std::unordered_map<int32_t, std::vector<Requirement>> demand;
  std::set<int32_t> own_tasks;
  std::unordered_map<int32_t, std::vector<const TaskEntry*>> entries_of;
  for (const auto& e : in.task_entries) entries_of[e.inter_id].push_back(&e);
  for (const DemandLine& d : in.demand) {
    const Day day = DayOf(d.date);
    const auto source = static_cast<int32_t>(out.sources.size());
    out.sources.push_back(d.entry_id > 0 ? d.bill_no + "/" + std::to_string(d.entry_id) : d.bill_no);
    if (o.task.code != 0 && d.tran_type == o.task.code) {
      own_tasks.insert(d.inter_id);
      auto task = in.task_headers.find(d.inter_id);
      if (task == in.task_headers.end()) continue;
      for (const TaskEntry* e : entries_of[d.inter_id]) {
        OptNum qty;
        if (task->second.qty && *task->second.qty == d.qty) {
          qty = e->plan_qty;
        } else if (e->plan_qty && task->second.qty) {
          if (*task->second.qty == 0) {
            DivideByZero("task " + std::to_string(d.inter_id) + " has quantity 0");
          }
          qty = *e->plan_qty / *task->second.qty * d.qty;
        }
        if (const OptNum q = Dec(qty)) demand[e->item_id].push_back({day, source, *q});
      }
      continue;
    }
    demand[d.item_id].push_back({day, source, d.qty});
  }

  // Every item the demand reaches, with its components.
  std::unordered_map<int32_t, Item> items;
  items.reserve(in.items.size());
  std::vector<int32_t> todo;
  auto reach = [&](int32_t id) {
    auto [it, added] = items.try_emplace(id);
    if (!added) return;
    it->second.id = id;
    todo.push_back(id);
  };
  for (const auto& [id, needs] : demand) reach(id);
  while (!todo.empty()) {
    const int32_t id = todo.back();
    todo.pop_back();
    const mrp::Item* master = boms.FindItem(id);
    std::vector<Component> per_unit;
    const auto& in_use = boms.InUse(id);
    if (demand.count(id) && !in_use.empty()) {
      for (const BomHeader* bill : in_use) AddLines(boms, o.bom_type, *bill, per_unit);
    } else if (IsMadeClass(master)) {
      if (const BomHeader* approved = boms.Approved(id)) AddLines(boms, o.bom_type, *approved, per_unit);
    }
    Item& item = items[id];
    item.number = master && master->number ? *master->number : "id " + std::to_string(id);
    item.name = master && master->name ? *master->name : "";
    item.supplier = master && master->source ? *master->source : 0;
    item.unit = master && master->unit_id ? *master->unit_id : 0;
    item.made = !per_unit.empty();
    std::sort(per_unit.begin(), per_unit.end(),
              [](const Component& a, const Component& b) { return a.item < b.item; });
    item.components = std::move(per_unit);
    for (const Component& c : item.components) reach(c.item);
  }

  // Parameters: the item's row for its default supplier, else its row for
  // any supplier.
  auto key = [](int32_t item, int32_t supplier) {
    return (uint64_t(uint32_t(item)) << 32) | uint32_t(supplier);
  };
  std::unordered_map<uint64_t, const PlanningParameters*> rows;
  rows.reserve(sources.parameters.size());
  for (const PlanningParameters& p : sources.parameters) rows[key(p.item, p.supplier)] = &p;
  for (auto& [id, item] : items) {
    const PlanningParameters* row = nullptr;
    if (auto it = rows.find(key(id, item.supplier)); item.supplier != 0 && it != rows.end()) {
      row = it->second;
    } else if (auto any = rows.find(key(id, 0)); any != rows.end()) {
      row = any->second;
    }
    Parameters& p = item.parameters;
    if (row) {
      p.lead_time = item.made ? row->production_lead_time : row->lead_time;
      p.lead_time_per_unit = item.made ? row->production_lead_per_unit : 0;
      p.safety_stock = row->safety_qty;
      p.safety_days = row->safety_days;
      p.min_qty = row->min_qty;
      p.multiple = row->multiple;
      p.max_qty = row->max_qty;
      p.order_period = row->order_period;
      p.firm_fence = row->firm_fence;
    }
    if (o.save_stock && (!row || (row->safety_qty == 0 && row->safety_days == 0))) {
      const mrp::Item* master = boms.FindItem(id);
      if (master && master->sec_inv) p.safety_stock = std::max(0.0, *master->sec_inv);
    }
    if (auto d = demand.find(id); d != demand.end()) item.demand = std::move(d->second);
  }

  // Supply.
  if (o.now_stock) {
    for (const auto& [key, qty] : in.stock) {
      auto it = items.find(key.first);
      if (it != items.end() && qty) it->second.on_hand += *qty;
    }
  }
  for (const DatedSupply& s : sources.supply) {
    auto it = items.find(s.item);
    if (it == items.end() || s.qty <= 0) continue;
    Item& item = it->second;
    const bool purchase = s.tran_type == kTranPurchaseOrder;
    if (purchase ? !o.moving : !o.producing) continue;
    if (!purchase && s.tran_type == o.task.code && own_tasks.count(s.inter_id)) continue;
    Day day = s.dated ? s.day : sources.today;
    if (!purchase) {
      const int lead = item.parameters.lead_time +
                       static_cast<int>(std::ceil(item.parameters.lead_time_per_unit * s.qty));
      day = sources.calendar.WorkingDaysAfter(day, lead);
    }
    item.receipts.push_back({s.id, day, s.qty});
  }

  // In id order, as the plan and its readers look items up.
  std::vector<int32_t> ids;
  ids.reserve(items.size());
  for (const auto& [id, item] : items) ids.push_back(id);
  std::sort(ids.begin(), ids.end());
  out.items.reserve(items.size());
  for (int32_t id : ids) out.items.push_back(std::move(items.at(id)));
  return out;
}

}  // namespace mrpcalc::mrp::phased
