// The demo database: a small bicycle maker for trying mrpcalc out and for the
// scenario tests.
#pragma once

#include "db/connection.h"

namespace mrpcalc::sample {

// Fills a freshly created database (the ERP tables must exist) with the
// demo manufacturer, in one transaction.
void LoadDemoData(db::Connection& connection);

}  // namespace mrpcalc::sample
