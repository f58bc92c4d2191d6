// mrpcalc: the command-line program. All argument parsing lives in this one
// file (CLI11 is slow to compile); each command hands over to a library.
#include <fcntl.h>
#include <fmt/core.h>
#include <malloc.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>

#include "cli/buyer.h"
#include "cli/heap_ahead.h"
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
#include "sample/synthetic.h"
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
  auto connection = db::Open(o.dsn);
  const auto [lines, filter] = mrp::ArgumentsOf(*connection, o.report);
  connection.reset();
  if (lines->Count() == 0) ThrowInvalid("no open demand matches the bills given");
  const mrp::ReportRequest& r = o.report;
  MrpDataInfo info(host);
  if (!o.peg) {
    const VectorPtr rows =
        info.GetMrpReportData(o.dsn, lines, filter, r.warehouses, r.user, r.form);
    for (const auto& m : host.messages->messages()) std::cerr << m << "\n";
    PrintReport(rows, o.format);
    return rows;
  }
  // Each row with the demand lines behind its gross requirement.
  const auto report = info.GetMrpReportPegged(o.dsn, lines, filter, r.warehouses, r.user, r.form);
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

int RunBenchGenerate(const std::string& dsn, double scale) {
  auto connection = db::Open(dsn);
  schema::CreateErpSchema(*connection, true);
  sample::GenerateSynthetic(*connection, scale);
  fmt::print("generated a synthetic ERP database at scale {} in {}\n", scale,
             connection->description());
  return 0;
}

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
  auto connection = db::Open(dsn);
  mrp::ReportRequest request = mrp::BenchReportRequest();
  request.form = form;
  auto [lines, filter] = mrp::ArgumentsOf(*connection, request);
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

