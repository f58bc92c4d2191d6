// The buyer's commands.
#include "cli/buyer.h"

#include <fmt/core.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>

#include "db/connection.h"
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "export/table_export.h"
#include "mrp/open_demand.h"
#include "mrpserver/mrp_data_server.h"
#include "record/error.h"
#include "record/json.h"
#include "record/text.h"

namespace mrpcalc::cli {
namespace {

std::string Show(const Variant& v) {
  if (v.IsNull() || v.IsEmpty()) return "";
  if (const double* d = v.AsDouble()) return fmt::format("{:.2f}", *d);
  if (const Date* d = v.AsDate()) return d->ToDateString();
  return v.ToText();
}

std::string CsvField(const Variant& v) {
  std::string text = v.IsNull() || v.IsEmpty() ? "" : v.ToText();
  if (text.find_first_of(",\"\n") == std::string::npos) return text;
  return "\"" + ReplaceAll(text, "\"", "\"\"") + "\"";
}

// Pads by display width: CJK characters take two columns.
std::string Pad(const std::string& text, int width) {
  int shown = 0;
  for (size_t i = 0; i < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    const int len = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
    shown += len >= 3 ? 2 : 1;
    i += static_cast<size_t>(len);
  }
  const int w = width < 0 ? -width : width;
  const std::string fill(static_cast<size_t>(std::max(0, w - shown)), ' ');
  return width < 0 ? text + fill : fill + text;
}

// The table columns of priced purchase lines and of made orders.
const std::vector<Column> kPurchaseLineColumns = {
    {"item", "FItemNumber", -6},       {"name", "FItemName", -10},
    {"supplier", "FSupplyNumber", -8}, {"qty", "FQty", 10},
    {"unit qty", "FAuxQty", 9},        {"price", "FPrice", 9},
    {"unit price", "FAuxPrice", 10},   {"tax %", "FTaxRate", 6},
    {"needed on", "Fdate", -10}};
const std::vector<Column> kOrderColumns = {{"order", "FBillNO", -18},
                                           {"id", "FInterID", 5},
                                           {"supplier", "FSupplyName", -24},
                                           {"date", "FDate", -10}};

void WriteStdout(std::string_view chunk) { std::fwrite(chunk.data(), 1, chunk.size(), stdout); }

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  if (!in) ThrowInvalid("cannot read " + path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

Variant Supplier(const std::map<std::string, std::string>& overrides, const Dictionary& row) {
  auto it = overrides.find(FoldKey(row.Get("FItemNumber").ToText()));
  if (it != overrides.end()) return it->second;
  return row.Get("FSupplyNumber");
}

}  // namespace

std::string& OutputFile() {
  static std::string path;
  return path;
}

void SetOutputFile(const std::string& path) { OutputFile() = path; }

int RunWebProgram(const std::vector<std::string>& arguments, bool replace) {
  const auto self = std::filesystem::read_symlink("/proc/self/exe");
  const std::string program = (self.parent_path() / "mrpcalc-web").string();
  std::vector<std::string> words = {program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  std::cout.flush();
  std::fflush(stdout);
  if (replace) {  // a long-running service: this process becomes it
    ::execv(program.c_str(), argv.data());
    ThrowInvalid("cannot start " + program + ": it belongs beside mrpcalc");
  }
  pid_t pid = 0;
  if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv.data(), environ) != 0) {
    ThrowInvalid("cannot start " + program + ": it belongs beside mrpcalc");
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

void PrintRows(const VectorPtr& rows, const std::string& format, const std::vector<Column>& table) {
  const VectorPtr shown = rows ? rows : Vector::Create();
  const std::string& out_path = OutputFile();
  if (format == "xlsx") {
    if (out_path.empty()) ThrowInvalid("--format xlsx writes a workbook: give --out FILE");
    // The workbook is written by mrpcalc-web, from the rows as JSON.
    const auto json = std::filesystem::temp_directory_path() /
                      ("mrpcalc-rows-" + std::to_string(::getpid()) + ".json");
    {
      CheckJsonText(Variant(shown));
      std::ofstream file(json, std::ios::binary);
      JsonWriter out([&](std::string_view chunk) { file.write(chunk.data(), chunk.size()); });
      out.Value(Variant(shown), 0);
      out.Flush();
    }
    const int status = RunWebProgram({"xlsx", json.string(), out_path, "mrpcalc"});
    std::filesystem::remove(json);
    if (status != 0) ThrowInvalid("cannot write the workbook " + out_path);
    fmt::print("wrote {} row(s) to {}\n", shown->Count(), out_path);
    return;
  }
  if (!out_path.empty() && (format == "csv" || format == "json")) {
    std::ofstream file(out_path, std::ios::binary);
    if (format == "csv") {
      WriteCsv(shown, [&](std::string_view piece) { file.write(piece.data(), std::streamsize(piece.size())); });
    } else {
      CheckJsonText(Variant(shown));
      JsonWriter out([&](std::string_view chunk) { file.write(chunk.data(), chunk.size()); });
      out.Value(Variant(shown), 0);
      out.Raw("\n");
      out.Flush();
    }
    if (!file) ThrowInvalid("cannot write " + out_path);
    fmt::print("wrote {} row(s) to {}\n", shown->Count(), out_path);
    return;
  }
  if (format == "json") {
    CheckJsonText(Variant(shown));
    std::cout.flush();
    JsonWriter out(WriteStdout);
    out.Value(Variant(shown), 0);
    out.Raw("\n");
    out.Flush();
    std::fflush(stdout);
    return;
  }
  // Rows not built yet are printed from their source, one at a time.
  const RowSource* source = shown->source();
  auto each_row = [&](const std::function<void(const Dictionary&)>& print) {
    if (source) {
      for (size_t i = 0; i < source->size(); ++i) print(*source->Row(i));
    } else {
      for (const auto& row : shown->rows()) print(*row);
    }
  };
  if (format == "csv") {
    if (shown->Count()) {
      const DictionaryPtr first = source ? source->Row(0) : shown->Item(1);
      for (size_t i = 0; i < first->size(); ++i) std::cout << (i ? "," : "") << first->key(i);
    }
    std::cout << "\n";
    std::cout.flush();
    // Lines gathered and written a block at a time.
    std::string block;
    each_row([&](const Dictionary& row) {
      for (size_t i = 0; i < row.size(); ++i) {
        if (i) block += ',';
        block += CsvField(row.value(i));
      }
      block += '\n';
      if (block.size() >= (64u << 10)) {
        std::fwrite(block.data(), 1, block.size(), stdout);
        block.clear();
      }
    });
    std::fwrite(block.data(), 1, block.size(), stdout);
    std::fflush(stdout);
    return;
  }
  std::string line;
  for (const auto& c : table) line += Pad(c.header, c.width) + "  ";
  std::cout << Trim(line) << "\n";
  each_row([&](const Dictionary& row) {
    line.clear();
    for (const auto& c : table) line += Pad(Show(row.Get(c.key)), c.width) + "  ";
    std::cout << line.substr(0, line.find_last_not_of(' ') + 1) << "\n";
  });
}

VectorPtr ReadRowsFile(const std::string& path) {
  const Variant v = FromJson(ParseJsonText(ReadFile(path), path));
  VectorPtr rows = v.AsVector();
  if (!rows) ThrowInvalid(path + " must hold a JSON array of rows");
  return rows;
}

int RunDemand(const Host& host, const DemandOptions& o) {
  auto picks = Vector::Create();
  {
    auto c = db::Open(o.dsn);
    for (const auto& l : mrp::OpenDemandOf(*c, o.bills)) {
      auto row = Dictionary::Create();
      row->Set("Ftrantype", l.tran_type);
      row->Set("FinterID", l.inter_id);
      row->Set("FEntryID", l.entry_id);
      picks->Add(row);
    }
  }
  if (picks->Count() == 0) ThrowInvalid("no open demand matches the bills given");
  MrpDataServer server(host);
  const VectorPtr rows = server.GetSelectData(o.dsn, picks, o.warehouses, o.net || o.virtual_only,
                                              o.virtual_only, o.virtual_only);
  PrintRows(rows, o.format,
            {{"type", "FTranType", 4},
             {"bill", "FBillNO", -12},
             {"line", "FEntryID", 4},
             {"item", "FItemNumber", -6},
             {"name", "FItemName", -12},
             {"prop", "FAuxPropName", -5},
             {"unit", "FBSUnitName", -4},
             {"stock", "FAllStockQty", 9},
             {"real", "FActualQty", 9},
             {"open qty", "FQty", 10}});
  return 0;
}

VectorPtr LinesToBuy(const VectorPtr& report, const std::vector<std::string>& supplier_pairs) {
  std::map<std::string, std::string> overrides;
  for (const auto& pair : supplier_pairs) {
    const size_t eq = pair.find('=');
    if (eq == std::string::npos || eq == 0 || eq + 1 == pair.size()) {
      ThrowInvalid("--supplier takes ITEMNUMBER=SUPPLIERCODE, not \"" + pair + "\"");
    }
    overrides[FoldKey(pair.substr(0, eq))] = pair.substr(eq + 1);  // item codes, case aside
  }
  auto chosen = Vector::Create();
  for (const auto& row : report->rows()) {
    if (row->Get("FQty").IsNull() || row->Get("FQty").ToDouble() <= 0) continue;
    // Assembled and self-made materials are made here, not bought.
    const Variant made = row->Get("FItemPropID");
    if (!made.IsNull() && (made.ToValue() == 2 || made.ToValue() == 3)) continue;
    const Variant supplier = Supplier(overrides, *row);
    if (supplier.IsNull() || supplier.ToText().empty()) {
      const std::string item = row->Get("FItemNumber").ToText();
      std::cerr << "mrpcalc: " << item << " has no supplier; give --supplier " << item
                << "=CODE to buy it\n";
      continue;
    }
    auto line = std::make_shared<Dictionary>(*row);
    line->Set("FSupplyNumber", supplier);
    chosen->Add(line);
  }
  if (chosen->Count() == 0) ThrowInvalid("no report line with a quantity to buy and a supplier");
  return chosen;
}

int RunConfirm(const Host& host, const ConfirmOptions& o) {
  const VectorPtr chosen = LinesToBuy(ReadRowsFile(o.report), o.suppliers);
  MrpDataServer server(host);
  PrintRows(server.GetMrpConfirmData(o.dsn, chosen), o.format, kPurchaseLineColumns);
  return 0;
}

int RunCredit(const Host& host, const std::string& dsn, const std::string& lines_file) {
  const VectorPtr lines = ReadRowsFile(lines_file);
  for (const auto& row : lines->rows()) {
    if (!row->Contains("FPushQty")) row->Set("FPushQty", row->Get("FQty"));
  }
  MrpDataServer server(host);
  std::string check, names;
  const bool ok = server.CheckCreditDegrees(dsn, lines, check, names);
  if (check != "1") {
    fmt::print("the supplier credit check is off (system profile IC/CreditDegreeCG)\n");
  } else if (ok) {
    fmt::print("every supplier is within its credit limit\n");
  } else {
    fmt::print("over the credit limit: {}\n", names);
  }
  return ok ? 0 : 1;
}

int RunMakeOrders(const Host& host, const std::string& dsn, const std::string& lines_file,
                  int biller, const std::string& date, const std::string& format) {
  const VectorPtr lines = ReadRowsFile(lines_file);
  Date day = Date::Now().StartOfDay();
  if (!date.empty()) {
    const auto parsed = Date::Parse(date);
    if (!parsed) ThrowInvalid("--date \"" + date + "\" is not a date (YYYY-MM-DD)");
    day = *parsed;
  }
  MrpDataServer server(host);
  const VectorPtr made = server.MakePOOrderBill(dsn, lines, biller, day);
  PrintRows(made, format, kOrderColumns);
  return 0;
}

int RunListOrders(const Host& host, const std::string& dsn, const std::string& ids,
                  const std::string& format) {
  MrpDataServer server(host);
  if (!ids.empty()) {
    PrintRows(server.RefreshPOOrderBill(dsn, ids), format, kOrderColumns);
    return 0;
  }
  const RecordSetPtr rs = server.getPOOrderBills(dsn);
  PrintRows(RecordsetToVector(*rs), format,
            {{"order", "FBillNo", -18},
             {"id", "FInterID", 4},
             {"line", "FEntryID", 4},
             {"supplier", "FSupplyID", 8},
             {"date", "FDate", -10},
             {"biller", "FBillerID", 6}});
  return 0;
}

int RunScopeShow(const Host& host, const ScopeOptions& o) {
  MrpDataServer server(host);
  std::string str, key, info;
  if (server.GetStockInfo(o.dsn, o.user, str, key, info, o.form_type, o.sub_id)) {
    fmt::print("stock scope of user {} (form type {}, sub-id \"{}\"):\n", o.user, o.form_type,
               o.sub_id);
  } else if (server.ReturnEmptyStockInfo(o.dsn, o.user, str, key, info)) {
    fmt::print("user {} has no stored scope (form type {}, sub-id \"{}\"); all warehouses count:\n",
               o.user, o.form_type, o.sub_id);
  } else {
    fmt::print("user {} may choose no warehouse\n", o.user);
    return 0;
  }
  auto row = Dictionary::Create();
  row->Set("sStockStr", str);
  row->Set("sStockKey", key);
  row->Set("sStockInfo", info);
  auto rows = Vector::Create();
  rows->Add(row);
  PrintRows(rows, o.format,
            {{"warehouses", "sStockStr", -40},
             {"leaf ids", "sStockKey", -14},
             {"all ids", "sStockInfo", -14}});
  return 0;
}

int RunScopeSet(const Host& host, const ScopeOptions& o) {
  MrpDataServer server(host);
  const RecordSetPtr choosable = server.GetItemStock(o.dsn, 5, o.user, false);
  if (!choosable) ThrowInvalid("user " + std::to_string(o.user) + " may choose no warehouse");
  struct Choice {
    std::string entry;
    bool leaf;
    int32_t parent;
  };
  std::map<int32_t, Choice> may;
  for (const auto& r : choosable->rows()) {
    may[r[0].ToLong()] = {r[2].ToText() + " - " + r[1].ToText(),
                          !r[4].IsNull() && r[4].ToLong() == 1, r[3].IsNull() ? 0 : r[3].ToLong()};
  }
  std::string str, key, info;
  std::set<int32_t> keys, infos;
  for (int32_t id : db::ParseIdList(o.warehouses, "--warehouses")) {
    auto it = may.find(id);
    if (it == may.end()) {
      ThrowInvalid("warehouse " + std::to_string(id) + " is not one user " +
                   std::to_string(o.user) + " may choose (see `mrpcalc call ... GetItemStock`)");
    }
    str += (str.empty() ? "" : ",") + it->second.entry;
    infos.insert(id);
    if (it->second.leaf) keys.insert(id);
    for (const auto& [child, c] : may) {  // a group stands for its warehouses
      if (c.parent == id) {
        infos.insert(child);
        if (c.leaf) keys.insert(child);
      }
    }
  }
  key = db::JoinIds({keys.begin(), keys.end()});
  info = db::JoinIds({infos.begin(), infos.end()});
  if (o.with_virtual) {
    server.UpdateVirtualStockInfo(o.dsn, 5, o.user, str, key, info, true, o.form_type, o.sub_id);
  } else {
    server.UpdateStockInfo(o.dsn, o.user, str, key, info, o.form_type, o.sub_id);
  }
  return RunScopeShow(host, o);
}

const std::vector<std::string> kDemoSuppliers = {"3.01=S001", "3.02=S002", "3.03=S004", "3.04=S002",
                                                 "3.05=S004", "3.06=S001", "3.08=S001"};

void RunDemoPurchasing(const Host& host, const std::string& dsn, const VectorPtr& report) {
  // The demo's buyer orders the purchased materials the report suggests,
  // from the demo's suppliers; the packing boxes have none and stay out.
  const VectorPtr chosen = LinesToBuy(report, kDemoSuppliers);
  MrpDataServer server(host);
  fmt::print("\nConfirmed purchase lines, priced (GetMrpConfirmData):\n\n");
  const VectorPtr lines = server.GetMrpConfirmData(dsn, chosen);
  PrintRows(lines, "table", kPurchaseLineColumns);
  for (const auto& row : lines->rows()) row->Set("FPushQty", row->Get("FQty"));
  std::string check, names;
  if (!server.CheckCreditDegrees(dsn, lines, check, names)) {
    fmt::print("\nCredit check: over the limit: {}; no orders made.\n", names);
    return;
  }
  fmt::print(
      "\nCredit check: every supplier is within its limit.\n\nPurchase orders made "
      "(MakePOOrderBill), one per supplier:\n\n");
  PrintRows(server.MakePOOrderBill(dsn, lines, 16, Date::Now().StartOfDay()), "table",
            kOrderColumns);
}

}  // namespace mrpcalc::cli
