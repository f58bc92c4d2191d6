// Purchase orders as their callers read them back: the SQL of POOrder and
// POOrderEntry reads (the writers are in purchase_lines.h).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "db/connection.h"

namespace mrpcalc::repo {

// Supplier name, FBillNo, FInterID and FDate of the listed orders, by
// interior id. The name is Null where the supplier is missing.
std::vector<std::vector<Variant>> OrderSummaries(db::Connection& connection,
                                                 const std::vector<int32_t>& orders);
// The same, leaving out orders whose supplier is missing.
std::vector<std::vector<Variant>> OrderSummariesOfKnownSuppliers(
    db::Connection& connection, const std::vector<int32_t>& orders);

// Every purchase-order line with its header's columns (FEntryID first), by
// order and line; `columns` receives the labels as the engine gives them.
std::vector<std::vector<Variant>> AllOrderLines(db::Connection& connection,
                                                std::vector<std::string>& columns);

}  // namespace mrpcalc::repo