int RunBenchRequest(const std::string& dsn, const std::string& path, int form) {
  const BenchRequest r = MakeBenchRequest(dsn, form);
  WriteBenchRequest(r, path);
  fmt::print("wrote {} demand lines to {}\n", r.lines->Count(), path);
  return 0;
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

// Exit codes and the JSON shape of answers are decided here, at the edge.
int RunCall(const std::string& prog_id, const std::string& method, const std::string& dsn,
            const std::string& args_text) {
  try {
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
  } catch (const std::exception& e) {
    return FailedAsJson(e);
  }
}

// A script of calls, {"progid", "method", "args"} each, run in order on one
// object per ProgID. Every call runs, whatever came before; the answers
// form one JSON array, each element what `call` prints for it.
int RunCalls(const std::string& dsn, const std::string& script_arg) {
  try {
    const Json script = ParseJsonText(ReadArgs(script_arg), "--script");
    if (!script.is_array()) ThrowInvalid("--script must be a JSON array of calls");
    WidenStdoutPipe();
    const Host host = MakeStandaloneHost(HostConfig::FromEnvironment());
    CallSession session(PublicClasses(), host);
    bool failed = false;
    const std::string out = RunCallScript(session, script, dsn, failed);
    std::fwrite(out.data(), 1, out.size(), stdout);
    return failed ? 1 : 0;
  } catch (const std::exception& e) {
    return FailedAsJson(e);
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
  // A report allocates and frees tens of megabytes. Keep freed memory in the
  // process for the next call instead of handing it back to the system after
  // each one: fresh pages are what a call costs most on virtual machines.
  mallopt(M_MMAP_THRESHOLD, 64 << 20);
  mallopt(M_TRIM_THRESHOLD, 256 << 20);
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
  auto* demo_cmd =
      app.add_subcommand("demo", "create the demo database if needed and plan its open demand");
  demo_cmd->add_option("--dsn", demo_dsn, "database to use")->capture_default_str();

  std::string prog_id, method, call_dsn, call_args;
  auto* call = app.add_subcommand("call", "call a method of a public class (prints JSON)");
  call->add_option("PROGID", prog_id, "e.g. ZUVMMrpCalculate.MrpDataInfo")->required();
  call->add_option("METHOD", method, "method name")->required();
  call->add_option("--dsn", call_dsn, "the database, given as the method's sDsn");
  call->add_option("--args", call_args,
                   "JSON array of the arguments after sDsn, or @FILE holding it");

  std::string calls_dsn, calls_script;
  auto* calls = app.add_subcommand(
      "calls", "run a JSON script of calls in one process, one object per ProgID (prints JSON)");
  calls->add_option("--dsn", calls_dsn, "the database, given as each method's sDsn");
  calls
      ->add_option("--script", calls_script,
                   "JSON array of {\"progid\", \"method\", \"args\"}, or @FILE holding it")
      ->required();

  auto* methods = app.add_subcommand("methods", "list every public class and method");

  MrpOptions mrp;
  auto* mrp_cmd = app.add_subcommand("mrp", "run the MRP report on chosen sales orders and tasks");
  mrp_cmd->add_option("--dsn", mrp.dsn, "sqlite:PATH or odbc:CONNECTION-STRING")->required();
  mrp_cmd->add_option("--bills", mrp.report.bills, "sales order and task numbers (default: all open)")
      ->delimiter(',');
  mrp_cmd->add_option("--sub-id", mrp.report.sub_id, "task bills: SC production, WW outsourcing")
      ->check(CLI::IsMember({"SC", "WW"}))
      ->capture_default_str();
  mrp_cmd->add_flag("--single-level", mrp.report.single_level, "explode one BOM level only");
  mrp_cmd->add_flag("--now-stock", mrp.report.now_stock, "subtract stock on hand");
  mrp_cmd->add_flag("--save-stock", mrp.report.save_stock, "add safety stock");
  mrp_cmd->add_flag("--moving", mrp.report.moving, "subtract open purchase orders");
  mrp_cmd->add_flag("--unsale", mrp.report.unsale, "add open sales orders");
  mrp_cmd->add_flag("--producing", mrp.report.producing, "add production in progress");
  mrp_cmd->add_flag("--produc", mrp.report.produc, "subtract quantities already issued to the tasks");
  mrp_cmd->add_flag("--mid-stock", mrp.report.mid_stock, "subtract stock of made parts");
  mrp_cmd->add_flag("--virtual", mrp.report.virtual_stock, "count virtual warehouses as stock");
  mrp_cmd->add_option("--warehouses", mrp.report.warehouses,
                      "warehouse ids whose stock counts, e.g. 11,12");
  mrp_cmd->add_option("--user", mrp.report.user, "the planner's user id (supplier rights)")
      ->capture_default_str();
  mrp_cmd
      ->add_option("--form", mrp.report.form, "form kind; 0 suggests suppliers and starts netting from 0")
      ->capture_default_str();
  mrp_cmd->add_option("--format", mrp.format, "table, csv, json or xlsx")
      ->check(CLI::IsMember({"table", "csv", "json", "xlsx"}))
      ->capture_default_str();
  mrp_cmd->add_flag("--peg", mrp.peg, "show each row's demand lines (pegging)");
  std::string out_file;
  mrp_cmd->add_option("--out", out_file, "write the rows to this file (csv, json, xlsx)");

  // The buyer's commands.
  const auto formats = CLI::IsMember({"table", "csv", "json", "xlsx"});
  cli::DemandOptions demand;
  auto* demand_cmd =
      app.add_subcommand("demand", "list open demand with its stock (GetSelectData)");
  demand_cmd->add_option("--dsn", demand.dsn, "sqlite:PATH or odbc:CONNECTION-STRING")->required();
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

  cli::ConfirmOptions confirm;
  auto* confirm_cmd =
      app.add_subcommand("confirm", "price an MRP result's lines to buy (GetMrpConfirmData)");
  confirm_cmd->add_option("--dsn", confirm.dsn, "the database")->required();
  confirm_cmd->add_option("--report", confirm.report, "a report file from `mrp --format json`")
      ->required();
  confirm_cmd->add_option("--supplier", confirm.suppliers,
                          "ITEMNUMBER=SUPPLIERCODE, for lines without or with another supplier");
  confirm_cmd->add_option("--out", out_file, "write the rows to this file (csv, json, xlsx)");
  confirm_cmd->add_option("--format", confirm.format, "table, csv, json or xlsx")
      ->check(formats)
      ->capture_default_str();

  std::string buy_dsn, lines_file, orders_date, order_ids, orders_format = "table";
  int biller = 1;
  auto* credit_cmd =
      app.add_subcommand("credit", "check suppliers' credit limits (CheckCreditDegrees)");
  credit_cmd->add_option("--dsn", buy_dsn, "the database")->required();
  credit_cmd->add_option("--lines", lines_file, "purchase lines from `confirm --format json`")
      ->required();
  auto* orders_cmd = app.add_subcommand("orders", "make or list purchase orders");
  orders_cmd->require_subcommand(1);
  auto* orders_make =
      orders_cmd->add_subcommand("make", "one order per supplier (MakePOOrderBill)");
  orders_make->add_option("--dsn", buy_dsn, "the database")->required();
  orders_make->add_option("--lines", lines_file, "purchase lines from `confirm --format json`")
      ->required();
  orders_make->add_option("--biller", biller, "user id of the buyer")->capture_default_str();
  orders_make->add_option("--date", orders_date, "order date, YYYY-MM-DD (default: today)");
  orders_make->add_option("--format", orders_format, "table, csv or json")->check(formats);
  auto* orders_list = orders_cmd->add_subcommand("list", "purchase-order lines, or chosen orders");
  orders_list->add_option("--dsn", buy_dsn, "the database")->required();
  orders_list->add_option("--ids", order_ids, "interior ids, e.g. 4,5 (default: every line)");
  orders_list->add_option("--format", orders_format, "table, csv or json")->check(formats);

  cli::ScopeOptions scope;
  auto* scope_cmd = app.add_subcommand("scope", "show or change a user's stock scope");
  scope_cmd->require_subcommand(1);
  auto* scope_show = scope_cmd->add_subcommand("show", "the stored scope (GetStockInfo)");
  auto* scope_set = scope_cmd->add_subcommand("set", "store a scope (UpdateStockInfo)");
  for (auto* sub : {scope_show, scope_set}) {
    sub->add_option("--dsn", scope.dsn, "the database")->required();
    sub->add_option("--user", scope.user, "user id")->capture_default_str();
    sub->add_option("--form-type", scope.form_type, "form type")->capture_default_str();
    sub->add_option("--sub-id", scope.sub_id, "form or scheme sub-id");
    sub->add_option("--format", scope.format, "table, csv or json")->check(formats);
  }
  scope_set
      ->add_option("--warehouses", scope.warehouses, "warehouse ids; a group stands for its own")
      ->required();
  scope_set->add_flag("--virtual", scope.with_virtual, "add the virtual warehouses");

  cli::PlanOptions plan;
  auto* plan_cmd =
      app.add_subcommand("plan", "purchase plans: save, list, push, close, reopen, delete");
  plan_cmd->require_subcommand(1);
  auto* plan_save =
      plan_cmd->add_subcommand("save", "save an MRP result as a plan (UpdatePurchasePlan)");
  auto* plan_list =
      plan_cmd->add_subcommand("list", "plan lines with the report's filters (GetRptData)");
  auto* plan_push =
      plan_cmd->add_subcommand("push", "push plan lines into purchase orders (PushBill)");
  auto* plan_close =
      plan_cmd->add_subcommand("close", "close plan lines by hand (ClosePurchasePlan)");
  auto* plan_reopen =
      plan_cmd->add_subcommand("reopen", "reopen lines closed by hand (UnClosePurchasePlan)");
  auto* plan_delete = plan_cmd->add_subcommand("delete", "delete plans (DeletePurchasePlan)");
  for (auto* sub : {plan_save, plan_list, plan_push, plan_close, plan_reopen, plan_delete}) {
    sub->add_option("--dsn", plan.dsn, "the database")->required();
    sub->add_option("--user", plan.user, "the user id (saves, rights, the buyer of pushed orders)")
        ->capture_default_str();
    sub->add_option("--format", plan.format, "table, csv or json")->check(formats);
  }
  plan_save->add_option("--report", plan.report, "a report file from `mrp --format json`")
      ->required();
  plan_save->add_option("--supplier", plan.suppliers, "ITEMNUMBER=SUPPLIERCODE");
  plan_save->add_option("--bills", plan.bills, "the source documents (default: every open one)")
      ->delimiter(',');
  plan_list->add_option("--out", out_file, "write the rows to this file (csv, json, xlsx)");
  plan_list->add_option("--plan", plan.bill_no, "one plan's number; the filters are then ignored");
  plan_list->add_option("--from", plan.from, "plans dated from YYYY-MM-DD");
  plan_list->add_option("--to", plan.to, "plans dated up to YYYY-MM-DD");
  plan_list->add_option("--first-item", plan.first_item, "item codes from");
  plan_list->add_option("--last-item", plan.last_item, "item codes up to");
  plan_list->add_option("--first-plan", plan.first_bill, "plan numbers from");
  plan_list->add_option("--last-plan", plan.last_bill, "plan numbers up to");
  plan_list->add_flag("--open", plan.open_only, "open lines only");
  for (auto* sub : {plan_push, plan_close, plan_reopen}) {
    sub->add_option("--lines", plan.lines, "plan lines as PLAN_LINE, e.g. 1000_1,1000_2")
        ->delimiter(',')
        ->required();
  }
  plan_push->add_option("--date", plan.date, "order date, YYYY-MM-DD (default: today)");
  plan_delete->add_option("--plans", plan.plans, "plan numbers")->delimiter(',')->required();

  struct {
    std::string dsn, bind = "127.0.0.1";
    int port = 8080;
    size_t max_body = 16u << 20;
  } serve;
  auto* serve_cmd = app.add_subcommand("serve", "the HTTP service and the planner's web workbench");
  serve_cmd->add_option("--dsn", serve.dsn, "the database every request works on")->required();
  serve_cmd->add_option("--bind", serve.bind, "address to listen on")->capture_default_str();
  serve_cmd->add_option("--port", serve.port, "port (0: any free port)")->capture_default_str();
  serve_cmd->add_option("--max-body", serve.max_body, "largest request body in bytes (413 above)")
      ->capture_default_str();

  std::string token_dsn, token_text;
  int token_user = 0;
  auto* token_cmd = app.add_subcommand("token", "sign-in tokens of the HTTP service");
  token_cmd->require_subcommand(1);
  auto* token_create = token_cmd->add_subcommand("create", "make a token for a user (shown once)");
  token_create->add_option("--dsn", token_dsn, "the database")->required();
  token_create->add_option("--user", token_user, "the ERP user id it signs in")->required();
  auto* token_revoke =
      token_cmd->add_subcommand("revoke", "revoke a token, or every token of a user");
  token_revoke->add_option("--dsn", token_dsn, "the database")->required();
  auto* revoke_one = token_revoke->add_option("--token", token_text, "the token");
  auto* revoke_user = token_revoke->add_option("--user", token_user, "every token of this user");
  revoke_one->excludes(revoke_user);

  std::string bench_dsn;
  double scale = 1.0;
  int repeat = 3;
  int bench_form = 1;
  auto* bench = app.add_subcommand("bench", "benchmark the MRP report on synthetic data");
  bench->require_subcommand(1);
  auto* generate = bench->add_subcommand("generate", "create a synthetic ERP database");
  generate->add_option("--dsn", bench_dsn, "database to (re)create")->required();
  generate->add_option("--scale", scale, "1 = 10,000 items, 2,000 bills, 2,500 demand lines")
      ->capture_default_str();
  std::string request_out;
  auto* bench_request =
      bench->add_subcommand("request", "write the benchmark's GetMrpReportData arguments");
  bench_request->add_option("--dsn", bench_dsn, "a generated database")->required();
  bench_request->add_option("--out", request_out, "the JSON file to write")->required();
  bench_request->add_option("--form", bench_form, "form kind; 0 also suggests suppliers")
      ->capture_default_str();
  auto* bench_run = bench->add_subcommand("run", "time GetMrpReportData on all open demand");
  bench_run->add_option("--dsn", bench_dsn, "a generated database")->required();
  bench_run->add_option("--repeat", repeat, "runs")->capture_default_str();
  bench_run->add_option("--form", bench_form, "form kind; 0 also suggests suppliers")
      ->capture_default_str();
  int http_clients = 8, http_requests = 100;
  auto* bench_http =
      bench->add_subcommand("http", "load the HTTP service with concurrent report calls");
  bench_http->add_option("--dsn", bench_dsn, "the database to serve")->required();
  bench_http->add_option("--clients", http_clients, "concurrent clients")->capture_default_str();
  bench_http->add_option("--requests", http_requests, "report calls per client")
      ->capture_default_str();

  CLI11_PARSE(app, argc, argv);
  cli::SetOutputFile(out_file);
  if (*bench) {
    try {
      if (*generate) return RunBenchGenerate(bench_dsn, scale);
      if (*bench_request) return RunBenchRequest(bench_dsn, request_out, bench_form);
      if (*bench_http) {
        return cli::RunWebProgram({"bench-http", bench_dsn, std::to_string(http_clients),
                                   std::to_string(http_requests)});
      }
      return RunBench(bench_dsn, repeat, bench_form);
    } catch (const std::exception& e) {
      return Failed(e);
    }
  }
  if (*demand_cmd || *confirm_cmd || *credit_cmd || *orders_cmd || *scope_cmd || *plan_cmd) {
    try {
      const Host host = MakeStandaloneHost(HostConfig::FromEnvironment());
      if (*demand_cmd) return cli::RunDemand(host, demand);
      if (*confirm_cmd) return cli::RunConfirm(host, confirm);
      if (*credit_cmd) return cli::RunCredit(host, buy_dsn, lines_file);
      if (*orders_make)
        return cli::RunMakeOrders(host, buy_dsn, lines_file, biller, orders_date, orders_format);
      if (*orders_list) return cli::RunListOrders(host, buy_dsn, order_ids, orders_format);
      if (*scope_show) return cli::RunScopeShow(host, scope);
      if (*plan_save) return cli::RunPlanSave(host, plan);
      if (*plan_list) return cli::RunPlanList(host, plan);
      if (*plan_push) return cli::RunPlanPush(host, plan);
      if (*plan_close || *plan_reopen) return cli::RunPlanClose(host, plan, plan_reopen->parsed());
      if (*plan_delete) return cli::RunPlanDelete(host, plan);
      return cli::RunScopeSet(host, scope);
    } catch (const std::exception& e) {
      return Failed(e);
    }
  }
  if (*serve_cmd || *token_cmd) {
    try {
      if (*token_create) {
        return cli::RunWebProgram({"token-create", token_dsn, std::to_string(token_user)});
      }
      if (*token_revoke) {
        if (revoke_one->count() == 0 && revoke_user->count() == 0) {
          ThrowInvalid("give --token TOKEN or --user USERID");
        }
        if (revoke_one->count()) return cli::RunWebProgram({"token-revoke", token_dsn, token_text});
        return cli::RunWebProgram({"token-revoke-user", token_dsn, std::to_string(token_user)});
      }
      return cli::RunWebProgram({"serve", serve.dsn, serve.bind, std::to_string(serve.port),
                                 std::to_string(serve.max_body)},
                                true);
    } catch (const std::exception& e) {
      return Failed(e);
    }
  }
  if (*call) return RunCall(prog_id, method, call_dsn, call_args);
  if (*calls) return RunCalls(calls_dsn, calls_script);
  if (*methods) return RunMethods();
  if (*mrp_cmd) {
    try {
      RunMrp(mrp, MakeStandaloneHost(HostConfig::FromEnvironment()));
      return 0;
    } catch (const std::exception& e) {
      return Failed(e);
    }
  }
  try {
    if (*init) return RunInit(dsn, demo, replace);
    if (*demo_cmd) return RunDemo(demo_dsn);
  } catch (const std::exception& e) {
    return Failed(e);
  }
  return 0;
}
