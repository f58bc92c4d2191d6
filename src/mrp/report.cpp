// The report: demand rows, explosion, folding, netting and suppliers.
#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <future>
#include <map>
#include <optional>
#include <thread>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

#include "mrp/calculation.h"
#include "mrp/explosion.h"
#include "mrp/numeric.h"
#include "record/error.h"
#include "record/text.h"
#include "record/variant.h"

namespace mrpcalc::mrp {
namespace {

// Codes order as the ERP's server orders text: letters A-Z as a-z.
inline unsigned char FoldedByte(char c) {
  return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}
bool FoldedLess(const std::string& a, const std::string& b) {
  const size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    const unsigned char x = FoldedByte(a[i]), y = FoldedByte(b[i]);
    if (x != y) return x < y;
  }
  return a.size() < b.size();
}

const char* ItemPropText(const OptInt& cls) {
  if (cls && *cls == kClsPurchased) return "外购";
  if (cls && *cls == kClsAssembled) return "组装";
  if (cls && *cls == kClsSelfMade) return "自制";
  return "其他";
}

// A row of the working table before folding: only what folding reads.
struct Need {
  OptInt tran_type, item_id, bom_item_id, inter_id, entry_id, aux_prop_id;
  OptNum suggest_qty;
  int memo = -1;  // interned memo text, -1 for NULL
  std::optional<Date> date;
  int32_t demand = -1;  // the demand line it comes from
};

class Report {
 public:
  Report(const Input& input, const BomIndex* boms)
      : in_(input),
        opt_(input.options),
        own_boms_(boms ? std::nullopt : std::make_optional<BomIndex>(input)),
        boms_(boms ? *boms : *own_boms_) {}

  ReportRows Run() {
    if (opt_.task.code == 0) {
      throw Error(ErrorCategory::kInvalidInput,
                  "SubID must be \"SC\" (production tasks) or \"WW\" (outsourcing tasks)");
    }
    if (in_.demand.empty()) {
      throw Error(ErrorCategory::kInvalidInput,
                  "the MRP calculation needs at least one demand line");
    }
    LoadDemand();
    // What stock of made parts covers depends only on the demand's items,
    // not on the explosion: with the multi-level explosion it is worked out
    // on a second thread meanwhile, its errors raised where it is taken.
    std::future<std::map<Key, double>> covered;
    if (opt_.expand) {
      ExpandTasks();
      PushIssuedDownTheLevels();
      MaterialsAtOnce();
      Beside beside;
      if (opt_.mid_stock) {
        beside = Beside([this] { return CoveredByMidStock(); });
        covered = beside.get_future();
      }
      MultiLevel(beside);
    } else {
      SingleLevel();
    }
    if (!opt_.expand) produc_ = Grouped(in_.issued);
    Folded();
    MasterData();
    if (opt_.frm_type == 0) {
      for (auto& r : rows_) {
        r.save_qty = 0.0;
        r.suggest_qty = 0.0;
      }
      Suppliers();
    }
    if (opt_.mid_stock) MidStock(covered);
    Supply();
    Net();
    return std::move(rows_);
  }

 private:
  using Key = ItemAux;

  static std::map<Key, OptNum> Grouped(const std::vector<Issued>& rows) {
    std::map<Key, OptNum> out;
    for (const auto& r : rows) {
      auto [it, inserted] = out.try_emplace({r.item_id, r.aux_prop_id}, r.qty);
      if (!inserted) SumInto(it->second, r.qty);
    }
    return out;
  }

  void LoadDemand() {
    needs_.reserve(in_.demand.size());
    for (const auto& d : in_.demand) {
      Need r;
      r.demand = static_cast<int32_t>(needs_.size());
      r.tran_type = d.tran_type;
      r.item_id = d.item_id;
      r.bom_item_id = 0;
      r.inter_id = d.inter_id;
      r.entry_id = d.entry_id;
      r.suggest_qty = Dec(d.qty);
      r.date = d.date;
      needs_.push_back(r);
    }
  }

