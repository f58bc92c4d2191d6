// The HTTP service on a demo database, on every engine: the same answers as
// the command line, sign-in and rights, each refusal's status, scripts on
// one object, the report with pegging, exports, and concurrent clients.
#include <httplib.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "expect_error.h"
#include "db_fixture.h"
#include "http/server.h"
#include "http/tokens.h"
#include "record/error.h"
#include "record/json.h"
#include "services/host_config.h"

namespace mrpcalc::testing {
namespace {

std::string RunCli(const std::string& arguments) {
  FILE* pipe = ::popen((std::string(MRPCALC_CLI) + " " + arguments).c_str(), "r");
  std::string out;
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, pipe)) > 0) out.append(buf, n);
  ::pclose(pipe);
  return out;
}

class Http : public DemoDbTest {
 protected:
  void SetUp() override {
    DemoDbTest::SetUp();
    if (IsSkipped()) return;
    http::ServeOptions options;
    options.dsn = dsn();
    options.port = 0;
    options.max_body = 64 * 1024;
    HostConfig config;
    config.data_rights = {{17, 4}};  // user 17 sees only the warehouses that name him
    service_ = std::make_unique<http::Service>(options, MakeStandaloneHost(config));
    port_ = service_->Bind();
    planner_ = service_->IssueToken(16);
    admin_ = service_->IssueToken(1);
    thread_ = std::thread([this] { service_->Listen(); });
    while (!service_->Listening()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  void TearDown() override {
    if (service_) {
      service_->Stop();
      thread_.join();
    }
  }
  httplib::Result Post(const std::string& path, const std::string& body, const std::string& token) {
    httplib::Client client("127.0.0.1", port_);
    httplib::Headers headers;
    if (!token.empty()) headers.emplace("Authorization", "Bearer " + token);
    return client.Post(path, headers, body, "application/json");
  }
  httplib::Result Call(const std::string& cls, const std::string& method, const Json& args,
                       const std::string& token) {
    return Post("/api/call/ZUVMMrpCalculate." + cls + "/" + method, Json{{"args", args}}.dump(),
                token);
  }

  httplib::Result KeyedCall(const std::string& method, const Json& args, const std::string& key) {
    httplib::Client client("127.0.0.1", port_);
    httplib::Headers headers = {{"Authorization", "Bearer " + planner_}, {"Idempotency-Key", key}};
    return client.Post("/api/call/ZUVMMrpCalculate.MrpDataServer/" + method, headers,
                       Json{{"args", args}}.dump(), "application/json");
  }

  std::string planner_, admin_;
  int port_ = 0;
  std::unique_ptr<http::Service> service_;
  std::thread thread_;
};
MRPCALC_ALL_SCHEMAS(Http);

TEST_P(Http, AnswersAsTheCommandLineDoes) {
  // The report of the demo's first order, as the automation door gives it.
  const Json args =
      Json::parse(R"([[{"Ftrantype": 81, "FItemID": 1001, "FinterID": 1, "FEntryID": 1,
      "FBillNo": "SEORD000001", "FQty": 20, "FItemName": "e", "FItemNumber": "1.01"}],
      {"SubID": "SC", "Expand": 1, "NowStock": 1, "SourceData": [{"FBillNO": "SEORD000001",
      "Ftrantype": 81, "finterid": 1, "fentryid": 1}]}, "", "11,12", 16, 1])");
  auto r = Call("MrpDataInfo", "GetMrpReportData", args, planner_);
  ASSERT_TRUE(r);
  EXPECT_EQ(r->status, 200) << r->body.substr(0, 200);
  const std::string file =
      ::testing::TempDir() + "http-args-" + std::to_string(::getpid()) + ".json";
  std::ofstream(file) << args.dump();
  EXPECT_TRUE(r->body == RunCli("call ZUVMMrpCalculate.MrpDataInfo GetMrpReportData --dsn '" +
                                dsn() + "' --args @" + file))
      << r->body.substr(0, 200);
  std::remove(file.c_str());
  // A body naming another database is ignored: the service's own answers.
  const std::string other =
      ::testing::TempDir() + "http-other-" + std::to_string(::getpid()) + ".db";
  r = Post("/api/call/ZUVMMrpCalculate.MrpDataServer/getSysInfo",
           R"({"args": ["IC", "BOMType"], "dsn": "sqlite:)" + other + R"(", "sDsn": "x"})",
           planner_);
  EXPECT_EQ(Json::parse(r->body).at("result"), "1") << r->body;
  EXPECT_FALSE(std::filesystem::exists(other));
}

