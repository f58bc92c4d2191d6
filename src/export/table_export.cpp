// CSV export.
#include "export/table_export.h"

#include <string_view>

#include "record/error.h"
#include "record/text.h"

namespace mrpcalc {
namespace {

// A text that a spreadsheet would read as a formula (it begins with "=",
// "+", "-", "@", a tab or a carriage return) gets an apostrophe in front,
// as the usual guidance on CSV injection says; numbers stay numbers.
std::string CsvField(const Variant& v) {
  if (v.IsNull() || v.IsEmpty()) return "";
  std::string text = v.AsDate() ? v.AsDate()->ToString() : v.ToText();
  if (v.AsString() && !text.empty() && std::string_view("=+-@\t\r").find(text[0]) != std::string_view::npos) {
    text.insert(0, "'");
  }
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  return "\"" + ReplaceAll(text, "\"", "\"\"") + "\"";
}

}  // namespace

std::string ToCsv(const VectorPtr& rows) {
  std::string out;
  if (!rows || rows->Count() == 0) return "\n";
  const Dictionary& first = *rows->Item(1);
  for (size_t i = 0; i < first.size(); ++i) out += (i ? "," : "") + first.key(i);
  out += "\n";
  for (const auto& row : rows->rows()) {
    for (size_t i = 0; i < first.size(); ++i) {
      if (i) out += ",";
      const Variant* v = row->Find(first.key(i));
      if (v) out += CsvField(*v);
    }
    out += "\n";
  }
  return out;
}

}  // namespace mrpcalc
