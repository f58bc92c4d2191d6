// Loads what the MRP calculation reads, with a few set-based queries: the
// bills of material one level per query, master data, and one aggregate
// query per supply figure. Never one query per row.
#pragma once

#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "db/connection.h"
#include "mrp/model.h"
#include "record/variant.h"

namespace mrpcalc::mrp {

// The bills of material reachable from the items, all levels, with the
// items they name and the codes that mark approved bills.
void LoadBoms(db::Connection& connection, const std::vector<int32_t>& item_ids, Input& input);

// The date a demand line's materials are needed: the earliest delivery date
// of the matching sales-order lines, or the earliest planned start of the
// named tasks. `bill_numbers` are the line's numbers (its "FBillNo" cut at
// "/"); `source_data` the rows the planner selected. Throws, as the report
// always failed, when the source rows name no sales-order line for a sales
// demand or a source type other than 81, 85 and 91 is in hand.
//
// Made from the source rows and every line's numbers; Load() then reads the
// dates they name (on any session, any thread), before the first For().
class DemandDates {
 public:
  DemandDates(const VectorPtr& source_data,
              const std::vector<std::vector<std::string>>& bill_numbers_per_line);
  void Load(db::Connection& connection);
  Date For(const std::vector<std::string>& bill_numbers) const;

 private:
  struct Source {
    bool has_type;
    int32_t type;
    int32_t inter_id;
    int32_t entry_id;
  };
  // Bill numbers here are folded by FoldKey: the server matches them
  // without regard to case.
  std::unordered_map<std::string, std::vector<Source>> source_by_number_;  // FBillNO -> rows
  std::set<size_t> number_lengths_;                                        // of the keys above
  int type_in_hand_ = 0;  // the first task type (85, 91) met, else the last type
  std::set<int32_t> sales_orders_;  // named by the source rows
  std::set<std::string> numbers_;   // the lines' bill numbers
  mutable std::map<std::vector<std::string>, Date> cache_;
  std::map<std::pair<int32_t, int32_t>, std::optional<Date>> sales_dates_;
  std::map<std::string, std::optional<Date>> mo_dates_, out_mo_dates_;
};

// The demand's own tasks (header and material plan) of the task kind.
void LoadTasks(db::Connection& connection, const std::vector<int32_t>& demand_tasks, Input& input);

// Supply, in the order the report reads it: first what was issued to the
// demand's own tasks (`demand_tasks`, their interior ids); then stock on hand
// over the warehouses of sStockKey and the open purchase and sales
// quantities, which depend on nothing else loaded and can be read on a
// session of their own; then production in progress outside the demand's
// tasks, purchase history and suppliers.
void LoadIssued(db::Connection& connection, const std::vector<int32_t>& demand_tasks,
                bool count_unchecked_bills, Input& input);
struct OpenSupply {
  std::map<ItemAux, OptNum> stock, moving, unsold;
};
OpenSupply LoadOpenSupply(db::Connection& connection, const std::vector<int32_t>& warehouses,
                          bool count_virtual);
void LoadProducingAndHistory(db::Connection& connection, Input& input);

}  // namespace mrpcalc::mrp

namespace mrpcalc::mrp {

// For each item, whether its in-use bills lead back to it (the check the
// bill forms make before an item is exploded).
std::vector<bool> BomsLoopBack(db::Connection& connection, const std::vector<int32_t>& item_ids);

}  // namespace mrpcalc::mrp
