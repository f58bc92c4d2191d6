// The source documents of MRP demand as the MRP forms read and complete
// them: the SQL of SEOrder / SEOrderEntry, ICMO and ICOutMO.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "db/connection.h"

namespace mrpcalc::repo {

// The selection columns of sales-order lines of the listed orders, or of
// the listed tasks of a type (production or outsourcing), each row handed
// to `each`: FTranType, FBillNo, FItemID, FAuxPropID, the property's name,
// FAuxQty, FInterID, FEntryID (0 for a task), the item's name, code and
// model, its base unit, the line's unit, the base unit's name, the open
// quantity in base units (floored at 0), FQtyDecimal, FPriceDecimal.
// Sales-order lines of purchased items are left out.
void SalesLinesToSelect(db::Connection& connection, const std::vector<int32_t>& orders,
                        const db::RowSink& each);
void TasksToSelect(db::Connection& connection, int32_t tran_type, const std::vector<int32_t>& ids,
                   const db::RowSink& each);

// A task's completion: interior id, bill number and the coefficient of its
// own unit (Null where the unit has none).
struct TaskUnit {
  int32_t inter_id = 0;
  std::string bill_no;
  Variant coefficient;
};
// The tasks of a type whose bill number is among `bills` (folded by FoldKey).
std::vector<TaskUnit> TasksByBillNumber(db::Connection& connection, int32_t tran_type,
                                        const std::vector<std::string>& bills);
// Adds to the finished quantity of tasks: (interior id, quantity).
void AddTaskFinished(db::Connection& connection, int32_t tran_type,
                     const std::vector<std::pair<int32_t, Variant>>& additions);

// A sales-order line with the coefficient of its own unit.
struct SalesLineUnit {
  int32_t inter_id = 0, entry_id = 0;
  Variant coefficient;
};
std::vector<SalesLineUnit> SalesLineUnits(db::Connection& connection,
                                          const std::vector<int32_t>& orders);
// Per line (interior id, line, finished, base): FStockFinishQty becomes the
// base finished quantity plus `finished`; the base figure grows by `base`.
void AddSalesLineFinished(db::Connection& connection,
                          const std::vector<std::tuple<int32_t, int32_t, Variant, double>>& lines);

}  // namespace mrpcalc::repo