TEST_P(Http, EachRefusalHasItsStatus) {
  const Json sys = {"IC", "BOMType"};
  EXPECT_EQ(Call("MrpDataServer", "getSysInfo", sys, "")->status, 401);
  EXPECT_EQ(Call("MrpDataServer", "getSysInfo", sys, "mrp_nothing")->status, 401);
  EXPECT_EQ(Call("NoSuchClass", "getSysInfo", sys, planner_)->status, 404);
  EXPECT_EQ(Call("MrpDataServer", "NoSuchMethod", sys, planner_)->status, 404);
  EXPECT_EQ(
      Post("/api/call/ZUVMMrpCalculate.MrpDataServer/getSysInfo", "{\"args\": [", planner_)->status,
      400);
  EXPECT_EQ(Post("/api/call/ZUVMMrpCalculate.MrpDataServer/getSysInfo",
                 "{\"args\": [\"" + std::string(70 * 1024, 'x') + "\"]}", planner_)
                ->status,
            413);
  auto r = Call("MrpDataServer", "RefreshPOOrderBill", {""}, planner_);
  EXPECT_EQ(r->status, 422);
  EXPECT_TRUE(Json::parse(r->body).at("error").contains("description")) << r->body;
  // Another user's id: only for an administrator.
  EXPECT_EQ(Call("PurchasePlanInfo", "GetRptData", {Json::object(), 1}, planner_)->status, 403);
  EXPECT_EQ(Call("PurchasePlanInfo", "GetRptData", {Json::object(), 16}, planner_)->status, 200);
  EXPECT_EQ(Call("PurchasePlanInfo", "GetRptData", {Json::object(), 16}, admin_)->status, 200);
  // In a script the refused call answers in its place.
  r = Post("/api/calls",
           Json::array({{{"progid", "ZUVMMrpCalculate.MrpDataServer"},
                         {"method", "MakePOOrderBill"},
                         {"args", {Json::array(), 1}}}})
               .dump(),
           planner_);
  EXPECT_EQ(r->status, 200);
  EXPECT_NE(Json::parse(r->body)[0].at("error").at("description").get<std::string>().find(
                "BillerID names user 1"),
            std::string::npos)
      << r->body;
  // A revoked token no longer signs in.
  ASSERT_TRUE(http::RevokeToken(conn(), planner_));
  EXPECT_EQ(Call("MrpDataServer", "getSysInfo", sys, planner_)->status, 401);
}

// A planner (user 16) names user 1, or 2, 0, -1, in every form a JSON
// argument can take: through the single call, the script and the report,
// each is refused, and nothing of another user is written. The same forms
// naming himself are his own calls.
TEST_P(Http, APlannerActsOnlyForHimselfWhateverTheForm) {
  const std::vector<Json> others = {
      1, 1.0, 1.4, 0.6, 1.5, 2.5, 2, 0, -1, 1e0, -0.0, true, false,
      "1", " 1", "1 ", "+1", "1.0", "1e0", "01", "\t1", "\n1", "1.", "0001", "1.4", "0.6",
      "1.5", "2.5", "-0", "0", "-1", "true", "false", "True", "0x1", "1,0", "１", "1\u0000",
      "", "  ", Json::array({1}), Json::array({Json::object({{"UserID", 1}})}),
      Json::object({{"UserID", 1}}), Json::array({Json::array({1})}), nullptr};
  auto count = [&](const char* sql) { return conn().QueryValue(sql).ToLong(); };
  const int32_t scopes = count("select count(*) from ICMrpStockPlan");
  const int32_t orders = count("select count(*) from POOrder");
  const Json order_line = Json::array({{{"FSupplyID", 1}, {"FItemID", 3001}, {"FAuxQty", 1},
                                        {"FQty", 50}, {"FPrice", 18.9}, {"FCoefficient", 50},
                                        {"FPriceDecimal", 2}, {"FDiscountRate", 0},
                                        {"FTaxRate", 13}, {"FUnitID", 3}, {"FAuxPropID", 0},
                                        {"FNote", ""}, {"FDate", "2026-12-01"}}});
  int refused = 0;
  for (const Json& user : others) {
    SCOPED_TRACE(user.dump());
    const Json scope = {user, "01 - x", "11", "11", 1, "SC"};
    auto r = Call("MrpDataServer", "UpdateStockInfo", scope, planner_);
    ASSERT_TRUE(r);
    EXPECT_TRUE(r->status == 403 || r->status == 422) << r->status << " " << r->body;
    refused += r->status == 403;
    r = Call("MrpDataServer", "MakePOOrderBill", {order_line, user}, planner_);
    EXPECT_TRUE(r->status == 403 || r->status == 422) << r->status << " " << r->body;
    r = Post("/api/calls",
             Json::array({{{"progid", "ZUVMMrpCalculate.MrpDataServer"},
                           {"method", "UpdateStockInfo"},
                           {"args", scope}},
                          {{"progid", "ZUVMMrpCalculate.PurchasePlanUpdate"},
                           {"method", "UpdatePurchasePlan"},
                           {"args", {Json::array(), Json::array(), user}}}})
                 .dump(),
             planner_);
    ASSERT_EQ(r->status, 200);
    for (const auto& answer : Json::parse(r->body)) EXPECT_TRUE(answer.contains("error")) << r->body;
    r = Post("/api/report", Json{{"bills", {"SEORD000001"}}, {"user", user}}.dump(), planner_);
    EXPECT_TRUE(r->status == 403 || r->status == 422) << r->status << " " << r->body;
  }
  EXPECT_GE(refused, 30);  // most forms convert, and are refused as another user
  EXPECT_EQ(count("select count(*) from ICMrpStockPlan"), scopes);
  EXPECT_EQ(count("select count(*) from POOrder"), orders);
  EXPECT_EQ(count("select count(*) from PurchasePlan"), 0);

  for (const Json& self : {Json(16), Json("16"), Json(" 16"), Json(16.0), Json("1.6e1")}) {
    SCOPED_TRACE(self.dump());
    EXPECT_EQ(Call("MrpDataServer", "UpdateStockInfo", {self, "01 - x", "11", "11", 1, "SC"},
                   planner_)->status,
              200);
  }
  EXPECT_EQ(count("select count(*) from ICMrpStockPlan where FUserID = '16'"), 1);
  // Left out, the user is the caller; an administrator names anyone.
  EXPECT_EQ(Call("MrpDataServer", "GetStockInfo", Json::array(), planner_)->status,
            422);  // FrmType missing
  auto r = Call("PurchasePlanInfo", "GetRptData", Json::array({Json::object()}), planner_);
  EXPECT_EQ(r->status, 200) << r->body;
  EXPECT_EQ(Call("MrpDataServer", "UpdateStockInfo", {"1", "01 - x", "11", "11", 1, "SC"}, admin_)
                ->status,
            200);
}