  // A task's material plan, in the order the loader read it.
  const std::vector<const TaskEntry*>& EntriesOf(int32_t inter_id) {
    if (entries_of_.empty()) {
      for (const auto& e : in_.task_entries) entries_of_[e.inter_id].push_back(&e);
    }
    static const std::vector<const TaskEntry*> none;
    auto it = entries_of_.find(inter_id);
    return it == entries_of_.end() ? none : it->second;
  }

  const TaskHeader* Task(const OptInt& inter_id) const {
    if (!inter_id) return nullptr;
    auto it = in_.task_headers.find(*inter_id);
    return it == in_.task_headers.end() ? nullptr : &it->second;
  }

  // A task's plan quantity for the demand: unchanged when the demand equals
  // the task quantity, otherwise prorated.
  OptNum Prorated(const Need& demand, const TaskHeader& task, const TaskEntry& entry,
                  bool cast_ratio) const {
    if (demand.suggest_qty && task.qty && *demand.suggest_qty == *task.qty) return entry.plan_qty;
    if (!entry.plan_qty || !task.qty || !demand.suggest_qty) return std::nullopt;
    if (*task.qty == 0) {
      DivideByZero("task " + std::to_string(task.inter_id) + " has quantity 0");
    }
    const double ratio = *entry.plan_qty / *task.qty;
    return (cast_ratio ? Dec(ratio) : ratio) * *demand.suggest_qty;
  }

  // Demand rows of the task kind become the tasks' own material plans.
  void ExpandTasks() {
    std::vector<Need> kept, expanded;
    kept.reserve(needs_.size());
    for (const auto& d : needs_) {
      if (!Equal(d.tran_type, opt_.task.code)) {
        kept.push_back(d);
        continue;
      }
      const TaskHeader* task = Task(d.inter_id);
      if (!task) continue;
      for (const TaskEntry* e : EntriesOf(task->inter_id)) {
        Need r;
        r.tran_type = d.tran_type;
        r.item_id = e->item_id;
        r.bom_item_id = 0;
        r.inter_id = d.inter_id;
        r.entry_id = d.entry_id;
        r.suggest_qty = Dec(Prorated(d, *task, *e, false));
        r.date = d.date;
        r.aux_prop_id = e->aux_prop_id;
        r.memo = MemoId(e->note);
        r.demand = d.demand;
        expanded.push_back(r);
      }
    }
    needs_ = std::move(kept);
    needs_.insert(needs_.end(), expanded.begin(), expanded.end());
  }

  // Issued quantities move from every parent with an in-use bill to its
  // children, level by level, until a level yields one row or none (a level
  // of exactly one row is not exploded further: the report always did so).
  void PushIssuedDownTheLevels() {
    struct Level {
      int32_t item;
      OptInt aux;
      OptNum qty;
      int lev;
    };
    std::vector<Level> all;
    for (const auto& r : in_.issued) all.push_back({r.item_id, r.aux_prop_id, Dec(r.qty), 1});
    size_t rowcount = all.size();
    int lev = 1;
    while (rowcount > 1) {
      ++lev;
      if (lev > 10000) {
        throw Error(ErrorCategory::kInvalidInput,
                    "issued quantities do not reach the bottom of the bills of material: a bill "
                    "leads back to itself");
      }
      std::vector<Level> added;
      for (const auto& t3 : all) {
        if (t3.lev != lev - 1) continue;
        for (const BomHeader* t1 : boms_.InUse(t3.item)) {
          if (!Equal(t1->aux_prop_id, t3.aux)) continue;
          for (const auto& l2 : boms_.Lines(t1->inter_id)) {
            const BomChild* t2 = l2.child;
            OptNum ratio;
            if (t2->qty && t1->qty) {
              if (*t1->qty == 0)
                DivideByZero("bill " + std::to_string(t1->inter_id) + " has quantity 0");
              ratio = *t2->qty / *t1->qty;
            }
            added.push_back({t2->item_id, t2->aux_prop_id, Dec(Mul(ratio, t3.qty)), lev});
          }
        }
      }
      rowcount = added.size();
      for (auto& a : added) all.push_back(a);
      all.erase(std::remove_if(all.begin(), all.end(),
                               [&](const Level& l) {
                                 return l.lev == lev - 1 && !boms_.InUse(l.item).empty();
                               }),
                all.end());
    }
    produc_.clear();
    for (const auto& l : all) {
      auto [it, inserted] = produc_.try_emplace({l.item, l.aux}, l.qty);
      if (!inserted) SumInto(it->second, l.qty);
    }
  }

