// The report benchmark: synthetic databases, the request file of all open
// demand, and the timing of whole `mrpcalc call` processes on it.
#include "cli/bench.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "db/connection.h"
#include "mrp/mrp_data_info.h"
#include "mrp/open_demand.h"
#include "record/error.h"
#include "record/json.h"
#include "sample/synthetic.h"
#include "schema/erp_schema.h"
#include "services/host_config.h"

extern char** environ;

namespace mrpcalc::cli {
namespace {

// The benchmark's request: every open sales-order line and production task,
// every netting switch on, all BOM levels, stock of warehouse 1; the
// argument list of `mrpcalc call ... GetMrpReportData`.
struct BenchRequest {
  VectorPtr lines;
  DictionaryPtr filter;
  std::string warehouses = "1";
  int user = 1;
  int form = 1;
};

BenchRequest MakeBenchRequest(const std::string& dsn, int form) {
  BenchRequest r;
  mrp::ReportRequest request = mrp::BenchReportRequest();
  request.form = form;
  MrpDataInfo info(MakeStandaloneHost(HostConfig::FromEnvironment()));
  auto [lines, filter] = info.ArgumentsFor(dsn, request);
  r.lines = lines;
  r.filter = filter;
  r.warehouses = request.warehouses;
  r.user = request.user;
  r.form = request.form;
  return r;
}

void WriteBenchRequest(const BenchRequest& r, const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) ThrowInvalid("cannot write the request file " + path);
  JsonWriter out(
      [file](std::string_view chunk) { std::fwrite(chunk.data(), 1, chunk.size(), file); });
  out.Raw("[\n  ");
  out.Value(Variant(r.lines), 2);
  out.Raw(",\n  ");
  out.Value(Variant(r.filter), 2);
  out.Raw(",\n  \"\",\n  ");
  out.String(r.warehouses);
  out.Raw(",\n  " + std::to_string(r.user) + ",\n  " + std::to_string(r.form) + "\n]\n");
  out.Flush();
  if (std::fclose(file) != 0) ThrowInvalid("cannot write the request file " + path);
}

// One whole `mrpcalc call` process on the request file, its answer thrown
// away: wall time, CPU time and the child's peak resident memory.
struct ProcessFigures {
  double wall = 0, user = 0, sys = 0, peak_mb = 0;
  int status = 0;
};

ProcessFigures TimeCallProcess(const std::string& dsn, const std::string& request) {
  const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
  const std::string args_file = "@" + request;
  std::vector<const char*> argv = {
      self.c_str(), "call",      kMrpDataInfoProgId, "GetMrpReportData",
      "--dsn",      dsn.c_str(), "--args",           args_file.c_str(),
      nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = 0;
  const int rc = posix_spawn(&pid, self.c_str(), &actions, nullptr,
                             const_cast<char* const*>(argv.data()), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) ThrowInvalid("cannot start " + self + ": " + std::strerror(rc));
  ProcessFigures f;
  rusage usage{};
  wait4(pid, &f.status, 0, &usage);
  f.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  f.user = usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6;
  f.sys = usage.ru_stime.tv_sec + usage.ru_stime.tv_usec / 1e6;
  f.peak_mb = usage.ru_maxrss / 1024.0;
  return f;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

}  // namespace

int RunBenchGenerate(const std::string& dsn, double scale) {
  auto connection = db::Open(dsn);
  schema::CreateErpSchema(*connection, true);
  sample::GenerateSynthetic(*connection, scale);
  fmt::print("generated a synthetic ERP database at scale {} in {}\n", scale,
             connection->description());
  return 0;
}

int RunBenchRequest(const std::string& dsn, const std::string& path, int form) {
  const BenchRequest r = MakeBenchRequest(dsn, form);
  WriteBenchRequest(r, path);
  fmt::print("wrote {} demand lines to {}\n", r.lines->Count(), path);
  return 0;
}

// Times GetMrpReportData on all open demand, as a caller waits for it (the
// whole `mrpcalc call` process on a request file) and in process, phase by
// phase.
int RunBench(const std::string& dsn, int repeat, int form) {
  const BenchRequest request = MakeBenchRequest(dsn, form);
  const auto path = std::filesystem::temp_directory_path() /
                    ("mrpcalc-bench-request-" + std::to_string(getpid()) + ".json");
  WriteBenchRequest(request, path.string());
  fmt::print("{} demand lines, all BOM levels, every netting switch, form kind {}\n",
             request.lines->Count(), form);

  std::vector<double> walls, peaks;
  for (int i = 0; i < repeat; ++i) {
    const ProcessFigures f = TimeCallProcess(dsn, path.string());
    if (f.status != 0) {
      std::filesystem::remove(path);
      ThrowInvalid("the call process failed (status " + std::to_string(f.status) + ")");
    }
    fmt::print(
        "whole call process {}: {:.3f} s wall, {:.3f} s user, {:.3f} s sys, peak {:.1f} MB\n",
        i + 1, f.wall, f.user, f.sys, f.peak_mb);
    walls.push_back(f.wall);
    peaks.push_back(f.peak_mb);
  }
  if (repeat > 0) {
    fmt::print("whole call process, median of {}: {:.3f} s, peak {:.1f} MB\n", repeat,
               Median(walls), Median(peaks));
  }
  std::filesystem::remove(path);

  const Host host = MakeStandaloneHost(HostConfig::FromEnvironment());
  for (int i = 0; i < repeat; ++i) {
    // Each run gets its own copies: the report removes looping lines from them.
    auto lines = Vector::Create();
    for (const auto& row : request.lines->rows()) lines->Add(row);
    MrpDataInfo info(host);
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    const auto start = std::chrono::steady_clock::now();
    const VectorPtr rows =
        info.GetMrpReportData(dsn, lines, request.filter, request.warehouses, request.user, form);
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    getrusage(RUSAGE_SELF, &after);
    fmt::print(
        "in process {}: {} rows, load {:.4f} s, calculate {:.4f} s, whole method {:.4f} s, {} page "
        "faults\n",
        i + 1, rows->Count(), info.last_timings().load_seconds,
        info.last_timings().calculate_seconds, wall, after.ru_minflt - before.ru_minflt);
  }
  return 0;
}

}  // namespace mrpcalc::cli
