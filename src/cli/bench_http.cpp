// HTTP load benchmark: concurrent clients ask the service for the MRP
// report, as the workbench does.
#include "cli/bench_http.h"

#include <fmt/core.h>
#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "http/server.h"
#include "mrp/open_demand.h"
#include "record/error.h"
#include "record/json.h"
#include "services/host_config.h"

namespace mrpcalc::cli {

int RunHttpBench(const std::string& dsn, int clients, int requests) {
  if (clients < 1 || requests < 1) ThrowInvalid("--clients and --requests must be at least 1");
  // The benchmarks' request, as the workbench sends it.
  const std::string body = http::ReportRequestJson(mrp::BenchReportRequest()).dump();
  const std::string path = "/api/report";

  http::ServeOptions options;
  options.dsn = dsn;
  options.port = 0;
  http::Service service(options, MakeStandaloneHost(HostConfig::FromEnvironment()));
  const int port = service.Bind();
  const std::string token = service.IssueToken(mrp::BenchReportRequest().user);
  std::thread server([&] { service.Listen(); });

  httplib::Headers headers = {{"Authorization", "Bearer " + token}};
  std::string first;
  {
    httplib::Client client("127.0.0.1", port);
    auto r = client.Post(path, headers, body, "application/json");
    if (!r || r->status != 200) {
      service.Stop();
      server.join();
      ThrowInvalid("the first report call failed");
    }
    first = r->body;
  }
  std::vector<std::vector<double>> latencies(static_cast<size_t>(clients));
  std::atomic<int> wrong{0};
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  std::vector<std::thread> threads;
  for (int k = 0; k < clients; ++k) {
    threads.emplace_back([&, k] {
      httplib::Client client("127.0.0.1", port);
      client.set_read_timeout(120, 0);
      for (int i = 0; i < requests; ++i) {
        const auto t0 = Clock::now();
        auto r = client.Post(path, headers, body, "application/json");
        latencies[static_cast<size_t>(k)].push_back(
            std::chrono::duration<double, std::milli>(Clock::now() - t0).count());
        if (!r || r->status != 200 || r->body != first) ++wrong;
      }
    });
  }
  for (auto& t : threads) t.join();
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  service.Stop();
  server.join();
  service.RevokeToken(token);
  std::vector<double> all;
  for (const auto& l : latencies) all.insert(all.end(), l.begin(), l.end());
  std::sort(all.begin(), all.end());
  auto at = [&](double q) {
    return all[std::min(all.size() - 1, static_cast<size_t>(q * all.size()))];
  };
  fmt::print(
      "{} clients x {} report calls (answer {} bytes): {} answered right, {} wrong\n", clients,
      requests, first.size(), all.size() - wrong.load(), wrong.load());
  fmt::print(
      "throughput {:.1f} calls/s over {:.2f} s; latency p50 {:.1f} ms, p95 {:.1f} ms, max {:.1f} "
      "ms\n",
      all.size() / seconds, seconds, at(0.50), at(0.95), all.back());
  return wrong.load() == 0 ? 0 : 1;
}

}  // namespace mrpcalc::cli
