// Synthetic ERP databases for the MRP benchmark.
#pragma once

#include "db/connection.h"

namespace mrpcalc::sample {

// Scale 1 means 10,000 items, 2,000 in-use bills up to 6 levels deep and
// 2,500 open sales-order lines; everything else grows in proportion, but
// for the 20 open production tasks, each with its material plan and an
// issue against it.
// Fills an empty database (the ERP tables must exist). Deterministic.
void GenerateSynthetic(db::Connection& connection, double scale);

}  // namespace mrpcalc::sample
