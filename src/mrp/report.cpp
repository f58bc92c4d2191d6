// The report: the demand rows and their explosion into material rows,
// then the steps of report_steps.h over the folded rows.
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
#include "mrp/report_steps.h"
#include "record/error.h"
#include "record/text.h"
#include "record/variant.h"

namespace mrpcalc::mrp {
namespace {

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
        boms_(boms ? *boms : *own_boms_),
        folding_(input, boms_, input.options.peg) {}

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
        beside = Beside(
            [this] { return CoveredByMidStock(in_, boms_, opt_.bom_type, demand_items_); });
        covered = beside.get_future();
      }
      MultiLevel(beside);
    } else {
      SingleLevel();
    }
    if (!opt_.expand) issued_ = Grouped(in_.issued);
    ReportRows rows = folding_.Rows();
    FillMasterData(in_, boms_, rows);
    if (opt_.frm_type == 0) {
      for (auto& r : rows) {
        r.save_qty = 0.0;
        r.suggest_qty = 0.0;
      }
      FillSuppliers(in_, boms_, opt_.user_id, rows);
    }
    if (opt_.mid_stock) {
      if (!opt_.expand) {
        throw Error(ErrorCategory::kInvalidInput,
                    "the mid-stock figure needs the multi-level explosion (Expand 1)");
      }
      FillMidStock(covered.get(), rows);
    }
    FillSupply(in_, rows);
    Net(opt_, issued_, rows);
    return rows;
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
        r.memo = folding_.MemoId(e->note);
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
      for (const auto& parent : all) {
        if (parent.lev != lev - 1) continue;
        for (const BomHeader* bill : boms_.InUse(parent.item)) {
          if (!Equal(bill->aux_prop_id, parent.aux)) continue;
          for (const auto& line : boms_.Lines(bill->inter_id)) {
            const BomChild* child = line.child;
            OptNum ratio;
            if (child->qty && bill->qty) {
              if (*bill->qty == 0)
                DivideByZero("bill " + std::to_string(bill->inter_id) + " has quantity 0");
              ratio = *child->qty / *bill->qty;
            }
            added.push_back({child->item_id, child->aux_prop_id, Dec(Mul(ratio, parent.qty)), lev});
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
    issued_.clear();
    for (const auto& l : all) {
      auto [it, inserted] = issued_.try_emplace({l.item, l.aux}, l.qty);
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
    for (const auto& r : needs_) demand_items_.insert({r.item_id.value_or(0), r.aux_prop_id});
  }

  // What runs beside the explosion, on the second thread.
  using Beside = std::packaged_task<std::map<Key, double>()>;

  void MultiLevel(Beside& beside) {
    // Rows already materials keep their place ahead of the exploded ones.
    for (const auto& r : needs_) {
      if (!Equal(r.bom_item_id, 0))
        folding_.Accumulate(r.bom_item_id, r.aux_prop_id, r.memo, r.suggest_qty, r.date, r.demand);
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
      folding_.AccumulateLine(boms_.LineNumber(line), Dec(suggest), r.date, r.demand);
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
          folding_.AccumulateLine(line & ~kNullQty, line & kNullQty ? OptNum() : OptNum(helped.qtys[k]),
                         r.date, r.demand);
        }
      }
    }
  }

  void SingleLevel() {
    CheckBomType(opt_.bom_type);
    std::vector<Need> added;
    // Sales-order demand takes one level of its product's in-use bills.
    for (const auto& demand : needs_) {
      if (!Equal(demand.bom_item_id, 0) || !Equal(demand.tran_type, kTranSalesOrder) ||
          !demand.item_id)
        continue;
      for (const BomHeader* bill : boms_.InUse(*demand.item_id)) {
        for (const auto& line : boms_.Lines(bill->inter_id)) {
          const BomChild* child = line.child;
          Need r = MaterialOf(demand);
          r.item_id = bill->item_id;
          r.bom_item_id = child->item_id;
          r.suggest_qty = Dec(SingleLevelQty(demand.suggest_qty, *bill, *child));
          r.aux_prop_id = child->aux_prop_id;
          r.memo = folding_.MemoId(child->note);
          added.push_back(r);
        }
      }
    }
    // Task demand takes the task's own material plan.
    for (const auto& demand : needs_) {
      if (!Equal(demand.tran_type, opt_.task.code)) continue;
      const TaskHeader* task = Task(demand.inter_id);
      if (!task) continue;
      for (const TaskEntry* entry : EntriesOf(task->inter_id)) {
        Need r = MaterialOf(demand);
        r.item_id = task->item_id;
        r.bom_item_id = entry->item_id;
        r.suggest_qty = Dec(Prorated(demand, *task, *entry, true));
        r.aux_prop_id = entry->aux_prop_id;
        r.memo = folding_.MemoId(entry->note);
        added.push_back(r);
      }
    }
    needs_.insert(needs_.end(), added.begin(), added.end());
    for (const auto& r : needs_) {
      if (!Equal(r.bom_item_id, 0))
        folding_.Accumulate(r.bom_item_id, r.aux_prop_id, r.memo, r.suggest_qty, r.date, r.demand);
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

  OptNum SingleLevelQty(OptNum suggest, const BomHeader& bill, const BomChild& child) const {
    auto where = [&] {
      return "quantity of " + std::to_string(child.item_id) + " in bill " +
             std::to_string(bill.inter_id) + " line " + std::to_string(child.entry_id);
    };
    if (opt_.bom_type == 1) {
      const OptNum num = Mul(Mul(suggest, child.qty), 100.0);
      const OptNum den = Mul(bill.qty, Sub(OptNum(100.0), child.scrap));
      if (!num || !den) return std::nullopt;
      if (*den == 0) DivideByZero(where() + " (scrap 100% under BOMType 1, or bill quantity 0)");
      return *num / *den;
    }
    const OptNum num = Mul(Mul(suggest, child.qty), Add(OptNum(100.0), child.scrap));
    if (!num || !bill.qty) return std::nullopt;
    if (*bill.qty == 0) DivideByZero(where() + " (bill quantity 0)");
    return (*num / 100) / *bill.qty;
  }

  const Input& in_;
  const Options& opt_;
  std::optional<BomIndex> own_boms_;
  const BomIndex& boms_;
  std::set<Key> demand_items_;
  std::map<Key, OptNum> issued_;  // per material and property, after the explosion
  static constexpr uint32_t kNullQty = 0x80000000u;  // in a line number the helper hands over
  std::unordered_map<int32_t, std::vector<const TaskEntry*>> entries_of_;
  std::vector<Need> needs_;
  Folding folding_;
  std::jthread beside_;                       // last: joined before the rest goes
};

}  // namespace

ReportRows Calculate(const Input& input, const BomIndex* boms) { return Report(input, boms).Run(); }

}  // namespace mrpcalc::mrp