// What depends on the caller sees the token's user, not the service's login:
// user 17's data rights hide the virtual warehouse that names only 16.
TEST_P(Http, TheTokensUserIsTheCaller) {
  const std::string buyer = http::CreateToken(conn(), 17);
  auto stock = [&](const std::string& token) {
    auto r = Call("MrpDataServer", "GetVirtualStock", Json::array(), token);
    EXPECT_EQ(r->status, 200) << r->body;
    return Json::parse(r->body).at("result").get<std::string>();
  };
  EXPECT_EQ(stock(planner_), "30");
  EXPECT_EQ(stock(buyer), "");
}

// Bodies meant to crash or exhaust the service are refused with 400 and
// the service goes on: nesting tens of thousands deep (in every door),
// bytes that are not UTF-8, a number beyond a double, malformed rows.
TEST_P(Http, HostileBodiesAreRefusedAndTheServiceGoesOn) {
  const std::string deep = std::string(20000, '[') + std::string(20000, ']');
  std::string objects;
  for (int i = 0; i < 9000; ++i) objects += "{\"a\":";
  objects += "1" + std::string(9000, '}');
  const std::string call = "/api/call/ZUVMMrpCalculate.MrpDataServer/getSysInfo";
  for (const std::string& body :
       {"{\"args\": [\"IC\", " + objects + "]}", "{\"args\": [\"IC\", " + deep + "]}",
        std::string("{\"args\": [\"IC\", \"\xff\xfe\"]}"), std::string("{\"args\": [\"IC\", 1e400]}"),
        std::string("{\"args\": [\"IC\", -1e999]}")}) {
    auto r = Post(call, body, planner_);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->status, 400) << r->body.substr(0, 300);
    EXPECT_TRUE(Json::parse(r->body).at("error").contains("description"));
  }
  EXPECT_EQ(Post("/api/calls", "[{\"progid\": \"x\", \"method\": \"y\", \"args\": [" + objects + "]}]",
                 planner_)->status,
            400);
  EXPECT_EQ(Post("/api/report", "{\"bills\": [], \"switches\": " + objects + "}", planner_)->status,
            400);
  EXPECT_EQ(Post("/api/export/x.csv", "{\"rows\": " + deep + "}", planner_)->status, 400);
  EXPECT_EQ(Post("/api/export/x.csv", "{\"rows\": [1, 2]}", planner_)->status, 400);
  // 64 levels are read; what comes back grows no faster than what went in.
  std::string nested = "1";
  for (int i = 0; i < 62; ++i) nested = "{\"a\": " + nested + "}";
  auto r = Post("/api/call/ZUVMMrpCalculate.MrpDataInfo/GetMrpReportData",
                "{\"args\": [[], " + nested + "]}", planner_);
  EXPECT_EQ(r->status, 422) << r->body.substr(0, 200);  // the filter names no SubID
  // A form's body is not read: the caller is told to send JSON.
  httplib::Client client("127.0.0.1", port_);
  auto form = client.Post(call, {{"Authorization", "Bearer " + planner_}},
                          "{\"args\": [\"" + std::string(9000, 'x') + "\"]}",
                          "application/x-www-form-urlencoded");
  ASSERT_TRUE(form);
  EXPECT_EQ(form->status, 415);
  // Still serving; the scheme's name in any case; a NUL shows in the message.
  auto me = client.Get("/api/me", {{"Authorization", "bearer " + planner_}});
  ASSERT_TRUE(me);
  EXPECT_EQ(me->status, 200);
  r = Call("MrpDataServer", "RefreshPOOrderBill", {std::string("1,a\0b", 6)}, planner_);
  EXPECT_EQ(r->status, 422);
  EXPECT_NE(Json::parse(r->body).at("error").at("description").get<std::string>().find("a\\0b"),
            std::string::npos)
      << r->body;
}

