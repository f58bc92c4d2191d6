// The command line, end to end, on a fresh SQLite demo database: the report
// in each format, the automation route giving the same rows, and refusals
// that exit non-zero with a message.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "db/connection.h"
#include "db_fixture.h"
#include "mrp/open_demand.h"
#include "record/date.h"
#include "record/json.h"
#include "sample/demo_data.h"
#include "schema/erp_schema.h"

namespace mrpcalc::testing {
namespace {

struct Outcome {
  int status;
  std::string out;
};

// Runs the command with the shell, standard error joined to the output.
Outcome Cli(const std::string& arguments) {
  const std::string command = std::string(MRPCALC_CLI) + " " + arguments + " 2>&1";
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) throw std::runtime_error("cannot run " + command);
  std::string out;
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, pipe)) > 0) out.append(buf, n);
  const int status = ::pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

// Each test twice: on the demo database `init` makes, and on the demo data
// in tables with exactly the ERP's columns (a buyer's database).
class Command : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    std::replace(name.begin(), name.end(), '/', '-');
    dir_ = std::filesystem::temp_directory_path() /
           ("mrpcalc-cli-" + std::to_string(::getpid()) + "-" + name);
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
    dsn_ = "sqlite:" + (dir_ / "demo.db").string();
    if (GetParam() == "erp") {
      auto c = db::Open(dsn_);
      schema::CreateErpSchema(*c, false, schema::SchemaForm::kErpColumnsOnly);
      sample::LoadDemoData(*c);
    } else {
      const Outcome init = Cli("init --dsn '" + dsn_ + "' --demo");
      ASSERT_EQ(init.status, 0) << init.out;
    }
    // The administrator's step before the first use: on the ERP's own
    // database it creates mrpcalc's tables, on one `init` made there is
    // nothing to do.
    const Outcome upgrade = Cli("upgrade --dsn '" + dsn_ + "'");
    ASSERT_EQ(upgrade.status, 0) << upgrade.out;
    if (GetParam() == "erp") {
      EXPECT_EQ(upgrade.out.rfind("created mrpcalc_InteriorID, mrpcalc_BillNumber, mrpcalc_Lock, "
                                  "mrpcalc_Token, mrpcalc_Request, mrpcalc_PlanParam, "
                                  "mrpcalc_WorkWeek, mrpcalc_Holiday, mrpcalc_PhasedRun, "
                                  "mrpcalc_PhasedOrder in ",
                                  0),
                0u)
          << upgrade.out;
    } else {
      EXPECT_EQ(upgrade.out.rfind("mrpcalc's tables are up to date in ", 0), 0u) << upgrade.out;
    }
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::filesystem::path dir_;
  std::string dsn_;
};

