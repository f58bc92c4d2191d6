// The frame's unit of work, rights checks and numbering on every engine.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "expect_error.h"
#include "db_fixture.h"
#include "frame/component.h"
#include "frame/context.h"
#include "schema/erp_schema.h"
#include "services/host_config.h"
#include "services/idempotency.h"
#include "services/numbering.h"
#include "services/profile.h"
#include "services/rights.h"

namespace mrpcalc::testing {
namespace {

class Services : public DemoDbTest {};
MRPCALC_ALL_SCHEMAS(Services);

class NoDataRights : public DataRights {
 public:
  bool Applies(int32_t, int16_t) override { return false; }
};

TEST_P(Services, Rights) {
  // User 1 is in group 1 and has nothing in t_GroupAccess.
  EXPECT_TRUE(IsAdministrator(conn(), 1));
  EXPECT_FALSE(HoldsRightsGroupOneRight(conn(), 1));
  // User 16 holds rights group 1 through his user group 20.
  EXPECT_FALSE(IsAdministrator(conn(), 16));
  EXPECT_TRUE(HoldsRightsGroupOneRight(conn(), 16));
  // User 17's only right has FType 0; user 99 has no rows at all.
  EXPECT_FALSE(HoldsRightsGroupOneRight(conn(), 17));
  EXPECT_FALSE(IsAdministrator(conn(), 99));
  EXPECT_FALSE(HoldsRightsGroupOneRight(conn(), 99));
  // A right held directly counts; one inherited with FType 0 does not.
  conn().Execute("insert into t_GroupAccess (FGroupID, FUserID, FType) values (1, 17, 1)");
  EXPECT_TRUE(HoldsRightsGroupOneRight(conn(), 17));
  NoDataRights none;
  const UserRights r = CheckUserRights(conn(), none, 16, kDataRightSuppliers);
  EXPECT_FALSE(r.SeesNothing());
  EXPECT_FALSE(r.Filtered());
  conn().Execute("update t_GroupAccess set FType = 0 where FUserID = 20");
  EXPECT_FALSE(HoldsRightsGroupOneRight(conn(), 16));
  EXPECT_TRUE(CheckUserRights(conn(), none, 16, kDataRightSuppliers).SeesNothing());
  EXPECT_TRUE(RightsTextNamesUser("11,12,", 1));  // the ERP's substring test, kept
  EXPECT_FALSE(RightsTextNamesUser("16,", 17));
}

TEST_P(Services, SystemProfileAndCurrencyScale) {
  EXPECT_EQ(GetSystemProfile(conn(), "IC", "BOMType", "9"), "1");
  EXPECT_EQ(GetSystemProfile(conn(), "IC", "NoSuchKey", "9"), "9");
  EXPECT_EQ(BaseCurrencyScale(conn()), 2);
  conn().Execute("update t_Currency set FScale = 3");
  EXPECT_EQ(BaseCurrencyScale(conn()), 3);
  conn().Execute("delete from t_Currency");
  EXPECT_EQ(BaseCurrencyScale(conn()), 2);
}

TEST_P(Services, InteriorIdsNeverRepeatTheTablesOwn) {
  BringOwnTablesUpToDate(conn());  // what a unit of work does first
  DatabaseNumbering numbering;
  db::Transaction tx(conn());
  // The demo's purchase orders hold ids 1..3.
  EXPECT_EQ(numbering.NextInteriorId(conn(), "POOrder"), 4);
  EXPECT_EQ(numbering.NextInteriorId(conn(), "POOrder"), 5);
  conn().Execute("insert into POOrder (FInterID, FBillNo, FSupplyID) values (500, 'X', 1)");
  EXPECT_EQ(numbering.NextInteriorId(conn(), "POOrder"), 501);
  EXPECT_EQ(numbering.NextInteriorId(conn(), "PurchasePlan"), 1);
  EXPECT_ERROR(numbering.NextInteriorId(conn(), "POOrder; drop table t_Item"), ErrorCategory::kInvalidInput, "");
  const Date day = *Date::Parse("2026-11-22 15:00:00");
  EXPECT_EQ(numbering.NewBillNumber(conn(), "71", day), "POORD202611220001");
  EXPECT_EQ(numbering.NewBillNumber(conn(), "71", day), "POORD202611220002");
  EXPECT_EQ(numbering.NewBillNumber(conn(), "71", *Date::Parse("2026-11-23")), "POORD202611230001");
  EXPECT_EQ(numbering.NewBillNumber(conn(), "85", day), "B85-202611220001");
  tx.Commit();
}

// Two processes draw 1,000 ids and 1,000 bill numbers each, every draw in a
// unit of work of its own, at the same time; all 2,000 must differ.
TEST_P(Services, ConcurrentProcessesNeverShareANumber) {
  constexpr int kDraws = 1000;
  BringOwnTablesUpToDate(conn());
  const auto lines = InChildProcesses(2, [&](int, std::ostream& out) {
    auto c = db::Open(dsn());
    DatabaseNumbering numbering;
    const Date day = *Date::Parse("2026-11-22");
    for (int i = 0; i < kDraws; ++i) {
      db::Transaction tx(*c);
      const int32_t id = numbering.NextInteriorId(*c, "POOrder");
      const std::string bill = numbering.NewBillNumber(*c, "71", day);
      tx.Commit();
      out << id << " " << bill << "\n";
    }
  });
  ASSERT_EQ(lines.size(), 2u * kDraws);
  EXPECT_EQ(DistinctWords(lines, 0), 2u * kDraws);  // interior ids
  EXPECT_EQ(DistinctWords(lines, 1), 2u * kDraws);  // bill numbers
}

// A class of our own whose method writes and then fails half-way.
class Writer : public ComponentObject {
 public:
  using ComponentObject::ComponentObject;
  void WriteThenFail(const std::string& dsn) {
    Run(dsn, [](db::Connection& c) {
      c.Execute("insert into t_Settle (FItemID, FName) values (9, 'written')");
      c.Execute("insert into t_NoSuchTable (FItemID) values (1)");
    });
  }
  void Write(const std::string& dsn, int id) {
    Run(dsn, [id](db::Connection& c) {
      c.Execute("insert into t_Settle (FItemID, FName) values (?, 'x')", {id});
    });
  }
};

TEST_P(Services, AFailedMethodLeavesTheDatabaseAsItWas) {
  std::string engine_text;
  try {
    conn().Execute("insert into t_NoSuchTable (FItemID) values (1)");
  } catch (const Error& e) {
    engine_text = e.what();
  }
  ASSERT_FALSE(engine_text.empty());

  Writer writer(MakeStandaloneHost(HostConfig{}));
  try {
    writer.WriteThenFail(dsn());
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(e.category(), ErrorCategory::kDatabase);
    EXPECT_EQ(std::string(e.what()), engine_text);  // the database's own text
  }
  EXPECT_EQ(conn().QueryValue("select count(*) from t_Settle where FItemID = 9").ToLong(), 0);
  // The same instance works again afterwards.
  writer.Write(dsn(), 10);
  EXPECT_EQ(conn().QueryValue("select count(*) from t_Settle where FItemID = 10").ToLong(), 1);
}

// On a database made before mrpcalc's tables, the first unit of work of a
// session creates them in units of their own: a call that fails leaves them
// in place and nothing of its own. An empty database gets none.
TEST_P(Services, OwnTablesComeBeforeTheFirstUnitOfWorkNeverInsideIt) {
  auto own_tables = [](db::Connection& c) {
    int present = 0;
    for (const auto& t : schema::OwnTables()) present += c.TableExists(t.name) ? 1 : 0;
    return present;
  };
  const int all = static_cast<int>(schema::OwnTables().size());
  EXPECT_EQ(own_tables(conn()), erp_columns_only() ? 0 : all);

  Writer writer(MakeStandaloneHost(HostConfig{}));
  EXPECT_ERROR(writer.WriteThenFail(dsn()), ErrorCategory::kDatabase, "");
  EXPECT_EQ(own_tables(conn()), all);
  EXPECT_EQ(conn().QueryValue("select count(*) from t_Settle where FItemID = 9").ToLong(), 0);
  // Up to date: the explicit step has nothing left to do, and refuses to
  // run inside a unit of work.
  EXPECT_TRUE(schema::UpgradeOwnTables(conn()).empty());
  db::Transaction tx(conn());
  try {
    schema::UpgradeOwnTables(conn());
    ADD_FAILURE() << "an upgrade ran inside a unit of work";
  } catch (const Error& e) {
    EXPECT_EQ(e.category(), ErrorCategory::kInternal);
  }
}

TEST(OwnTables, AnEmptyDatabaseGetsNoneUnlessAskedFor) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("mrpcalc-own-" + std::to_string(::getpid()) + ".sqlite");
  std::filesystem::remove(path);
  auto c = db::Open("sqlite:" + path.string());
  EXPECT_TRUE(schema::UpgradeOwnTables(*c, schema::Upgrade::kWithErpTables).empty());
  EXPECT_FALSE(c->TableExists("mrpcalc_Lock"));
  EXPECT_EQ(schema::UpgradeOwnTables(*c).size(), schema::OwnTables().size());
  EXPECT_TRUE(c->TableExists("mrpcalc_Lock"));
  c.reset();
  std::filesystem::remove(path);
}

// A keyed write runs once: a repeat gets the kept answer and writes
// nothing; the same key with another request is refused; a write that
// fails keeps nothing, so that its repeat runs.
TEST_P(Services, AKeyedWriteRunsOnce) {
  Writer writer(MakeStandaloneHost(HostConfig{}));
  int runs = 0;
  auto write = [&] {
    writer.Write(dsn(), 40 + runs++);
    return std::string("written");
  };
  const KeyedAnswer first = AnswerOnce(dsn(), {}, 16, "k-1", "digest", write);
  const KeyedAnswer again = AnswerOnce(dsn(), {}, 16, "k-1", "digest", write);
  EXPECT_FALSE(first.replayed);
  EXPECT_TRUE(again.replayed);
  EXPECT_EQ(again.body, "written");
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(conn().QueryValue("select count(*) from t_Settle where FItemID = 40").ToLong(), 1);
  EXPECT_ERROR(AnswerOnce(dsn(), {}, 16, "k-1", "another", write), ErrorCategory::kInvalidInput,
               "was sent before with another request");
  // Keys are the user's own: another user's k-1 is another write.
  AnswerOnce(dsn(), {}, 17, "k-1", "digest", write);
  EXPECT_EQ(runs, 2);

  EXPECT_ERROR(AnswerOnce(dsn(), {}, 16, "k-2", "digest",
                          [&]() -> std::string {
                            writer.WriteThenFail(dsn());
                            return "never";
                          }),
               ErrorCategory::kDatabase, "");
  EXPECT_EQ(conn().QueryValue("select count(*) from t_Settle where FItemID = 9").ToLong(), 0);
  EXPECT_EQ(AnswerOnce(dsn(), {}, 16, "k-2", "digest", write).replayed, false);
  EXPECT_ERROR(AnswerOnce(dsn(), {}, 16, "two words", "digest", write),
               ErrorCategory::kInvalidInput, "idempotency key");
}

// Two processes send the same key at once: one writes, both answer alike.
TEST_P(Services, AKeySentTwiceAtOnceWritesOnce) {
  BringOwnTablesUpToDate(conn());
  const auto lines = InChildProcesses(2, [&](int p, std::ostream& out) {
    Writer writer(MakeStandaloneHost(HostConfig{}));
    const KeyedAnswer a = AnswerOnce(dsn(), {}, 16, "same-key", "digest", [&] {
      writer.Write(dsn(), 50);
      std::this_thread::sleep_for(std::chrono::milliseconds(300));  // the other one arrives
      return "by " + std::to_string(p);
    });
    out << a.body << "\n";
  });
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], lines[1]);
  EXPECT_EQ(conn().QueryValue("select count(*) from t_Settle where FItemID = 50").ToLong(), 1);
}

