// The time-phased plan's input from the ERP's data: the report's own input
// (demand lines with their required dates, bills, stock) and what the plan
// reads beside it (parameters, calendar, dated open supply). No SQL here.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mrp/calculation.h"
#include "mrp/phased.h"

namespace mrpcalc::mrp::phased {

// One row of mrpcalc_PlanParam: an item's parameters, for one supplier or
// (supplier 0) for any.
struct PlanningParameters {
  int32_t item = 0, supplier = 0;
  int lead_time = 0;             // purchase, working days
  int production_lead_time = 0;  // fixed part, working days
  double production_lead_per_unit = 0;
  double safety_qty = 0, safety_days = 0;
  double min_qty = 0, multiple = 0, max_qty = 0;
  int order_period = 0, firm_fence = 0;
};

// Open supply on its own date: purchase order lines still to receive
// (orders of status 1 or 2), and production and outsourcing tasks still to
// finish, each dated with its planned start.
struct DatedSupply {
  int32_t item = 0;
  int32_t tran_type = 0;  // 71 purchase order, 85 production, 91 outsourcing
  int32_t inter_id = 0;
  std::string id;  // "POORD000001/1", "WORK000001"
  Day day = 0;
  bool dated = false;  // false when the date is NULL
  double qty = 0;
};


struct Sources {
  std::vector<PlanningParameters> parameters;
  Calendar calendar;
  std::vector<DatedSupply> supply;
  Day today = 0;
};

// The items the demand reaches and their needs, as the report explodes
// them: a demand line's product through its in-use bills, a made part below
// it through its approved bill, a task of the demand's kind through its own
// material plan (prorated to the line). The report's switches choose the
// supply: "NowStock" stock on hand, "Moving" open purchase order lines at
// their dates (the order's date when the line has none), "Producing" open
// tasks other than the demand's own, finishing a production lead time after
// their start; "SaveStock" makes the item's safety stock (FSecInv) the
// safety stock wherever the parameters set none.
Input FromErp(const mrp::Input& input, const BomIndex& boms, const Sources& sources);

}  // namespace mrpcalc::mrp::phased
