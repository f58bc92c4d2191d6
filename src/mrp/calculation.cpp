// The MRP calculation. The comments name the rules that the planners' report
// has always followed, including the odd ones that stay on purpose.
#include "mrp/calculation.h"

#include "mrp/numeric.h"

#include <algorithm>
#include <cmath>

#include "record/error.h"
#include "record/variant.h"

namespace mrpcalc::mrp {

TaskKind TaskKindFromSubId(const std::string& sub_id) {
  if (sub_id == "SC") return {85, "ICMO", "ICMOEntry"};
  if (sub_id == "WW") return {91, "ICOutMO", "ICOutMOEntry"};
  return {};
}

const std::vector<std::string>& ReportColumns() {
  static const std::vector<std::string> columns = {
      "FItemID",     "FBOMItemID",  "FInterID",      "FEntryID",      "FBomInterID",
      "FBomEntryID", "FTranType",   "FItemPropID",   "FItemProp",     "FItemNumber",
      "FItemName",   "FItemModel",  "FAuxPropID",    "FAuxProp",      "FUnitID",
      "FUnitName",   "FDestroyRate", "FQtyDecimal",  "FNeedQty",      "FSaveQty",
      "FCurrentQty", "FMovingQty",  "FUnStockQty",   "FProducingQty", "FProducQty",
      "FMidStockQty", "FSuggestQty", "FQty",         "FSourceNO",     "FSupplyNumber",
      "FSupplyName", "FMemo",       "FFinal",        "FDate"};
  return columns;
}

void CheckBomType(int bom_type) {
  if (bom_type != 1 && bom_type != 2) {
    throw Error(ErrorCategory::kInvalidInput,
                "system profile IC/BOMType is " + std::to_string(bom_type) +
                    ": it must be 1 (scrap as a share of the gross need) or 2 (scrap added on "
                    "top of the net need)");
  }
}

namespace {

// Quantity of a bill line for a parent quantity: mode 1 divides by the
// yield, mode 2 adds the scrap on top. `per` is the quantity the bill is
// written for.
OptNum LineQty(int bom_type, double suggest, const BomChild& line, OptNum per, int32_t bill) {
  if (!line.qty || !line.scrap || !per) return std::nullopt;
  const double scrap = *line.scrap;
  const double den = bom_type == 1 ? *per * (100 - scrap) : *per;
  if (den == 0) {
    DivideByZero("quantity of item " + std::to_string(line.item_id) + " in bill " +
                 std::to_string(bill) + " line " + std::to_string(line.entry_id) + " (BOMType " +
                 std::to_string(bom_type) + ", scrap " + FormatDouble(scrap) +
                 ", bill quantity " + FormatDouble(*per) + ")");
  }
  if (bom_type == 1) return suggest * *line.qty * 100 / den;
  return suggest * *line.qty * (100 + scrap) / 100 / den;
}

bool IsMade(const Item* item) {
  return item && item->erp_cls && (*item->erp_cls == kClsAssembled || *item->erp_cls == kClsMadeVirtual);
}
bool IsLeafClass(const Item* item) { return item && item->erp_cls && !IsMade(item); }

}  // namespace

BomIndex::BomIndex(const Input& input) : input_(input) {
  for (const auto& b : input.boms) {
    by_id_[b.inter_id] = &b;
    if (b.use_status && *b.use_status == kBomInUse) {
      in_use_[b.item_id].push_back(&b);
      if (b.status && *b.status == 1) approved_in_use_.insert(b.item_id);
    }
    if (b.use_status && input.approved_use_status.count(*b.use_status) && b.status && *b.status == 1) {
      auto& best = approved_[b.item_id];
      if (!best || b.inter_id < best->inter_id) best = &b;
    }
  }
  for (auto& [item, list] : in_use_) {
    std::sort(list.begin(), list.end(),
              [](const BomHeader* a, const BomHeader* b) { return a->inter_id < b->inter_id; });
  }
  for (const auto& c : input.bom_children) {
    const Item* item = FindItem(c.item_id);
    lines_[c.inter_id].push_back({&c, IsLeafClass(item), IsMade(item),
                                  approved_in_use_.count(c.item_id) > 0,
                                  c.unit_id && input.unit_names.count(*c.unit_id) > 0});
  }
  for (auto& [id, list] : lines_) {
    std::sort(list.begin(), list.end(),
              [](const Line& a, const Line& b) { return a.child->entry_id < b.child->entry_id; });
  }
}

const std::vector<const BomHeader*>& BomIndex::InUse(int32_t item_id) const {
  static const std::vector<const BomHeader*> none;
  auto it = in_use_.find(item_id);
  return it == in_use_.end() ? none : it->second;
}
const BomHeader* BomIndex::Bill(int32_t inter_id) const {
  auto it = by_id_.find(inter_id);
  return it == by_id_.end() ? nullptr : it->second;
}
const std::vector<BomIndex::Line>& BomIndex::Lines(int32_t inter_id) const {
  static const std::vector<Line> none;
  auto it = lines_.find(inter_id);
  return it == lines_.end() ? none : it->second;
}
const BomHeader* BomIndex::Approved(int32_t item_id) const {
  auto it = approved_.find(item_id);
  return it == approved_.end() ? nullptr : it->second;
}
bool BomIndex::HasApprovedInUse(int32_t item_id) const { return approved_in_use_.count(item_id) > 0; }
const Item* BomIndex::FindItem(int32_t item_id) const {
  auto it = input_.items.find(item_id);
  return it == input_.items.end() ? nullptr : &it->second;
}

namespace {

std::string ItemLabel(const BomIndex& boms, int32_t item_id) {
  const Item* item = boms.FindItem(item_id);
  if (item && item->number) return *item->number + " (id " + std::to_string(item_id) + ")";
  return "id " + std::to_string(item_id);
}

// Walks one bill and the approved bills of its made parts, handing every
// leaf row to the sink: sink(line, quantity, bill quantity column).
template <class Sink>
class Expander {
 public:
  Expander(const BomIndex& boms, int bom_type, Sink& sink)
      : boms_(boms), bom_type_(bom_type), sink_(sink) {}

