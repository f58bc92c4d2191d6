// mrpcalc-web: the parts of mrpcalc that need the HTTP, TLS and workbook
// libraries: the HTTP service, its tokens, its load benchmark and XLSX
// files. `mrpcalc` hands these commands over to it (it lies beside
// mrpcalc), so that a plain call does not load those libraries. Its
// arguments are mrpcalc's, already checked there:
//
//   mrpcalc-web serve DSN BIND PORT MAX_BODY
//   mrpcalc-web token-create DSN USER
//   mrpcalc-web token-revoke DSN TOKEN          (TOKEN "" : every token of USER)
//   mrpcalc-web token-revoke-user DSN USER
//   mrpcalc-web bench-http DSN CLIENTS REQUESTS
//   mrpcalc-web xlsx ROWS.json OUT.xlsx SHEET
#include <fmt/core.h>
#include <malloc.h>

#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "cli/bench_http.h"
#include "db/connection.h"
#include "export/xlsx.h"
#include "http/server.h"
#include "http/tokens.h"
#include "record/error.h"
#include "record/json.h"
#include "schema/erp_schema.h"
#include "services/host_config.h"

using namespace mrpcalc;

namespace {

int Number(const char* text) { return std::stoi(text); }

int Run(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  auto need = [&](int n) {
    if (argc != n + 2) ThrowInvalid("mrpcalc-web " + command + ": wrong number of arguments");
  };
  if (command == "serve") {
    need(4);
    // Few heaps for many workers: what one request frees, the next reuses,
    // instead of each of 64 threads keeping a heap of its own.
    mallopt(M_ARENA_MAX, 2);
    http::ServeOptions options;
    options.dsn = argv[2];
    options.bind = argv[3];
    options.port = Number(argv[4]);
    options.max_body = static_cast<size_t>(std::stoull(argv[5]));
    http::Service service(options, MakeStandaloneHost(HostConfig::FromEnvironment()));
    const int port = service.Bind();
    std::cerr << "mrpcalc: serving " << options.dsn << " on http://" << options.bind << ":" << port
              << "/ (workbench at /, API under /api/)\n";
    service.Listen();
    return 0;
  }
  if (command == "token-create") {
    need(2);
    auto c = db::Open(argv[2]);
    schema::UpgradeOwnTables(*c);
    db::Transaction tx(*c);
    const std::string token = http::CreateToken(*c, Number(argv[3]));
    tx.Commit();
    fmt::print("{}\n", token);
    std::cerr << "mrpcalc: a token for user " << argv[3]
              << "; it is shown only now. Send it as \"Authorization: Bearer TOKEN\".\n";
    return 0;
  }
  if (command == "token-revoke" || command == "token-revoke-user") {
    need(2);
    auto c = db::Open(argv[2]);
    schema::UpgradeOwnTables(*c);
    const int64_t n = command == "token-revoke" ? (http::RevokeToken(*c, argv[3]) ? 1 : 0)
                                                : http::RevokeUserTokens(*c, Number(argv[3]));
    fmt::print("revoked {} token(s)\n", n);
    return n > 0 ? 0 : 1;
  }
  if (command == "bench-http") {
    need(3);
    return cli::RunHttpBench(argv[2], Number(argv[3]), Number(argv[4]));
  }
  if (command == "xlsx") {
    need(3);
    std::ifstream in(argv[2]);
    std::stringstream text;
    text << in.rdbuf();
    const VectorPtr rows = FromJson(ParseJsonText(text.str(), "the rows")).AsVector();
    WriteXlsx(rows ? rows : Vector::Create(), argv[3], argv[4]);
    return 0;
  }
  ThrowInvalid("mrpcalc-web: unknown command \"" + command + "\" (run it through mrpcalc)");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    std::cerr << "mrpcalc: " << e.what() << "\n";
    return 1;
  }
}
