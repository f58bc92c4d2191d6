// The database suite: the same tests on SQLite and on PostgreSQL via ODBC.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <future>

#include "expect_error.h"
#include "db_fixture.h"
#include "mrp/open_demand.h"
#include "record/error.h"
#include "sample/demo_data.h"
#include "schema/erp_schema.h"

namespace mrpcalc::testing {
namespace {

using db::Params;

class Database : public DbTest {};
MRPCALC_ALL_ENGINES(Database);

void CreateProbe(db::Connection& c) {
  c.Execute(c.dialect().CreateTable("t_Probe", {{"FID", db::ColumnType::kInt},
                                                {"FQty", db::ColumnType::kDecimal},
                                                {"FRate", db::ColumnType::kFloat},
                                                {"FName", db::ColumnType::kVarchar, 80},
                                                {"FDate", db::ColumnType::kDateTime}}));
}

TEST_P(Database, ValuesMapByDeclaredType) {
  CreateProbe(conn());
  conn().Execute("insert into t_Probe (FID, FQty, FRate, FName, FDate) values (?,?,?,?,?)",
                 {int32_t{7}, 5.0, 13.0, "铝管", *Date::Parse("2026-11-22 08:30:00")});
  conn().Execute("insert into t_Probe (FID, FQty, FRate, FName, FDate) values (?,?,?,?,?)",
                 {int32_t{8}, Variant::Null(), Variant(), Variant::Null(), Variant::Null()});
  auto rs = conn().Query("select FID, FQty, FRate, FName, FDate from t_Probe order by FID");
  ASSERT_EQ(rs->RecordCount(), 2u);
  const auto& r = rs->rows()[0];
  // A decimal holding a whole number still reads as Double, as declared.
  EXPECT_EQ(r[0], Variant(int32_t{7}));
  EXPECT_EQ(r[1], Variant(5.0));
  EXPECT_EQ(r[2], Variant(13.0));
  EXPECT_EQ(r[3], Variant("铝管"));
  EXPECT_EQ(r[4], Variant(*Date::Parse("2026-11-22 08:30:00")));
  for (size_t i = 1; i < rs->rows()[1].size(); ++i) EXPECT_TRUE(rs->rows()[1][i].IsNull()) << i;
  // Labels keep the schema's spelling whatever the engine does with case.
  EXPECT_EQ(rs->columns()[0], "FID");
  EXPECT_EQ(rs->columns()[1], "FQty");
}

// A reader beside a session sees what is committed, not the session's open
// transaction; on SQLite it cannot write at all.
TEST_P(Database, AReaderBesideTheSessionSeesWhatIsCommitted) {
  CreateProbe(conn());
  conn().Execute("insert into t_Probe (FID) values (1)");
  db::ConnectionPtr reader = conn().OpenReader();
  ASSERT_NE(reader, nullptr);
  auto count = [&] { return reader->QueryValue("select count(*) from t_Probe").ToLong(); };
  conn().Begin();
  conn().Execute("insert into t_Probe (FID) values (2)");
  EXPECT_EQ(count(), 1);
  if (GetParam() == "sqlite") {
    try {
      reader->Execute("insert into t_Probe (FID) values (3)");
      FAIL() << "a reader wrote";
    } catch (const Error& e) {
      EXPECT_EQ(e.category(), ErrorCategory::kDatabase);
    }
    EXPECT_EQ(db::Open("sqlite::memory:")->OpenReader(), nullptr);  // another database each
  }
  conn().Commit();
  EXPECT_EQ(count(), 2);
  // What opens a reader holds nothing of the session it came from: it opens
  // one on another thread, after that session is closed.
  db::ConnectionPtr session = db::Open(dsn());
  auto open = session->ReaderOpener();
  ASSERT_TRUE(open);
  session.reset();
  db::ConnectionPtr late = std::async(std::launch::async, open).get();
  EXPECT_EQ(late->QueryValue("select count(*) from t_Probe").ToLong(), 2);
}

// A row seen as a view says what QueryRows would give for every column:
// declared types and stored values of every kind, NULLs, texts in numeric
// columns, dates and bits, numbers beyond 32 bits, expressions.
TEST_P(Database, RowViewsSayWhatRowsGive) {
  CreateProbe(conn());
  conn().Execute(
      conn().dialect().CreateTable("t_Kinds", {{"FInt", db::ColumnType::kInt},
                                               {"FBig", db::ColumnType::kBigInt},
                                               {"FBit", db::ColumnType::kBit},
                                               {"FText", db::ColumnType::kVarchar, 40}}));
  conn().Execute("insert into t_Probe (FID, FQty, FRate, FName, FDate) values (?,?,?,?,?)",
                 {int32_t{7}, 5.0, 13.25, "铝管", *Date::Parse("2026-11-22 08:30:00")});
  conn().Execute("insert into t_Probe (FID, FQty, FRate, FName, FDate) values (?,?,?,?,?)",
                 {int32_t{-3}, 2.5, Variant::Null(), "", Variant::Null()});
  conn().Execute("insert into t_Kinds values (?, ?, ?, ?)",
                 {int32_t{1}, 5000000000.0, int32_t{1}, "12"});
  conn().Execute("insert into t_Kinds values (?, ?, ?, ?)",
                 {Variant::Null(), int32_t{4}, int32_t{0}, Variant::Null()});
  if (GetParam() == "sqlite") {  // what only a typeless engine stores
    conn().Execute(
        "insert into t_Probe (FID, FQty, FName, FDate) values ('x', 'n/a', 12, 'never')");
  }
  const std::string expression = conn().dialect().engine() == db::Engine::kPostgres
                                     ? "select 1, 2.5, 'x', null, cast(3000000000 as bigint)"
                                     : "select 1, 2.5, 'x', null, 3000000000";
  using Kind = db::RowView::Kind;
  int values = 0;
  for (const std::string& sql :
       {std::string("select FID, FQty, FRate, FName, FDate from t_Probe"),
        std::string("select FInt, FBig, FBit, FText from t_Kinds"), expression}) {
    std::vector<std::vector<Variant>> rows;
    conn().QueryRows(sql, {}, [&](std::vector<Variant>& r) { rows.push_back(r); });
    size_t at = 0;
    conn().QueryView(sql, {}, [&](const db::RowView& view) {
      ASSERT_LT(at, rows.size());
      const std::vector<Variant>& row = rows[at++];
      for (int i = 0; i < static_cast<int>(row.size()); ++i) {
        const Variant& v = row[static_cast<size_t>(i)];
        const std::string where =
            sql + " row " + std::to_string(at) + " column " + std::to_string(i);
        EXPECT_EQ(view.value(i), v) << where;
        switch (view.kind(i)) {
          case Kind::kNull:
            EXPECT_TRUE(v.IsNull()) << where;
            break;
          case Kind::kInteger:
            EXPECT_TRUE(v.AsLong() || v.AsDouble()) << where;
            EXPECT_EQ(static_cast<double>(view.integer(i)), v.ToDouble()) << where;
            break;
          case Kind::kFloat:
            ASSERT_TRUE(v.AsDouble()) << where;
            EXPECT_EQ(view.number(i), *v.AsDouble()) << where;
            break;
          case Kind::kText:
            ASSERT_TRUE(v.AsString()) << where;
            EXPECT_EQ(view.text(i), *v.AsString()) << where;
            break;
          case Kind::kOther:
            EXPECT_TRUE(v.AsDate() || v.AsBoolean() || v.AsString()) << where;
            break;
        }
        ++values;
      }
    });
    EXPECT_EQ(at, rows.size()) << sql;
  }
  EXPECT_GE(values, 23);
  if (GetParam() == "sqlite") {  // texts stay texts whatever the column declares
    const auto rs = conn().Query("select FID, FQty, FName, FDate from t_Probe where FID = 'x'");
    ASSERT_EQ(rs->RecordCount(), 1u);
    EXPECT_EQ(rs->rows()[0][0], Variant("x"));
    EXPECT_EQ(rs->rows()[0][1], Variant("n/a"));
    EXPECT_EQ(rs->rows()[0][2], Variant("12"));
    EXPECT_EQ(rs->rows()[0][3], Variant("never"));
  }
}

TEST_P(Database, ExpressionsTypeByValue) {
  auto rs = conn().Query("select 1+1 as n, 2.5 as d, 'x' as s");
  EXPECT_EQ(rs->rows()[0][0], Variant(int32_t{2}));
  EXPECT_EQ(rs->rows()[0][1], Variant(2.5));
  EXPECT_EQ(rs->rows()[0][2], Variant("x"));
  EXPECT_TRUE(conn().QueryValue("select 1 where 1=0").IsEmpty());
}

TEST_P(Database, ApostrophesAndQuotesRoundTrip) {
  schema::CreateErpSchema(conn(), false);
  const std::string name = "O'Brien \"Fasteners\"; drop table t_Supplier;--";
  conn().Execute("insert into t_Supplier (FItemID, FNumber, FName) values (?,?,?)",
                 {int32_t{9}, "S'09", name});
  EXPECT_EQ(conn().QueryValue("select FName from t_Supplier where FNumber = ?", {"S'09"}).ToText(),
            name);
  EXPECT_TRUE(conn().TableExists("t_Supplier"));
}

TEST_P(Database, IdListsAreParsedNeverSpliced) {
  schema::CreateErpSchema(conn(), false);
  try {
    db::ParseIdList("1,2);drop table t_Item;--", "warehouse list");
    FAIL() << "a malformed list must be refused";
  } catch (const Error& e) {
    EXPECT_EQ(e.category(), ErrorCategory::kInvalidInput);
    EXPECT_STREQ(e.what(),
                 "warehouse list \"1,2);drop table t_Item;--\" is not a comma-separated list of "
                 "integer ids: \"2);drop table t_Item;--\" is not an id");
  }
  EXPECT_TRUE(conn().TableExists("t_Item"));
  EXPECT_EQ(db::ParseIdList(" 3, 5 ", "list"), (std::vector<int32_t>{3, 5}));
  EXPECT_TRUE(db::ParseIdList("  ", "list").empty());
  EXPECT_ERROR(db::ParseIdList("3,,5", "list"), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(db::ParseIdList("99999999999", "list"), ErrorCategory::kInvalidInput, "");
  EXPECT_EQ(db::JoinIds({3, 5}), "3,5");
  EXPECT_ERROR(db::CheckIdentifier("POOrder;drop", "table"), ErrorCategory::kInvalidInput, "");
  EXPECT_EQ(db::CheckIdentifier("POOrder", "table"), "POOrder");
}

TEST_P(Database, TransactionsRollBackUnlessCommitted) {
  CreateProbe(conn());
  {
    db::Transaction tx(conn());
    conn().Execute("insert into t_Probe (FID) values (?)", {int32_t{1}});
  }
  EXPECT_EQ(conn().QueryValue("select count(*) from t_Probe").ToLong(), 0);
  {
    db::Transaction tx(conn());
    conn().Execute("insert into t_Probe (FID) values (?)", {int32_t{2}});
    // A failed statement inside the transaction: the server may refuse
    // everything after it until the rollback; the guard takes care of that.
    EXPECT_ERROR(conn().Execute("insert into t_NoSuchTable values (1)"), ErrorCategory::kDatabase, "");
  }
  EXPECT_EQ(conn().QueryValue("select count(*) from t_Probe").ToLong(), 0);
  {
    db::Transaction tx(conn());
    conn().Execute("insert into t_Probe (FID) values (?)", {int32_t{3}});
    tx.Commit();
  }
  EXPECT_EQ(conn().QueryValue("select FID from t_Probe").ToLong(), 3);
}

TEST_P(Database, ErrorsCarryTheEngineText) {
  try {
    conn().Query("select * from t_NoSuchTable");
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(e.category(), ErrorCategory::kDatabase);
    const std::string text = e.what();
    EXPECT_TRUE(text.find("no such table") != std::string::npos ||
                text.find("does not exist") != std::string::npos)
        << text;
    EXPECT_FALSE(e.context().empty());
  }
}

TEST_P(Database, PreparedStatementsRunManyTimes) {
  CreateProbe(conn());
  db::Transaction tx(conn());
  auto stmt = conn().Prepare("insert into t_Probe (FID, FQty, FName) values (?,?,?)");
  for (int i = 0; i < 100; ++i) stmt->Execute({int32_t{i}, i * 0.5, "n" + std::to_string(i)});
  tx.Commit();
  auto rs = conn().Query("select count(*), sum(FQty) from t_Probe");
  EXPECT_EQ(rs->rows()[0][0].ToLong(), 100);
  EXPECT_DOUBLE_EQ(rs->rows()[0][1].ToDouble(), 2475.0);
}

// Rows reach a sink one at a time; a sink that throws ends the query, and
// the connection (and the caller's transaction) go on working.
TEST_P(Database, RowsStreamToASink) {
  CreateProbe(conn());
  db::Transaction tx(conn());
  auto stmt = conn().Prepare("insert into t_Probe (FID, FName) values (?,?)");
  for (int i = 1; i <= 5; ++i) stmt->Execute({int32_t{i}, "n" + std::to_string(i)});
  std::vector<std::string> columns;
  std::vector<std::string> names;
  conn().QueryRows(
      "select FID, FName from t_Probe where FID > ? order by FID", {int32_t{2}},
      [&](std::vector<Variant>& row) {
        ASSERT_EQ(row.size(), 2u);
        names.push_back(*row[1].AsString());
        row[1] = Variant();  // the sink may take values; the next row is fresh
      },
      &columns);
  EXPECT_EQ(columns, (std::vector<std::string>{"FID", "FName"}));
  EXPECT_EQ(names, (std::vector<std::string>{"n3", "n4", "n5"}));

  int seen = 0;
  auto failing = [&](std::vector<Variant>&) {
    if (++seen == 2) ThrowInvalid("enough");
  };
  EXPECT_ERROR(conn().QueryRows("select FID from t_Probe order by FID", {}, failing), ErrorCategory::kInvalidInput, "");
  EXPECT_EQ(seen, 2);
  conn().Execute("insert into t_Probe (FID) values (6)");
  tx.Commit();
  EXPECT_EQ(conn().QueryValue("select count(*) from t_Probe").ToLong(), 6);
}

// Many rows of every kind, NULLs among them, texts that fill their column
// with characters beyond the basic plane, and a long text column: every
// row comes back whole and in order, across blocks of fetched rows.
TEST_P(Database, ManyRowsOfEveryKindComeBackWhole) {
  using T = db::ColumnType;
  conn().Execute(conn().dialect().CreateTable("t_Rows", {{"FID", T::kInt},
                                                         {"FQty", T::kDecimal},
                                                         {"FName", T::kVarchar, 6},
                                                         {"FDate", T::kDateTime},
                                                         {"FNote", T::kText},
                                                         {"FOn", T::kBit}}));
  const std::string long_note(5000, 'n');
  auto name = [](int i) { return i % 3 ? std::string("😀😀😀😀😀😀") : "行" + std::to_string(i % 100); };
  {
    db::Transaction tx(conn());
    auto insert = conn().Prepare(
        "insert into t_Rows (FID, FQty, FName, FDate, FNote, FOn) values (?,?,?,?,?,?)");
    for (int i = 0; i < 600; ++i) {
      const bool null = i % 7 == 0;
      insert->Execute(
          {i, null ? Variant::Null() : Variant(i / 8.0), null ? Variant::Null() : Variant(name(i)),
           null ? Variant::Null() : Variant(Date::FromParts(2026, 1 + i % 12, 1 + i % 28, i % 24)),
           null ? Variant::Null() : Variant(i % 2 ? long_note : "短"),
           null ? Variant::Null() : Variant(i % 2 == 0)});
    }
    tx.Commit();
  }
  for (const char* sql : {"select FID, FQty, FName, FDate, FOn from t_Rows order by FID",
                          "select FID, FQty, FName, FDate, FOn, FNote from t_Rows order by FID"}) {
    int expected = 0;
    conn().QueryRows(sql, {}, [&](std::vector<Variant>& r) {
      const int i = expected++;
      ASSERT_EQ(r[0], Variant(i)) << sql;
      if (i % 7 == 0) {
        for (size_t k = 1; k < r.size(); ++k) EXPECT_TRUE(r[k].IsNull()) << i << " " << k;
        return;
      }
      EXPECT_EQ(r[1], Variant(i / 8.0));
      EXPECT_EQ(r[2], Variant(name(i)));
      EXPECT_EQ(r[3], Variant(Date::FromParts(2026, 1 + i % 12, 1 + i % 28, i % 24)));
      EXPECT_EQ(r[4].ToBoolean(), i % 2 == 0);
      if (r.size() > 5) {
        EXPECT_EQ(r[5], Variant(i % 2 ? long_note : "短"));
      }
    });
    EXPECT_EQ(expected, 600) << sql;
  }
}

TEST_P(Database, DemoDatabaseHoldsEveryCase) {
  schema::CreateErpSchema(conn(), false);
  sample::LoadDemoData(conn());
  EXPECT_ERROR(schema::CreateErpSchema(conn(), false), ErrorCategory::kInvalidInput, "");  // never over existing tables
  // Every material class, a bill not in use, a virtual warehouse, a negative
  // balance, a deleted supplier.
  EXPECT_EQ(conn().QueryValue("select count(distinct FErpClsID) from t_ICItem").ToLong(), 4);
  EXPECT_EQ(conn().QueryValue("select count(*) from ICBOM where FUseStatus <> 1072").ToLong(), 1);
  EXPECT_EQ(conn().QueryValue("select count(*) from t_Stock where FTypeID = 502").ToLong(), 1);
  EXPECT_EQ(conn().QueryValue("select count(*) from ICInventory where FQty < 0").ToLong(), 1);
  EXPECT_EQ(conn().QueryValue("select FName from t_Supplier where FDeleted = 1").ToText(),
            "南方橡胶厂");
  // Dates stored by the demo come back as dates on every engine.
  EXPECT_EQ(conn().QueryValue("select FBeginDate from ICMO where FBillNo = ?", {"WORK000001"}),
            Variant(*Date::Parse("2026-12-01")));

  const auto demand = mrp::ListOpenDemand(conn());
  ASSERT_EQ(demand.size(), 7u);
  EXPECT_EQ(demand[1].bill_no, "SEORD000001");
  EXPECT_EQ(demand[1].entry_id, 2);
  EXPECT_DOUBLE_EQ(demand[1].open_qty, 6.0);  // 10 ordered, 4 delivered
  EXPECT_EQ(demand.back().tran_type, kTranOutsourcingTask);
  EXPECT_EQ(demand.back().item_name, "车轮组件");

  schema::CreateErpSchema(conn(), true);  // --replace starts again from empty tables
  EXPECT_EQ(conn().QueryValue("select count(*) from t_ICItem").ToLong(), 0);
}

TEST(DatabaseOpen, RefusesUnknownDescriptions) {
  EXPECT_ERROR(db::Open("mysql:whatever"), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(db::Open("sqlite:"), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(db::Open("odbc:  "), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(db::Open("sqlite:/nonexistent-dir/x/y.db"), ErrorCategory::kDatabase,
               "cannot open SQLite database");
}

TEST(DatabaseOpen, SqliteReadsDateOnlyText) {
  auto c = db::Open(FreshDsn("sqlite"));
  c->Execute("create table t_D (FDate datetime)");
  c->Execute("insert into t_D values ('2026-11-22')");
  EXPECT_EQ(c->QueryValue("select FDate from t_D"), Variant(*Date::Parse("2026-11-22")));
}

// A server that accepts the connection and never answers must not hang the
// caller: the login timeout ends the attempt within a few seconds.
TEST(DatabaseOpen, OdbcLoginTimesOutOnASilentServer) {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_GE(listener, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  ASSERT_EQ(::listen(listener, 8), 0);
  socklen_t len = sizeof addr;
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &len);
  const int port = ntohs(addr.sin_port);

  db::OpenOptions options;
  options.login_timeout_seconds = 2;
  const auto start = std::chrono::steady_clock::now();
  try {
    db::Open("odbc:Driver={PostgreSQL Unicode};Servername=127.0.0.1;Port=" + std::to_string(port) +
                 ";Database=erp;UID=nobody;",
             options);
    ADD_FAILURE() << "connected to a server that never answers";
  } catch (const Error& e) {
    EXPECT_EQ(e.category(), ErrorCategory::kDatabase);
    EXPECT_NE(e.context().find("while connecting to"), std::string::npos) << e.context();
  }
  const auto seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_LT(seconds, 8.0);
  ::close(listener);
}

}  // namespace
}  // namespace mrpcalc::testing