  // Task materials without an in-use bill are materials at once. The items
  // of the demand rows, now known, are where the mid-stock walk starts.
  void MaterialsAtOnce() {
    for (auto& r : needs_) {
      if (Equal(r.tran_type, opt_.task.code) && r.item_id && boms_.InUse(*r.item_id).empty()) {
        r.bom_item_id = r.item_id;
        r.tran_type = kTranMaterialRow;
      }
    }
    for (const auto& r : needs_) snapshot_.insert({r.item_id.value_or(0), r.aux_prop_id});
  }

  // What runs beside the explosion, on the second thread.
  using Beside = std::packaged_task<std::map<Key, double>()>;

  void MultiLevel(Beside& beside) {
    // Rows already materials keep their place ahead of the exploded ones.
    for (const auto& r : needs_) {
      if (!Equal(r.bom_item_id, 0))
        Accumulate(r.bom_item_id, r.aux_prop_id, r.memo, r.suggest_qty, r.date, r.demand);
    }
    // (A line's number keeps its top bit free for the helper's use.)
    if (needs_.size() < opt_.two_threads_from || boms_.line_count() >= kNullQty) {
      if (beside.valid()) beside_ = std::jthread(std::move(beside));
      for (const Need& r : needs_) ExplodeAndAdd(r);
      return;
    }
    OnTwoThreads(beside);
  }

  // Every leaf below one demand row's product, through each of its in-use
  // bills.
  template <class Leaf>
  void Explode(const Need& r, Leaf& leaf) const {
    if (!r.item_id) return;
    for (const BomHeader* bill : boms_.InUse(*r.item_id)) {
      if (!r.suggest_qty || !bill->qty || !r.date) {
        throw Error(ErrorCategory::kInvalidInput,
                    "cannot explode bill " + std::to_string(bill->inter_id) +
                        ": the demand quantity, the bill quantity or the required date is NULL");
      }
      ExplodeBill(boms_, opt_.bom_type, bill->inter_id, *r.suggest_qty, *bill->qty, leaf);
    }
  }

  // One demand row exploded and its leaves added up, on this thread.
  void ExplodeAndAdd(const Need& r) {
    auto leaf = [&](const BomIndex::Line& line, OptNum suggest, OptNum) {
      AccumulateLine(boms_.LineNumber(line), Dec(suggest), r.date, r.demand);
    };
    Explode(r, leaf);
  }

