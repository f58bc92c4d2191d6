// Rows as CSV files a planner opens (XLSX workbooks: export/xlsx.h).
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "record/variant.h"

namespace mrpcalc {

// A header line of the first row's keys, then one line per row; fields
// holding a comma, quote or line break are quoted.
std::string ToCsv(const VectorPtr& rows);
// The same, written piece by piece; rows not built yet are written from
// their source one at a time, never all built.
void WriteCsv(const VectorPtr& rows, const std::function<void(std::string_view)>& write);

}  // namespace mrpcalc
