// MRP loader queries.
#include "mrp/loader.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <set>
#include <string_view>
#include <type_traits>
#include <unordered_set>

#include "mrp/calculation.h"
#include "record/error.h"
#include "record/json.h"

namespace mrpcalc::mrp {
namespace {

using Row = std::vector<Variant>;

using View = db::RowView;
using Kind = db::RowView::Kind;

// Values of a row read straight from a view: the common kinds at once,
// anything else through the variant QueryRows would give, so that every
// value converts exactly as it always did.
OptInt Int(const Variant& v) {
  if (v.IsNull() || v.IsEmpty()) return std::nullopt;
  return v.ToLong();
}
OptNum Num(const Variant& v) {
  if (v.IsNull() || v.IsEmpty()) return std::nullopt;
  return v.ToDouble();
}
OptText Text(const Variant& v) {
  if (v.IsNull() || v.IsEmpty()) return std::nullopt;
  return v.ToText();
}
bool IsNull(const View& r, int i) { return r.kind(i) == Kind::kNull; }
bool FitsLong(int64_t v) {
  return v >= std::numeric_limits<int32_t>::min() && v <= std::numeric_limits<int32_t>::max();
}
OptInt Int(const View& r, int i) {
  const Kind kind = r.kind(i);
  if (kind == Kind::kNull) return std::nullopt;
  if (kind == Kind::kInteger) {
    if (const int64_t v = r.integer(i); FitsLong(v)) return static_cast<int32_t>(v);
  }
  return Int(r.value(i));
}
int32_t Long(const View& r, int i) {
  if (r.kind(i) == Kind::kInteger) {
    if (const int64_t v = r.integer(i); FitsLong(v)) return static_cast<int32_t>(v);
  }
  return r.value(i).ToLong();
}
OptNum Num(const View& r, int i) {
  const Kind kind = r.kind(i);
  if (kind == Kind::kNull) return std::nullopt;
  if (kind == Kind::kInteger) return static_cast<double>(r.integer(i));
  if (kind == Kind::kFloat) return r.number(i);
  return Num(r.value(i));
}
OptText Text(const View& r, int i) {
  const Kind kind = r.kind(i);
  if (kind == Kind::kNull) return std::nullopt;
  if (kind == Kind::kText) return std::string(r.text(i));
  return Text(r.value(i));
}

// The whole number a key column holds, as "key in (ids)" compares it.
std::optional<int32_t> WholeId(const View& r, int i) {
  const Kind kind = r.kind(i);
  if (kind == Kind::kInteger) {
    const int64_t v = r.integer(i);
    return FitsLong(v) ? std::optional<int32_t>(static_cast<int32_t>(v)) : std::nullopt;
  }
  if (kind != Kind::kFloat) return std::nullopt;
  const double d = r.number(i);
  if (std::trunc(d) == d && std::fabs(d) < 2147483648.0) return static_cast<int32_t>(d);
  return std::nullopt;
}

// A set of ids: a bitmap while they are small and not negative (the ERP
// numbers its rows from 1), a hash set for any others. The bill walk asks
// it a few hundred thousand times at scale.
class IdSet {
 public:
  IdSet() = default;
  explicit IdSet(const std::vector<int32_t>& ids) {
    for (int32_t id : ids) insert(id);
  }
  // True when the id was not in the set yet.
  bool insert(int32_t id) {
    if (id < 0 || id >= kDenseLimit) return others_.insert(id).second;
    const auto at = static_cast<size_t>(id);
    if (at >= dense_.size()) dense_.resize(std::max(at + 1, dense_.size() * 2));
    if (dense_[at]) return false;
    dense_[at] = 1;
    return true;
  }
  bool contains(int32_t id) const {
    if (id < 0 || id >= kDenseLimit) return others_.count(id) > 0;
    const auto at = static_cast<size_t>(id);
    return at < dense_.size() && dense_[at];
  }
  std::vector<int32_t> Sorted() const {
    std::vector<int32_t> others(others_.begin(), others_.end());
    std::sort(others.begin(), others.end());
    const auto large = std::lower_bound(others.begin(), others.end(), 0);  // none in [0, limit)
    std::vector<int32_t> out(others.begin(), large);
    for (size_t at = 0; at < dense_.size(); ++at) {
      if (dense_[at]) out.push_back(static_cast<int32_t>(at));
    }
    out.insert(out.end(), large, others.end());
    return out;
  }