  // The demand rows in blocks: this thread takes them from the front and
  // adds up as it goes; a helper takes them from the back and only works
  // out each leaf's line and quantity, which this thread then adds up in
  // the rows' order, once the two have met. The sums are added in the same
  // order as on one thread, so they come out the same to the last bit; the
  // error raised is the first row's in order, as on one thread.
  void OnTwoThreads(Beside& beside) {
    constexpr size_t kBlock = 32;
    const auto blocks = static_cast<uint32_t>((needs_.size() + kBlock - 1) / kBlock);
    // The next block from the front, high half; one past the last block
    // left from the back, low half.
    struct alignas(64) Left {
      std::atomic<uint64_t> value;
    } shared{blocks};
    std::atomic<uint64_t>& left = shared.value;
    auto take = [&left](bool front) -> int64_t {
      uint64_t now = left.load(std::memory_order_relaxed);
      for (;;) {
        const uint64_t first = now >> 32, end = now & 0xffffffffu;
        if (first >= end) return -1;
        const uint64_t next = front ? now + (uint64_t{1} << 32) : now - 1;
        if (left.compare_exchange_weak(now, next, std::memory_order_relaxed))
          return static_cast<int64_t>(front ? first : end - 1);
      }
    };
    auto rows_of = [&](int64_t block) {
      const size_t from = static_cast<size_t>(block) * kBlock;
      return std::pair{from, std::min(needs_.size(), from + kBlock)};
    };
    // The helper's leaves: line numbers (top bit: the quantity is NULL) and
    // quantities, block by block as taken; where each row's leaves end.
    // Filled on the helper's own stack and handed over when it is done:
    // nothing this thread reads meanwhile shares a cache line with them.
    struct Leaves {
      std::vector<uint32_t> lines;
      std::vector<double> qtys;
      std::vector<std::pair<int64_t, size_t>> taken;  // block, where its leaves start
      std::vector<size_t> row_end;                    // by demand row
      std::exception_ptr failed;                      // it takes no more blocks after
    } helped;
    std::thread helper([&] {
      if (beside.valid()) beside();  // its errors go where it is taken
      Leaves own;
      try {
        own.row_end.resize(needs_.size());
        auto leaf = [this, &own](const BomIndex::Line& line, OptNum suggest, OptNum) {
          const OptNum qty = Dec(suggest);
          own.lines.push_back(static_cast<uint32_t>(boms_.LineNumber(line)) | (qty ? 0 : kNullQty));
          own.qtys.push_back(qty.value_or(0));
        };
        for (int64_t block; (block = take(false)) >= 0;) {
          own.taken.emplace_back(block, own.lines.size());
          const auto [from, to] = rows_of(block);
          for (size_t i = from; i < to; ++i) {
            Explode(needs_[i], leaf);
            own.row_end[i] = own.lines.size();
          }
        }
      } catch (...) {
        own.failed = std::current_exception();
      }
      helped = std::move(own);
    });
    try {
      for (int64_t block; (block = take(true)) >= 0;) {
        const auto [from, to] = rows_of(block);
        for (size_t i = from; i < to; ++i) ExplodeAndAdd(needs_[i]);
      }
    } catch (...) {
      left.store(0);  // nothing left to take
      helper.join();
      throw;
    }
    helper.join();
    // Every row ahead of the helper's failing block was exploded here
    // without an error: its error is the first.
    if (helped.failed) std::rethrow_exception(helped.failed);
    for (auto b = helped.taken.rbegin(); b != helped.taken.rend(); ++b) {
      size_t k = b->second;
      const auto [from, to] = rows_of(b->first);
      for (size_t i = from; i < to; ++i) {
        const Need& r = needs_[i];
        for (; k < helped.row_end[i]; ++k) {
          const uint32_t line = helped.lines[k];
          AccumulateLine(line & ~kNullQty, line & kNullQty ? OptNum() : OptNum(helped.qtys[k]),
                         r.date, r.demand);
        }
      }
    }
  }

  void SingleLevel() {
    CheckBomType(opt_.bom_type);
    std::vector<Need> added;
    // Sales-order demand takes one level of its product's in-use bills.
    for (const auto& v2 : needs_) {
      if (!Equal(v2.bom_item_id, 0) || !Equal(v2.tran_type, kTranSalesOrder) || !v2.item_id)
        continue;
      for (const BomHeader* v1 : boms_.InUse(*v2.item_id)) {
        for (const auto& l1 : boms_.Lines(v1->inter_id)) {
          const BomChild* u1 = l1.child;
          Need r = MaterialOf(v2);
          r.item_id = v1->item_id;
          r.bom_item_id = u1->item_id;
          r.suggest_qty = Dec(SingleLevelQty(v2.suggest_qty, *v1, *u1));
          r.aux_prop_id = u1->aux_prop_id;
          r.memo = MemoId(u1->note);
          added.push_back(r);
        }
      }
    }
    // Task demand takes the task's own material plan.
    for (const auto& v2 : needs_) {
      if (!Equal(v2.tran_type, opt_.task.code)) continue;
      const TaskHeader* v1 = Task(v2.inter_id);
      if (!v1) continue;
      for (const TaskEntry* u1 : EntriesOf(v1->inter_id)) {
        Need r = MaterialOf(v2);
        r.item_id = v1->item_id;
        r.bom_item_id = u1->item_id;
        r.suggest_qty = Dec(Prorated(v2, *v1, *u1, true));
        r.aux_prop_id = u1->aux_prop_id;
        r.memo = MemoId(u1->note);
        added.push_back(r);
      }
    }
    needs_.insert(needs_.end(), added.begin(), added.end());
    for (const auto& r : needs_) {
      if (!Equal(r.bom_item_id, 0))
        Accumulate(r.bom_item_id, r.aux_prop_id, r.memo, r.suggest_qty, r.date, r.demand);
    }
  }

