// The folded rows completed: master data, supply figures, stock of made
// parts, and the netting switches.
#include <algorithm>
#include <unordered_set>

#include "mrp/explosion.h"
#include "mrp/report_steps.h"

namespace mrpcalc::mrp {
namespace {

const char* ItemPropText(const OptInt& cls) {
  if (cls && *cls == kClsPurchased) return "外购";
  if (cls && *cls == kClsAssembled) return "组装";
  if (cls && *cls == kClsSelfMade) return "自制";
  return "其他";
}

void Lookup(ReportRow& r, const std::map<ItemAux, OptNum>& figures,
                   OptNum ReportRow::*column) {
  if (!r.bom_item_id || *r.bom_item_id <= 0 || !r.aux_prop_id) return;
  auto it = figures.find({*r.bom_item_id, r.aux_prop_id});
  if (it != figures.end()) r.*column = Dec(it->second);
}

}  // namespace

void FillMasterData(const Input& in, const BomIndex& boms, ReportRows& rows) {
  for (auto& r : rows) {
    if (const Item* item = MasterItem(in, boms, r.bom_item_id)) {
      r.item_prop_id = item->erp_cls;
      r.item_number = item->number;
      r.item_name = item->name;
      r.item_model = item->model;
      r.unit_id = item->unit_id;
      r.unit_name = in.unit_names.at(*item->unit_id);
      r.save_qty = Dec(item->sec_inv);
      r.qty_decimal = item->qty_decimal;
    }
    r.item_prop = ItemPropText(r.item_prop_id);
  }
}


void FillSupply(const Input& in, ReportRows& rows) {
  for (auto& r : rows) {
    Lookup(r, in.stock, &ReportRow::current_qty);
    Lookup(r, in.moving, &ReportRow::moving_qty);
    Lookup(r, in.unsold, &ReportRow::unstock_qty);
    Lookup(r, in.producing, &ReportRow::producing_qty);
  }
}


void Net(const Options& options, const std::map<ItemAux, OptNum>& issued, ReportRows& rows) {
  auto each = [&](bool on, auto&& change) {
    if (!on) return;
    for (auto& r : rows) {
      if (r.bom_item_id && *r.bom_item_id > 0) r.suggest_qty = Dec(change(r));
    }
  };
  each(options.now_stock, [](ReportRow& r) { return Sub(r.suggest_qty, r.current_qty); });
  each(options.save_stock, [](ReportRow& r) { return Add(r.suggest_qty, r.save_qty); });
  each(options.moving, [](ReportRow& r) { return Sub(r.suggest_qty, r.moving_qty); });
  each(options.unsale, [](ReportRow& r) { return Add(r.suggest_qty, r.unstock_qty); });
  // Production in progress is added, as the report always did.
  each(options.producing, [](ReportRow& r) { return Add(r.suggest_qty, r.producing_qty); });
  for (auto& r : rows) {
    if (!r.bom_item_id || !r.aux_prop_id) continue;
    auto it = issued.find({*r.bom_item_id, r.aux_prop_id});
    if (it != issued.end()) r.produc_qty = Dec(it->second);
  }
  each(options.produc, [](ReportRow& r) { return Sub(r.suggest_qty, r.produc_qty); });
  each(options.mid_stock, [](ReportRow& r) { return Sub(r.suggest_qty, r.mid_stock_qty); });
  for (auto& r : rows) {
    if (!r.bom_item_id || *r.bom_item_id <= 0) continue;
    r.qty = r.suggest_qty;
    if (r.suggest_qty && *r.suggest_qty < 0) {
      r.qty = 0.0;
      r.suggest_qty = 0.0;
    }
  }
}


std::map<ItemAux, double> CoveredByMidStock(const Input& in, const BomIndex& boms, int bom_type,
                                            const std::set<ItemAux>& demand_items) {
  // The made parts with an approved bill anywhere below the demand's
  // items, through their in-use and approved bills; in the order of
  // their ids, whatever order the walk finds them in.
  std::vector<int32_t> made;
  std::vector<int32_t> todo;
  std::unordered_set<int32_t> seen;
  seen.reserve(boms.line_count() / 4 + demand_items.size());
  for (const auto& [item, aux] : demand_items) {
    if (seen.insert(item).second) todo.push_back(item);
  }
  auto visit = [&](const BomHeader* bill) {
    for (const auto& l : boms.Lines(bill->inter_id)) {
      if (!l.made) continue;
      if (l.approved_bill >= 0) made.push_back(l.item_id);
      if (seen.insert(l.item_id).second) todo.push_back(l.item_id);
    }
  };
  while (!todo.empty()) {
    const int32_t item = todo.back();
    todo.pop_back();
    for (const BomHeader* bill : boms.InUse(item)) visit(bill);
    if (const BomHeader* approved = boms.Approved(item)) visit(approved);
  }
  std::sort(made.begin(), made.end());
  made.erase(std::unique(made.begin(), made.end()), made.end());
  std::map<ItemAux, double> covered;
  for (int32_t m : made) {
    double on_hand = 0;  // over the part's properties, in key order
    for (auto it = in.stock.lower_bound({m, std::nullopt});
         it != in.stock.end() && it->first.first == m; ++it) {
      if (it->second) on_hand += *it->second;
    }
    if (on_hand <= 0) continue;
    const BomHeader* bill = boms.Approved(m);
    if (!bill->qty) continue;
    auto leaf = [&](const BomIndex::Line& line, OptNum suggest, OptNum) {
      if (const OptNum qty = Dec(suggest))
        covered[{line.item_id, line.child->aux_prop_id}] += *qty;
    };
    ExplodeBill(boms, bom_type, bill->inter_id, on_hand, *bill->qty, leaf);
  }
  return covered;
}


void FillMidStock(const std::map<ItemAux, double>& covered, ReportRows& rows) {
  for (auto& r : rows) r.mid_stock_qty = 0.0;
  for (auto& r : rows) {
    if (!r.bom_item_id || !r.aux_prop_id) continue;
    auto it = covered.find({*r.bom_item_id, r.aux_prop_id});
    if (it != covered.end()) r.mid_stock_qty = Dec(it->second);
  }
}

}  // namespace mrpcalc::mrp