 private:
  static constexpr int32_t kDenseLimit = 1 << 26;
  std::vector<uint8_t> dense_;
  std::unordered_set<int32_t> others_;
};

// The rows of one table whose key column holds one of a set of ids, read
// into records of type T. Where the engine takes the ids as one set
// parameter, one statement reads them. Elsewhere a lookup in the key's
// index costs about as much as reading ten rows in order, so ids that
// number an eighth of the table or more are read with one scan of the
// table; fewer go by parameter lists. The table is counted once, the first
// time that matters.
//
// A table asked in rounds (the bill walk asks level by level, never twice
// for one id) keeps what its first scan read, by key, and serves the later
// rounds from it.
template <class T>
class TableByIds {
 public:
  using Make = T (*)(const View&);
  TableByIds(db::Connection& c, std::string select_list, std::string table, std::string key,
             size_t key_position, Make make, bool rounds)
      : c_(c),
        select_(std::move(select_list)),
        table_(std::move(table)),
        key_(std::move(key)),
        key_position_(key_position),
        make_(make),
        rounds_(rounds) {}

  template <class Each>
  void Read(const std::vector<int32_t>& ids, Each&& each) {
    if (ids.empty()) return;
    if (!scanned_) {
      const db::Dialect& d = c_.dialect();
      if (d.PrefersSets() || ids.size() * 8 < Rows()) {
        db::QueryIn(c_, ids,
                    "select " + select_ + " from " + table_ + " where " + key_ + " in (%IDS%)",
                    [&](const View& r) { each(make_(r)); });
        return;
      }
      if (!rounds_) {
        const IdSet wanted(ids);
        c_.QueryView("select " + select_ + " from " + table_, {}, [&](const View& r) {
          const auto id = WholeId(r, static_cast<int>(key_position_));
          if (id && wanted.contains(*id)) each(make_(r));
        });
        return;
      }
      scanned_ = true;
      c_.QueryView("select " + select_ + " from " + table_, {}, [&](const View& r) {
        if (const auto id = WholeId(r, static_cast<int>(key_position_)))
          kept_[*id].push_back(make_(r));
      });
    }
    for (int32_t id : ids) {
      auto it = kept_.find(id);
      if (it == kept_.end()) continue;
      for (T& row : it->second) each(std::move(row));
      kept_.erase(it);
    }
  }

 private:
  size_t Rows() {
    if (!rows_)
      rows_ = static_cast<size_t>(c_.QueryValue("select count(*) from " + table_).ToDouble());
    return *rows_;
  }

