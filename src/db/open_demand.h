// Open demand of the ERP: sales order lines not yet delivered and production
// and outsourcing tasks still open (FStatus 1 or 2).
#pragma once

#include <string>
#include <vector>

#include "db/connection.h"
#include "frame/record/date.h"

namespace mrpcalc::db {

// ERP source type codes.
inline constexpr int kTranSalesOrder = 81;
inline constexpr int kTranProductionTask = 85;
inline constexpr int kTranOutsourcingTask = 91;

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
std::vector<OpenDemandLine> ListOpenDemand(Connection& connection);

}  // namespace mrpcalc::db