  // The columns folding reads of a material row written for a demand row;
  // the bill or plan line, scrap rate and source number it also records do
  // not survive the fold.
  static Need MaterialOf(const Need& demand) {
    Need r;
    r.tran_type = demand.tran_type;
    r.inter_id = demand.inter_id;
    r.entry_id = demand.entry_id;
    r.date = demand.date;
    r.demand = demand.demand;
    return r;
  }

  OptNum SingleLevelQty(OptNum suggest, const BomHeader& v1, const BomChild& u1) const {
    auto where = [&] {
      return "quantity of " + std::to_string(u1.item_id) + " in bill " +
             std::to_string(v1.inter_id) + " line " + std::to_string(u1.entry_id);
    };
    if (opt_.bom_type == 1) {
      const OptNum num = Mul(Mul(suggest, u1.qty), 100.0);
      const OptNum den = Mul(v1.qty, Sub(OptNum(100.0), u1.scrap));
      if (!num || !den) return std::nullopt;
      if (*den == 0) DivideByZero(where() + " (scrap 100% under BOMType 1, or bill quantity 0)");
      return *num / *den;
    }
    const OptNum num = Mul(Mul(suggest, u1.qty), Add(OptNum(100.0), u1.scrap));
    if (!num || !v1.qty) return std::nullopt;
    if (*v1.qty == 0) DivideByZero(where() + " (bill quantity 0)");
    return (*num / 100) / *v1.qty;
  }

  // Material rows arrive in table order. Rows of one material and named
  // property take the memo of the first of them, so that the memo does not
  // split the material (a property without a name never compares equal, so
  // those rows keep their own memos). Then one row per material, property
  // and memo, NULL keys grouping together; the required date is the
  // earliest of the parts.
  static constexpr int64_t kNull = INT64_MIN;
  static int64_t K(const OptInt& v) { return v ? *v : kNull; }

  // Rows group by memo as the server groups text: memos equal but for
  // letter case are one group, shown with the first memo met.
  int MemoId(const OptText& memo) {
    if (!memo) return -1;
    auto [it, inserted] =
        memo_ids_.try_emplace(FoldKey(*memo), static_cast<int>(memo_texts_.size()));
    if (inserted) memo_texts_.push_back(*memo);
    return it->second;
  }

  // The property's name, as the table holds it: only for material rows.
  const OptText* AuxName(const OptInt& bom_item, const OptInt& aux) const {
    if (!bom_item || *bom_item <= 0 || !aux) return nullptr;
    auto it = in_.aux_names.find(*aux);
    return it == in_.aux_names.end() ? nullptr : &it->second;
  }

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
    if (opt_.peg) [[unlikely]] AddPeg(group, suggest, demand);
  }

  // The demand line's share of the group, kept apart from the groups so
  // that a report without pegging does not carry it.
  [[gnu::noinline]] void AddPeg(size_t group, const OptNum& suggest, int32_t demand) {
    if (!suggest || demand < 0) return;
    if (group_pegs_.size() <= group) group_pegs_.resize(group + 1);
    std::vector<Peg>& pegs = group_pegs_[group];
    if (!pegs.empty() && pegs.back().demand == demand) {
      pegs.back().qty += *suggest;
    } else {
      pegs.push_back({demand, *suggest});
    }
  }

  void Accumulate(const OptInt& bom_item, const OptInt& aux, int memo, const OptNum& suggest,
                  const std::optional<Date>& date, int32_t demand) {
    AddTo(GroupOf(bom_item, aux, memo), suggest, date, demand);
  }