  // One bill: leaves, made parts without an approved bill, then made parts
  // exploded through their own approved bill. `per` is the quantity the
  // bill is written for; `column_qty` what the rows record as FQty.
  void Bill(const BomHeader& bill, double suggest, OptNum per, OptNum column_qty, bool nested) {
    const auto& lines = boms_.Lines(bill.inter_id);
    for (const auto& l : lines) {
      if (l.leaf) sink_(*l.child, LineQty(bom_type_, suggest, *l.child, per, bill.inter_id), column_qty);
    }
    for (const auto& l : lines) {
      if (l.made && !l.approved_in_use) {
        sink_(*l.child, LineQty(bom_type_, suggest, *l.child, per, bill.inter_id), column_qty);
      }
    }
    for (const auto& l : lines) {
      const BomChild* line = l.child;
      if (!l.made) continue;
      // Below the top level the made parts' query also requires the line's unit.
      if (nested && !l.unit_known) continue;
      const OptNum qty = LineQty(bom_type_, suggest, *line, per, bill.inter_id);
      if (!qty) {
        throw Error(ErrorCategory::kInvalidInput,
                    "the quantity of " + ItemLabel(boms_, line->item_id) + " in bill " +
                        std::to_string(bill.inter_id) + " is NULL");
      }
      Worker(line->item_id, *qty);
    }
  }

 private:
  void Worker(int32_t item_id, double quantity) {
    const BomHeader* bill = boms_.Approved(item_id);
    if (!bill) return;
    if (std::find(path_.begin(), path_.end(), item_id) != path_.end()) {
      throw Error(ErrorCategory::kInvalidInput, "the bills of material below " +
                                                    ItemLabel(boms_, item_id) +
                                                    " lead back to it; please correct them");
    }
    path_.push_back(item_id);
    Bill(*bill, AsText(quantity), bill->qty, bill->qty, true);
    path_.pop_back();
  }

  const BomIndex& boms_;
  int bom_type_;
  Sink& sink_;
  std::vector<int32_t> path_;
};

}  // namespace

void ForEachBomChild(const BomIndex& boms, int bom_type, int32_t bom_inter_id, double suggest_qty,
                     double qty, const ChildSink& sink) {
  CheckBomType(bom_type);
  const BomHeader* bill = boms.Bill(bom_inter_id);
  if (!bill) return;  // no lines to read
  Expander<const ChildSink> expander(boms, bom_type, sink);
  expander.Bill(*bill, AsText(suggest_qty), OptNum(AsText(qty)), OptNum(AsText(qty)), false);
}

std::vector<ChildRow> ExpandBomChildren(const BomIndex& boms, int bom_type, int32_t bom_inter_id,
                                        int32_t p_item_id, double suggest_qty, double qty,
                                        const std::optional<Date>& date) {
  std::vector<ChildRow> out;
  ForEachBomChild(boms, bom_type, bom_inter_id, suggest_qty, qty,
                  [&](const BomChild& line, OptNum suggest, OptNum column_qty) {
                    ChildRow row;
                    row.item_id = line.item_id;
                    row.inter_id = line.inter_id;
                    row.entry_id = line.entry_id;
                    row.p_item_id = p_item_id;
                    row.suggest_qty = Dec(suggest);
                    row.aux_prop_id = line.aux_prop_id;
                    row.qty = Dec(column_qty);
                    row.child_qty = line.qty;
                    row.scrap = line.scrap;
                    row.date = date;
                    row.note = line.note;
                    out.push_back(std::move(row));
                  });
  return out;
}

bool BomLoopsBackToItem(const BomIndex& boms, int32_t item_id) {
  std::set<int32_t> seen;
  std::vector<int32_t> todo = {item_id};
  while (!todo.empty()) {
    const int32_t current = todo.back();
    todo.pop_back();
    for (const BomHeader* bill : boms.InUse(current)) {
      for (const auto& line : boms.Lines(bill->inter_id)) {
        if (line.child->item_id == item_id) return true;
        if (seen.insert(line.child->item_id).second) todo.push_back(line.child->item_id);
      }
    }
  }
  return false;
}

}  // namespace mrpcalc::mrp
