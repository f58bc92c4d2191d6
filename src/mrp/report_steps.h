// The report's steps after the explosion, private to the calculation core:
// the material rows folded into one row per material, property and memo,
// then master data, supply figures, netting and suppliers, each over the
// folded rows.
#pragma once

#include <climits>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "mrp/calculation.h"
#include "mrp/numeric.h"
#include "record/text.h"

namespace mrpcalc::mrp {

// Codes order as the ERP's server orders text: letters A-Z as a-z.
inline unsigned char FoldedByte(char c) {
  return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}
bool FoldedLess(const std::string& a, const std::string& b);

// The material whose master data a folded row shows: only materials with
// a unit row have it.
const Item* MasterItem(const Input& in, const BomIndex& boms, const OptInt& bom_item);

// Material rows arrive in table order. Rows of one material and named
// property take the memo of the first of them, so that the memo does not
// split the material (a property without a name never compares equal, so
// those rows keep their own memos). Then one row per material, property and
// memo, NULL keys grouping together; the required date is the earliest of
// the parts. The explosion adds to a group at every leaf: what it calls
// here is inline.
class Folding {
 public:
  Folding(const Input& in, const BomIndex& boms, bool peg) : in_(in), boms_(boms), peg_(peg) {}

  // Rows group by memo as the server groups text: memos equal but for
  // letter case are one group, shown with the first memo met. -1 is NULL.
  int MemoId(const OptText& memo) {
    if (!memo) return -1;
    auto [it, inserted] =
        memo_ids_.try_emplace(FoldKey(*memo), static_cast<int>(memo_texts_.size()));
    if (inserted) memo_texts_.push_back(*memo);
    return it->second;
  }

  // A material row, from the demand line `demand` (-1: none).
  void Accumulate(const OptInt& bom_item, const OptInt& aux, int memo, const OptNum& suggest,
                  const std::optional<Date>& date, int32_t demand) {
    AddTo(GroupOf(bom_item, aux, memo), suggest, date, demand);
  }

  // A leaf of the explosion, by its bill line (BomIndex::LineNumber). A
  // bill line always lands in the same group once its first row has placed
  // it (the memo that unifies a material never changes after), so the
  // group is remembered per line.
  void AccumulateLine(size_t line, const OptNum& suggest, const std::optional<Date>& date,
                      int32_t demand) {
    if (line_group_.empty()) line_group_.assign(boms_.line_count(), kNoGroup);
    size_t& group = line_group_[line];
    if (group == kNoGroup) {
      const BomChild& c = *boms_.LineAt(line).child;
      group = GroupOf(c.item_id, c.aux_prop_id, MemoId(c.note));
    }
    AddTo(group, suggest, date, demand);
  }

  // One row per group, in the report's order: by material code as the
  // server orders text (letter case aside), rows without a code first, rows
  // of one code in the order their groups were formed. Every later step
  // works row by row.
  ReportRows Rows();

 private:
  static constexpr int64_t kNull = INT64_MIN;
  static int64_t K(const OptInt& v) { return v ? *v : kNull; }
  static constexpr size_t kNoGroup = SIZE_MAX;

  struct GroupKey {
    int64_t bom_item, aux, memo;
    bool operator==(const GroupKey&) const = default;
  };
  struct GroupHash {
    size_t operator()(const GroupKey& k) const {
      return std::hash<int64_t>()(k.bom_item * 1000003 ^ k.aux * 10007 ^ k.memo);
    }
  };
  struct Group {
    OptInt bom_item, aux;
    int memo;
  };
  // What a group adds up, kept apart from its key and small: the explosion
  // adds to a group at every leaf, in no order the memory likes. The sum is
  // both the suggestion and the gross requirement (they are the same until
  // netting); NULL parts are skipped, a group of NULLs sums to NULL.
  struct Sum {
    double total = 0;
    Date earliest;
    bool has_total = false;
    bool has_date = false;
  };

  // The property's name, as the table holds it: only for material rows.
  const OptText* AuxName(const OptInt& bom_item, const OptInt& aux) const {
    if (!bom_item || *bom_item <= 0 || !aux) return nullptr;
    auto it = in_.aux_names.find(*aux);
    return it == in_.aux_names.end() ? nullptr : &it->second;
  }

  // The group a row joins; the first row of a group creates it.
  size_t GroupOf(const OptInt& bom_item, const OptInt& aux, int memo) {
    const OptText* name = AuxName(bom_item, aux);
    if (name && *name) {
      auto [it, inserted] = first_memo_.try_emplace(GroupKey{K(bom_item), K(aux), 0}, memo);
      memo = it->second;
    }
    auto [it, inserted] =
        group_index_.try_emplace(GroupKey{K(bom_item), K(aux), memo}, groups_.size());
    if (inserted) {
      groups_.push_back({bom_item, aux, memo});
      sums_.emplace_back();
    }
    return it->second;
  }

  void AddTo(size_t group, const OptNum& suggest, const std::optional<Date>& date, int32_t demand) {
    Sum& g = sums_[group];
    if (suggest) {
      g.total = g.has_total ? g.total + *suggest : *suggest;
      g.has_total = true;
    }
    if (date && (!g.has_date || *date < g.earliest)) {
      g.earliest = *date;
      g.has_date = true;
    }
    if (peg_) [[unlikely]] AddPeg(group, suggest, demand);
  }

  // The demand line's share of the group, kept apart from the groups so
  // that a report without pegging does not carry it.
  [[gnu::noinline]] void AddPeg(size_t group, const OptNum& suggest, int32_t demand);

  const Input& in_;
  const BomIndex& boms_;
  const bool peg_;
  std::unordered_map<std::string, int> memo_ids_;
  std::vector<std::string> memo_texts_;
  std::vector<size_t> line_group_;  // by BomIndex::LineNumber
  std::vector<Sum> sums_;           // by group
  std::unordered_map<GroupKey, int, GroupHash> first_memo_;
  std::unordered_map<GroupKey, size_t, GroupHash> group_index_;
  std::vector<Group> groups_;
  std::vector<std::vector<Peg>> group_pegs_;  // by group, when pegging
};

// Each row's material: class, code, name, model, unit, safety stock and
// quantity decimals.
void FillMasterData(const Input& in, const BomIndex& boms, ReportRows& rows);

// The supplier of the latest purchase document of each material, after
// rights and deletions are applied to that latest document only; then the
// material's default supplier where none was found; and the supplier's name.
void FillSuppliers(const Input& in, const BomIndex& boms, int32_t user_id, ReportRows& rows);

// What stock of made parts covers below the demand's items (each made part
// with an approved bill and stock on hand takes its stock through its bill
// down to the leaves, once per part). Reads only the input, the bill index
// and the demand's items, so that it may run beside the explosion.
std::map<ItemAux, double> CoveredByMidStock(const Input& in, const BomIndex& boms, int bom_type,
                                            const std::set<ItemAux>& demand_items);
void FillMidStock(const std::map<ItemAux, double>& covered, ReportRows& rows);

// Stock on hand, open purchases, unsold sales orders and production in
// progress of each row.
void FillSupply(const Input& in, ReportRows& rows);

// The suggestion after the netting switches that are on (`issued`: the
// quantities issued to the tasks, per material and property), floored at 0.
void Net(const Options& options, const std::map<ItemAux, OptNum>& issued, ReportRows& rows);

}  // namespace mrpcalc::mrp