  // A bill line always lands in the same group once its first row has
  // placed it (the memo that unifies a material never changes after), so
  // the group is remembered per line.
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

  // The material whose master data a folded row shows: only materials with
  // a unit row have it.
  const Item* MasterItem(const OptInt& bom_item) const {
    if (!bom_item || *bom_item <= 0) return nullptr;
    const Item* item = boms_.FindItem(*bom_item);
    return item && item->unit_id && in_.unit_names.count(*item->unit_id) ? item : nullptr;
  }
  const std::string* NumberOf(const OptInt& bom_item) const {
    const Item* item = MasterItem(bom_item);
    return item && item->number ? &*item->number : nullptr;
  }

  // One row per group, already in the report's order: by material code as
  // the server orders text (letter case aside), rows without a code first,
  // rows of one code in the order their groups were formed. Every later
  // step works row by row.
  void Folded() {
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
      const std::string* number = NumberOf(groups_[i].bom_item);
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
    rows_.clear();
    for (const auto& [head, number, index] : order) {
      const Group& g = groups_[index];
      ReportRow& f = rows_.emplace_back();
      f.bom_item_id = g.bom_item;
      f.aux_prop_id = g.aux;
      if (const OptText* name = AuxName(g.bom_item, g.aux)) f.aux_prop = *name;
      if (g.memo >= 0) f.memo = memo_texts_[static_cast<size_t>(g.memo)];
      f.final = 1;
      const Sum& sum = sums_[index];
      f.suggest_qty = f.need_qty = sum.has_total ? OptNum(Dec(sum.total)) : std::nullopt;
      if (sum.has_date) f.date = sum.earliest;
      if (opt_.peg && index < group_pegs_.size()) f.pegs = Pegs(std::move(group_pegs_[index]));
    }
  }