TEST_P(Services, CallsJoinTheCallersUnitOfWork) {
  Writer writer(MakeStandaloneHost(HostConfig{}));
  {
    UnitOfWork unit(dsn());
    writer.Write(dsn(), 21);
    writer.Write(dsn(), 22);
    // Not committed behind the caller's back.
    auto other = db::Open(dsn());
    EXPECT_EQ(other->QueryValue("select count(*) from t_Settle where FItemID > 20").ToLong(), 0);
    unit.Commit();
  }
  EXPECT_EQ(conn().QueryValue("select count(*) from t_Settle where FItemID > 20").ToLong(), 2);
  {
    UnitOfWork unit(dsn());
    writer.Write(dsn(), 23);
    EXPECT_ERROR(writer.WriteThenFail(dsn()), ErrorCategory::kDatabase, "");
    EXPECT_TRUE(unit.aborted());
    EXPECT_ERROR(unit.Commit(), ErrorCategory::kInvalidInput, "");
  }
  EXPECT_EQ(conn().QueryValue("select count(*) from t_Settle where FItemID = 23").ToLong(), 0);
}

// A second session for reads is offered only to a call's own unit of work:
// never before a bind, inside a nested call or a caller's unit of work,
// whose changes not yet committed it would not see.
TEST_P(Services, ASideReaderOnlyForACallsOwnUnitOfWork) {
  StandaloneContext context;
  EXPECT_EQ(context.OpenReader(), nullptr);
  context.Bind(dsn());
  EXPECT_NE(context.OpenReader(), nullptr);
  context.Bind(dsn());
  EXPECT_EQ(context.OpenReader(), nullptr);
  context.SetComplete();
  EXPECT_NE(context.OpenReader(), nullptr);
  context.SetComplete();
  EXPECT_EQ(context.OpenReader(), nullptr);
  UnitOfWork unit(dsn());
  context.Bind(dsn());
  EXPECT_EQ(context.OpenReader(), nullptr);
  context.SetComplete();
}

