// mrpcalc: the command-line program. All argument parsing lives in this one
// file (CLI11 is slow to compile); each command hands over to a library.
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include <fstream>
#include <sstream>

#include "component/registry.h"
#include "db/connection.h"
#include "db/open_demand.h"
#include "db/schema.h"
#include "frame/record/error.h"
#include "frame/record/json.h"
#include "services/host_config.h"

namespace {

using namespace mrpcalc;

const char* TranTypeName(int tran_type) {
  switch (tran_type) {
    case db::kTranSalesOrder: return "sales order";
    case db::kTranProductionTask: return "production task";
    case db::kTranOutsourcingTask: return "outsourcing task";
  }
  return "other";
}

int RunInit(const std::string& dsn, bool demo, bool replace) {
  auto connection = db::Open(dsn);
  db::CreateErpSchema(*connection, replace);
  if (demo) db::LoadDemoData(*connection);
  fmt::print("created the ERP tables{} in {}\n", demo ? " with demo data" : "",
             connection->description());
  return 0;
}

void PrintOpenDemand(db::Connection& connection) {
  const auto lines = db::ListOpenDemand(connection);
  fmt::print("Open demand in {}: {} line(s)\n\n", connection.description(), lines.size());
  fmt::print("{:<17} {:<12} {:>5}  {:<6} {:<12} {:>10} {:<4}  {}\n", "source", "bill", "line",
             "item", "name", "open qty", "unit", "needed from");
  for (const auto& l : lines) {
    fmt::print("{:<17} {:<12} {:>5}  {:<6} {:<12} {:>10.2f} {:<4}  {}\n",
               TranTypeName(l.tran_type), l.bill_no, l.entry_id, l.item_number, l.item_name,
               l.open_qty, l.unit_name, l.date.ToDateString());
  }
}

int RunDemo(const std::string& dsn) {
  auto connection = db::Open(dsn);
  if (!connection->TableExists("t_ICItem")) {
    db::CreateErpSchema(*connection, false);
    db::LoadDemoData(*connection);
    fmt::print("created the demo database {}\n", connection->description());
  }
  PrintOpenDemand(*connection);
  return 0;
}

std::string ReadArgs(const std::string& args) {
  if (args.empty() || args[0] != '@') return args;
  std::ifstream in(args.substr(1));
  if (!in) ThrowInvalid("cannot read the arguments file " + args.substr(1));
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Exit codes and the JSON shape of answers are decided here, at the edge.
int RunCall(const std::string& prog_id, const std::string& method, const std::string& dsn,
            const std::string& args_text) {
  try {
    std::vector<Variant> args;
    const std::string text = ReadArgs(args_text);
    if (!text.empty()) {
      Json parsed;
      try {
        parsed = Json::parse(text);
      } catch (const Json::parse_error& e) {
        ThrowInvalid(std::string("--args is not valid JSON: ") + e.what());
      }
      if (!parsed.is_array()) ThrowInvalid("--args must be a JSON array of the arguments after sDsn");
      for (const auto& a : parsed) args.push_back(FromJson(a));
    }
    const Host host = MakeStandaloneHost(HostConfig::FromEnvironment());
    const CallResult r = Invoke(PublicClasses(), host, prog_id, method, args, dsn);
    Json out = Json::object();
    out["result"] = ToJson(r.result);
    out["resultType"] = VariantTypeName(r.result.type());
    Json by_ref = Json::object();
    for (const auto& [name, value] : r.by_ref) by_ref[name] = ToJson(value);
    out["byref"] = std::move(by_ref);
    out["messages"] = r.messages;
    std::cout << out.dump(2) << "\n";
    return 0;
  } catch (const Error& e) {
    Json err = {{"error", {{"number", e.number()}, {"description", e.what()}}}};
    std::cout << err.dump(2) << "\n";
    return 1;
  } catch (const std::exception& e) {
    Json err = {{"error", {{"number", -1}, {"description", e.what()}}}};
    std::cout << err.dump(2) << "\n";
    return 1;
  }
}

int RunMethods() {
  for (const auto& cls : PublicClasses().classes()) {
    fmt::print("{}\n", cls.prog_id);
    for (const auto& m : cls.methods) fmt::print("  {}\n", m.Signature());
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"mrpcalc: MRP and purchase planning on the ERP database"};
  app.require_subcommand(1);

  std::string dsn;
  bool demo = false;
  bool replace = false;
  auto* init = app.add_subcommand("init", "create the ERP tables (and demo data) in a database");
  init->add_option("--dsn", dsn, "sqlite:PATH or odbc:CONNECTION-STRING")->required();
  init->add_flag("--demo", demo, "fill the new tables with the demo manufacturer");
  init->add_flag("--replace", replace, "drop existing ERP tables first");

  std::string demo_dsn = "sqlite:mrpcalc-demo.db";
  auto* demo_cmd = app.add_subcommand("demo", "create the demo database if needed and plan its open demand");
  demo_cmd->add_option("--dsn", demo_dsn, "database to use")->capture_default_str();

  std::string prog_id, method, call_dsn, call_args;
  auto* call = app.add_subcommand("call", "call a method of a public class (prints JSON)");
  call->add_option("PROGID", prog_id, "e.g. ZUVMMrpCalculate.MrpDataInfo")->required();
  call->add_option("METHOD", method, "method name")->required();
  call->add_option("--dsn", call_dsn, "the database, given as the method's sDsn");
  call->add_option("--args", call_args,
                   "JSON array of the arguments after sDsn, or @FILE holding it");

  auto* methods = app.add_subcommand("methods", "list every public class and method");

  CLI11_PARSE(app, argc, argv);
  if (*call) return RunCall(prog_id, method, call_dsn, call_args);
  if (*methods) return RunMethods();
  try {
    if (*init) return RunInit(dsn, demo, replace);
    if (*demo_cmd) return RunDemo(demo_dsn);
  } catch (const Error& e) {
    std::cerr << "mrpcalc: " << e.what() << "\n";
    if (!e.context().empty()) std::cerr << e.context() << "\n";
    return 1;
  } catch (const std::exception& e) {
    std::cerr << "mrpcalc: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
