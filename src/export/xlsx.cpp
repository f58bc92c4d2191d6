// XLSX export with libxlsxwriter.
#include "export/xlsx.h"

#include <unistd.h>
#include <xlsxwriter.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "record/error.h"

namespace mrpcalc {
namespace {

// Display width: CJK characters take two columns.
size_t Width(const std::string& text) {
  size_t shown = 0;
  for (size_t i = 0; i < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    const size_t len = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
    shown += len >= 3 ? 2 : 1;
    i += len;
  }
  return shown;
}

}  // namespace

void WriteXlsx(const VectorPtr& rows, const std::string& path, const std::string& sheet_name) {
  lxw_workbook* book = workbook_new(path.c_str());
  if (!book) ThrowInvalid("cannot create the workbook " + path);
  lxw_worksheet* sheet = workbook_add_worksheet(book, sheet_name.c_str());
  lxw_format* header = workbook_add_format(book);
  format_set_bold(header);
  format_set_bg_color(header, 0xDDEBF7);
  lxw_format* number = workbook_add_format(book);
  format_set_num_format(number, "#,##0.00");
  lxw_format* date = workbook_add_format(book);
  format_set_num_format(date, "yyyy-mm-dd");
  std::vector<size_t> widths;
  if (rows && rows->Count() > 0) {
    const Dictionary& first = *rows->Item(1);
    widths.assign(first.size(), 8);
    for (size_t c = 0; c < first.size(); ++c) {
      worksheet_write_string(sheet, 0, static_cast<lxw_col_t>(c), first.key(c).c_str(), header);
      widths[c] = std::max(widths[c], Width(first.key(c)));
    }
    lxw_row_t r = 1;
    for (const auto& row : rows->rows()) {
      for (size_t c = 0; c < first.size(); ++c) {
        const Variant* v = row->Find(first.key(c));
        if (!v || v->IsNull() || v->IsEmpty()) continue;
        const auto col = static_cast<lxw_col_t>(c);
        if (const Date* d = v->AsDate()) {
          lxw_datetime dt = {d->year(), d->month(),  d->day(),
                             d->hour(), d->minute(), static_cast<double>(d->second())};
          worksheet_write_datetime(sheet, r, col, &dt, date);
          widths[c] = std::max<size_t>(widths[c], 10);
        } else if (v->AsDouble()) {
          worksheet_write_number(sheet, r, col, *v->AsDouble(), number);
          widths[c] = std::max(widths[c], std::min<size_t>(Width(v->ToText()) + 2, 18));
        } else if (v->AsLong()) {
          worksheet_write_number(sheet, r, col, *v->AsLong(), nullptr);
          widths[c] = std::max(widths[c], Width(v->ToText()));
        } else {
          const std::string text = v->ToText();
          worksheet_write_string(sheet, r, col, text.c_str(), nullptr);
          widths[c] = std::max(widths[c], std::min<size_t>(Width(text), 60));
        }
      }
      ++r;
    }
    for (size_t c = 0; c < widths.size(); ++c) {
      worksheet_set_column(sheet, static_cast<lxw_col_t>(c), static_cast<lxw_col_t>(c),
                           static_cast<double>(widths[c] + 1), nullptr);
    }
    worksheet_freeze_panes(sheet, 1, 0);
  }
  const lxw_error error = workbook_close(book);
  if (error != LXW_NO_ERROR) {
    ThrowInvalid("cannot write the workbook " + path + ": " + lxw_strerror(error));
  }
}

std::string XlsxBytes(const VectorPtr& rows, const std::string& sheet) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("mrpcalc-export-" + std::to_string(::getpid()) + "-" +
                     std::to_string(reinterpret_cast<uintptr_t>(&rows)) + ".xlsx");
  WriteXlsx(rows, path.string(), sheet);
  std::ifstream in(path, std::ios::binary);
  std::stringstream bytes;
  bytes << in.rdbuf();
  std::filesystem::remove(path);
  return bytes.str();
}

}  // namespace mrpcalc
