// Per-engine fresh databases.
#include "db_fixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>

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

namespace {

std::string Unzipped(const std::string& path, const std::string& member) {
  const std::string command = "unzip -p '" + path + "' " + member;
  std::FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return {};
  std::string out;
  char buf[4096];
  for (size_t n; (n = std::fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
  ::pclose(pipe);
  return out;
}

std::string XmlText(std::string text) {
  const std::pair<const char*, const char*> entities[] = {
      {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&amp;", "&"}};
  for (const auto& [from, to] : entities) {
    for (size_t at; (at = text.find(from)) != std::string::npos;) text.replace(at, std::strlen(from), to);
  }
  return text;
}

// "AH12" -> column 33 (from 0), row 11 (from 0).
std::pair<size_t, size_t> CellPlace(const std::string& ref) {
  size_t column = 0, i = 0;
  for (; i < ref.size() && std::isalpha(static_cast<unsigned char>(ref[i])); ++i)
    column = column * 26 + static_cast<size_t>(ref[i] - 'A' + 1);
  return {column - 1, std::stoul(ref.substr(i)) - 1};
}

}  // namespace

std::vector<std::vector<std::string>> ReadWorkbook(const std::string& path) {
  std::vector<std::string> shared;
  const std::regex si("<si>(.*?)</si>"), t("<t[^>]*>([^<]*)</t>");
  const std::string strings = Unzipped(path, "xl/sharedStrings.xml");
  for (auto it = std::sregex_iterator(strings.begin(), strings.end(), si);
       it != std::sregex_iterator(); ++it) {
    std::string text;
    const std::string item = (*it)[1];
    for (auto p = std::sregex_iterator(item.begin(), item.end(), t); p != std::sregex_iterator(); ++p)
      text += XmlText((*p)[1]);
    shared.push_back(text);
  }
  std::vector<std::vector<std::string>> rows;
  const std::string sheet = Unzipped(path, "xl/worksheets/sheet1.xml");
  const std::regex cell(R"re(<c r="([A-Z]+[0-9]+)"([^>]*?)(/>|>(.*?)</c>))re"), v("<v>([^<]*)</v>"),
      is("<is>.*?<t[^>]*>([^<]*)</t>.*?</is>");
  for (auto it = std::sregex_iterator(sheet.begin(), sheet.end(), cell);
       it != std::sregex_iterator(); ++it) {
    const auto [column, row] = CellPlace((*it)[1]);
    const std::string attributes = (*it)[2], body = (*it)[4];
    std::smatch m;
    std::string text;
    if (std::regex_search(body, m, v)) {
      text = attributes.find("t=\"s\"") != std::string::npos ? shared.at(std::stoul(m[1])) : XmlText(m[1]);
    } else if (std::regex_search(body, m, is)) {
      text = XmlText(m[1]);
    }
    if (rows.size() <= row) rows.resize(row + 1);
    if (rows[row].size() <= column) rows[row].resize(column + 1);
    rows[row][column] = text;
  }
  return rows;
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