// A second service cannot take the first one's port.
// A write sent twice with one key makes one set of orders, and the second
// answer is the first one's; the key is the planner's for that request.
TEST_P(Http, AKeyedWriteSentTwiceWritesOnce) {
  auto orders = [&] { return conn().QueryValue("select count(*) from POOrder").ToLong(); };
  const int64_t before = orders();
  const Json lines = Json::array({{{"FSupplyID", 1}, {"FItemID", 3001}, {"FAuxQty", 1},
                                   {"FQty", 50}, {"FPrice", 18.9}, {"FCoefficient", 50},
                                   {"FPriceDecimal", 2}, {"FDiscountRate", 0}, {"FTaxRate", 13},
                                   {"FUnitID", 3}, {"FAuxPropID", 0}, {"FNote", ""},
                                   {"FDate", "2026-12-01"}}});
  const Json args = {lines, 16, "2026-11-24"};
  auto first = KeyedCall("MakePOOrderBill", args, "orders-7f3a");
  ASSERT_EQ(first->status, 200) << first->body;
  EXPECT_FALSE(first->has_header("Idempotent-Replayed"));
  auto second = KeyedCall("MakePOOrderBill", args, "orders-7f3a");
  ASSERT_EQ(second->status, 200) << second->body;
  EXPECT_EQ(second->get_header_value("Idempotent-Replayed"), "true");
  EXPECT_EQ(second->body, first->body);
  EXPECT_EQ(orders(), before + 1);
  // The same key with other lines is refused; a script takes no key.
  Json other = args;
  other[0][0]["FQty"] = 60;
  auto reused = KeyedCall("MakePOOrderBill", other, "orders-7f3a");
  EXPECT_EQ(reused->status, 422) << reused->body;
  httplib::Client client("127.0.0.1", port_);
  auto script = client.Post("/api/calls",
                            {{"Authorization", "Bearer " + planner_}, {"Idempotency-Key", "s-1"}},
                            "[]", "application/json");
  EXPECT_EQ(script->status, 400);
  EXPECT_EQ(orders(), before + 1);
  // The kept answer outlives the service.
  service_->Stop();
  thread_.join();
  http::ServeOptions options;
  options.dsn = dsn();
  options.port = 0;
  service_ = std::make_unique<http::Service>(options, MakeStandaloneHost(HostConfig{}));
  port_ = service_->Bind();
  thread_ = std::thread([this] { service_->Listen(); });
  while (!service_->Listening()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  auto after_restart = KeyedCall("MakePOOrderBill", args, "orders-7f3a");
  ASSERT_EQ(after_restart->status, 200);
  EXPECT_EQ(after_restart->body, first->body);
  EXPECT_EQ(orders(), before + 1);
}

TEST_P(Http, OneServiceAPort) {
  http::ServeOptions options;
  options.dsn = dsn();
  options.port = port_;
  http::Service second(options, MakeStandaloneHost(HostConfig{}));
  EXPECT_ERROR(second.Bind(), ErrorCategory::kInvalidInput, "");
}

// Eight clients that send a header byte a second, and eight that connect
// and say nothing, while another client's calls are answered at once.
TEST_P(Http, SlowClientsDoNotStallTheOthers) {
  if (engine() != "sqlite") GTEST_SKIP() << "the engine plays no part";
  std::atomic<bool> stop{false};
  std::vector<std::thread> slow;
  for (int k = 0; k < 16; ++k) {
    slow.emplace_back([&, k] {
      httplib::Client c("127.0.0.1", port_);
      const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
      sockaddr_in addr{};
      addr.sin_family = AF_INET;
      addr.sin_port = htons(static_cast<uint16_t>(port_));
      addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) return;
      const std::string request = "POST /api/calls HTTP/1.1\r\nHost: x\r\nX-Slow: ";
      for (size_t i = 0; !stop && i < 60; ++i) {
        if (k % 2 == 0) ::send(fd, request.data() + (i % request.size()), 1, MSG_NOSIGNAL);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
      }
      ::close(fd);
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const std::string body = Json{{"args", {"IC", "BOMType"}}}.dump();
  for (int i = 0; i < 5; ++i) {
    const auto start = std::chrono::steady_clock::now();
    auto r = Post("/api/call/ZUVMMrpCalculate.MrpDataServer/getSysInfo", body, planner_);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    ASSERT_TRUE(r);
    EXPECT_EQ(r->status, 200);
    EXPECT_LT(seconds, 2.0);  // answered in milliseconds; nowhere near a client timing out
  }
  stop = true;
  for (auto& t : slow) t.join();
}

TEST_P(Http, ScriptsReportsAndExports) {
  conn().Execute(
      "insert into ICSchemeProfile (FSchemeID, FStatus, FTranType, FUserID) values (7, 2, 36, 16)");
  conn().Execute(
      "insert into ICSchemeProfileEntry (FSchemeID, FKey, FValue) values"
      " (7, 'HideColumns', 'A||0##<&1000##<&2##<&FStockStatus##<&3')");
  const std::string server = "ZUVMMrpCalculate.MrpDataServer";
  auto r = Post(
      "/api/calls",
      Json::array(
          {{{"progid", server}, {"method", "GetFStockStatus"}, {"args", {"生产任务单", 0, "", 16}}},
           {{"progid", server}, {"method", "UpdateFStockStatus"}, {"args", {"", 1}}},
           {{"progid", server},
            {"method", "GetFStockStatus"},
            {"args", {"生产任务单", 0, "", 16}}}})
          .dump(),
      planner_);
  ASSERT_EQ(r->status, 200);
  EXPECT_EQ(Json::parse(r->body)[2].at("byref").at("FValue"), "A");

  r = Post(
      "/api/report",
      R"({"bills": ["SEORD000001"], "switches": {"NowStock": true}, "warehouses": "11,12,20"})",
      planner_);
  ASSERT_EQ(r->status, 200) << r->body;
  const Json report = Json::parse(r->body);
  ASSERT_EQ(report.at("rows").size(), report.at("pegging").size());
  ASSERT_GT(report.at("rows").size(), 5u);
  for (size_t i = 0; i < report.at("rows").size(); ++i) {
    double total = 0;
    for (const auto& peg : report.at("pegging")[i]) total += peg.at("FQty").get<double>();
    EXPECT_NEAR(total, report.at("rows")[i].at("FNeedQty").get<double>(), 1e-6);
  }

  // Gzipped for a client that takes gzip, the same report once unpacked.
  {
    httplib::Client client("127.0.0.1", port_);
    auto zipped = client.Post(
        "/api/report",
        {{"Authorization", "Bearer " + planner_}, {"Accept-Encoding", "gzip, deflate, br"}},
        R"({"bills": ["SEORD000001"], "switches": {"NowStock": true}, "warehouses": "11,12,20"})",
        "application/json");
    ASSERT_EQ(zipped->status, 200);
    EXPECT_EQ(zipped->get_header_value("Content-Encoding"), "gzip");
    EXPECT_EQ(Json::parse(zipped->body), report);
  }
  // The compact form holds the same report: names once, rows as arrays.
  {
    r = Post("/api/report",
             R"({"bills": ["SEORD000001"], "switches": {"NowStock": true}, "warehouses": "11,12,20",)"
             R"( "compact": true})",
             planner_);
    ASSERT_EQ(r->status, 200) << r->body;
    EXPECT_EQ(r->body.find("\n"), r->body.size() - 1);  // no blanks, one line
    const Json compact = Json::parse(r->body);
    auto objects = [](const Json& table) {
      Json out = Json::array();
      for (const auto& values : table.at("rows")) {
        Json row = Json::object();
        for (size_t k = 0; k < values.size(); ++k) row[table.at("columns")[k].get<std::string>()] = values[k];
        out.push_back(row);
      }
      return out;
    };
    EXPECT_EQ(objects(compact.at("report")), report.at("rows"));
    // Each share names its line in the demand list: the same pegging.
    const Json lines = objects(compact.at("demand"));
    ASSERT_EQ(compact.at("pegging").size(), report.at("pegging").size());
    for (size_t i = 0; i < report.at("pegging").size(); ++i) {
      Json pegs = Json::array();
      for (const auto& share : compact.at("pegging")[i]) {
        Json peg = lines.at(share[0].get<size_t>());
        peg["FQty"] = share[1];
        pegs.push_back(peg);
      }
      EXPECT_EQ(pegs, report.at("pegging")[i]) << i;
    }
    EXPECT_EQ(compact.at("messages"), report.at("messages"));
  }
  // The pegging kept by the service, a row at a time, for its user only
  // and only of his last report.
  {
    const std::string body =
        R"({"bills": ["SEORD000001"], "switches": {"NowStock": true}, "warehouses": "11,12,20",)"
        R"( "compact": true, "pegging": "by_row"})";
    r = Post("/api/report", body, planner_);
    ASSERT_EQ(r->status, 200) << r->body;
    const Json lazy = Json::parse(r->body);
    EXPECT_FALSE(lazy.contains("pegging"));
    const std::string id = lazy.at("pegging_id").get<std::string>();
    httplib::Client client("127.0.0.1", port_);
    auto get = [&](const std::string& path, const std::string& token) {
      return client.Get(path, {{"Authorization", "Bearer " + token}});
    };
    for (size_t row = 0; row < report.at("pegging").size(); ++row) {
      auto one = get("/api/pegging/" + id + "/" + std::to_string(row), planner_);
      ASSERT_EQ(one->status, 200) << one->body;
      const Json table = Json::parse(one->body);
      Json pegs = Json::array();
      for (const auto& values : table.at("rows")) {
        Json peg = Json::object();
        for (size_t k = 0; k < values.size(); ++k) peg[table.at("columns")[k].get<std::string>()] = values[k];
        pegs.push_back(peg);
      }
      EXPECT_EQ(pegs, report.at("pegging")[row]) << row;
    }
    EXPECT_EQ(get("/api/pegging/" + id + "/0", admin_)->status, 404);  // not his
    EXPECT_EQ(get("/api/pegging/" + id + "/99999", planner_)->status, 404);
    ASSERT_EQ(Post("/api/report", body, planner_)->status, 200);
    EXPECT_EQ(get("/api/pegging/" + id + "/0", planner_)->status, 404);  // replaced
  }
  // Exactly the lines named: one line of the order, every peg from it.
  r = Post("/api/report",
           R"({"lines": [{"type": 81, "inter_id": 1, "entry_id": 2}], "warehouses": "11"})",
           planner_);
  ASSERT_EQ(r->status, 200) << r->body;
  const Json one = Json::parse(r->body);
  ASSERT_GT(one.at("rows").size(), 0u);
  for (const auto& pegs : one.at("pegging")) {
    for (const auto& peg : pegs) {
      EXPECT_EQ(peg.at("FInterID"), 1);
      EXPECT_EQ(peg.at("FEntryID"), 2) << peg.dump();
    }
  }
  r = Post("/api/report", R"({"lines": [{"type": 81, "inter_id": 1, "entry_id": 99}]})", planner_);
  EXPECT_EQ(r->status, 422) << r->body;
  EXPECT_EQ(Post("/api/report", R"({"lines": [{"type": "x"}]})", planner_)->status, 400);

  const std::string rows = Json{{"rows", report.at("rows")}}.dump();
  r = Post("/api/export/report.xlsx", rows, planner_);
  ASSERT_EQ(r->status, 200);
  {
    // The workbook holds the rows sent: their codes and quantities, cell by cell.
    const std::string book = ::testing::TempDir() + "export-" + std::to_string(::getpid()) + ".xlsx";
    std::ofstream(book, std::ios::binary) << r->body;
    const auto sheet = ReadWorkbook(book);
    std::remove(book.c_str());
    const auto& sent = report.at("rows");
    ASSERT_EQ(sheet.size(), sent.size() + 1);
    const auto& header = sheet[0];
    const size_t code = std::find(header.begin(), header.end(), "FItemNumber") - header.begin();
    const size_t need = std::find(header.begin(), header.end(), "FNeedQty") - header.begin();
    ASSERT_LT(std::max(code, need), header.size());
    for (size_t i = 0; i < sent.size(); ++i) {
      EXPECT_EQ(sheet[i + 1].at(code), sent[i].at("FItemNumber").get<std::string>()) << i;
      EXPECT_DOUBLE_EQ(std::stod(sheet[i + 1].at(need)), sent[i].at("FNeedQty").get<double>()) << i;
    }
  }
  r = Post("/api/export/report.csv", rows, planner_);
  EXPECT_EQ(r->body.rfind("FItemID,FBOMItemID,", 0), 0u) << r->body.substr(0, 60);
  // A text a spreadsheet would take for a formula is neutralised; numbers stay.
  r = Post("/api/export/x.csv",
           R"({"rows": [{"a": "=1+2", "b": "+x", "c": "-y", "d": "@z", "e": -5, "f": "ok"}]})",
           planner_);
  EXPECT_EQ(r->body, "a,b,c,d,e,f\n'=1+2,'+x,'-y,'@z,-5,ok\n");
  EXPECT_EQ(Post("/api/export/report.pdf", rows, planner_)->status, 404);

  // Messages in the language the caller asks for; Chinese by default.
  const std::string path = "/api/call/ZUVMMrpCalculate.MrpDataServer/checkMustInput";
  const std::string args = Json{{"args", {3, 3003, "3.03", ""}}}.dump();
  httplib::Client client("127.0.0.1", port_);
  auto answer = [&](const char* language) {
    httplib::Headers headers = {{"Authorization", "Bearer " + planner_}};
    if (language) headers.emplace("Accept-Language", language);
    return Json::parse(client.Post(path, headers, args, "application/json")->body).at("result");
  };
  EXPECT_EQ(answer(nullptr), "第3行，物料【3.03】的辅助属性不能为空！\n");
  EXPECT_EQ(answer("en-GB,en;q=0.8"),
            "Line 3: the auxiliary property of material [3.03] must not be empty!\n");
}

TEST_P(Http, EightClientsAtOnceAllAnsweredRight) {
  const std::string body = Json{{"args", {"IC", "BOMType"}}}.dump();
  const std::string report =
      R"({"bills": ["SEORD000001", "WORK000001"], "switches": {"NowStock": true}})";
  const std::string first = Post("/api/report", report, planner_)->body;
  std::atomic<int> wrong{0};
  std::vector<std::thread> clients;
  for (int k = 0; k < 8; ++k) {
    clients.emplace_back([&] {
      for (int i = 0; i < 10; ++i) {
        auto r = Post("/api/report", report, planner_);
        if (!r || r->status != 200 || r->body != first) ++wrong;
      }
    });
  }
  for (auto& c : clients) c.join();
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace mrpcalc::testing

namespace mrpcalc::testing {
namespace {

class HttpPhased : public Http {
 protected:
  httplib::Result Send(const std::string& method, const std::string& path, const Json& body = {},
                       const std::string& language = "") {
    httplib::Client client("127.0.0.1", port_);
    httplib::Headers headers = {{"Authorization", "Bearer " + planner_}};
    if (!language.empty()) headers.emplace("Accept-Language", language);
    if (method == "GET") return client.Get(path, headers);
    if (method == "DELETE") return client.Delete(path, headers);
    if (method == "PUT") return client.Put(path, headers, body.dump(), "application/json");
    return client.Post(path, headers, body.dump(), "application/json");
  }
  static Json Column(const Json& table, const std::string& name) {
    const auto& columns = table.at("columns");
    const size_t k = size_t(std::find(columns.begin(), columns.end(), name) - columns.begin());
    Json out = Json::array();
    for (const auto& row : table.at("rows")) out.push_back(row.at(k));
    return out;
  }
};
MRPCALC_ALL_SCHEMAS(HttpPhased);

// The plan over HTTP, as the workbench uses it: parameters and a holiday
// set, a saved run, an item's weeks, one order's reasons and pegging, and
// what changed from the run before.
TEST_P(HttpPhased, PlansKeepsRunsAndExplainsEachOrder) {
  const Json request = {{"switches", {{"NowStock", true}, {"Moving", true}, {"Producing", true}}},
                        {"today", "2026-11-30"}, {"save", true}};
  auto first = Send("POST", "/api/phased", request);
  ASSERT_EQ(first->status, 200) << first->body;
  auto r = Send("PUT", "/api/phased/params",
                {{"item", "3.02"}, {"min", 100}, {"multiple", 50}, {"lead_time", 5}});
  ASSERT_EQ(r->status, 200) << r->body;
  r = Send("PUT", "/api/phased/calendar", {{"add", {"2026-11-27"}}});
  ASSERT_EQ(r->status, 200) << r->body;
  EXPECT_EQ(Json::parse(r->body)["holidays"], Json({"2026-11-27"}));
  r = Send("PUT", "/api/phased/calendar", {{"working", {false, false, false, false, false, false, false}}});
  EXPECT_EQ(r->status, 422) << r->body;

  auto second = Send("POST", "/api/phased", request);
  ASSERT_EQ(second->status, 200) << second->body;
  const Json plan = Json::parse(second->body);
  EXPECT_EQ(plan["run_id"].get<int>(), Json::parse(first->body)["run_id"].get<int>() + 1);
  const Json numbers = Column(plan["items"], "FItemNumber");
  const size_t k = size_t(std::find(numbers.begin(), numbers.end(), "3.02") - numbers.begin());
  ASSERT_LT(k, numbers.size());
  const int32_t bolts = Column(plan["items"], "FItemID")[k];
  EXPECT_EQ(Column(plan["items"], "FLate")[k], 2);  // both its orders are released late
  const std::string id = plan["plan_id"];
  r = Send("GET", "/api/phased/" + id + "/orders?item=" + std::to_string(bolts));
  ASSERT_EQ(r->status, 200) << r->body;
  const Json orders = Json::parse(r->body);
  EXPECT_EQ(Column(orders, "FQty")[0], 100);
  EXPECT_EQ(Column(orders, "FLate")[0], 1);
  const int n = Column(orders, "FOrder")[0];
  r = Send("GET", "/api/phased/" + id + "/order/" + std::to_string(n), {}, "en");
  ASSERT_EQ(r->status, 200) << r->body;
  const Json order = Json::parse(r->body);
  EXPECT_EQ(order["reasons"][1], "raised to the minimum 100");
  EXPECT_EQ(order["reasons"][3], "7 days late");
  // The service's language unless the request asks for English.
  r = Send("GET", "/api/phased/" + id + "/order/" + std::to_string(n));
  EXPECT_EQ(Json::parse(r->body)["reasons"][1], "提高到最小订购量 100") << r->body;
  EXPECT_EQ(Json::parse(r->body)["reasons"][3], "延迟 7 天") << r->body;
  EXPECT_EQ(Column(orders, "FReasons")[0], "净需求 80; 提高到最小订购量 100; 提前期 5 个工作日; 延迟 7 天");
  EXPECT_FALSE(order["pegs"]["rows"].empty());

  r = Send("GET", "/api/phased/" + id + "/buckets?size=week&item=" + std::to_string(bolts));
  ASSERT_EQ(r->status, 200) << r->body;
  const Json weeks = Json::parse(r->body);
  EXPECT_EQ(Column(weeks, "FFrom")[0], "2026-11-23");  // the week of the first release
  double releases = 0;
  for (const auto& q : Column(weeks, "FPlannedReleases")) releases += q.get<double>();
  double planned = 0;
  for (const auto& q : Column(orders, "FQty")) planned += q.get<double>();
  EXPECT_NEAR(releases, planned, 1e-9);
  EXPECT_NEAR(Column(plan["items"], "FQty")[k].get<double>(), planned, 1e-9);
  // Every planned purchase is in its supplier's line.
  r = Send("GET", "/api/phased/" + id + "/orders?kind=purchase");
  ASSERT_EQ(r->status, 200) << r->body;
  double bought = 0, by_supplier = 0;
  for (const auto& q : Column(Json::parse(r->body), "FQty")) bought += q.get<double>();
  for (const auto& q : Column(plan["suppliers"], "FQty")) by_supplier += q.get<double>();
  EXPECT_GT(bought, 0);
  EXPECT_NEAR(bought, by_supplier, 1e-6);
  EXPECT_EQ(Send("GET", "/api/phased/" + id + "/orders?kind=other")->status, 422);

  r = Send("GET", "/api/phased/diff?before=" + std::to_string(plan["run_id"].get<int>() - 1) +
                      "&after=" + std::to_string(plan["run_id"].get<int>()));
  ASSERT_EQ(r->status, 200) << r->body;
  for (const auto& number : Column(Json::parse(r->body), "FItemNumber")) EXPECT_EQ(number, "3.02");
  // An older plan's id, another run's number and a bad item are refused.
  EXPECT_EQ(Send("GET", "/api/phased/" + Json::parse(first->body)["plan_id"].get<std::string>() +
                            "/order/0")->status, 404);
  EXPECT_EQ(Send("GET", "/api/phased/diff?before=1&after=99")->status, 404);
  EXPECT_EQ(Send("GET", "/api/phased/diff?before=x&after=1")->status, 422);
  EXPECT_EQ(Send("PUT", "/api/phased/params", {{"item", "nope"}})->status, 404);
  EXPECT_EQ(Send("DELETE", "/api/phased/params?item=3.02")->status, 200);
  EXPECT_EQ(Send("DELETE", "/api/phased/params?item=3.02")->status, 404);
}

}  // namespace
}  // namespace mrpcalc::testing
