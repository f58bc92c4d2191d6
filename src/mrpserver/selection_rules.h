// The rules of the demand selection that need no database.
#pragma once

#include "mrpserver/stock_repository.h"
#include "record/recordset.h"

namespace mrpcalc {

// Nets the selected lines' open quantities ("FQty") against stock on hand
// of their item and property ("FItemID", "FAuxPropID"), first line first
// served: a line the stock covers goes to 0, the first it does not cover
// keeps what is left. Lines without an item or property are left alone; a
// quantity that is not a number is invalid input.
void NetAgainstStock(Vector& lines, repo::OnHandStock on_hand);

}  // namespace mrpcalc