// On the ERP's own database, before any upgrade, the first call makes
// mrpcalc's tables before its own work and says so on standard error.
TEST(CommandOnTheErpsDatabase, TheFirstCallMakesOurTablesFirst) {
  const auto dir = std::filesystem::temp_directory_path() /
                   ("mrpcalc-cli-first-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  const std::string dsn = "sqlite:" + (dir / "erp.db").string();
  std::filesystem::remove(dir / "erp.db");
  {
    auto c = db::Open(dsn);
    schema::CreateErpSchema(*c, false, schema::SchemaForm::kErpColumnsOnly);
    sample::LoadDemoData(*c);
    EXPECT_FALSE(c->TableExists("mrpcalc_Lock"));
  }
  const Outcome call = Cli("call ZUVMMrpCalculate.MrpDataServer getSysInfo --dsn '" + dsn +
                           "' --args '[\"IC\", \"BOMType\"]'");
  EXPECT_EQ(call.status, 0) << call.out;
  EXPECT_NE(call.out.find("mrpcalc: created its table mrpcalc_Lock in "), std::string::npos)
      << call.out;
  EXPECT_NE(call.out.find("\"result\""), std::string::npos) << call.out;
  auto c = db::Open(dsn);
  EXPECT_TRUE(c->TableExists("mrpcalc_Lock"));
  c.reset();
  std::filesystem::remove_all(dir);
}

INSTANTIATE_TEST_SUITE_P(Schemas, Command, ::testing::Values("init", "erp"),
                         [](const auto& info) { return info.param; });

TEST_P(Command, ReportFormatsAndTheAutomationRouteAgree) {
  const std::string bills = "--bills SEORD000001,WORK000001";
  const Outcome json = Cli("mrp --dsn '" + dsn_ + "' " + bills + " --format json");
  ASSERT_EQ(json.status, 0) << json.out;
  const Json rows = Json::parse(json.out);
  ASSERT_TRUE(rows.is_array());
  ASSERT_GT(rows.size(), 5u);

  const Outcome csv = Cli("mrp --dsn '" + dsn_ + "' " + bills + " --format csv");
  ASSERT_EQ(csv.status, 0) << csv.out;
  EXPECT_EQ(csv.out.rfind("FItemID,FBOMItemID,FInterID,", 0), 0u) << csv.out.substr(0, 80);
  EXPECT_EQ(static_cast<size_t>(std::count(csv.out.begin(), csv.out.end(), '\n')), rows.size() + 1);

  // The same demand through the published method, as the ERP's form calls it.
  auto c = db::Open(dsn_);
  const auto demand =
      mrp::SelectDemand(*c, {"SEORD000001", "WORK000001"}, kTranProductionTask);
  c.reset();
  Json filter = {{"SubID", "SC"}, {"Expand", 1}, {"SourceData", ToJson(Variant(demand.source))}};
  const Json args = Json::array({ToJson(Variant(demand.lines)), filter, "", "", 1, 0});
  std::ofstream(dir_ / "args.json") << args.dump();
  const Outcome call = Cli("call ZUVMMrpCalculate.MrpDataInfo GetMrpReportData --dsn '" + dsn_ +
                           "' --args @" + (dir_ / "args.json").string());
  ASSERT_EQ(call.status, 0) << call.out;
  const Json answer = Json::parse(call.out);
  EXPECT_EQ(answer.at("result"), rows);
  EXPECT_EQ(answer.at("resultType"), "Vector");
  // The answer is streamed, in exactly the layout of the document printed
  // with two blanks a level; so is the report.
  EXPECT_EQ(call.out, answer.dump(2) + "\n");
  EXPECT_EQ(json.out, rows.dump(2) + "\n");
}

// A text that is not UTF-8 fails the whole answer before any of it is
// printed: the output is the error object alone.
TEST_P(Command, AnAnswerWithABadTextIsAnErrorNotHalfAnAnswer) {
  auto c = db::Open(dsn_);
  c->Execute(
      "update t_ICItem set FName = cast(x'4bff' as text) where FItemID = "
      "(select max(FItemID) from t_ICItem)");
  const auto demand = mrp::SelectDemand(*c, {}, kTranProductionTask);
  c.reset();
  Json filter = {{"SubID", "SC"}, {"Expand", 1}, {"SourceData", ToJson(Variant(demand.source))}};
  std::ofstream(dir_ / "args.json")
      << Json::array({ToJson(Variant(demand.lines)), filter, "", "", 1, 1}).dump();
  const Outcome call = Cli("call ZUVMMrpCalculate.MrpDataInfo GetMrpReportData --dsn '" + dsn_ +
                           "' --args @" + (dir_ / "args.json").string());
  EXPECT_EQ(call.status, 1);
  const Json error = Json::parse(call.out);  // one document, nothing before it
  EXPECT_NE(error.at("error").at("description").get<std::string>().find("invalid UTF-8"),
            std::string::npos)
      << call.out;
}

// The benchmark's commands: a synthetic factory, its request file, and a
// call on it as the benchmark times it.
TEST_P(Command, BenchmarkRequestRunsThroughTheCallCommand) {
  const std::string bench = "sqlite:" + (dir_ / "bench.db").string();
  ASSERT_EQ(Cli("bench generate --dsn '" + bench + "' --scale 0.05").status, 0);
  const Outcome request =
      Cli("bench request --dsn '" + bench + "' --out " + (dir_ / "request.json").string());
  ASSERT_EQ(request.status, 0) << request.out;
  const Outcome call = Cli("call ZUVMMrpCalculate.MrpDataInfo GetMrpReportData --dsn '" + bench +
                           "' --args @" + (dir_ / "request.json").string());
  ASSERT_EQ(call.status, 0) << call.out.substr(0, 400);
  const Json answer = Json::parse(call.out);
  EXPECT_GT(answer.at("result").size(), 20u);
  // Every open sales-order line and the production tasks were asked for.
  const Json sent = Json::parse(std::ifstream(dir_ / "request.json"));
  int tasks = 0;
  for (const auto& line : sent.at(0)) tasks += line.at("Ftrantype") == 85;
  EXPECT_EQ(tasks, 20);
  const Outcome run = Cli("bench run --dsn '" + bench + "' --repeat 1");
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_NE(run.out.find("whole call process 1:"), std::string::npos) << run.out;
}

// One process, one object per ProgID: the stock-status option remembered by
// the first call is the one the second call writes; a failing call in the
// middle does not stop the script, but makes its exit code 1.
TEST_P(Command, CallsKeepOneObjectAcrossTheScript) {
  auto c = db::Open(dsn_);
  c->Execute(
      "insert into ICSchemeProfile (FSchemeID, FStatus, FTranType, FUserID) values (7, 2, 36, 16)");
  c->Execute(
      "insert into ICSchemeProfileEntry (FSchemeID, FKey, FValue) values"
      " (7, 'HideColumns', 'A||0##<&1000##<&2##<&FStockStatus##<&3')");
  c.reset();
  const std::string server = "ZUVMMrpCalculate.MrpDataServer";
  const Json script = Json::array(
      {{{"progid", server}, {"method", "GetFStockStatus"}, {"args", {"生产任务单", 0, "", 16}}},
       {{"progid", server}, {"method", "NoSuchMethod"}},
       {{"progid", server}, {"method", "UpdateFStockStatus"}, {"args", {"", 1}}},
       {{"progid", server}, {"method", "GetFStockStatus"}, {"args", {"生产任务单", 0, "", 16}}}});
  std::ofstream(dir_ / "script.json") << script.dump();
  const Outcome r = Cli("calls --dsn '" + dsn_ + "' --script @" + (dir_ / "script.json").string());
  EXPECT_EQ(r.status, 1) << r.out;
  const Json answers = Json::parse(r.out);
  ASSERT_EQ(answers.size(), 4u);
  EXPECT_EQ(r.out, answers.dump(2) + "\n");
  EXPECT_EQ(answers[0].at("byref").at("FVisible"), 1);
  EXPECT_TRUE(answers[1].contains("error"));
  EXPECT_EQ(answers[2].at("resultType"), "Empty");
  // The entry went from the hidden columns of the scheme the first call found.
  EXPECT_EQ(answers[3].at("byref").at("FValue"), "A");
  // Each element is what `call` prints for the same call.
  std::ofstream(dir_ / "args.json") << Json::array({"生产任务单", 0, "", 16}).dump();
  const Outcome one = Cli("call " + server + " GetFStockStatus --dsn '" + dsn_ + "' --args @" +
                          (dir_ / "args.json").string());
  EXPECT_EQ(Json::parse(one.out), answers[3]);
}

// A buyer's whole path through the commands: demand, MRP, confirmation,
// credit check, orders, and the list of them.
TEST_P(Command, BuyersPathFromDemandToOrders) {
  const std::string db = " --dsn '" + dsn_ + "'";
  Outcome r = Cli("demand" + db + " --warehouses 11,12,20 --net --format csv");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(r.out.rfind("FTranType,FBillNO,FItemID,", 0), 0u) << r.out;
  const std::string report = (dir_ / "report.json").string();
  r = Cli("mrp" + db +
          " --now-stock --save-stock --moving --produc --warehouses 11,12,20 --form 1"
          " --format json > " +
          report);
  ASSERT_EQ(r.status, 0) << r.out;
  const std::string lines = (dir_ / "lines.json").string();
  const std::string told = (dir_ / "told.txt").string();
  r = Cli("confirm" + db + " --report " + report +
          " --supplier 3.04=S002 --supplier 3.08=S001 --format json > " + lines + " 2> " + told +
          "; cat " + told);
  // Paint was left without a supplier: the buyer is told, the rest go on.
  EXPECT_NE(r.out.find("3.06 has no supplier"), std::string::npos) << r.out;
  const Json priced = Json::parse(std::ifstream(lines));
  ASSERT_GE(priced.size(), 2u);
  for (const auto& l : priced) EXPECT_FALSE(l.at("FSupplyID").is_null()) << l.dump();
  r = Cli("credit" + db + " --lines " + lines);
  EXPECT_EQ(r.status, 0) << r.out;
  // The number carries the day the server makes the order, whatever --date says.
  auto day = [] {
    std::string d = Date::Now().ToString().substr(0, 10);
    d.erase(std::remove(d.begin(), d.end(), '-'), d.end());
    return d;
  };
  const std::string day_before = day();
  r = Cli("orders make" + db + " --lines " + lines +
          " --biller 16 --date 2026-11-22 --format json");
  const std::string day_after = day();
  ASSERT_EQ(r.status, 0) << r.out;
  const Json made = Json::parse(r.out);
  ASSERT_GE(made.size(), 1u);
  const std::string number = made[0].at("FBillNO").get<std::string>();
  EXPECT_TRUE(number.rfind("POORD" + day_before, 0) == 0 ||
              number.rfind("POORD" + day_after, 0) == 0)
      << number;
  r = Cli("orders list" + db + " --ids " + std::to_string(made[0].at("FInterID").get<int>()));
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find(made[0].at("FBillNO").get<std::string>()), std::string::npos) << r.out;
  // A workbook of the report, written by mrpcalc-web.
  const std::string book = (dir_ / "report.xlsx").string();
  r = Cli("mrp" + db + " --form 1 --format xlsx --out " + book);
  ASSERT_EQ(r.status, 0) << r.out;
  // Its cells are the report's: a header of column names, then each row's
  // values, numbers as numbers.
  r = Cli("mrp" + db + " --form 1 --format json");
  ASSERT_EQ(r.status, 0) << r.out;
  const Json rows = Json::parse(r.out);
  const auto sheet = ReadWorkbook(book);
  ASSERT_EQ(sheet.size(), rows.size() + 1);
  const std::vector<std::string>& header = sheet[0];
  auto column = [&](const std::string& name) {
    return static_cast<size_t>(std::find(header.begin(), header.end(), name) - header.begin());
  };
  ASSERT_LT(column("FItemNumber"), header.size());
  ASSERT_LT(column("FNeedQty"), header.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    const auto& cells = sheet[i + 1];
    auto cell = [&](const std::string& name) {
      const size_t c = column(name);
      return c < cells.size() ? cells[c] : std::string();
    };
    EXPECT_EQ(cell("FItemNumber"), rows[i].at("FItemNumber").get<std::string>()) << i;
    EXPECT_DOUBLE_EQ(std::stod(cell("FNeedQty")), rows[i].at("FNeedQty").get<double>()) << i;
    EXPECT_DOUBLE_EQ(std::stod(cell("FQty")), rows[i].at("FQty").get<double>()) << i;
  }
  r = Cli("mrp" + db + " --format xlsx");
  EXPECT_NE(r.out.find("--out"), std::string::npos) << r.out;
  // Scope: stored, then shown; an unknown warehouse is refused.
  r = Cli("scope set" + db + " --user 1 --warehouses 10");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("11,12"), std::string::npos) << r.out;  // the group's warehouses
  r = Cli("scope set" + db + " --user 1 --warehouses 99");
  EXPECT_NE(r.status, 0);
}

