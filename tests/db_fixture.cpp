// Per-engine fresh databases.
#include "db_fixture.h"

#include "sample/demo_data.h"
#include "schema/erp_schema.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>

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

std::string FreshDsn(const std::string& engine) {
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

void DbTest::SetUp() {
  dsn_ = FreshDsn(GetParam());
  if (dsn_.empty()) GTEST_SKIP();
  connection_ = db::Open(dsn_);
}

void DemoDbTest::SetUp() {
  DbTest::SetUp();
  if (IsSkipped()) return;
  schema::CreateErpSchema(conn(), false);
  sample::LoadDemoData(conn());
}

}  // namespace mrpcalc::testing
