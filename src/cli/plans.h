// The buyer's purchase-plan commands: save an MRP result as a plan, list
// plans with the report's filters, push lines into purchase orders, close
// and reopen lines, delete plans.
#pragma once

#include <string>
#include <vector>

#include "frame/host.h"
#include "record/variant.h"

namespace mrpcalc::cli {

struct PlanOptions {
  std::string dsn;
  int user = 1;
  std::string format = "table";
  // save
  std::string report;
  std::vector<std::string> suppliers;  // ITEMNUMBER=SUPPLIERCODE
  std::vector<std::string> bills;      // the source documents; default every open one
  // list
  std::string bill_no, from, to, first_item, last_item, first_bill, last_bill;
  bool open_only = false;
  // push, close, reopen: plan lines as "1000_1"; delete: plan numbers
  std::vector<std::string> lines;
  std::vector<std::string> plans;
  std::string date;
};

int RunPlanSave(const Host& host, const PlanOptions& o);
int RunPlanList(const Host& host, const PlanOptions& o);
int RunPlanPush(const Host& host, const PlanOptions& o);
int RunPlanClose(const Host& host, const PlanOptions& o, bool reopen);
int RunPlanDelete(const Host& host, const PlanOptions& o);

// The demo's plan stage on a report: save, list, push two lines, close
// one, try to delete.
void RunDemoPlans(const Host& host, const std::string& dsn, const VectorPtr& report);

}  // namespace mrpcalc::cli
