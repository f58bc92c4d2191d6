// mrpcalc: the command-line program. All argument parsing lives in this one
// file (CLI11 is slow to compile); each command hands over to a library.
#include <fcntl.h>
#include <fmt/core.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <functional>
#include <sstream>

#include "cli/bench.h"
#include "cli/buyer.h"
#include "cli/heap_ahead.h"
#include "cli/phased.h"
#include "cli/plans.h"
#include "component/registry.h"
#include "db/connection.h"
#include "frame/answer.h"
#include "mrp/mrp_data_info.h"
#include "mrp/open_demand.h"
#include "record/error.h"
#include "record/json.h"
#include "record/text.h"
#include "sample/demo_data.h"
#include "schema/erp_schema.h"
#include "services/host_config.h"

namespace {

using namespace mrpcalc;

const char* TranTypeName(int tran_type) {
  switch (tran_type) {
    case kTranSalesOrder:
      return "sales order";
    case kTranProductionTask:
      return "production task";
    case kTranOutsourcingTask:
      return "outsourcing task";
  }
  return "other";
}

int RunInit(const std::string& dsn, bool demo, bool replace) {
  auto connection = db::Open(dsn);
  schema::CreateErpSchema(*connection, replace);
  if (demo) sample::LoadDemoData(*connection);
  fmt::print("created the ERP tables{} in {}\n", demo ? " with demo data" : "",
             connection->description());
  return 0;
}

// The explicit step for a database made before mrpcalc's own tables (the
// ERP's own database): creates those missing, and nothing else.
int RunUpgrade(const std::string& dsn) {
  auto connection = db::Open(dsn);
  const std::vector<std::string> created = schema::UpgradeOwnTables(*connection);
  if (created.empty()) {
    fmt::print("mrpcalc's tables are up to date in {}\n", connection->description());
  } else {
    std::string names;
    for (const auto& t : created) names += (names.empty() ? "" : ", ") + t;
    fmt::print("created {} in {}\n", names, connection->description());
  }
  return 0;
}

void PrintOpenDemand(db::Connection& connection) {
  const auto lines = mrp::ListOpenDemand(connection);
  fmt::print("Open demand in {}: {} line(s)\n\n", connection.description(), lines.size());
  fmt::print("{:<17} {:<12} {:>5}  {:<6} {:<12} {:>10} {:<4}  {}\n", "source", "bill", "line",
             "item", "name", "open qty", "unit", "needed from");
  for (const auto& l : lines) {
    fmt::print("{:<17} {:<12} {:>5}  {:<6} {:<12} {:>10.2f} {:<4}  {}\n", TranTypeName(l.tran_type),
               l.bill_no, l.entry_id, l.item_number, l.item_name, l.open_qty, l.unit_name,
               l.date.ToDateString());
  }
}

struct MrpOptions {
  std::string dsn;
  // The command line's defaults: the administrator, form kind 0.
  mrp::ReportRequest report = [] {
    mrp::ReportRequest r;
    r.user = 1;
    r.form = 0;
    return r;
  }();
  std::string format = "table";
  bool peg = false;
};

void WriteToStdout(std::string_view chunk) { std::fwrite(chunk.data(), 1, chunk.size(), stdout); }

// An answer runs to tens of megabytes. Through a pipe of the system's
// default size (64 KB) this process and its reader take turns every 64 KB,
// each waking the other; through 1 MB (the most an unprivileged process
// may ask for, by default) both keep running. Nothing happens where stdout
// is not a pipe, is already as wide, or the system refuses.
void WidenStdoutPipe() {
  constexpr int kWide = 1 << 20;
  const int now = fcntl(STDOUT_FILENO, F_GETPIPE_SZ);
  if (now > 0 && now < kWide) fcntl(STDOUT_FILENO, F_SETPIPE_SZ, kWide);
}

void PrintReport(const VectorPtr& rows, const std::string& format) {
  cli::PrintRows(rows, format,
                 {{"item", "FItemNumber", -6},
                  {"name", "FItemName", -10},
                  {"prop", "FAuxProp", -5},
                  {"need", "FNeedQty", 10},
                  {"stock", "FCurrentQty", 9},
                  {"on order", "FMovingQty", 9},
                  {"in prod", "FProducingQty", 9},
                  {"issued", "FProducQty", 9},
                  {"suggest", "FQty", 10},
                  {"supplr", "FSupplyNumber", -6},
                  {"class", "FItemProp", -10},
                  {"needed on", "FDate", -10}});
}

VectorPtr RunMrp(const MrpOptions& o, const Host& host) {
  MrpDataInfo info(host);
  if (!o.peg) {
    const VectorPtr rows = info.GetMrpReportFor(o.dsn, o.report);
    for (const auto& m : host.messages->messages()) std::cerr << m << "\n";
    PrintReport(rows, o.format);
    return rows;
  }
  // Each row with the demand lines behind its gross requirement.
  const auto report = info.GetMrpReportPeggedFor(o.dsn, o.report);
  for (const auto& m : host.messages->messages()) std::cerr << m << "\n";
  if (o.format == "table") {
    for (int32_t i = 1; i <= report.rows->Count(); ++i) {
      auto one = Vector::Create();
      one->Add(report.rows->Item(i));
      if (i == 1) {
        PrintReport(one, "table");
      } else {
        std::ostringstream body;
        auto* old = std::cout.rdbuf(body.rdbuf());
        PrintReport(one, "table");
        std::cout.rdbuf(old);
        const std::string text = body.str();
        std::cout << text.substr(text.find('\n') + 1);
      }
      for (const auto& peg : report.pegging[static_cast<size_t>(i - 1)]->rows()) {
        fmt::print("    <- {} {} line {}: {:.2f}\n", TranTypeName(peg->Get("FTranType").ToLong()),
                   peg->Get("FBillNo").ToText(), peg->Get("FEntryID").ToLong(),
                   peg->Get("FQty").ToDouble());
      }
    }
    return report.rows;
  }
  for (size_t i = 0; i < report.rows->rows().size(); ++i) {
    const VectorPtr& pegs = report.pegging[i];
    if (o.format == "json") {
      report.rows->rows()[i]->Set("FPegging", pegs);
      continue;
    }
    std::string text;
    for (const auto& peg : pegs->rows()) {
      text += (text.empty() ? "" : "; ") + peg->Get("FBillNo").ToText() + "/" +
              peg->Get("FEntryID").ToText() + " " + FormatDouble(peg->Get("FQty").ToDouble());
    }
    report.rows->rows()[i]->Set("FPegging", text);
  }
  PrintReport(report.rows, o.format);
  return report.rows;
}

int RunDemo(const std::string& dsn) {
  auto connection = db::Open(dsn);
  if (!connection->TableExists("t_ICItem")) {
    schema::CreateErpSchema(*connection, false);
    sample::LoadDemoData(*connection);
    fmt::print("created the demo database {}\n", connection->description());
  }
  PrintOpenDemand(*connection);
  connection.reset();
  MrpOptions o;
  o.dsn = dsn;
  o.report.now_stock = o.report.save_stock = o.report.moving = o.report.produc = true;
  o.report.warehouses = "11,12,20";
  o.report.form = 1;  // a planning form: nets from the gross requirement
  fmt::print(
      "\nMRP of the open sales orders and production tasks, all BOM levels, netted\n"
      "against stock in warehouses {}, safety stock, open purchases and issues:\n\n",
      o.report.warehouses);
  const Host host = MakeStandaloneHost(HostConfig::FromEnvironment());
  const VectorPtr report = RunMrp(o, host);
  cli::RunDemoPurchasing(host, dsn, report);
  cli::RunDemoPlans(host, dsn, report);
  return 0;
}

// The size of the arguments ReadArgs will read: a file's as the system
// gives it (0 when it gives none).
size_t ArgsBytes(const std::string& args) {
  if (args.empty() || args[0] != '@') return args.size();
  struct stat st {};
  if (stat(args.c_str() + 1, &st) != 0 || !S_ISREG(st.st_mode)) return 0;
  return static_cast<size_t>(st.st_size);
}

// The text of --args, or of the file it names with a leading @: read
// whole, in one piece (a request of all open demand runs to megabytes).
std::string ReadArgs(const std::string& args) {
  if (args.empty() || args[0] != '@') return args;
  const std::string path = args.substr(1);
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                       &std::fclose);
  std::string text;
  bool read = file != nullptr;
  if (read) {
    struct stat st {};
    if (fstat(fileno(file.get()), &st) == 0 && S_ISREG(st.st_mode)) {
      text.reserve(static_cast<size_t>(st.st_size) + kJsonReadRoom);  // read in place
      text.resize(static_cast<size_t>(st.st_size));
    }
    size_t got = text.empty() ? 0 : std::fread(text.data(), 1, text.size(), file.get());
    text.resize(got);
    // Whatever the size said (a pipe says nothing), read on to the end.
    char chunk[1 << 16];
    while ((got = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) text.append(chunk, got);
    read = !std::ferror(file.get());
  }
  if (!read) ThrowInvalid("cannot read the arguments file " + path);
  return text;
}

// Where a failure becomes the exit code, in one place: 1, with the message
// (and, for our own errors, where they passed through) on standard error.
int Failed(const std::exception& e) {
  std::cerr << "mrpcalc: " << e.what() << "\n";
  if (const auto* ours = dynamic_cast<const Error*>(&e); ours && !ours->context().empty()) {
    std::cerr << ours->context() << "\n";
  }
  return 1;
}

// The same for the commands that answer in JSON: the error object on
// standard output, as their callers read it.
int FailedAsJson(const std::exception& e) {
  const auto* ours = dynamic_cast<const Error*>(&e);
  std::cout << ErrorAnswerText(ours ? ours->number() : -1, e.what()) << "\n";
  return 1;
}

std::vector<Variant> ParseCallArgs(const std::string& text) {
  std::vector<Variant> args;
  if (text.empty()) return args;
  JsonArguments parsed = ReadJsonArguments(text, kJsonSplitFrom, text.capacity() - text.size());
  if (!parsed.is_array) ThrowInvalid("--args must be a JSON array of the arguments after sDsn");
  return std::move(parsed.values);
}

// One call; its answer (or error object) in JSON on standard output.
int RunCall(const std::string& prog_id, const std::string& method, const std::string& dsn,
            const std::string& args_text) {
  const HostConfig config = HostConfig::FromEnvironment();
  // A server's login (its driver loaded, a process started for us) goes
  // on while the request is read. Not a file's: opening one takes a
  // millisecond, and would create it before the request is known good.
  auto pool = std::make_shared<ConnectionPool>(OpenOptionsOf(config));
  if (db::NamesServer(dsn)) pool->OpenAhead(dsn);
  const cli::HeapAhead heap(cli::HeapAheadFor(ArgsBytes(args_text)));
  WidenStdoutPipe();
  std::vector<Variant> args = ParseCallArgs(ReadArgs(args_text));
  const Host host = MakeStandaloneHost(config, pool);
  // The arguments and the answer live until the process ends: the system
  // takes the memory back whole, which is much faster than freeing a
  // report of tens of thousands of rows piece by piece just before exit.
  auto* kept = new std::pair<std::vector<Variant>, CallResult>(std::move(args), {});
  kept->second = Invoke(PublicClasses(), host, prog_id, method, kept->first, dsn);
  WriteCallAnswer(kept->second, WriteToStdout);
  std::fputs("\n", stdout);
  std::fflush(stdout);
  return 0;
}

// A script of calls, {"progid", "method", "args"} each, run in order on one
// object per ProgID. Every call runs, whatever came before; the answers
// form one JSON array, each element what `call` prints for it.
int RunCalls(const std::string& dsn, const std::string& script_arg) {
  const Json script = ParseJsonText(ReadArgs(script_arg), "--script");
  if (!script.is_array()) ThrowInvalid("--script must be a JSON array of calls");
  WidenStdoutPipe();
  const Host host = MakeStandaloneHost(HostConfig::FromEnvironment());
  CallSession session(PublicClasses(), host);
  bool failed = false;
  const std::string out = RunCallScript(session, script, dsn, failed);
  std::fwrite(out.data(), 1, out.size(), stdout);
  return failed ? 1 : 0;
}

int RunMethods() {
  for (const auto& cls : PublicClasses().classes()) {
    fmt::print("{}\n", cls.prog_id);
    for (const auto& m : cls.methods) fmt::print("  {}\n", m.Signature());
  }
  return 0;
}



// A command of the table below: its place in the parser, what it does once
// parsed, and how its failures are told.
struct Command {
  CLI::App* app;
  std::function<int()> run;
  // Failures print the error object on standard output, as the callers of
  // the JSON commands read it; others print the message on standard error.
  bool answers_json = false;
};

// Where a command's failure becomes its exit code: in one place.
int RunCommand(const Command& command) {
  try {
    return command.run();
  } catch (const std::exception& e) {
    return command.answers_json ? FailedAsJson(e) : Failed(e);
  }
}

// What the commands' options are read into.
struct Options {
  std::string dsn, out_file;
  bool demo = false, replace = false;
  std::string demo_dsn = "sqlite:mrpcalc-demo.db";
  std::string prog_id, method, args, script;
  MrpOptions mrp;
  cli::DemandOptions demand;
  cli::ConfirmOptions confirm;
  std::string lines_file, orders_date, order_ids, orders_format = "table";
  int biller = 1;
  cli::ScopeOptions scope;
  cli::PlanOptions plan;
  cli::PhasedOptions phased;
  std::string bind = "127.0.0.1";
  int port = 8080;
  size_t max_body = 16u << 20;
  std::string token;
  int token_user = 0;
  double scale = 1.0;
  int repeat = 3, bench_form = 1;
  std::string request_out;
  int http_clients = 8, http_requests = 100;
};

using Commands = std::vector<Command>;

Host StandaloneHost() { return MakeStandaloneHost(HostConfig::FromEnvironment()); }

CLI::Option* AddDsn(CLI::App* app, std::string& dsn, const char* what = "the database") {
  return app->add_option("--dsn", dsn, what)->required();
}

void AddSetup(CLI::App& app, Options& o, Commands& commands) {
  auto* init = app.add_subcommand("init", "create the ERP tables (and demo data) in a database");
  AddDsn(init, o.dsn, "sqlite:PATH or odbc:CONNECTION-STRING");
  init->add_flag("--demo", o.demo, "fill the new tables with the demo manufacturer");
  init->add_flag("--replace", o.replace, "drop existing ERP tables first");
  commands.push_back({init, [&o] { return RunInit(o.dsn, o.demo, o.replace); }});

  auto* upgrade = app.add_subcommand(
      "upgrade", "create mrpcalc's own tables in a database made before them (the ERP's own)");
  AddDsn(upgrade, o.dsn, "sqlite:PATH or odbc:CONNECTION-STRING");
  commands.push_back({upgrade, [&o] { return RunUpgrade(o.dsn); }});

  auto* demo =
      app.add_subcommand("demo", "create the demo database if needed and plan its open demand");
  demo->add_option("--dsn", o.demo_dsn, "database to use")->capture_default_str();
  commands.push_back({demo, [&o] { return RunDemo(o.demo_dsn); }});
}

void AddCalls(CLI::App& app, Options& o, Commands& commands) {
  auto* call = app.add_subcommand("call", "call a method of a public class (prints JSON)");
  call->add_option("PROGID", o.prog_id, "e.g. ZUVMMrpCalculate.MrpDataInfo")->required();
  call->add_option("METHOD", o.method, "method name")->required();
  call->add_option("--dsn", o.dsn, "the database, given as the method's sDsn");
  call->add_option("--args", o.args, "JSON array of the arguments after sDsn, or @FILE holding it");
  commands.push_back({call, [&o] { return RunCall(o.prog_id, o.method, o.dsn, o.args); }, true});

  auto* calls = app.add_subcommand(
      "calls", "run a JSON script of calls in one process, one object per ProgID (prints JSON)");
  calls->add_option("--dsn", o.dsn, "the database, given as each method's sDsn");
  calls
      ->add_option("--script", o.script,
                   "JSON array of {\"progid\", \"method\", \"args\"}, or @FILE holding it")
      ->required();
  commands.push_back({calls, [&o] { return RunCalls(o.dsn, o.script); }, true});

  auto* methods = app.add_subcommand("methods", "list every public class and method");
  commands.push_back({methods, [] { return RunMethods(); }});
}

void AddMrp(CLI::App& app, Options& o, Commands& commands) {
  MrpOptions& mrp = o.mrp;
  auto* cmd = app.add_subcommand("mrp", "run the MRP report on chosen sales orders and tasks");
  AddDsn(cmd, mrp.dsn, "sqlite:PATH or odbc:CONNECTION-STRING");
  cmd->add_option("--bills", mrp.report.bills, "sales order and task numbers (default: all open)")
      ->delimiter(',');
  cmd->add_option("--sub-id", mrp.report.sub_id, "task bills: SC production, WW outsourcing")
      ->check(CLI::IsMember({"SC", "WW"}))
      ->capture_default_str();
  cmd->add_flag("--single-level", mrp.report.single_level, "explode one BOM level only");
  cmd->add_flag("--now-stock", mrp.report.now_stock, "subtract stock on hand");
  cmd->add_flag("--save-stock", mrp.report.save_stock, "add safety stock");
  cmd->add_flag("--moving", mrp.report.moving, "subtract open purchase orders");
  cmd->add_flag("--unsale", mrp.report.unsale, "add open sales orders");
  cmd->add_flag("--producing", mrp.report.producing, "add production in progress");
  cmd->add_flag("--produc", mrp.report.produc, "subtract quantities already issued to the tasks");
  cmd->add_flag("--mid-stock", mrp.report.mid_stock, "subtract stock of made parts");
  cmd->add_flag("--virtual", mrp.report.virtual_stock, "count virtual warehouses as stock");
  cmd->add_option("--warehouses", mrp.report.warehouses,
                  "warehouse ids whose stock counts, e.g. 11,12");
  cmd->add_option("--user", mrp.report.user, "the planner's user id (supplier rights)")
      ->capture_default_str();
  cmd->add_option("--form", mrp.report.form,
                  "form kind; 0 suggests suppliers and starts netting from 0")
      ->capture_default_str();
  cmd->add_option("--format", mrp.format, "table, csv, json or xlsx")
      ->check(CLI::IsMember({"table", "csv", "json", "xlsx"}))
      ->capture_default_str();
  cmd->add_flag("--peg", mrp.peg, "show each row's demand lines (pegging)");
  cmd->add_option("--out", o.out_file, "write the rows to this file (csv, json, xlsx)");
  commands.push_back({cmd, [&o] {
                        RunMrp(o.mrp, StandaloneHost());
                        return 0;
                      }});
}

// The demand and netting choices the report and the time-phased plan share.
void AddDemandChoices(CLI::App* cmd, mrp::ReportRequest& r) {
  cmd->add_option("--bills", r.bills, "sales order and task numbers (default: all open)")
      ->delimiter(',');
  cmd->add_option("--sub-id", r.sub_id, "task bills: SC production, WW outsourcing")
      ->check(CLI::IsMember({"SC", "WW"}))
      ->capture_default_str();
  cmd->add_flag("--now-stock", r.now_stock, "subtract stock on hand");
  cmd->add_flag("--save-stock", r.save_stock, "add safety stock");
  cmd->add_flag("--moving", r.moving, "subtract open purchase orders");
  cmd->add_flag("--producing", r.producing, "add production in progress");
  cmd->add_flag("--virtual", r.virtual_stock, "count virtual warehouses as stock");
  cmd->add_option("--warehouses", r.warehouses, "warehouse ids whose stock counts, e.g. 11,12");
  cmd->add_option("--user", r.user, "the planner's user id (supplier rights)")
      ->capture_default_str();
}

void AddPhased(CLI::App& app, Options& o, Commands& commands) {
  cli::PhasedOptions& ph = o.phased;
  const auto formats = CLI::IsMember({"table", "csv", "json", "xlsx"});
  auto* cmd = app.add_subcommand(
      "phased", "time-phased plan: when to order, with lead times, lot rules and safety stock");
  cmd->require_subcommand(0, 1);
  cmd->add_option("--dsn", ph.dsn, "sqlite:PATH or odbc:CONNECTION-STRING");
  AddDemandChoices(cmd, ph.report);
  // Stock, open orders and open tasks count unless the planner says otherwise.
  ph.report.now_stock = ph.report.moving = ph.report.producing = true;
  cmd->add_flag("!--no-stock", ph.report.now_stock, "leave stock on hand out");
  cmd->add_flag("!--no-orders", ph.report.moving, "leave open purchase orders out");
  cmd->add_flag("!--no-tasks", ph.report.producing, "leave open production tasks out");
  cmd->add_option("--today", ph.today, "plan as of this day (YYYY-MM-DD; default today)");
  cmd->add_option("--bucket", ph.bucket, "the record by day, week or month instead of the orders")
      ->check(CLI::IsMember({"day", "week", "month"}));
  cmd->add_option("--item", ph.item, "with --bucket: this item's record only");
  cmd->add_flag("--actions", ph.actions, "the action messages for open supply");
  cmd->add_flag("--save", ph.save, "keep the run, to compare with later ones");
  cmd->add_option("--format", ph.format, "table, csv, json or xlsx")->check(formats);
  cmd->add_option("--out", o.out_file, "write the rows to this file (csv, json, xlsx)");
  auto needs_dsn = [&ph] {
    if (ph.dsn.empty()) ThrowInvalid("--dsn is required");
  };
  commands.push_back({cmd, [&o, needs_dsn] {
                        needs_dsn();
                        return cli::RunPhased(StandaloneHost(), o.phased);
                      }});

  auto* runs = cmd->add_subcommand("runs", "the saved runs, newest first");
  auto* diff = cmd->add_subcommand("diff", "what changed in the planned orders between two runs");
  diff->add_option("RUN1", ph.before, "the earlier run")->required();
  diff->add_option("RUN2", ph.after, "the later run")->required();
  auto* param = cmd->add_subcommand("param", "planning parameters per item (and supplier)");
  param->require_subcommand(1);
  auto* set = param->add_subcommand("set", "set an item's parameters (the others become 0)");
  auto* list = param->add_subcommand("list", "the parameters set, of every item or one");
  auto* remove = param->add_subcommand("delete", "delete an item's parameters");
  auto* calendar = cmd->add_subcommand("calendar", "show or change the working calendar");
  for (CLI::App* sub : {runs, diff, set, list, remove, calendar}) {
    sub->add_option("--dsn", ph.dsn, "sqlite:PATH or odbc:CONNECTION-STRING");
    sub->add_option("--format", ph.format, "table, csv or json")->check(formats);
  }
  set->add_option("--item", ph.item, "the item's code")->required();
  remove->add_option("--item", ph.item, "the item's code")->required();
  list->add_option("--item", ph.item, "the item's code");
  for (CLI::App* sub : {set, remove}) {
    sub->add_option("--supplier", ph.supplier, "for this supplier only (its code)");
  }
  auto& p = ph.parameters;
  set->add_option("--lead-time", p.lead_time, "purchase lead time, working days");
  set->add_option("--make-time", p.production_lead_time, "production lead time, working days");
  set->add_option("--make-time-per-unit", p.production_lead_per_unit, "working days per unit made");
  set->add_option("--safety", p.safety_qty, "safety stock");
  set->add_option("--safety-days", p.safety_days, "safety stock as days of average need");
  set->add_option("--min", p.min_qty, "minimum order quantity");
  set->add_option("--multiple", p.multiple, "order in multiples of this");
  set->add_option("--max", p.max_qty, "maximum order quantity (larger orders are split)");
  set->add_option("--period", p.order_period, "days of need grouped into one order");
  set->add_option("--fence", p.firm_fence, "firm time fence, working days");
  calendar->add_option("--holiday", ph.holidays, "make these days holidays (YYYY-MM-DD)");
  calendar->add_option("--working", ph.not_holidays, "make these holidays working days again");
  calendar->add_option("--weekday", ph.weekdays, "DAY=1 working, DAY=0 not (1 Monday .. 7)");
  auto with_dsn = [needs_dsn](std::function<int()> run) {
    return [needs_dsn, run] {
      needs_dsn();
      return run();
    };
  };
  commands.push_back({runs, with_dsn([&ph] { return cli::RunPhasedRuns(ph); })});
  commands.push_back({diff, with_dsn([&ph] { return cli::RunPhasedDiff(ph); })});
  commands.push_back({set, with_dsn([&ph] { return cli::RunPhasedParamSet(ph); })});
  commands.push_back({list, with_dsn([&ph] { return cli::RunPhasedParamList(ph); })});
  commands.push_back({remove, with_dsn([&ph] { return cli::RunPhasedParamDelete(ph); })});
  commands.push_back({calendar, with_dsn([&ph] { return cli::RunPhasedCalendar(ph); })});
}

void AddBuyer(CLI::App& app, Options& o, Commands& commands) {
  const auto formats = CLI::IsMember({"table", "csv", "json", "xlsx"});
  cli::DemandOptions& demand = o.demand;
  auto* demand_cmd =
      app.add_subcommand("demand", "list open demand with its stock (GetSelectData)");
  AddDsn(demand_cmd, demand.dsn, "sqlite:PATH or odbc:CONNECTION-STRING");
  demand_cmd
      ->add_option("--bills", demand.bills, "sales order and task numbers (default: all open)")
      ->delimiter(',');
  demand_cmd->add_option("--warehouses", demand.warehouses, "warehouse ids whose stock counts");
  demand_cmd->add_flag("--net", demand.net, "net the open quantities against that stock");
  demand_cmd->add_flag("--virtual-only", demand.virtual_only,
                       "net against the virtual warehouses only");
  demand_cmd->add_option("--format", demand.format, "table, csv or json")
      ->check(formats)
      ->capture_default_str();
  commands.push_back({demand_cmd, [&o] { return cli::RunDemand(StandaloneHost(), o.demand); }});

  cli::ConfirmOptions& confirm = o.confirm;
  auto* confirm_cmd =
      app.add_subcommand("confirm", "price an MRP result's lines to buy (GetMrpConfirmData)");
  AddDsn(confirm_cmd, confirm.dsn);
  confirm_cmd->add_option("--report", confirm.report, "a report file from `mrp --format json`")
      ->required();
  confirm_cmd->add_option("--supplier", confirm.suppliers,
                          "ITEMNUMBER=SUPPLIERCODE, for lines without or with another supplier");
  confirm_cmd->add_option("--out", o.out_file, "write the rows to this file (csv, json, xlsx)");
  confirm_cmd->add_option("--format", confirm.format, "table, csv, json or xlsx")
      ->check(formats)
      ->capture_default_str();
  commands.push_back({confirm_cmd, [&o] { return cli::RunConfirm(StandaloneHost(), o.confirm); }});

  auto* credit_cmd =
      app.add_subcommand("credit", "check suppliers' credit limits (CheckCreditDegrees)");
  AddDsn(credit_cmd, o.dsn);
  credit_cmd->add_option("--lines", o.lines_file, "purchase lines from `confirm --format json`")
      ->required();
  commands.push_back(
      {credit_cmd, [&o] { return cli::RunCredit(StandaloneHost(), o.dsn, o.lines_file); }});

  auto* orders_cmd = app.add_subcommand("orders", "make or list purchase orders");
  orders_cmd->require_subcommand(1);
  auto* make = orders_cmd->add_subcommand("make", "one order per supplier (MakePOOrderBill)");
  AddDsn(make, o.dsn);
  make->add_option("--lines", o.lines_file, "purchase lines from `confirm --format json`")
      ->required();
  make->add_option("--biller", o.biller, "user id of the buyer")->capture_default_str();
  make->add_option("--date", o.orders_date, "order date, YYYY-MM-DD (default: today)");
  make->add_option("--format", o.orders_format, "table, csv or json")->check(formats);
  commands.push_back({make, [&o] {
                        return cli::RunMakeOrders(StandaloneHost(), o.dsn, o.lines_file, o.biller,
                                                  o.orders_date, o.orders_format);
                      }});
  auto* list = orders_cmd->add_subcommand("list", "purchase-order lines, or chosen orders");
  AddDsn(list, o.dsn);
  list->add_option("--ids", o.order_ids, "interior ids, e.g. 4,5 (default: every line)");
  list->add_option("--format", o.orders_format, "table, csv or json")->check(formats);
  commands.push_back({list, [&o] {
                        return cli::RunListOrders(StandaloneHost(), o.dsn, o.order_ids,
                                                  o.orders_format);
                      }});

  cli::ScopeOptions& scope = o.scope;
  auto* scope_cmd = app.add_subcommand("scope", "show or change a user's stock scope");
  scope_cmd->require_subcommand(1);
  auto* show = scope_cmd->add_subcommand("show", "the stored scope (GetStockInfo)");
  auto* set = scope_cmd->add_subcommand("set", "store a scope (UpdateStockInfo)");
  for (auto* sub : {show, set}) {
    AddDsn(sub, scope.dsn);
    sub->add_option("--user", scope.user, "user id")->capture_default_str();
    sub->add_option("--form-type", scope.form_type, "form type")->capture_default_str();
    sub->add_option("--sub-id", scope.sub_id, "form or scheme sub-id");
    sub->add_option("--format", scope.format, "table, csv or json")->check(formats);
  }
  set->add_option("--warehouses", scope.warehouses, "warehouse ids; a group stands for its own")
      ->required();
  set->add_flag("--virtual", scope.with_virtual, "add the virtual warehouses");
  commands.push_back({show, [&o] { return cli::RunScopeShow(StandaloneHost(), o.scope); }});
  commands.push_back({set, [&o] { return cli::RunScopeSet(StandaloneHost(), o.scope); }});
}

void AddPlans(CLI::App& app, Options& o, Commands& commands) {
  const auto formats = CLI::IsMember({"table", "csv", "json", "xlsx"});
  cli::PlanOptions& plan = o.plan;
  auto* cmd = app.add_subcommand("plan", "purchase plans: save, list, push, close, reopen, delete");
  cmd->require_subcommand(1);
  auto* save = cmd->add_subcommand("save", "save an MRP result as a plan (UpdatePurchasePlan)");
  auto* list = cmd->add_subcommand("list", "plan lines with the report's filters (GetRptData)");
  auto* push = cmd->add_subcommand("push", "push plan lines into purchase orders (PushBill)");
  auto* close = cmd->add_subcommand("close", "close plan lines by hand (ClosePurchasePlan)");
  auto* reopen =
      cmd->add_subcommand("reopen", "reopen lines closed by hand (UnClosePurchasePlan)");
  auto* remove = cmd->add_subcommand("delete", "delete plans (DeletePurchasePlan)");
  for (auto* sub : {save, list, push, close, reopen, remove}) {
    AddDsn(sub, plan.dsn);
    sub->add_option("--user", plan.user, "the user id (saves, rights, the buyer of pushed orders)")
        ->capture_default_str();
    sub->add_option("--format", plan.format, "table, csv or json")->check(formats);
  }
  save->add_option("--report", plan.report, "a report file from `mrp --format json`")->required();
  save->add_option("--supplier", plan.suppliers, "ITEMNUMBER=SUPPLIERCODE");
  save->add_option("--bills", plan.bills, "the source documents (default: every open one)")
      ->delimiter(',');
  list->add_option("--out", o.out_file, "write the rows to this file (csv, json, xlsx)");
  list->add_option("--plan", plan.bill_no, "one plan's number; the filters are then ignored");
  list->add_option("--from", plan.from, "plans dated from YYYY-MM-DD");
  list->add_option("--to", plan.to, "plans dated up to YYYY-MM-DD");
  list->add_option("--first-item", plan.first_item, "item codes from");
  list->add_option("--last-item", plan.last_item, "item codes up to");
  list->add_option("--first-plan", plan.first_bill, "plan numbers from");
  list->add_option("--last-plan", plan.last_bill, "plan numbers up to");
  list->add_flag("--open", plan.open_only, "open lines only");
  for (auto* sub : {push, close, reopen}) {
    sub->add_option("--lines", plan.lines, "plan lines as PLAN_LINE, e.g. 1000_1,1000_2")
        ->delimiter(',')
        ->required();
  }
  push->add_option("--date", plan.date, "order date, YYYY-MM-DD (default: today)");
  remove->add_option("--plans", plan.plans, "plan numbers")->delimiter(',')->required();
  commands.push_back({save, [&o] { return cli::RunPlanSave(StandaloneHost(), o.plan); }});
  commands.push_back({list, [&o] { return cli::RunPlanList(StandaloneHost(), o.plan); }});
  commands.push_back({push, [&o] { return cli::RunPlanPush(StandaloneHost(), o.plan); }});
  commands.push_back({close, [&o] { return cli::RunPlanClose(StandaloneHost(), o.plan, false); }});
  commands.push_back({reopen, [&o] { return cli::RunPlanClose(StandaloneHost(), o.plan, true); }});
  commands.push_back({remove, [&o] { return cli::RunPlanDelete(StandaloneHost(), o.plan); }});
}

// The service and its tokens run in mrpcalc-web (see cli/web_main.cpp).
void AddService(CLI::App& app, Options& o, Commands& commands) {
  auto* serve = app.add_subcommand("serve", "the HTTP service and the planner's web workbench");
  AddDsn(serve, o.dsn, "the database every request works on");
  serve->add_option("--bind", o.bind, "address to listen on")->capture_default_str();
  serve->add_option("--port", o.port, "port (0: any free port)")->capture_default_str();
  serve->add_option("--max-body", o.max_body, "largest request body in bytes (413 above)")
      ->capture_default_str();
  commands.push_back({serve, [&o] {
                        return cli::RunWebProgram({"serve", o.dsn, o.bind, std::to_string(o.port),
                                                   std::to_string(o.max_body)},
                                                  true);
                      }});

  auto* token = app.add_subcommand("token", "sign-in tokens of the HTTP service");
  token->require_subcommand(1);
  auto* create = token->add_subcommand("create", "make a token for a user (shown once)");
  AddDsn(create, o.dsn);
  create->add_option("--user", o.token_user, "the ERP user id it signs in")->required();
  commands.push_back({create, [&o] {
                        return cli::RunWebProgram(
                            {"token-create", o.dsn, std::to_string(o.token_user)});
                      }});
  auto* revoke = token->add_subcommand("revoke", "revoke a token, or every token of a user");
  AddDsn(revoke, o.dsn);
  auto* one = revoke->add_option("--token", o.token, "the token");
  auto* of_user = revoke->add_option("--user", o.token_user, "every token of this user");
  one->excludes(of_user);
  commands.push_back({revoke, [&o, one, of_user] {
                        if (one->count() == 0 && of_user->count() == 0) {
                          ThrowInvalid("give --token TOKEN or --user USERID");
                        }
                        if (one->count()) return cli::RunWebProgram({"token-revoke", o.dsn, o.token});
                        return cli::RunWebProgram(
                            {"token-revoke-user", o.dsn, std::to_string(o.token_user)});
                      }});
}

void AddBench(CLI::App& app, Options& o, Commands& commands) {
  auto* bench = app.add_subcommand("bench", "benchmark the MRP report on synthetic data");
  bench->require_subcommand(1);
  auto* generate = bench->add_subcommand("generate", "create a synthetic ERP database");
  AddDsn(generate, o.dsn, "database to (re)create");
  generate->add_option("--scale", o.scale, "1 = 10,000 items, 2,000 bills, 2,500 demand lines")
      ->capture_default_str();
  commands.push_back({generate, [&o] { return cli::RunBenchGenerate(o.dsn, o.scale); }});

  auto* request =
      bench->add_subcommand("request", "write the benchmark's GetMrpReportData arguments");
  AddDsn(request, o.dsn, "a generated database");
  request->add_option("--out", o.request_out, "the JSON file to write")->required();
  request->add_option("--form", o.bench_form, "form kind; 0 also suggests suppliers")
      ->capture_default_str();
  commands.push_back(
      {request, [&o] { return cli::RunBenchRequest(o.dsn, o.request_out, o.bench_form); }});

  auto* run = bench->add_subcommand("run", "time GetMrpReportData on all open demand");
  AddDsn(run, o.dsn, "a generated database");
  run->add_option("--repeat", o.repeat, "runs")->capture_default_str();
  run->add_option("--form", o.bench_form, "form kind; 0 also suggests suppliers")
      ->capture_default_str();
  commands.push_back({run, [&o] { return cli::RunBench(o.dsn, o.repeat, o.bench_form); }});

  auto* http = bench->add_subcommand("http", "load the HTTP service with concurrent report calls");
  AddDsn(http, o.dsn, "the database to serve");
  http->add_option("--clients", o.http_clients, "concurrent clients")->capture_default_str();
  http->add_option("--requests", o.http_requests, "report calls per client")
      ->capture_default_str();
  commands.push_back({http, [&o] {
                        return cli::RunWebProgram({"bench-http", o.dsn,
                                                   std::to_string(o.http_clients),
                                                   std::to_string(o.http_requests)});
                      }});
}

}  // namespace

int main(int argc, char** argv) {
  // A report allocates and frees tens of megabytes. Keep freed memory in the
  // process for the next call instead of handing it back to the system after
  // each one: fresh pages are what a call costs most on virtual machines.
  mallopt(M_MMAP_THRESHOLD, 64 << 20);
  mallopt(M_TRIM_THRESHOLD, 256 << 20);
  CLI::App app{"mrpcalc: MRP and purchase planning on the ERP database"};
  app.require_subcommand(1);
  Options options;
  Commands commands;
  for (auto add : {AddSetup, AddCalls, AddMrp, AddPhased, AddBuyer, AddPlans, AddService, AddBench}) {
    add(app, options, commands);
  }
  CLI11_PARSE(app, argc, argv);
  cli::SetOutputFile(options.out_file);
  // A command with subcommands runs only when none of them was chosen.
  for (auto it = commands.rbegin(); it != commands.rend(); ++it) {
    if (it->app->parsed()) return RunCommand(*it);
  }
  return 0;
}
