// Folding the material rows into the report's rows.
#include <algorithm>

#include "mrp/report_steps.h"

namespace mrpcalc::mrp {
namespace {

// One share per demand line, in demand order, to ten decimals.
std::vector<Peg> Pegs(std::vector<Peg> parts) {
  std::stable_sort(parts.begin(), parts.end(),
                   [](const Peg& a, const Peg& b) { return a.demand < b.demand; });
  std::vector<Peg> out;
  for (const Peg& p : parts) {
    if (!out.empty() && out.back().demand == p.demand) {
      out.back().qty += p.qty;
    } else {
      out.push_back(p);
    }
  }
  for (Peg& p : out) p.qty = Dec(p.qty);
  return out;
}

}  // namespace

bool FoldedLess(const std::string& a, const std::string& b) {
  const size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    const unsigned char x = FoldedByte(a[i]), y = FoldedByte(b[i]);
    if (x != y) return x < y;
  }
  return a.size() < b.size();
}

const Item* MasterItem(const Input& in, const BomIndex& boms, const OptInt& bom_item) {
  if (!bom_item || *bom_item <= 0) return nullptr;
  const Item* item = boms.FindItem(*bom_item);
  return item && item->unit_id && in.unit_names.count(*item->unit_id) ? item : nullptr;
}

void Folding::AddPeg(size_t group, const OptNum& suggest, int32_t demand) {
  if (!suggest || demand < 0) return;
  if (group_pegs_.size() <= group) group_pegs_.resize(group + 1);
  std::vector<Peg>& pegs = group_pegs_[group];
  if (!pegs.empty() && pegs.back().demand == demand) {
    pegs.back().qty += *suggest;
  } else {
    pegs.push_back({demand, *suggest});
  }
}

ReportRows Folding::Rows() {
  // A code's first eight bytes, folded and read as a big-endian number
  // (shorter codes padded with zero bytes), order two codes as the
  // folded codes do whenever they differ; the whole codes are compared
  // only when they are equal. Rows without a code sort first.
  struct Place {
    uint64_t head;
    const std::string* number;
    size_t index;
  };
  std::vector<Place> order;
  order.reserve(groups_.size());
  for (size_t i = 0; i < groups_.size(); ++i) {
    const Item* item = MasterItem(in_, boms_, groups_[i].bom_item);
    const std::string* number = item && item->number ? &*item->number : nullptr;
    uint64_t head = 0;
    if (number) {
      for (size_t k = 0; k < 8; ++k) {
        head = head << 8 | (k < number->size() ? FoldedByte((*number)[k]) : 0);
      }
    }
    order.push_back({head, number, i});
  }
  std::stable_sort(order.begin(), order.end(), [](const Place& x, const Place& y) {
    if (!x.number) return y.number != nullptr;
    if (!y.number) return false;
    if (x.head != y.head) return x.head < y.head;
    return FoldedLess(*x.number, *y.number);
  });
  ReportRows rows;
  for (const auto& [head, number, index] : order) {
    const Group& g = groups_[index];
    ReportRow& f = rows.emplace_back();
    f.bom_item_id = g.bom_item;
    f.aux_prop_id = g.aux;
    if (const OptText* name = AuxName(g.bom_item, g.aux)) f.aux_prop = *name;
    if (g.memo >= 0) f.memo = memo_texts_[static_cast<size_t>(g.memo)];
    f.final = 1;
    const Sum& sum = sums_[index];
    f.suggest_qty = f.need_qty = sum.has_total ? OptNum(Dec(sum.total)) : std::nullopt;
    if (sum.has_date) f.date = sum.earliest;
    if (peg_ && index < group_pegs_.size()) f.pegs = Pegs(std::move(group_pegs_[index]));
  }
  return rows;
}

}  // namespace mrpcalc::mrp
