// Source documents of purchase plans.
#include "purchaseplan/source_links.h"

#include <set>

#include "purchaseplan/plan_source_repository.h"

#include "record/column_value.h"
#include "record/error.h"
#include "record/text.h"

namespace mrpcalc::plan {
namespace {

using OptNum = std::optional<double>;
using OptText = std::optional<std::string>;

// A source row as the statements see it.
struct Source {
  repo::PlanSource row;
  bool dirty = false;

  // The base quantity in the source's own unit: a coefficient of 0 counts as 1.
  OptNum PerUnit(double qty) const {
    if (!row.coefficient) return std::nullopt;
    return qty / (*row.coefficient == 0 ? 1 : *row.coefficient);
  }
};

OptNum Plus(const OptNum& a, const OptNum& b, Sign sign) {
  if (!a || !b) return std::nullopt;
  return RoundDecimal(sign == Sign::kAdd ? *a + *b : *a - *b);
}

class Sources {
 public:
  // Tasks by bill number or interior id; sales-order lines by interior id.
  void Load(db::Connection& c, const std::vector<SourceLine>& lines) {
    std::set<std::string> bills[2];
    std::set<int32_t> ids[2], orders;
    for (const auto& l : lines) {
      if (l.type == kProductionTask || l.type == kOutsourcingTask) {
        const int t = l.type == kProductionTask ? 0 : 1;
        bills[t].insert(FoldKey(l.bill_no));
        ids[t].insert(l.inter_id);
      } else if (l.type == kSalesOrder) {
        orders.insert(l.inter_id);
      }
    }
    for (int t = 0; t < 2; ++t) {
      for (repo::PlanSource& row :
           repo::TaskSources(c, kTaskTypes[t], {bills[t].begin(), bills[t].end()},
                             {ids[t].begin(), ids[t].end()})) {
        const int32_t id = row.inter_id;
        tasks_[t].try_emplace(id, Source{std::move(row)});
      }
    }
    for (repo::PlanSource& row : repo::SalesLineSources(c, {orders.begin(), orders.end()})) {
      const std::pair<int32_t, int32_t> key{row.inter_id, row.entry_id};
      sales_.try_emplace(key, Source{std::move(row)});
    }
  }

  // The task rows of a type whose bill number (letter case aside), or
  // interior id, is given.
  template <class F>
  void TasksByBill(int32_t type, const std::string& bill, F&& f) {
    for (auto& [id, s] : tasks_[type == kProductionTask ? 0 : 1])
      if (EqualsIgnoringCase(s.row.bill_no, bill)) f(s);
  }
  template <class F>
  void TaskById(int32_t type, int32_t id, F&& f) {
    auto& map = tasks_[type == kProductionTask ? 0 : 1];
    if (auto it = map.find(id); it != map.end()) f(it->second);
  }
  template <class F>
  void SalesLine(int32_t inter_id, int32_t entry_id, F&& f) {
    if (auto it = sales_.find({inter_id, entry_id}); it != sales_.end()) f(it->second);
  }

  // Empties every task list that holds the legacy "0".
  void ClearLegacyZeros(int t) {
    for (auto& [id, s] : tasks_[t]) {
      if (s.row.list && *s.row.list == "0") {
        s.row.list = "";
        s.dirty = true;
      }
    }
  }

  void Write(db::Connection& c) {
    for (int t = 0; t < 2; ++t) {
      std::vector<repo::PlanSource> changed;
      for (const auto& [id, s] : tasks_[t])
        if (s.dirty) changed.push_back(s.row);
      repo::WriteTaskSources(c, kTaskTypes[t], changed);
    }
    std::vector<repo::PlanSource> changed;
    for (const auto& [key, s] : sales_)
      if (s.dirty) changed.push_back(s.row);
    repo::WriteSalesLineSources(c, changed);
  }

 private:
  static constexpr int32_t kTaskTypes[2] = {kProductionTask, kOutsourcingTask};