// The plan stage through the commands: save, list, push, close, delete refused.
TEST_P(Command, PlanStageFromSaveToARefusedDeletion) {
  const std::string db = " --dsn '" + dsn_ + "'";
  const std::string report = (dir_ / "report.json").string();
  ASSERT_EQ(Cli("mrp" + db +
                " --now-stock --save-stock --moving --produc --warehouses 11,12,20"
                " --form 1 --format json > " +
                report)
                .status,
            0);
  Outcome r =
      Cli("plan save" + db + " --user 16 --report " + report +
          " --supplier 3.04=S002 --supplier 3.06=S001 --supplier 3.08=S001 --bills WORK000001");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("saved purchase plan CJ"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("3.07 has no supplier"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("2.01 has no supplier"), std::string::npos) << r.out;  // made, not bought
  r = Cli("plan list" + db + " --format json");
  ASSERT_EQ(r.status, 0) << r.out;
  const Json lines = Json::parse(r.out);
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0].at("FSourceNo"), "WORK000001");
  r = Cli("plan push" + db + " --lines 1000_1,1000_2 --date 2026-11-22 --format json");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(Json::parse(r.out).size(), 2u);  // two suppliers
  r = Cli("plan close" + db + " --lines 1000_5,1000_5 --format json");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(Json::parse(r.out)[1].at("Succeed"), 0);
  r = Cli("plan list" + db + " --open --format json");
  EXPECT_EQ(Json::parse(r.out).size(), 2u) << r.out;  // pushed lines closed, one by hand
  r = Cli("plan delete" + db + " --plans " + lines[0].at("FBillNo").get<std::string>());
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("该采购计划单已与采购订单"), std::string::npos) << r.out;
  r = Cli("plan close" + db + " --lines 1000-1");
  EXPECT_NE(r.status, 0);
}

