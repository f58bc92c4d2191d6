// A time-phased plan as rows, for people and programs alike: the command
// line prints them, the HTTP service answers them, workbooks are written
// from them.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "mrp/mrp_data_info.h"
#include "mrp/phased_repository.h"
#include "record/variant.h"

namespace mrpcalc::mrp::phased {

// A plan shared by the rows made from it: the large tables are rows made
// when written, never held all at once.
using PlanPtr = std::shared_ptr<const MrpDataInfo::PhasedPlan>;

// Planned orders: FItemID, FItemNumber, FItemName, FKind ("purchase" or
// "production"), FSupplyID, FQty, FDue, FRelease, FLate, FReasons (the
// rules that shaped it, joined by "; ") and FPegging (the needs it covers:
// "SO1/2 40; ...", unless left out) and FUnitID.
VectorPtr PlannedOrderRows(const PlanPtr& plan, bool with_pegging = true);
// One row per planned item with what a planner filters on: FItemID,
// FItemNumber, FItemName, FKind, FSupplyID, FSupplyNumber, FOnHand,
// FSafety, FOrders, FQty (planned), FLate (orders released late),
// FShortage (anything to order), FBelowSafety (on hand under safety
// stock), FNoSupplier (to buy, with no supplier), FActions (messages).
VectorPtr ItemRows(const PlanPtr& plan, std::map<int32_t, std::string> supplier_numbers);
// The planned orders of one item (0: every item), or of one kind
// ("purchase", "production"; empty: both), with FOrder, each order's place
// in the plan, first.
// FReasons in Chinese unless `english`.
VectorPtr OrderRowsOf(const PlanPtr& plan, int32_t item, const std::string& kind, bool english);
// Planned purchases per supplier: FSupplyID, FSupplyNumber, FLines, FQty,
// FRelease (the earliest), FLate (lines released late).
VectorPtr SupplierRows(const PlanPtr& plan, const std::map<int32_t, std::string>& supplier_numbers);
// Action messages: FKind, FItemID, FItemNumber, FReceipt, FDate (its day),
// FNeeded (the day it is needed; none for a cancel), FQty.
VectorPtr ActionRows(const Input& input, const Result& result);

// Bucket bounds from `from` to past `to`: "day", "week" (from Monday) or
// "month" (from the first); invalid input for another size.
std::vector<Day> BucketBounds(const std::string& size, Day from, Day to);
// The first and last day the plan touches (today included).
std::pair<Day, Day> Horizon(const Input& input, const Result& result);
// The record of each item with anything planned, needed or scheduled (or
// only `item`, by id): FItemID, FItemNumber, FFrom, FGross, FScheduled,
// FProjected, FNet, FPlannedReceipts, FPlannedReleases.
VectorPtr BucketRows(const PlanPtr& plan, const std::string& size, int32_t item = 0);

// A day given as text (YYYY-MM-DD); invalid input naming `what` otherwise.
Day ParseDay(const std::string& text, const std::string& what);

// Saved runs: FRunID, FCreated, FUserID, FSettings.
VectorPtr RunRows(const std::vector<repo::SavedRun>& runs);

// The orders as a run keeps them.
std::vector<repo::SavedOrder> OrdersToSave(const Input& input, const Result& result);
// What changed from run to run: FKind, FItemID, FItemNumber, FDueBefore,
// FDueAfter, FQtyBefore, FQtyAfter.
VectorPtr ChangeRows(const std::vector<repo::SavedOrder>& before,
                     const std::vector<repo::SavedOrder>& after);

}  // namespace mrpcalc::mrp::phased
