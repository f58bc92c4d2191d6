// The MRP calculation core: explodes the demand through the bills of
// material, folds it into one row per material, nets it against supply and
// suggests suppliers. Pure: in-memory input, result rows out.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <span>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "mrp/model.h"

namespace mrpcalc::mrp {

// Indexes over the bills of material of an Input. Bills are numbered
// densely so that the explosion, which visits millions of bill lines at
// scale, follows positions instead of looking ids up.
class BomIndex {
 public:
  explicit BomIndex(const Input& input);

  const Input& input() const { return input_; }
  // In-use bills (FUseStatus 1072) of an item, by interior id.
  const std::vector<const BomHeader*>& InUse(int32_t item_id) const;
  const BomHeader* Bill(int32_t inter_id) const;
  // A bill line with what the explosion asks of its component.
  // The walk reads only these, bill after bill in line order, so the line's
  // quantity and scrap are kept here beside the flags.
  struct Line {
    const BomChild* child;
    double qty;             // child->qty, when has_qty
    double scrap;           // child->scrap, when has_scrap
    int32_t item_id;        // child->item_id
    int32_t approved_bill;  // position of the component's approved bill, -1 for none
    bool has_qty;
    bool has_scrap;
    bool leaf;              // a class other than assembled (2) and 9
    bool made;              // class 2 or 9
    bool approved_in_use;   // the component has an in-use bill with FStatus 1
    bool unit_known;        // the line's unit is in t_MeasureUnit
  };
  using LineSpan = std::span<const Line>;
  // Lines of a bill, by line id.
  LineSpan Lines(int32_t inter_id) const;
  // The same by position: positions run from 0 to bill_count() - 1.
  size_t bill_count() const { return bills_.size(); }
  int32_t Position(int32_t inter_id) const;  // -1 when the bill is unknown
  const BomHeader* BillAt(int32_t position) const { return bills_[static_cast<size_t>(position)]; }
  // The quantity the bill at a position is written for (its FQty).
  const OptNum& BillQtyAt(int32_t position) const {
    return bill_qty_[static_cast<size_t>(position)];
  }
  int32_t InterIdAt(int32_t position) const { return inter_ids_[static_cast<size_t>(position)]; }
  LineSpan LinesAt(int32_t position) const;
  // A line's place among all lines, 0 to line_count() - 1: the lines of a
  // bill are neighbours.
  size_t LineNumber(const Line& line) const { return static_cast<size_t>(&line - lines_.data()); }
  const Line& LineAt(size_t number) const { return lines_[number]; }
  size_t line_count() const { return lines_.size(); }
  // The approved bill of a made component: use status coded 'zt01' and
  // FStatus 1, lowest interior id first; nullptr when there is none.
  const BomHeader* Approved(int32_t item_id) const;
  // True when the item has an in-use bill with FStatus 1.
  bool HasApprovedInUse(int32_t item_id) const;
  const Item* FindItem(int32_t item_id) const;
  // True when the in-use bills below the item lead back to it. Worked out
  // for every item at the first question, in one pass over the bills.
  bool LoopsBack(int32_t item_id) const;

 private:
  void FindLoops() const;

  const Input& input_;
  std::unordered_map<int32_t, std::vector<const BomHeader*>> in_use_;
  std::unordered_map<int32_t, int32_t> position_;  // interior id -> position
  std::vector<const BomHeader*> bills_;            // by position; nullptr: lines only
  std::vector<int32_t> inter_ids_;                 // by position
  std::vector<OptNum> bill_qty_;                   // by position
  std::vector<uint32_t> first_line_;               // by position, and one past the last
  std::vector<Line> lines_;
  std::unordered_map<int32_t, const BomHeader*> approved_;
  // Items by id, when the ids are dense enough for a table (they are
  // numbered from 1 in the ERP); else empty, and FindItem asks the map.
  std::vector<const Item*> item_at_;
  std::unordered_set<int32_t> approved_in_use_;
  mutable bool loops_found_ = false;
  mutable std::set<int32_t> looping_;
};

// Refuses a system profile IC/BOMType other than 1 (scrap as a share of the
// gross need) and 2 (scrap added on top).
void CheckBomType(int bom_type);

// The BOM child expansion of one bill: every leaf component over all levels
// with its quantity grossed up for scrap, each row carrying the top-level
// parent. Made components (classes 2 and 9) are exploded through their
// approved bill; those without one are written as leaves. A bill structure
// that leads back into itself is refused with an error naming the item.
std::vector<ChildRow> ExpandBomChildren(const BomIndex& boms, int bom_type, int32_t bom_inter_id,
                                        int32_t p_item_id, double suggest_qty, double qty,
                                        const std::optional<Date>& date);

// The same walk without building rows: the sink receives each leaf line,
// its quantity (before the ten-decimal rounding of the table) and the bill
// quantity recorded with it.
using ChildSink = std::function<void(const BomChild& line, OptNum suggest, OptNum column_qty)>;
void ForEachBomChild(const BomIndex& boms, int bom_type, int32_t bom_inter_id, double suggest_qty,
                     double qty, const ChildSink& sink);

// True when the in-use bills below the item lead back to it.
bool BomLoopsBackToItem(const BomIndex& boms, int32_t item_id);

// The report: one row per material, auxiliary property and memo, in
// material-code order (rows without a code first). `boms`, when given, is
// an index already built over the same input's bills.
ReportRows Calculate(const Input& input, const BomIndex* boms = nullptr);

}  // namespace mrpcalc::mrp