// Time-phased planning through the commands: parameters and a holiday set,
// two runs kept and compared, an item's weeks, a workbook, and refusals.
TEST_P(Command, PhasedPlanRunsKeptAndCompared) {
  const std::string db = " --dsn '" + dsn_ + "'";
  const std::string as_of = " --today 2026-11-30";
  Outcome r = Cli("phased" + db + as_of + " --save --format json");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("saved as run 1"), std::string::npos) << r.out;
  r = Cli("phased param set" + db + " --item 3.02 --min 100 --multiple 50 --lead-time 5");
  ASSERT_EQ(r.status, 0) << r.out;
  r = Cli("phased calendar" + db + " --holiday 2026-11-27");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("working weekdays: Mon Tue Wed Thu Fri"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("holidays: 2026-11-27"), std::string::npos) << r.out;
  r = Cli("phased" + db + as_of + " --save --format csv");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("raised to the minimum 100; lead time 5 working days; 7 days late"),
            std::string::npos)
      << r.out;
  r = Cli("phased runs" + db + " --format json");
  ASSERT_EQ(r.status, 0) << r.out;
  const Json runs = Json::parse(r.out);
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(runs[0].at("FRunID"), 2);  // newest first
  EXPECT_EQ(Json::parse(runs[0].at("FSettings").get<std::string>()).at("today"), "2026-11-30");
  r = Cli("phased diff" + db + " 1 2 --format json");
  ASSERT_EQ(r.status, 0) << r.out;
  const Json changes = Json::parse(r.out);
  ASSERT_FALSE(changes.empty());
  for (const auto& c : changes) EXPECT_EQ(c.at("FItemNumber"), "3.02") << c.dump();
  r = Cli("phased diff" + db + " 2 2");
  EXPECT_NE(r.out.find("no planned order changed"), std::string::npos) << r.out;
  // The bolts' weeks: what is released adds up to what is planned.
  r = Cli("phased" + db + as_of + " --bucket week --item 3.02 --format json");
  ASSERT_EQ(r.status, 0) << r.out;
  double releases = 0, receipts = 0;
  for (const auto& w : Json::parse(r.out)) {
    releases += w.at("FPlannedReleases").get<double>();
    receipts += w.at("FPlannedReceipts").get<double>();
  }
  EXPECT_GT(releases, 400);
  EXPECT_DOUBLE_EQ(releases, receipts);
  const std::string book = (dir_ / "orders.xlsx").string();
  r = Cli("phased" + db + as_of + " --format xlsx --out " + book);
  ASSERT_EQ(r.status, 0) << r.out;
  const auto sheet = ReadWorkbook(book);
  ASSERT_GT(sheet.size(), 10u);
  EXPECT_EQ(sheet[0][0], "FItemID");
  r = Cli("phased param list" + db + " --item 3.02 --format json");
  EXPECT_EQ(Json::parse(r.out)[0].at("FMinQty"), 100) << r.out;
  EXPECT_EQ(Cli("phased param delete" + db + " --item 3.02").status, 0);
  // Refusals: an unknown run, item or bucket, a bad day, a calendar without
  // a working weekday; nothing changes.
  EXPECT_NE(Cli("phased diff" + db + " 1 9").status, 0);
  EXPECT_NE(Cli("phased param delete" + db + " --item 3.02").status, 0);
  EXPECT_NE(Cli("phased param set" + db + " --item 3.02 --min -1").status, 0);
  EXPECT_NE(Cli("phased" + db + " --today 2026-13-01").status, 0);
  EXPECT_NE(Cli("phased" + db + as_of + " --bucket week --item nope").status, 0);
  r = Cli("phased calendar" + db +
          " --weekday 1=0 --weekday 2=0 --weekday 3=0 --weekday 4=0 --weekday 5=0");
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.out.find("at least one working weekday"), std::string::npos) << r.out;
  EXPECT_NE(Cli("phased" + db + " --bucket fortnight").status, 0);
  EXPECT_NE(Cli("phased calendar" + db).out.find("Mon Tue Wed Thu Fri"), std::string::npos);
}