  // One share per demand line, in demand order, to ten decimals.
  static std::vector<Peg> Pegs(std::vector<Peg> parts) {
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

  void MasterData() {
    for (auto& r : rows_) {
      if (const Item* item = MasterItem(r.bom_item_id)) {
        r.item_prop_id = item->erp_cls;
        r.item_number = item->number;
        r.item_name = item->name;
        r.item_model = item->model;
        r.unit_id = item->unit_id;
        r.unit_name = in_.unit_names.at(*item->unit_id);
        r.save_qty = Dec(item->sec_inv);
        r.qty_decimal = item->qty_decimal;
      }
      r.item_prop = ItemPropText(r.item_prop_id);
    }
  }

  static void Lookup(ReportRow& r, const std::map<Key, OptNum>& figures,
                     OptNum ReportRow::*column) {
    if (!r.bom_item_id || *r.bom_item_id <= 0 || !r.aux_prop_id) return;
    auto it = figures.find({*r.bom_item_id, r.aux_prop_id});
    if (it != figures.end()) r.*column = Dec(it->second);
  }

  void Supply() {
    for (auto& r : rows_) {
      Lookup(r, in_.stock, &ReportRow::current_qty);
      Lookup(r, in_.moving, &ReportRow::moving_qty);
      Lookup(r, in_.unsold, &ReportRow::unstock_qty);
      Lookup(r, in_.producing, &ReportRow::producing_qty);
    }
  }

  void Net() {
    auto each = [&](bool on, auto&& change) {
      if (!on) return;
      for (auto& r : rows_) {
        if (r.bom_item_id && *r.bom_item_id > 0) r.suggest_qty = Dec(change(r));
      }
    };
    each(opt_.now_stock, [](ReportRow& r) { return Sub(r.suggest_qty, r.current_qty); });
    each(opt_.save_stock, [](ReportRow& r) { return Add(r.suggest_qty, r.save_qty); });
    each(opt_.moving, [](ReportRow& r) { return Sub(r.suggest_qty, r.moving_qty); });
    each(opt_.unsale, [](ReportRow& r) { return Add(r.suggest_qty, r.unstock_qty); });
    // Production in progress is added, as the report always did.
    each(opt_.producing, [](ReportRow& r) { return Add(r.suggest_qty, r.producing_qty); });
    for (auto& r : rows_) {
      if (!r.bom_item_id || !r.aux_prop_id) continue;
      auto it = produc_.find({*r.bom_item_id, r.aux_prop_id});
      if (it != produc_.end()) r.produc_qty = Dec(it->second);
    }
    each(opt_.produc, [](ReportRow& r) { return Sub(r.suggest_qty, r.produc_qty); });
    each(opt_.mid_stock, [](ReportRow& r) { return Sub(r.suggest_qty, r.mid_stock_qty); });
    for (auto& r : rows_) {
      if (!r.bom_item_id || *r.bom_item_id <= 0) continue;
      r.qty = r.suggest_qty;
      if (r.suggest_qty && *r.suggest_qty < 0) {
        r.qty = 0.0;
        r.suggest_qty = 0.0;
      }
    }
  }

  // Stock of made parts below the demand's items covers their materials:
  // each made part with an approved bill and stock on hand takes its stock
  // through its bill down to the leaves, once per part.
  void MidStock(std::future<std::map<Key, double>>& pending) {
    if (!opt_.expand) {
      throw Error(ErrorCategory::kInvalidInput,
                  "the mid-stock figure needs the multi-level explosion (Expand 1)");
    }
    const std::map<Key, double> covered = pending.get();
    for (auto& r : rows_) r.mid_stock_qty = 0.0;
    for (auto& r : rows_) {
      if (!r.bom_item_id || !r.aux_prop_id) continue;
      auto it = covered.find({*r.bom_item_id, r.aux_prop_id});
      if (it != covered.end()) r.mid_stock_qty = Dec(it->second);
    }
  }

  // Reads only the input, the bill index and the demand's items, so that it
  // may run beside the explosion.
  std::map<Key, double> CoveredByMidStock() const {
    // The made parts with an approved bill anywhere below the demand's
    // items, through their in-use and approved bills; in the order of
    // their ids, whatever order the walk finds them in.
    std::vector<int32_t> made;
    std::vector<int32_t> todo;
    std::unordered_set<int32_t> seen;
    seen.reserve(boms_.line_count() / 4 + snapshot_.size());
    for (const auto& [item, aux] : snapshot_) {
      if (seen.insert(item).second) todo.push_back(item);
    }
    auto visit = [&](const BomHeader* bill) {
      for (const auto& l : boms_.Lines(bill->inter_id)) {
        if (!l.made) continue;
        if (l.approved_bill >= 0) made.push_back(l.item_id);
        if (seen.insert(l.item_id).second) todo.push_back(l.item_id);
      }
    };
    while (!todo.empty()) {
      const int32_t item = todo.back();
      todo.pop_back();
      for (const BomHeader* bill : boms_.InUse(item)) visit(bill);
      if (const BomHeader* approved = boms_.Approved(item)) visit(approved);
    }
    std::sort(made.begin(), made.end());
    made.erase(std::unique(made.begin(), made.end()), made.end());
    std::map<Key, double> covered;
    for (int32_t m : made) {
      double on_hand = 0;  // over the part's properties, in key order
      for (auto it = in_.stock.lower_bound({m, std::nullopt});
           it != in_.stock.end() && it->first.first == m; ++it) {
        if (it->second) on_hand += *it->second;
      }
      if (on_hand <= 0) continue;
      const BomHeader* bill = boms_.Approved(m);
      if (!bill->qty) continue;
      auto leaf = [&](const BomIndex::Line& line, OptNum suggest, OptNum) {
        if (const OptNum qty = Dec(suggest))
          covered[{line.item_id, line.child->aux_prop_id}] += *qty;
      };
      ExplodeBill(boms_, opt_.bom_type, bill->inter_id, on_hand, *bill->qty, leaf);
    }
    return covered;
  }

  // The supplier of the latest purchase document of each material, after
  // rights and deletions are applied to that latest document only; then the
  // material's default supplier where none was found.
  void Suppliers() {
    std::set<int32_t> materials;
    for (const auto& r : rows_) {
      if (r.bom_item_id) materials.insert(*r.bom_item_id);
    }
    struct Doc {
      OptInt supply_id;
      std::optional<Date> date;
    };
    std::map<int32_t, std::vector<Doc>> docs;
    for (const auto& h : in_.history) {
      if (materials.count(h.item_id)) docs[h.item_id].push_back({h.supply_id, h.date});
    }
    const auto& rights = in_.rights;
    for (auto& [item, list] : docs) {
      for (auto& d : list) {
        if (!rights.administrator && !rights.group_right) d.supply_id.reset();
        if (!rights.administrator && rights.supplier_data_rights && d.supply_id) {
          auto s = in_.suppliers.find(*d.supply_id);
          const bool listed = s != in_.suppliers.end() && s->second.right_user_ids &&
                              RightsTextNamesUser(*s->second.right_user_ids, opt_.user_id);
          if (!listed) d.supply_id.reset();
        }
        if (d.supply_id) {
          auto s = in_.suppliers.find(*d.supply_id);
          if (s != in_.suppliers.end() && Equal(s->second.deleted, 1)) d.supply_id.reset();
        }
      }
    }
    for (auto& r : rows_) {
      if (!r.bom_item_id || *r.bom_item_id <= 0) continue;
      r.supply_number = std::string();
      auto it = docs.find(*r.bom_item_id);
      if (it == docs.end()) continue;
      std::optional<Date> latest;
      for (const auto& d : it->second) {
        if (d.date && (!latest || *d.date > *latest)) latest = d.date;
      }
      // Several documents on the latest date: the first one found, in the
      // order orders, receipts, invoices.
      for (const auto& d : it->second) {
        if (!latest || !d.date || *d.date != *latest) continue;
        if (d.supply_id) {
          auto s = in_.suppliers.find(*d.supply_id);
          if (s != in_.suppliers.end() && s->second.number) r.supply_number = *s->second.number;
        }
        break;
      }
    }
    for (auto& r : rows_) {
      if (!r.bom_item_id || *r.bom_item_id <= 0) continue;
      if (r.supply_number && !r.supply_number->empty()) continue;
      const Item* item = boms_.FindItem(*r.bom_item_id);
      if (!item || !item->source) continue;
      auto s = in_.suppliers.find(*item->source);
      if (s != in_.suppliers.end() && s->second.number) r.supply_number = s->second.number;
    }
    // Name by code, letter case aside; should two suppliers share a code,
    // the lower id answers.
    std::map<std::string, std::pair<int32_t, OptText>> names;
    for (const auto& [id, s] : in_.suppliers) {
      if (!s.number) continue;
      auto [it, inserted] = names.try_emplace(FoldKey(*s.number), id, s.name);
      if (!inserted && id < it->second.first) it->second = {id, s.name};
    }
    for (auto& r : rows_) {
      if (!r.supply_number) continue;
      auto it = names.find(FoldKey(*r.supply_number));
      if (it != names.end()) r.supply_name = it->second.second;
    }
  }

  const Input& in_;
  const Options& opt_;
  std::optional<BomIndex> own_boms_;
  const BomIndex& boms_;
  ReportRows rows_;
  std::set<Key> snapshot_;
  std::map<Key, OptNum> produc_;
  std::unordered_map<std::string, int> memo_ids_;
  std::vector<std::string> memo_texts_;
  static constexpr size_t kNoGroup = SIZE_MAX;
  static constexpr uint32_t kNullQty = 0x80000000u;  // in a line number the helper hands over
  std::vector<size_t> line_group_;  // by BomIndex::LineNumber
  std::vector<Sum> sums_;           // by group
  std::unordered_map<int32_t, std::vector<const TaskEntry*>> entries_of_;
  std::vector<Need> needs_;
  std::unordered_map<GroupKey, int, GroupHash> first_memo_;
  std::unordered_map<GroupKey, size_t, GroupHash> group_index_;
  std::vector<Group> groups_;
  std::vector<std::vector<Peg>> group_pegs_;  // by group, with Options::peg
  std::jthread beside_;                       // last: joined before the rest goes
};

}  // namespace

ReportRows Calculate(const Input& input, const BomIndex* boms) { return Report(input, boms).Run(); }

}  // namespace mrpcalc::mrp
