// The MRP calculation. The comments name the rules that the planners' report
// has always followed, including the odd ones that stay on purpose.
#include "mrp/calculation.h"

#include <algorithm>
#include <cmath>

#include "mrp/explosion.h"
#include "mrp/numeric.h"
#include "record/error.h"
#include "record/variant.h"

namespace mrpcalc::mrp {

TaskKind TaskKindFromSubId(const std::string& sub_id) {
  if (sub_id == "SC") return {kTranProductionTask, "ICMO", "ICMOEntry"};
  if (sub_id == "WW") return {kTranOutsourcingTask, "ICOutMO", "ICOutMOEntry"};
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

bool IsMade(const Item* item) {
  return item && item->erp_cls && (*item->erp_cls == kClsAssembled || *item->erp_cls == kClsMadeVirtual);
}
bool IsLeafClass(const Item* item) { return item && item->erp_cls && !IsMade(item); }

}  // namespace

BomIndex::BomIndex(const Input& input) : input_(input) {
  int64_t top = -1;
  bool negative = false;
  for (const auto& entry : input.items) {
    top = std::max<int64_t>(top, entry.first);
    negative = negative || entry.first < 0;
  }
  if (!negative && top >= 0 && top < 4 * static_cast<int64_t>(input.items.size()) + 1024) {
    item_at_.assign(static_cast<size_t>(top) + 1, nullptr);
    for (const auto& [id, item] : input.items) item_at_[static_cast<size_t>(id)] = &item;
  }
  auto position_of = [&](int32_t inter_id) {
    auto [it, inserted] = position_.try_emplace(inter_id, static_cast<int32_t>(bills_.size()));
    if (inserted) {
      bills_.push_back(nullptr);
      inter_ids_.push_back(inter_id);
    }
    return it->second;
  };
  for (const auto& b : input.boms) {
    bills_[static_cast<size_t>(position_of(b.inter_id))] = &b;
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
  // Lines grouped by bill position (a counting sort), then by line id.
  std::vector<int32_t> line_bill;
  line_bill.reserve(input.bom_children.size());
  for (const auto& c : input.bom_children) line_bill.push_back(position_of(c.inter_id));
  first_line_.assign(bills_.size() + 1, 0);
  for (int32_t p : line_bill) ++first_line_[static_cast<size_t>(p) + 1];
  for (size_t p = 0; p < bills_.size(); ++p) first_line_[p + 1] += first_line_[p];
  std::vector<uint32_t> next(first_line_.begin(), first_line_.end() - 1);
  lines_.resize(input.bom_children.size());
  for (size_t i = 0; i < input.bom_children.size(); ++i) {
    const BomChild& c = input.bom_children[i];
    const Item* item = FindItem(c.item_id);
    const BomHeader* approved = IsMade(item) ? Approved(c.item_id) : nullptr;
    lines_[next[static_cast<size_t>(line_bill[i])]++] = {
        &c,
        c.qty.value_or(0),
        c.scrap.value_or(0),
        c.item_id,
        approved ? position_.at(approved->inter_id) : -1,
        c.qty.has_value(),
        c.scrap.has_value(),
        IsLeafClass(item),
        IsMade(item),
        approved_in_use_.count(c.item_id) > 0,
        c.unit_id && input.unit_names.count(*c.unit_id) > 0};
  }
  bill_qty_.reserve(bills_.size());
  for (const BomHeader* b : bills_) bill_qty_.push_back(b ? b->qty : std::nullopt);
  for (size_t p = 0; p < bills_.size(); ++p) {
    std::stable_sort(
        lines_.begin() + first_line_[p], lines_.begin() + first_line_[p + 1],
        [](const Line& a, const Line& b) { return a.child->entry_id < b.child->entry_id; });
  }
}

const std::vector<const BomHeader*>& BomIndex::InUse(int32_t item_id) const {
  static const std::vector<const BomHeader*> none;
  auto it = in_use_.find(item_id);
  return it == in_use_.end() ? none : it->second;
}
int32_t BomIndex::Position(int32_t inter_id) const {
  auto it = position_.find(inter_id);
  return it == position_.end() ? -1 : it->second;
}
const BomHeader* BomIndex::Bill(int32_t inter_id) const {
  const int32_t p = Position(inter_id);
  return p < 0 ? nullptr : BillAt(p);
}
BomIndex::LineSpan BomIndex::LinesAt(int32_t position) const {
  const auto p = static_cast<size_t>(position);
  return LineSpan(lines_.data() + first_line_[p], first_line_[p + 1] - first_line_[p]);
}
BomIndex::LineSpan BomIndex::Lines(int32_t inter_id) const {
  const int32_t p = Position(inter_id);
  return p < 0 ? LineSpan() : LinesAt(p);
}
const BomHeader* BomIndex::Approved(int32_t item_id) const {
  auto it = approved_.find(item_id);
  return it == approved_.end() ? nullptr : it->second;
}
bool BomIndex::HasApprovedInUse(int32_t item_id) const { return approved_in_use_.count(item_id) > 0; }
const Item* BomIndex::FindItem(int32_t item_id) const {
  if (!item_at_.empty()) {
    const auto at = static_cast<uint32_t>(item_id);  // a negative id falls beyond the table
    return at < item_at_.size() ? item_at_[at] : nullptr;
  }
  auto it = input_.items.find(item_id);
  return it == input_.items.end() ? nullptr : &it->second;
}

bool BomIndex::LoopsBack(int32_t item_id) const {
  if (!loops_found_) FindLoops();
  return looping_.count(item_id) > 0;
}

// An item leads back to itself exactly when it lies on a cycle of the graph
// "item -> component of one of its in-use bills": its strongly connected
// component holds another item too, or it is its own component. Only items
// with in-use bills have edges out, so only they can lie on a cycle: the
// graph is made of them alone. Tarjan's algorithm, without recursion (bill
// structures can be deep).
void BomIndex::FindLoops() const {
  loops_found_ = true;
  std::vector<int32_t> item_of;
  item_of.reserve(in_use_.size());
  std::unordered_map<int32_t, int32_t> node_of;
  node_of.reserve(in_use_.size());
  for (const auto& entry : in_use_) {
    node_of.emplace(entry.first, static_cast<int32_t>(item_of.size()));
    item_of.push_back(entry.first);
  }
  const size_t n = item_of.size();
  // Edges by node, packed: those of node v are edges[first_edge[v] ..
  // first_edge[v + 1]).
  std::vector<uint32_t> first_edge(n + 1, 0);
  std::vector<int32_t> edges;
  std::vector<bool> self_edge(n, false);
  for (size_t v = 0; v < n; ++v) {
    for (const BomHeader* bill : in_use_.at(item_of[v])) {
      for (const Line& line : Lines(bill->inter_id)) {
        auto to = node_of.find(line.item_id);
        if (to == node_of.end()) continue;
        edges.push_back(to->second);
        if (static_cast<size_t>(to->second) == v) self_edge[v] = true;
      }
    }
    first_edge[v + 1] = static_cast<uint32_t>(edges.size());
  }
  std::vector<int32_t> index(n, -1), low(n, 0);
  std::vector<bool> on_stack(n, false);
  std::vector<int32_t> stack;
  struct Frame {
    int32_t v;
    uint32_t next_edge;
  };
  std::vector<Frame> calls;
  int32_t counter = 0;
  for (size_t root = 0; root < n; ++root) {
    if (index[root] >= 0) continue;
    calls.push_back({static_cast<int32_t>(root), first_edge[root]});
    while (!calls.empty()) {
      Frame& f = calls.back();
      const auto v = static_cast<size_t>(f.v);
      if (index[v] < 0) {
        index[v] = low[v] = counter++;
        stack.push_back(f.v);
        on_stack[v] = true;
      }
      if (f.next_edge < first_edge[v + 1]) {
        const auto w = static_cast<size_t>(edges[f.next_edge++]);
        if (index[w] < 0) {
          calls.push_back({static_cast<int32_t>(w), first_edge[w]});
        } else if (on_stack[w]) {
          low[v] = std::min(low[v], index[w]);
        }
        continue;
      }
      if (low[v] == index[v]) {
        // The component is the stack down to v.
        size_t bottom = stack.size();
        do {
          --bottom;
          on_stack[static_cast<size_t>(stack[bottom])] = false;
        } while (static_cast<size_t>(stack[bottom]) != v);
        if (stack.size() - bottom > 1 || self_edge[v]) {
          for (size_t i = bottom; i < stack.size(); ++i)
            looping_.insert(item_of[static_cast<size_t>(stack[i])]);
        }
        stack.resize(bottom);
      }
      const int32_t finished = f.v;
      calls.pop_back();
      if (!calls.empty()) {
        const auto parent = static_cast<size_t>(calls.back().v);
        low[parent] = std::min(low[parent], low[static_cast<size_t>(finished)]);
      }
    }
  }
}

void ForEachBomChild(const BomIndex& boms, int bom_type, int32_t bom_inter_id, double suggest_qty,
                     double qty, const ChildSink& sink) {
  auto each = [&](const BomIndex::Line& line, OptNum suggest, OptNum column_qty) {
    sink(*line.child, suggest, column_qty);
  };
  ExplodeBill(boms, bom_type, bom_inter_id, suggest_qty, qty, each);
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

bool BomLoopsBackToItem(const BomIndex& boms, int32_t item_id) { return boms.LoopsBack(item_id); }

}  // namespace mrpcalc::mrp
