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
DemandSelection SelectDemand(db::Connection& connection, const std::vector<std::string>& bills,
                             int task_code);

}  // namespace mrpcalc::mrp