  std::map<int32_t, Source> tasks_[2];
  std::map<std::pair<int32_t, int32_t>, Source> sales_;
};

void Complete(Source& s, const SourceLine& l, Sign sign) {
  if (!s.row.unit_known) return;
  s.row.finished = Plus(s.row.finished, s.PerUnit(l.qty), sign);
  if (l.type == kSalesOrder) s.row.base_finished = Plus(s.row.base_finished, l.qty, sign);
  s.dirty = true;
}

// The lists are searched and cut as the server does it: letter case aside.
void Add(Source& s, const std::string& plan_no) {
  if (!s.row.list || FindIgnoringCase(*s.row.list, plan_no) != std::string::npos) return;
  s.row.list = AddPlanNumber(*s.row.list, plan_no);
  s.dirty = true;
}

// The three removal statements, one at a time.
void CutNumber(Source& s, const std::string& plan_no) {
  if (!s.row.list) return;
  s.row.list = ReplaceAll(ReplaceAllIgnoringCase(*s.row.list, plan_no, ""), ",,", ",");
  s.dirty = true;
}
void CutLeadingComma(Source& s) {
  if (!s.row.list) return;
  s.row.list = ReplaceAll("," + *s.row.list, ",,", "");
  s.dirty = true;
}
void ClearWhenUncovered(Source& s) {
  if (!s.row.finished || *s.row.finished != 0) return;
  s.row.list = "";
  s.dirty = true;
}

}  // namespace

std::string AddPlanNumber(const std::string& list, const std::string& plan_no) {
  if (FindIgnoringCase(list, plan_no) != std::string::npos) return list;
  return list.empty() ? plan_no : list + "," + plan_no;
}

std::string RemovePlanNumber(const std::string& list, const std::string& plan_no) {
  const std::string cut = ReplaceAll(ReplaceAllIgnoringCase(list, plan_no, ""), ",,", ",");
  return ReplaceAll("," + cut, ",,", "");
}

std::vector<SourceLine> ReadSourceLines(const VectorPtr& rows, const char* what) {
  std::vector<SourceLine> out;
  if (!rows) return out;
  for (size_t i = 0; i < rows->rows().size(); ++i) {
    const Dictionary& row = *rows->rows()[i];
    const std::string where = std::string(what) + " row " + std::to_string(i + 1);
    SourceLine l;
    l.type = IntValue(row.Get("Ftrantype"), "\"Ftrantype\" of " + where);
    l.bill_no = TextValue(row.Get("FBillNo"));
    l.qty = RoundDecimal(NumberValue(row.Get("FQty"), "\"FQty\" of " + where));
    if (l.type == kSalesOrder) {
      l.inter_id = IntValue(row.Get("FInterID"), "\"FInterID\" of " + where);
      l.entry_id = IntValue(row.Get("FEntryID"), "\"FEntryID\" of " + where);
    } else {
      // A task's interior id keys only the removal of a plan number.
      try {
        l.inter_id = QuotedIntValue(row.Get("FInterID"), "FInterID");
      } catch (const Error&) {
        l.inter_id = 0;
      }
    }
    out.push_back(std::move(l));
  }
  return out;
}

void ApplySourceLinks(db::Connection& c,
                      const std::vector<std::pair<std::vector<SourceLine>, std::string>>& plans,
                      Sign sign) {
  std::vector<SourceLine> all;
  bool tasks[2] = {false, false};
  for (const auto& [lines, no] : plans) {
    for (const auto& l : lines) {
      all.push_back(l);
      tasks[0] = tasks[0] || l.type == kProductionTask;
      tasks[1] = tasks[1] || l.type == kOutsourcingTask;
    }
  }
  Sources sources;
  sources.Load(c, all);
  // An add first empties every task list that holds the legacy "0", in
  // the whole table.
  const int32_t task_types[] = {kProductionTask, kOutsourcingTask};
  for (int t = 0; t < 2; ++t) {
    if (sign == Sign::kAdd && tasks[t]) {
      repo::ClearLegacyPlanZeros(c, task_types[t]);
      sources.ClearLegacyZeros(t);
    }
  }
  for (const auto& [lines, p] : plans) {
    for (const SourceLine& l : lines) {
      const std::string& plan_no = p;
      if (l.type == kSalesOrder) {
        sources.SalesLine(l.inter_id, l.entry_id, [&](Source& s) {
          Complete(s, l, sign);
          if (sign == Sign::kAdd) {
            Add(s, plan_no);
          } else {
            CutNumber(s, plan_no);
            CutLeadingComma(s);
            ClearWhenUncovered(s);
          }
        });
      } else if (l.type == kProductionTask || l.type == kOutsourcingTask) {
        sources.TasksByBill(l.type, l.bill_no, [&](Source& s) { Complete(s, l, sign); });
        if (sign == Sign::kAdd) {
          sources.TasksByBill(l.type, l.bill_no, [&](Source& s) { Add(s, plan_no); });
        } else if (l.type == kProductionTask) {
          sources.TaskById(l.type, l.inter_id, [&](Source& s) {
            CutNumber(s, plan_no);
            CutLeadingComma(s);
            ClearWhenUncovered(s);
          });
        } else {
          // Outsourcing orders: by bill number, interior id, bill number.
          sources.TasksByBill(l.type, l.bill_no, [&](Source& s) { CutNumber(s, plan_no); });
          sources.TaskById(l.type, l.inter_id, [&](Source& s) { CutLeadingComma(s); });
          sources.TasksByBill(l.type, l.bill_no, [&](Source& s) { ClearWhenUncovered(s); });
        }
      }
    }
  }
  sources.Write(c);
}

}  // namespace mrpcalc::plan
