// Writes survive a process killed at any point: a child runs purchase-order
// generations, plan saves and pushes without end and is killed (SIGKILL) at
// a random moment, many times over; then every order and plan is whole or
// absent, no number or interior id was given twice, and the next
// generation works. MRPCALC_KILLS sets the number of kills (default 12).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>

#include "db_fixture.h"
#include "mrpserver/mrp_data_server.h"
#include "purchaseplan/purchase_plan.h"
#include "services/host_config.h"

namespace mrpcalc::testing {
namespace {

// The buyer's work, over and over: orders from a confirmation, a plan, its
// lines pushed into orders.
[[noreturn]] void WriteForever(const std::string& dsn) {
  const Host host = MakeStandaloneHost(HostConfig{});
  MrpDataServer server(host);
  PurchasePlanUpdate update(host);
  auto c = db::Open(dsn);
  for (;;) {
    server.MakePOOrderBill(dsn, Rows({OrderLine(1, 3001, 10, 10, 13), OrderLine(2, 3002, 100, 10, 13)}), 16,
                           *Date::Parse("2026-11-22"));
    const std::string plan = update.UpdatePurchasePlan(
        dsn, Rows({}), Rows({PlanLine(3001, "S001", 150, 3), PlanLine(3004, "S002", 3, 1)}), 16);
    const int32_t id =
        c->QueryValue("select FInterID from PurchasePlan where FBillNo = ?", {plan}).ToLong();
    auto push = Vector::Create();
    c->QueryRows(
        "select FEntryID, FItemID, FSupplyID, FQty from PurchasePlanEntry where FInterID = ?",
        {id}, [&](std::vector<Variant>& r) {
          const std::string key = std::to_string(id) + "_" + r[0].ToText();
          const int entry = r[0].ToLong(), item = r[1].ToLong();
          push->Add(PushLine(key, r[2].ToLong(), item, r[3].ToDouble(), 10, 0, 13,
                             {{id, entry, r[3].ToDouble()}}));
        });
    std::string ids;
    update.PushBill(dsn, push, 16, ids, *Date::Parse("2026-11-22"));
  }
}

class Crash : public DemoDbTest {
 protected:
  int64_t Count(const std::string& sql) { return conn().QueryValue(sql).ToLong(); }
};
MRPCALC_ALL_ENGINES(Crash);

TEST_P(Crash, AKilledWriterLeavesEverythingWholeOrAbsent) {
  const char* env = std::getenv("MRPCALC_KILLS");
  const int kills = env ? std::atoi(env) : 12;
  std::mt19937 rng(static_cast<unsigned>(::getpid()));
  const int64_t orders_before = Count("select count(*) from POOrder");
  for (int k = 0; k < kills; ++k) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      try {
        WriteForever(dsn());
      } catch (...) {
        ::_exit(3);
      }
    }
    // Some kills land during the login and the first statements, most in
    // the middle of the writing.
    std::this_thread::sleep_for(
        std::chrono::milliseconds(std::uniform_int_distribution<int>(5, 400)(rng)));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the writer stopped by itself: " << status;
  }
  if (engine() == "sqlite") {
    EXPECT_EQ(conn().QueryValue("pragma integrity_check").ToText(), "ok");
  }
  EXPECT_GT(Count("select count(*) from POOrder"), orders_before);  // work was done
  // Every order has lines and every line its order; every plan its lines;
  // every link its order.
  EXPECT_EQ(Count("select count(*) from POOrder h where not exists"
                  " (select 1 from POOrderEntry e where e.FInterID = h.FInterID)"),
            0);
  EXPECT_EQ(Count("select count(*) from POOrderEntry e where not exists"
                  " (select 1 from POOrder h where h.FInterID = e.FInterID)"),
            0);
  EXPECT_EQ(Count("select count(*) from PurchasePlan h where not exists"
                  " (select 1 from PurchasePlanEntry e where e.FInterID = h.FInterID)"),
            0);
  EXPECT_EQ(Count("select count(*) from PurchasePlanEntry e where not exists"
                  " (select 1 from PurchasePlan h where h.FInterID = e.FInterID)"),
            0);
  EXPECT_EQ(Count("select count(*) from PurchasePlanOrder l where not exists"
                  " (select 1 from POOrder h where h.FInterID = l.FInterID)"),
            0);
  // No number, no interior id given twice.
  for (const char* table : {"POOrder", "PurchasePlan"}) {
    const std::string t = table;
    const int64_t rows = Count("select count(*) from " + t);
    EXPECT_EQ(rows, Count("select count(distinct FInterID) from " + t)) << t;
    // A day's plan serials end at 999, as the ERP's numbers do; below that
    // every number is new.
    if (t == "POOrder" || rows <= 999) {
      EXPECT_EQ(rows, Count("select count(distinct FBillNo) from " + t)) << t;
    }
  }
  // And the next generation goes on from there.
  MrpDataServer server(MakeStandaloneHost(HostConfig{}));
  const int64_t before = Count("select count(*) from POOrder");
  VectorPtr made = server.MakePOOrderBill(dsn(), Rows({OrderLine(1, 3001, 10, 10, 13)}), 16,
                                          *Date::Parse("2026-11-22"));
  ASSERT_EQ(made->Count(), 1);
  EXPECT_EQ(Count("select count(*) from POOrder"), before + 1);
}

}  // namespace
}  // namespace mrpcalc::testing
