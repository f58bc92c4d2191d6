// What time-phased planning reads and keeps beyond the report's input: its
// parameters and working calendar (our own tables), the open purchase
// order lines and tasks with their dates, and saved runs.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "db/connection.h"
#include "mrp/phased_bridge.h"

namespace mrpcalc::repo {

namespace phased = mrp::phased;
using phased::DatedSupply;
using phased::PlanningParameters;


// The rows of the items given (every row when none are given), by item
// then supplier.
std::vector<PlanningParameters> ReadPlanningParameters(db::Connection& connection,
                                                       const std::vector<int32_t>& items);
// Replaces the row of the item and supplier. Throws invalid input for a
// negative figure or an item the ERP does not have.
void WritePlanningParameters(db::Connection& connection, const PlanningParameters& row);
// False when there was no such row.
bool DeletePlanningParameters(db::Connection& connection, int32_t item, int32_t supplier);

// The working calendar: Monday to Friday unless mrpcalc_WorkWeek says
// otherwise, less the holidays.
phased::Calendar ReadCalendar(db::Connection& connection);
// The working weekdays, Monday first; invalid input when none is.
void WriteWorkingWeek(db::Connection& connection, const std::array<bool, 7>& working);
void AddHoliday(db::Connection& connection, phased::Day day);
bool RemoveHoliday(db::Connection& connection, phased::Day day);

// Open supply on its own date (DatedSupply).
std::vector<DatedSupply> ReadOpenSupply(db::Connection& connection);

// A saved run: when, by whom, with which settings (JSON text), and its
// planned orders.
struct SavedRun {
  int32_t id = 0;
  Date created;
  int32_t user = 0;
  std::string settings;
};
struct SavedOrder {
  int32_t item = 0;
  std::string number;
  double qty = 0;
  phased::Day due = 0, release = 0;
  bool late = false;
  std::string reasons;  // the reasons' texts joined by "; "
};
// Saves the run inside the caller's unit of work; returns its id.
int32_t SaveRun(db::Connection& connection, int32_t user, const std::string& settings,
                const std::vector<SavedOrder>& orders);
std::vector<SavedRun> ReadRuns(db::Connection& connection);  // newest first
std::optional<SavedRun> ReadRun(db::Connection& connection, int32_t id);
std::vector<SavedOrder> ReadRunOrders(db::Connection& connection, int32_t id);

}  // namespace mrpcalc::repo

namespace mrpcalc::repo {

// An item's id by its code, as the server compares text; not found when
// no item has it.
int32_t ItemIdByNumber(db::Connection& connection, const std::string& number);
// A supplier's id by its code (t_Supplier), likewise.
int32_t SupplierIdByNumber(db::Connection& connection, const std::string& number);
// The codes of the suppliers with these ids (ids without a supplier left out).
std::map<int32_t, std::string> SupplierNumbers(db::Connection& connection,
                                               const std::vector<int32_t>& ids);

}  // namespace mrpcalc::repo
