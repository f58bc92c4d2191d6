// mrpcalc: the command-line program. All argument parsing lives in this one
// file (CLI11 is slow to compile); each command hands over to a library.
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "db/connection.h"
#include "db/open_demand.h"
#include "db/schema.h"
#include "frame/record/error.h"

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

  CLI11_PARSE(app, argc, argv);
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
