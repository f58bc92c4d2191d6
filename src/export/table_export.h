// Rows as files a planner opens: CSV, and XLSX workbooks with typed cells
// (numbers, dates, texts) and column widths fitted to the content.
#pragma once

#include <string>

#include "record/variant.h"

namespace mrpcalc {

// A header line of the first row's keys, then one line per row; fields
// holding a comma, quote or line break are quoted.
std::string ToCsv(const VectorPtr& rows);

// One sheet named `sheet`, a bold header of the first row's keys, numbers
// as numbers (two decimals shown), dates as dates. Throws when the file
// cannot be written.
void WriteXlsx(const VectorPtr& rows, const std::string& path, const std::string& sheet);
// The same workbook as bytes.
std::string XlsxBytes(const VectorPtr& rows, const std::string& sheet);

}  // namespace mrpcalc
