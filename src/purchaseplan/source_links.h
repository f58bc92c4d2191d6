// What a purchase plan does to its source documents: the quantity it
// covers (FStockFinishQty, and FBaseUnitStockFinishQty of sales-order
// lines) and its number in their FPurchasePlanBillNo lists. Saving a plan
// adds both, deleting it takes them away again.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "db/connection.h"
#include "record/erp_codes.h"
#include "record/variant.h"

namespace mrpcalc::plan {

// The source types a plan links, by their ERP codes.
inline constexpr int32_t kSalesOrder = kTranSalesOrder;
inline constexpr int32_t kProductionTask = kTranProductionTask;
inline constexpr int32_t kOutsourcingTask = kTranOutsourcingTask;

// A source line of a plan: a task by its bill number (and interior id), a
// sales-order line by interior id and line.
struct SourceLine {
  int32_t type = 0;
  std::string bill_no;
  int32_t inter_id = 0;
  int32_t entry_id = 0;
  double qty = 0;  // base units
};

// Reads "Ftrantype", "FBillNo", "FInterID", "FEntryID", "FQty"; the ids are
// read only where the type uses them.
std::vector<SourceLine> ReadSourceLines(const VectorPtr& rows, const char* what);

enum class Sign { kAdd, kRemove };

// Applies, for each line in order, the completion quantity change and the
// add or removal of plan_no, with the ERP's own keys and comma-list rules:
// an add skips a list that already contains the number anywhere; a removal
// deletes every occurrence, closes ",," and drops a leading comma (a
// trailing one stays), and empties the list when nothing is covered any
// more. Lines of other types are left alone. Reads the rows involved once
// and writes the changed ones.
void ApplySourceLinks(db::Connection& connection,
                      const std::vector<std::pair<std::vector<SourceLine>, std::string>>& plans,
                      Sign sign);

// The comma-list rules alone, for one list.
std::string AddPlanNumber(const std::string& list, const std::string& plan_no);
std::string RemovePlanNumber(const std::string& list, const std::string& plan_no);

}  // namespace mrpcalc::plan
