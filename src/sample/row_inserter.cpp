// Sample rows into the columns a table has.
#include "sample/row_inserter.h"

#include <set>

#include "record/error.h"
#include "record/text.h"

namespace mrpcalc::sample {

RowInserter::RowInserter(db::Connection& c, const std::string& table,
                         const std::string& columns) {
  std::vector<std::string> present;
  c.QueryRows("select * from " + table + " where 1 = 0", {}, [](std::vector<Variant>&) {},
              &present);
  std::set<std::string> has;
  for (const auto& name : present) has.insert(FoldKey(name));
  std::string kept;
  size_t n = 0;
  std::string rest = columns;
  while (!rest.empty()) {
    const std::string column = Trim(SplitFirst(rest, ","));
    kept_.push_back(has.count(FoldKey(column)) > 0);
    if (kept_.back()) {
      kept += (n++ ? "," : "") + column;
    }
  }
  if (n == 0) ThrowInvalid("table " + table + " has none of the columns " + columns);
  insert_ = c.Prepare("insert into " + table + " (" + kept + ") values (" + db::Placeholders(n) +
                      ")");
}

void RowInserter::Insert(const db::Params& row) {
  if (row.size() != kept_.size()) {
    throw Error(ErrorCategory::kInternal, "a sample row has " + std::to_string(row.size()) +
                                              " values for " + std::to_string(kept_.size()) +
                                              " columns");
  }
  db::Params values;
  for (size_t i = 0; i < row.size(); ++i) {
    if (kept_[i]) values.push_back(row[i]);
  }
  insert_->Execute(values);
}

}  // namespace mrpcalc::sample