  db::Connection& c_;
  std::string select_, table_, key_;
  size_t key_position_;
  Make make_;
  bool rounds_;
  std::optional<size_t> rows_;
  bool scanned_ = false;
  std::unordered_map<int32_t, std::vector<T>> kept_;
};

std::optional<Date> When(const Variant& v) {
  if (const Date* d = v.AsDate()) return *d;
  if (const std::string* s = v.AsString()) {
    if (auto d = Date::Parse(*s)) return *d;
  }
  return std::nullopt;
}

// Rows of (material, property, figure).
std::map<ItemAux, OptNum> Figures(db::Connection& c, const std::string& sql,
                                  const db::Params& params = {}) {
  std::map<ItemAux, OptNum> out;
  c.QueryView(sql, params, [&](const View& r) { out[{Long(r, 0), Int(r, 1)}] = Num(r, 2); });
  return out;
}

BomHeader MakeHeader(const View& r) {
  return {Long(r, 0), Long(r, 1), Num(r, 2), Int(r, 3), Int(r, 4), Int(r, 5)};
}
BomChild MakeLine(const View& r) {
  return {Long(r, 0), Long(r, 1), Long(r, 2), Num(r, 3),
          Num(r, 4),  Int(r, 5),  Int(r, 6),  Text(r, 7)};
}
std::pair<int32_t, Item> MakeItem(const View& r) {
  return {
      Long(r, 0),
      {Int(r, 1), Text(r, 2), Text(r, 3), Text(r, 4), Int(r, 5), Num(r, 6), Int(r, 7), Int(r, 8)}};
}

}  // namespace

void LoadBoms(db::Connection& c, const std::vector<int32_t>& item_ids, Input& in) {
  // Tens of thousands of ids at scale: tree sets spent most of the walk
  // allocating and rebalancing nodes, hash sets still a tenth of it.
  IdSet seen_items;
  IdSet seen_bills;
  std::vector<int32_t> frontier;
  for (int32_t id : item_ids) {
    if (seen_items.insert(id)) frontier.push_back(id);
  }
  TableByIds<BomHeader> headers(c, "FInterID, FItemID, FQty, FAuxPropID, FUseStatus, FStatus",
                                "ICBOM", "FItemID", 1, MakeHeader, true);
  TableByIds<BomChild> lines(
      c, "FInterID, FEntryID, FItemID, FQty, FScrap, FAuxPropID, FUnitID, FNote", "ICBOMChild",
      "FInterID", 0, MakeLine, true);
  TableByIds<std::pair<int32_t, Item>> items(
      c, "FItemID, FErpClsID, FNumber, FName, FModel, FUnitID, FSecInv, FQtyDecimal, FSource",
      "t_ICItem", "FItemID", 0, MakeItem, false);
  while (!frontier.empty()) {
    std::vector<int32_t> bills;
    headers.Read(frontier, [&](BomHeader&& b) {
      if (seen_bills.insert(b.inter_id)) {
        bills.push_back(b.inter_id);
        in.boms.push_back(b);
      }
    });
    std::vector<int32_t> next;
    lines.Read(bills, [&](BomChild&& ch) {
      if (seen_items.insert(ch.item_id)) next.push_back(ch.item_id);
      in.bom_children.push_back(std::move(ch));
    });
    frontier = std::move(next);
  }
  const std::vector<int32_t> all = seen_items.Sorted();
  in.items.reserve(in.items.size() + all.size());
  items.Read(
      all, [&](std::pair<int32_t, Item>&& item) { in.items[item.first] = std::move(item.second); });
  c.QueryView("select FMeasureUnitID, FName from t_MeasureUnit", {}, [&](const View& r) {
    if (!IsNull(r, 0)) in.unit_names[Long(r, 0)] = Text(r, 1).value_or("");
  });
  c.QueryView("select FItemID, FName from t_AuxItem", {}, [&](const View& r) {
    if (!IsNull(r, 0)) in.aux_names[Long(r, 0)] = Text(r, 1);
  });
  c.QueryView("select FInterID from t_SubMessage where " + c.dialect().CaseFolded("FID") +
                  " = 'zt01'",
              {}, [&](const View& r) {
    if (!IsNull(r, 0)) in.approved_use_status.insert(Long(r, 0));
  });
}

DemandDates::DemandDates(const VectorPtr& source_data,
                         const std::vector<std::vector<std::string>>& bill_numbers_per_line) {
  std::set<int32_t>& sales_orders = sales_orders_;
  if (source_data) {
    for (const auto& row : source_data->rows()) {
      const Variant* type = row->Find("Ftrantype");
      const Variant number = row->Get("FBillNO");
      Source s{type != nullptr, type ? type->ToLong() : 0, row->Get("finterid").ToLong(),
               row->Get("fentryid").ToLong()};
      // The source type in hand: the first task type met, else the last type.
      if (s.has_type && type_in_hand_ != kTranProductionTask && type_in_hand_ != kTranOutsourcingTask) {
        type_in_hand_ = s.type;
      }
      // Numbers are matched as the server matches text: letter case aside.
      const std::string text = number.IsNull() ? "" : FoldKey(number.ToText());
      number_lengths_.insert(text.size());
      source_by_number_[text].push_back(s);
      if (s.has_type && s.type == kTranSalesOrder) sales_orders.insert(s.inter_id);
    }
  }
  for (const auto& line : bill_numbers_per_line) {
    for (const auto& n : line) numbers_.insert(FoldKey(n));
  }
}

void DemandDates::Load(db::Connection& c) {
  db::QueryIn(c, std::vector<int32_t>(sales_orders_.begin(), sales_orders_.end()),
              "select FInterID, FEntryID, FDate from SEOrderEntry where FInterID in (%IDS%)",
              [&](const View& r) {
                sales_dates_[{Long(r, 0), Long(r, 1)}] = When(r.value(2));
              });
  const std::vector<std::string> list(numbers_.begin(), numbers_.end());
  auto earliest = [](std::map<std::string, std::optional<Date>>& into) {
    return [&into](Row& r) {
      if (r[0].IsNull()) return;
      auto d = When(r[1]);
      auto& slot = into[FoldKey(r[0].ToText())];
      if (d && (!slot || *d < *slot)) slot = d;
    };
  };
  const std::string folded = c.dialect().CaseFolded("FBillNo");
  db::QueryIn(c, list, "select FBillNo, FBeginDate from ICMO where " + folded + " in (%IDS%)",
              earliest(mo_dates_));
  db::QueryIn(c, list, "select FBillNo, FBeginDate from ICOutMO where " + folded + " in (%IDS%)",
              earliest(out_mo_dates_));
}

Date DemandDates::For(const std::vector<std::string>& bill_numbers) const {
  if (auto hit = cache_.find(bill_numbers); hit != cache_.end()) return hit->second;
  // The line's numbers as the report quoted them: 'A','B'.
  std::string quoted;
  for (size_t i = 0; i < bill_numbers.size(); ++i) quoted += (i ? "','" : "'") + bill_numbers[i];
  quoted += "'";
  const std::string folded = FoldKey(quoted);
  std::optional<Date> earliest;
  auto take = [&](const std::optional<Date>& d) {
    if (d && (!earliest || *d < *earliest)) earliest = d;
  };
  // Sales-order lines whose number occurs anywhere in the quoted text: a
  // plain substring test, kept as the report has it.
  // Looked up through the quoted text's own substrings of the lengths the
  // selected numbers have, so the cost does not grow with the number of
  // selected rows.
  std::vector<const std::vector<Source>*> matches;
  for (size_t n : number_lengths_) {
    if (n == 0) {
      matches.push_back(&source_by_number_.at(""));  // the empty text is in every text
      continue;
    }
    for (size_t from = 0; from + n <= folded.size(); ++from) {
      auto it = source_by_number_.find(folded.substr(from, n));
      if (it != source_by_number_.end()) matches.push_back(&it->second);
    }
  }
  bool sales = false;
  for (const auto* rows : matches) {
    for (const Source& s : *rows) {
      if (!s.has_type || s.type != kTranSalesOrder) continue;
      sales = true;
      auto it = sales_dates_.find({s.inter_id, s.entry_id});
      if (it != sales_dates_.end()) take(it->second);
    }
  }
  const int type_in_hand = type_in_hand_;
  if (type_in_hand == kTranSalesOrder && !sales) {
    throw Error(ErrorCategory::kInvalidInput,
                "no selected sales-order line matches the demand bills " + quoted +
                    ": their required date cannot be found");
  }
  if (type_in_hand != kTranSalesOrder && type_in_hand != kTranProductionTask &&
      type_in_hand != kTranOutsourcingTask) {
    throw Error(ErrorCategory::kInvalidInput,
                "the selected source rows carry source type " + std::to_string(type_in_hand) +
                    ": the required date is found only for types 81, 85 and 91");
  }
  if (type_in_hand != kTranSalesOrder) {
    const auto& tasks = type_in_hand == kTranProductionTask ? mo_dates_ : out_mo_dates_;
    for (const auto& n : bill_numbers) {
      auto it = tasks.find(FoldKey(n));
      if (it != tasks.end()) take(it->second);
    }
  }
  const Date date = earliest.value_or(Date());  // no date anywhere: the zero date
  cache_.emplace(bill_numbers, date);
  return date;
}

void LoadTasks(db::Connection& c, const std::vector<int32_t>& demand_tasks, Input& in) {
  const TaskKind& task = in.options.task;
  db::QueryIn(
      c, demand_tasks,
      "select FInterID, FItemID, FQty from " + task.header_table + " where FInterID in (%IDS%)",
      [&](const View& r) {
        in.task_headers[Long(r, 0)] = {Long(r, 0), Int(r, 1), Num(r, 2)};
      });
  db::QueryIn(c, demand_tasks,
              "select FInterID, FEntryID, FItemID, FPlanQty, FAuxPropID, FScrapRate, FNote from " +
                  task.entry_table + " where FInterID in (%IDS%) order by FInterID, FEntryID",
              [&](const View& r) {
                in.task_entries.push_back({Long(r, 0), Long(r, 1), Long(r, 2), Num(r, 3), Int(r, 4),
                                           Num(r, 5), Text(r, 6)});
              });
}

void LoadIssued(db::Connection& c, const std::vector<int32_t>& demand_tasks,
                bool count_unchecked_bills, Input& in) {
  const TaskKind& task = in.options.task;
  // Issued to the demand's tasks; only checked stock bills count unless the
  // ERP counts bills when they are saved.
  db::QueryIn(c, demand_tasks,
              "select u1.FItemID, u1.FAuxPropID, sum(coalesce(s.FQty, 0)) from " +
                  task.header_table + " v1 inner join " + task.entry_table +
                  " u1 on v1.FInterID = u1.FInterID"
                  " left join ICStockBillEntry s on s.FSourceInterId = u1.FInterID"
                  " and s.FSourceEntryID = u1.FEntryID"
                  " left join ICStockBill s1 on s.FInterID = s1.FInterID"
                  " where v1.FInterID in (%IDS%)" +
                  (count_unchecked_bills ? "" : " and s1.FCheckerID > 0") +
                  " group by u1.FItemID, u1.FAuxPropID",
              [&](const View& r) {
                in.issued.push_back({Long(r, 0), Int(r, 1), Num(r, 2)});
              });
}

OpenSupply LoadOpenSupply(db::Connection& c, const std::vector<int32_t>& warehouses,
                          bool count_virtual) {
  OpenSupply out;
  std::vector<int32_t> stocks = warehouses.empty() ? std::vector<int32_t>{0} : warehouses;
  db::QueryIn(c, stocks,
              std::string("select i.FItemID, i.FAuxPropID, sum(i.FQty) from ICInventory i"
                          " inner join t_Stock s on i.FStockID = s.FItemID"
                          " where i.FStockID in (%IDS%)") +
                  (count_virtual ? "" : " and s.FTypeID <> " + std::to_string(kVirtualWarehouse)) +
                  " group by i.FItemID, i.FAuxPropID",
              [&](const View& r) {
                const OptNum v = Num(r, 2);
                auto [it, inserted] = out.stock.try_emplace({Long(r, 0), Int(r, 1)}, v);
                if (!inserted && v) it->second = it->second ? OptNum(*it->second + *v) : v;
              });
  out.moving = Figures(
      c,
      "select u1.FItemID, u1.FAuxPropID, sum(u1.FQty - u1.FCommitQty) from POOrderEntry u1"
      " inner join POOrder v1 on u1.FInterID = v1.FInterID"
      " where v1.FStatus in (1,2) and u1.FQty > u1.FCommitQty group by u1.FItemID, u1.FAuxPropID");
  out.unsold = Figures(
      c,
      "select u1.FItemID, u1.FAuxPropID, sum(u1.FQty - u1.FCommitQty) from SEOrderEntry u1"
      " inner join SEOrder v1 on u1.FInterID = v1.FInterID"
      " where v1.FStatus in (1,2) and u1.FQty > u1.FCommitQty group by u1.FItemID, u1.FAuxPropID");
  return out;
}

void LoadProducingAndHistory(db::Connection& c, Input& in) {
  const TaskKind& task = in.options.task;
  // Production in progress outside the demand's own tasks.
  if (in.demand_bill_numbers.empty()) {
    throw Error(ErrorCategory::kInvalidInput, "the demand names no bill number");
  }
  // The demand's own bills are excluded in one statement (the sums stay the
  // engine's): as one set parameter where the engine reads one, which has
  // no limit of parameters, else as a list.
  // Bill numbers compare as the ERP's server compares text, letter case aside.
  const std::string& set = c.dialect().TextSet();
  std::vector<std::string> folded;
  folded.reserve(in.demand_bill_numbers.size());
  for (const auto& n : in.demand_bill_numbers) folded.push_back(FoldKey(n));
  db::Params numbers;
  if (!set.empty()) {
    numbers.emplace_back(Json(folded).dump());
  } else {
    numbers.assign(folded.begin(), folded.end());
  }
  in.producing =
      Figures(c,
              "select u1.FItemID, u1.FAuxPropID, sum(u1.FPlanQty - coalesce(s.FQty, 0)) from " +
                  task.entry_table + " u1 inner join " + task.header_table +
                  " v1 on u1.FInterID = v1.FInterID"
                  " left join ICStockBillEntry s on s.FSourceInterId = u1.FInterID"
                  " and s.FSourceEntryID = u1.FEntryID"
                  " where v1.FStatus in (1,2) and u1.FPlanQty - coalesce(s.FQty, 0) > 0"
                  " and " + c.dialect().CaseFolded("v1.FBillNo") + " not in (" +
                  (set.empty() ? db::Placeholders(numbers.size()) : set) +
                  ")"
                  " group by u1.FItemID, u1.FAuxPropID",
              numbers);

  // Purchase history and suppliers serve only the supplier suggestion of
  // form kind 0.
  if (in.options.frm_type != 0) return;
  std::vector<int32_t> materials;
  for (const auto& [id, item] : in.items) materials.push_back(id);
  std::sort(materials.begin(), materials.end());
  auto history = [&](const View& r) {
    in.history.push_back({Long(r, 0), Int(r, 1), When(r.value(2))});
  };
  db::QueryIn(
      c, materials,
      "select u.FItemID, v.FSupplyID, v.FDate from POOrder v inner join POOrderEntry u"
      " on v.FInterID = u.FInterID where u.FItemID in (%IDS%) order by v.FInterID, u.FEntryID",
      history);
  db::QueryIn(
      c, materials,
      "select u.FItemID, v.FSupplyID, v.FDate from ICStockBill v inner join ICStockBillEntry u"
      " on v.FInterID = u.FInterID where v.FTranType = 1 and u.FItemID in (%IDS%)"
      " order by v.FInterID, u.FEntryID",
      history);
  db::QueryIn(
      c, materials,
      "select u.FItemID, v.FSupplyID, v.FDate from ICPurchase v inner join ICPurchaseEntry u"
      " on v.FInterID = u.FInterID where u.FItemID in (%IDS%) order by v.FInterID, u.FEntryID",
      history);
  c.QueryView("select FItemID, FNumber, FName, FRightUserID, FDeleted from t_Supplier", {},
              [&](const View& r) {
                in.suppliers[Long(r, 0)] = {Text(r, 1), Text(r, 2), Text(r, 3), Int(r, 4)};
              });
}

}  // namespace mrpcalc::mrp

namespace mrpcalc::mrp {

std::vector<bool> BomsLoopBack(db::Connection& c, const std::vector<int32_t>& item_ids) {
  Input input;
  LoadBoms(c, item_ids, input);
  const BomIndex boms(input);
  std::vector<bool> out;
  out.reserve(item_ids.size());
  for (int32_t id : item_ids) out.push_back(boms.LoopsBack(id));
  return out;
}

}  // namespace mrpcalc::mrp
