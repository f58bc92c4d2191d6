// The HTTP service under load: concurrent clients calling the report.
#pragma once

#include <string>

namespace mrpcalc::cli {

// Serves `dsn` on a free loopback port and has `clients` clients make
// `requests` report calls each (GetMrpReportData on all open demand, every
// netting switch); checks that every answer is the first one, and prints
// the throughput and the latency percentiles.
int RunHttpBench(const std::string& dsn, int clients, int requests);

}  // namespace mrpcalc::cli
