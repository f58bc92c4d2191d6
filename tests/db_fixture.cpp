// Per-engine fresh databases.
#include "db_fixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "sample/demo_data.h"
#include "schema/erp_schema.h"

namespace mrpcalc::testing {

std::vector<std::string> Engines() {
  std::vector<std::string> engines = {"sqlite"};
  const char* pg = std::getenv("MRPCALC_TEST_PG_DSN");
  if (pg && *pg) {
    engines.push_back("postgres");
  } else if (std::getenv("CI")) {
    // CI must exercise the server engine; a missing server is a failure there.
    engines.push_back("postgres");
  }
  return engines;
}

std::vector<std::string> EnginesAndSchemas() {
  std::vector<std::string> params;
  for (const auto& engine : Engines()) {
    params.push_back(engine);
    params.push_back(engine + "_erp");
  }
  return params;
}

std::string EngineOf(const std::string& param) {
  const size_t cut = param.find('_');
  return cut == std::string::npos ? param : param.substr(0, cut);
}

std::string FreshDsn(const std::string& param) {
  const std::string engine = EngineOf(param);
  if (engine == "sqlite") {
    static std::atomic<int> counter{0};
    const auto dir = std::filesystem::temp_directory_path() /
                     ("mrpcalc-test-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    const auto path = dir / ("db" + std::to_string(counter++) + ".sqlite");
    std::filesystem::remove(path);
    return "sqlite:" + path.string();
  }
  const char* pg = std::getenv("MRPCALC_TEST_PG_DSN");
  if (!pg || !*pg) {
    ADD_FAILURE() << "MRPCALC_TEST_PG_DSN is not set; run the tests through scripts/test.sh";
    return {};
  }
  auto c = db::Open(pg);
  c->Execute("drop schema if exists public cascade");
  c->Execute("create schema public");
  return pg;
}

std::vector<std::string> InChildProcesses(int processes,
                                          const std::function<void(int, std::ostream&)>& body) {
  std::vector<std::string> files;
  std::vector<pid_t> children;
  for (int p = 0; p < processes; ++p) {
    files.push_back(::testing::TempDir() + "child-" + std::to_string(::getpid()) + "-" +
                    std::to_string(p));
    const pid_t pid = ::fork();
    if (pid < 0) {
      ADD_FAILURE() << "fork failed";
      break;
    }
    if (pid == 0) {
      int status = 0;
      try {
        std::ofstream out(files.back());
        body(p, out);
      } catch (const std::exception& e) {
        std::fprintf(stderr, "child %d: %s\n", p, e.what());
        status = 1;
      }
      ::_exit(status);
    }
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) ADD_FAILURE() << "a child process failed";
  }
  std::vector<std::string> lines;
  for (const auto& f : files) {
    std::ifstream in(f);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    std::filesystem::remove(f);
  }
  return lines;
}

void DbTest::SetUp() {
  dsn_ = FreshDsn(GetParam());
  if (dsn_.empty()) GTEST_SKIP();
  connection_ = db::Open(dsn_);
}

void DbTest::CreateSchema(db::Connection& connection) {
  schema::CreateErpSchema(connection, true,
                          erp_columns_only() ? schema::SchemaForm::kErpColumnsOnly
                                             : schema::SchemaForm::kInit);
}

void DemoDbTest::SetUp() {
  DbTest::SetUp();
  if (IsSkipped()) return;
  CreateSchema(conn());
  sample::LoadDemoData(conn());
}

}  // namespace mrpcalc::testing
