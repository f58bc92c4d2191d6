// XLSX workbooks: typed cells (numbers, dates, texts) and column widths
// fitted to the content. Apart from the CSV writer because libxlsxwriter
// is loaded only by the programs that write workbooks.
#pragma once

#include <string>

#include "record/variant.h"

namespace mrpcalc {

// One sheet named `sheet`, a bold header of the first row's keys, numbers
// as numbers (two decimals shown), dates as dates. Throws when the file
// cannot be written.
void WriteXlsx(const VectorPtr& rows, const std::string& path, const std::string& sheet);
// The same workbook as bytes.
std::string XlsxBytes(const VectorPtr& rows, const std::string& sheet);

}  // namespace mrpcalc