TEST_P(Services, PooledSessionsComeBackOnlyOutsideATransaction) {
  auto pool = std::make_shared<ConnectionPool>();
  db::ConnectionPtr first = pool->Take(dsn());
  db::Connection* kept = first.get();
  pool->Give(dsn(), std::move(first));
  db::ConnectionPtr again = pool->Take(dsn());
  EXPECT_EQ(again.get(), kept);  // the same session, not a new login
  again->Begin();
  pool->Give(dsn(), std::move(again));  // in a transaction: dropped
  // (A new session may come at the freed one's address: what tells them
  // apart is the transaction.)
  EXPECT_FALSE(pool->Take(dsn())->InTransaction());
  // A context gives its session back when it ends, its work committed.
  {
    StandaloneContext context({}, pool);
    context.Bind(dsn());
    context.connection().Execute("insert into t_Settle (FItemID, FName) values (31, 'x')");
    context.SetComplete();
  }
  EXPECT_EQ(conn().QueryValue("select count(*) from t_Settle where FItemID = 31").ToLong(), 1);
  EXPECT_FALSE(pool->Take(dsn())->InTransaction());
}

// A session opened ahead is what the next Take on its description waits
// for, and only that; a login that failed fails that Take with its error.
TEST_P(Services, ASessionOpenedAheadGoesToTheNextTakeOnItsDescription) {
  ConnectionPool pool;
  const std::string nowhere = "sqlite:/no-such-folder/mrpcalc/x.db";
  pool.OpenAhead(nowhere);
  pool.OpenAhead(dsn());  // one at a time: this one is not opened ahead
  db::ConnectionPtr session = pool.Take(dsn());
  EXPECT_EQ(session->QueryValue("select 1").ToLong(), 1);
  try {
    pool.Take(nowhere);
    ADD_FAILURE() << "a session on a folder that does not exist";
  } catch (const Error& e) {
    EXPECT_EQ(e.category(), ErrorCategory::kDatabase) << e.what();
  }
  pool.OpenAhead(dsn());
  pool.Give(dsn(), std::move(session));
  db::ConnectionPtr ahead = pool.Take(dsn());
  db::ConnectionPtr idle = pool.Take(dsn());
  EXPECT_NE(ahead.get(), idle.get());
  EXPECT_FALSE(ahead->InTransaction());
  pool.OpenAhead(dsn());  // never taken: closed with the pool
}

}  // namespace
}  // namespace mrpcalc::testing
