// The buyer's commands: open demand with stock, confirmation of an MRP
// result into priced purchase lines, the credit check, purchase orders and
// each user's stock scope, over the MRP data service. Each prints a table
// for people, or CSV or JSON for programs.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "frame/host.h"
#include "record/variant.h"

namespace mrpcalc::cli {

// Prints rows as "table" (the given columns), "csv" or "json" (every column).
struct Column {
  const char* header;
  const char* key;
  int width;  // negative: left-aligned text
};
// "xlsx" writes a workbook and needs an output file; with an output file
// set, csv and json go there too.
void PrintRows(const VectorPtr& rows, const std::string& format, const std::vector<Column>& table);
void SetOutputFile(const std::string& path);

// Runs mrpcalc-web (beside this program) with these arguments and returns
// its exit status; with `replace`, this process becomes it.
int RunWebProgram(const std::vector<std::string>& arguments, bool replace = false);

// Reads a JSON array of row objects (what --format json prints).
VectorPtr ReadRowsFile(const std::string& path);

// The report rows with a quantity to buy (assembled and self-made
// materials left out) and a supplier: the report's, or
// the one "ITEMNUMBER=SUPPLIERCODE" names. Rows without one are named on
// standard error; none at all is an error.
VectorPtr LinesToBuy(const VectorPtr& report, const std::vector<std::string>& supplier_pairs);
// The suppliers the demo's buyer orders from.
extern const std::vector<std::string> kDemoSuppliers;

struct DemandOptions {
  std::string dsn;
  std::vector<std::string> bills;  // empty: every open line
  std::string warehouses;
  bool net = false;
  bool virtual_only = false;  // net against the virtual warehouses only
  std::string format = "table";
};
int RunDemand(const Host& host, const DemandOptions& o);

struct ConfirmOptions {
  std::string dsn;
  std::string report;                  // a report file, as `mrpcalc mrp --format json` writes it
  std::vector<std::string> suppliers;  // "ITEMNUMBER=SUPPLIERCODE"
  std::string format = "table";
};
int RunConfirm(const Host& host, const ConfirmOptions& o);

// Lines are confirmation rows (as `confirm --format json` writes them).
int RunCredit(const Host& host, const std::string& dsn, const std::string& lines_file);
int RunMakeOrders(const Host& host, const std::string& dsn, const std::string& lines_file,
                  int biller, const std::string& date, const std::string& format);
int RunListOrders(const Host& host, const std::string& dsn, const std::string& ids,
                  const std::string& format);

struct ScopeOptions {
  std::string dsn;
  int user = 1;
  int form_type = 1;
  std::string sub_id;
  std::string warehouses;  // set: the chosen warehouses (groups stand for their leaves)
  bool with_virtual = false;
  std::string format = "table";
};
int RunScopeShow(const Host& host, const ScopeOptions& o);
int RunScopeSet(const Host& host, const ScopeOptions& o);

// The demo's purchasing: confirms the purchased materials of a report with
// the demo's suppliers, checks credit and makes the orders.
void RunDemoPurchasing(const Host& host, const std::string& dsn, const VectorPtr& report);

}  // namespace mrpcalc::cli
