// Open demand of the ERP: sales order lines not yet delivered and production
// and outsourcing tasks still open (FStatus 1 or 2).
#pragma once

#include <string>
#include <vector>

#include "db/connection.h"
#include "mrp/model.h"
#include "record/date.h"
#include "record/variant.h"

namespace mrpcalc::mrp {

struct OpenDemandLine {
  int tran_type = 0;
  std::string bill_no;
  int inter_id = 0;
  int entry_id = 0;  // 0 for tasks
  int item_id = 0;
  std::string item_number;
  std::string item_name;
  double open_qty = 0;
  std::string unit_name;
  Date date;  // delivery date of the order line, planned start of the task
  std::string plans;  // the purchase plans that cover it ("CJ...,CJ..."), "" for none
};

// Ordered by type, bill number and line.
std::vector<OpenDemandLine> ListOpenDemand(db::Connection& connection);
// The open lines of the named bills, their numbers matched as the ERP's
// server matches text (letter case aside); every open line when `bills` is
// empty.
std::vector<OpenDemandLine> OpenDemandOf(db::Connection& connection,
                                         const std::vector<std::string>& bills);

// What the MRP selection form hands to the report for the chosen bills: the
// demand lines (vctListData: Ftrantype, FItemID, FinterID, FEntryID,
// FBillNo, FQty, FItemName, FItemNumber) and the selected source rows
// (dctFilter "SourceData": FBillNO, Ftrantype, finterid, fentryid). Every
// open line of the named sales orders and tasks of `task_code`; all open
// demand of those kinds when `bills` is empty.
struct DemandSelection {
  VectorPtr lines;
  VectorPtr source;
};
// One demand line by its keys: a sales-order line, or a task (line 0).
struct DemandLineKey {
  int32_t tran_type = 0, inter_id = 0, entry_id = 0;
  auto operator<=>(const DemandLineKey&) const = default;
};
// With `only` given, just the open lines it names (of those bills, when
// bills are named too).
DemandSelection SelectDemand(db::Connection& connection, const std::vector<std::string>& bills,
                             int task_code, const std::vector<DemandLineKey>& only = {});

// What a caller asks the MRP report for, in one form whatever the door: the
// command line, the HTTP service and the benchmarks.
struct ReportRequest {
  std::vector<std::string> bills;  // sales orders and tasks by number; none: all open demand
  std::vector<DemandLineKey> lines;  // just these open lines, when given
  std::string sub_id = "SC";       // the task kind: "SC" production, "WW" outsourcing
  bool single_level = false;
  // The netting switches.
  bool now_stock = false, save_stock = false, moving = false, unsale = false;
  bool producing = false, produc = false, mid_stock = false, virtual_stock = false;
  std::string warehouses;  // sStockKey
  int32_t user = 0;
  int form = 1;  // FrmType
};

// GetMrpReportData's demand lines and filter for a request: SubID, Expand,
// the selected source rows, and each switch that is on.
struct ReportArguments {
  VectorPtr lines;
  DictionaryPtr filter;
};
ReportArguments ArgumentsOf(db::Connection& connection, const ReportRequest& request);

// The benchmarks' request: all open demand, production tasks, every BOM
// level, every netting switch but virtual warehouses, stock of warehouse 1,
// the administrator, form kind 1.
ReportRequest BenchReportRequest();

}  // namespace mrpcalc::mrp