// Inputs meant to crash the command line get a JSON error and exit 1:
// bytes that are not UTF-8, a number beyond a double, arguments nested
// fifty thousand deep, in `call` and in `calls`.
TEST_P(Command, HostileArgumentsGetAJsonError) {
  if (GetParam() == "erp") GTEST_SKIP() << "the tables play no part";
  std::string deep;
  for (int i = 0; i < 50000; ++i) deep += "{\"a\":";
  deep += "1" + std::string(50000, '}');
  const std::string args[] = {"[\"IC\", \"\xff\xfe\"]", "[\"IC\", 1e400]", "[\"IC\", " + deep + "]",
                              "[\"IC\", " + std::string(50000, '[') + std::string(50000, ']') + "]"};
  int n = 0;
  for (const std::string& a : args) {
    const std::string file = (dir_ / ("args" + std::to_string(n++) + ".json")).string();
    std::ofstream(file) << a;
    std::ofstream(file + ".script")
        << "[{\"progid\": \"ZUVMMrpCalculate.MrpDataServer\", \"method\": \"getSysInfo\","
           " \"args\": "
        << a << "}]";
    for (const std::string& command :
         {"call ZUVMMrpCalculate.MrpDataServer getSysInfo --dsn '" + dsn_ + "' --args @" + file,
          "calls --dsn '" + dsn_ + "' --script @" + file + ".script"}) {
      const Outcome r = Cli(command);
      EXPECT_EQ(r.status, 1) << command.substr(0, 60) << ": " << r.out.substr(0, 300);
      EXPECT_TRUE(Json::parse(r.out).at("error").contains("description")) << r.out.substr(0, 300);
    }
  }
}

TEST_P(Command, RefusalsExitNonZeroAndSayWhy) {
  // Tables exist: init leaves them alone without --replace.
  Outcome r = Cli("init --dsn '" + dsn_ + "'");
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.out.find("already exists"), std::string::npos) << r.out;

  r = Cli("mrp --dsn '" + dsn_ + "' --warehouses '1,2);drop table t_Item;--'");
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.out.find("drop table"), std::string::npos) << r.out;  // names the bad piece

  r = Cli("call ZUVMMrpCalculate.NoSuchClass GetSysDate --dsn '" + dsn_ + "'");
  EXPECT_EQ(r.status, 1);
  const Json error = Json::parse(r.out);
  EXPECT_TRUE(error.at("error").contains("description")) << r.out;

  r = Cli("call ZUVMMrpCalculate.MrpDataInfo GetMrpReportData --dsn '" + dsn_ + "' --args '[1'");
  EXPECT_NE(r.status, 0);
  // Nothing was written by any of these.
  auto c = db::Open(dsn_);
  EXPECT_TRUE(c->TableExists("t_Item"));
}

}  // namespace
}  // namespace mrpcalc::testing
