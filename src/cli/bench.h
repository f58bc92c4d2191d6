// The report benchmark of `mrpcalc bench`.
#pragma once

#include <string>

namespace mrpcalc::cli {

// Creates a synthetic ERP database of the scale (1: 10,000 items).
int RunBenchGenerate(const std::string& dsn, double scale);
// Writes the benchmark's GetMrpReportData arguments (all open demand) to a file.
int RunBenchRequest(const std::string& dsn, const std::string& path, int form);
// Times GetMrpReportData on all open demand: whole `mrpcalc call`
// processes (wall time, peak memory), then in process, phase by phase.
int RunBench(const std::string& dsn, int repeat, int form);

}  // namespace mrpcalc::cli
