// Purchase orders as their callers read them back: the SQL of POOrder and
// POOrderEntry reads (the writers are in purchase_lines.h).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "db/connection.h"

namespace mrpcalc::repo {

// The listed orders as their makers answer them, by interior id: one row
// each of "FSupplyName", "FBillNO", "FInterID" and "FDate". The name is
// Null where the supplier is missing.
VectorPtr OrderSummaries(db::Connection& connection, const std::vector<int32_t>& orders);
// The same, leaving out orders whose supplier is missing.
VectorPtr OrderSummariesOfKnownSuppliers(db::Connection& connection,
                                         const std::vector<int32_t>& orders);

// Every purchase-order line with its header's columns (FEntryID first), by
// order and line; `columns` receives the labels as the engine gives them.
std::vector<std::vector<Variant>> AllOrderLines(db::Connection& connection,
                                                std::vector<std::string>& columns);

}  // namespace mrpcalc::repo
