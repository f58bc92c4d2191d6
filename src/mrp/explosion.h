// The multi-level walk through the bills of material, shared by the BOM
// child expansion and the report. Private to the calculation core; a
// template so that the report's sink is called directly, once per leaf.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "mrp/calculation.h"
#include "mrp/numeric.h"
#include "record/error.h"

namespace mrpcalc::mrp {

// Quantity of a bill line for a parent quantity: mode 1 divides by the
// yield, mode 2 adds the scrap on top. `per` is the quantity the bill is
// written for.
[[noreturn, gnu::cold, gnu::noinline]] inline void LineDividesByZero(int bom_type,
                                                                     const BomChild& line,
                                                                     double per, int32_t bill) {
  DivideByZero("quantity of item " + std::to_string(line.item_id) + " in bill " +
               std::to_string(bill) + " line " + std::to_string(line.entry_id) + " (BOMType " +
               std::to_string(bom_type) + ", scrap " + FormatDouble(*line.scrap) +
               ", bill quantity " + FormatDouble(per) + ")");
}

inline OptNum LineQty(int bom_type, double suggest, const BomIndex::Line& line, OptNum per,
                      int32_t bill) {
  if (!line.has_qty || !line.has_scrap || !per) return std::nullopt;
  const double den = bom_type == 1 ? *per * (100 - line.scrap) : *per;
  if (den == 0) LineDividesByZero(bom_type, *line.child, *per, bill);
  if (bom_type == 1) return suggest * line.qty * 100 / den;
  return suggest * line.qty * (100 + line.scrap) / 100 / den;
}

inline std::string ItemLabel(const BomIndex& boms, int32_t item_id) {
  const Item* item = boms.FindItem(item_id);
  if (item && item->number) return *item->number + " (id " + std::to_string(item_id) + ")";
  return "id " + std::to_string(item_id);
}

// Walks one bill and the approved bills of its made parts, handing every
// leaf row to the sink: sink(line, quantity, bill quantity column), the
// line as the index holds it (its BomChild is line.child).
template <class Sink>
class Expander {
 public:
  Expander(const BomIndex& boms, int bom_type, Sink& sink)
      : boms_(boms), bom_type_(bom_type), sink_(sink) {}

  // One bill, by position: leaves, made parts without an approved bill,
  // then made parts exploded through their own approved bill. `per` is the
  // quantity the bill is written for; `column_qty` what the rows record as
  // FQty.
  void Bill(int32_t position, double suggest, OptNum per, OptNum column_qty, bool nested) {
    const auto lines = boms_.LinesAt(position);
    const int32_t inter_id = boms_.InterIdAt(position);
    for (const auto& l : lines) {
      if (l.leaf) sink_(l, LineQty(bom_type_, suggest, l, per, inter_id), column_qty);
    }
    for (const auto& l : lines) {
      if (l.made && !l.approved_in_use) {
        sink_(l, LineQty(bom_type_, suggest, l, per, inter_id), column_qty);
      }
    }
    for (const auto& l : lines) {
      if (!l.made) continue;
      // Below the top level the made parts' query also requires the line's unit.
      if (nested && !l.unit_known) continue;
      const OptNum qty = LineQty(bom_type_, suggest, l, per, inter_id);
      if (!qty) {
        throw Error(ErrorCategory::kInvalidInput, "the quantity of " + ItemLabel(boms_, l.item_id) +
                                                      " in bill " + std::to_string(inter_id) +
                                                      " is NULL");
      }
      if (l.approved_bill >= 0) Worker(l.item_id, l.approved_bill, *qty);
    }
  }

 private:
  void Worker(int32_t item_id, int32_t approved_bill, double quantity) {
    if (std::find(path_.begin(), path_.end(), item_id) != path_.end()) {
      throw Error(ErrorCategory::kInvalidInput, "the bills of material below " +
                                                    ItemLabel(boms_, item_id) +
                                                    " lead back to it; please correct them");
    }
    const OptNum& per = boms_.BillQtyAt(approved_bill);
    path_.push_back(item_id);
    Bill(approved_bill, AsText(quantity), per, per, true);
    path_.pop_back();
  }

  const BomIndex& boms_;
  int bom_type_;
  Sink& sink_;
  std::vector<int32_t> path_;
};

// The walk below one bill, by interior id; an unknown bill has no lines.
template <class Sink>
void ExplodeBill(const BomIndex& boms, int bom_type, int32_t bom_inter_id, double suggest_qty,
                 double qty, Sink& sink) {
  CheckBomType(bom_type);
  const int32_t position = boms.Position(bom_inter_id);
  if (position < 0 || !boms.BillAt(position)) return;  // no lines to read
  Expander<Sink> expander(boms, bom_type, sink);
  expander.Bill(position, AsText(suggest_qty), OptNum(AsText(qty)), OptNum(AsText(qty)), false);
}

}  // namespace mrpcalc::mrp
