// The source documents of purchase plans as plans change them: the SQL of
// SEOrder / SEOrderEntry, ICMO and ICOutMO for completion quantities and
// plan-number lists.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "db/connection.h"

namespace mrpcalc::repo {

// A source row: a task, or a sales-order line.
struct PlanSource {
  int32_t inter_id = 0, entry_id = 0;  // entry_id: sales-order lines only
  std::string bill_no;                 // tasks only
  bool unit_known = false;             // its FUnitID is in t_MeasureUnit
  std::optional<double> coefficient;   // of its own unit
  std::optional<double> finished, base_finished;  // base: sales-order lines only
  std::optional<std::string> list;                // FPurchasePlanBillNo
};

// The tasks of a type (production or outsourcing) whose bill number is
// among `bills` (folded by FoldKey), then those whose interior id is among
// `ids`; a task found both ways comes twice.
std::vector<PlanSource> TaskSources(db::Connection& connection, int32_t tran_type,
                                    const std::vector<std::string>& bills,
                                    const std::vector<int32_t>& ids);
// The lines of the listed sales orders.
std::vector<PlanSource> SalesLineSources(db::Connection& connection,
                                         const std::vector<int32_t>& orders);
// Writes FStockFinishQty and FPurchasePlanBillNo of tasks.
void WriteTaskSources(db::Connection& connection, int32_t tran_type,
                      const std::vector<PlanSource>& tasks);
// Writes FStockFinishQty, FBaseUnitStockFinishQty and FPurchasePlanBillNo.
void WriteSalesLineSources(db::Connection& connection, const std::vector<PlanSource>& lines);
// Empties every plan list of the task table that holds the legacy "0".
void ClearLegacyPlanZeros(db::Connection& connection, int32_t tran_type);

// The interior ids of the tasks of a type with each bill number (by the
// number folded by FoldKey), by interior id.
std::multimap<std::string, int32_t> TaskIdsByBill(db::Connection& connection, int32_t tran_type,
                                                  const std::vector<std::string>& bills);
// FBillNo of the listed documents of a type (sales orders or tasks), by id.
std::vector<std::pair<int32_t, std::string>> BillNumbers(db::Connection& connection,
                                                         int32_t tran_type,
                                                         const std::vector<int32_t>& ids);
// The order number of each line of the listed sales orders.
std::map<std::pair<int32_t, int32_t>, std::string> SalesLineBillNumbers(
    db::Connection& connection, const std::vector<int32_t>& orders);

}  // namespace mrpcalc::repo
