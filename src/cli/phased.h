// The time-phased planning commands: a plan for the demand with its
// buckets or action messages, saved runs and what changed between two,
// and the planning parameters and working calendar.
#pragma once

#include <string>
#include <vector>

#include "frame/host.h"
#include "mrp/open_demand.h"
#include "mrp/phased_bridge.h"

namespace mrpcalc::cli {

struct PhasedOptions {
  std::string dsn;
  mrp::ReportRequest report = [] {
    mrp::ReportRequest r;
    r.user = 1;
    r.form = 1;
    return r;
  }();
  std::string today;   // YYYY-MM-DD; default the system's date
  std::string bucket;  // day, week, month: the bucket record instead of the orders
  std::string item;    // an item code: its record only
  bool actions = false;
  bool save = false;
  std::string format = "table";
  // diff
  int before = 0, after = 0;
  // param
  std::string supplier;  // a supplier code: the item's parameters for that supplier
  mrp::phased::PlanningParameters parameters;
  // calendar
  std::vector<std::string> holidays, not_holidays, weekdays;  // weekdays as "6=1"
};

int RunPhased(const Host& host, const PhasedOptions& o);
int RunPhasedRuns(const PhasedOptions& o);
int RunPhasedDiff(const PhasedOptions& o);
int RunPhasedParamSet(const PhasedOptions& o);
int RunPhasedParamList(const PhasedOptions& o);
int RunPhasedParamDelete(const PhasedOptions& o);
int RunPhasedCalendar(const PhasedOptions& o);

}  // namespace mrpcalc::cli
