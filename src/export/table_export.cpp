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
  WriteCsv(rows, [&](std::string_view piece) { out += piece; });
  return out;
}

void WriteCsv(const VectorPtr& rows, const std::function<void(std::string_view)>& write) {
  if (!rows || rows->Count() == 0) return write("\n");
  const RowSource* source = rows->source();
  const DictionaryPtr first = source ? source->Row(0) : rows->Item(1);
  std::string line;
  for (size_t i = 0; i < first->size(); ++i) line += (i ? "," : "") + first->key(i);
  write(line + "\n");
  auto one = [&](const Dictionary& row) {
    line.clear();
    for (size_t i = 0; i < first->size(); ++i) {
      if (i) line += ",";
      const Variant* v = row.Find(first->key(i));
      if (v) line += CsvField(*v);
    }
    line += "\n";
    write(line);
  };
  if (source) {
    for (size_t i = 0; i < source->size(); ++i) one(*source->Row(i));
  } else {
    for (const auto& row : rows->rows()) one(*row);
  }
}

}  // namespace mrpcalc
