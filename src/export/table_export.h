// Rows as CSV files a planner opens (XLSX workbooks: export/xlsx.h).
#pragma once

#include <string>

#include "record/variant.h"

namespace mrpcalc {

// A header line of the first row's keys, then one line per row; fields
// holding a comma, quote or line break are quoted.
std::string ToCsv(const VectorPtr& rows);

}  // namespace mrpcalc
