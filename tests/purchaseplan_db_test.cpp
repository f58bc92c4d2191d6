// Purchase plans on the demo database, on every engine: numbering, source
// links, pricing, push, close, delete, write-back from orders, the report
// and a whole scenario with its final tables.
#include <cstdio>
#include <fstream>
#include <set>

#include "expect_error.h"
#include "db_fixture.h"
#include "purchaseplan/purchase_plan.h"
#include "purchaseplan/source_links.h"
#include "services/host_config.h"

namespace mrpcalc::testing {
namespace {

DictionaryPtr Task(int type, const char* bill, int inter_id, double qty) {
  return Row({{"Ftrantype", type}, {"FBillNO", bill}, {"FInterID", inter_id}, {"FQty", qty}});
}

DictionaryPtr SalesLine(int inter_id, int entry_id, double qty) {
  return Row({{"Ftrantype", 81},
              {"FBillNo", "SEORD"},
              {"FInterID", inter_id},
              {"FEntryID", entry_id},
              {"FQty", qty}});
}

class Plans : public DemoDbTest {
 protected:
  void SetUp() override {
    DemoDbTest::SetUp();
    ini_ = ::testing::TempDir() + "plans-" + std::to_string(::getpid()) + ".ini";
    std::remove(ini_.c_str());
  }
  void TearDown() override { std::remove(ini_.c_str()); }
  void Ini(const std::string& text) { std::ofstream(ini_) << text; }
  PurchasePlanUpdate Update(std::set<std::pair<int32_t, int16_t>> data_rights = {}) {
    return PurchasePlanUpdate(MakeStandaloneHost(Config(std::move(data_rights))));
  }
  PurchasePlanInfo Info(std::set<std::pair<int32_t, int16_t>> data_rights = {}) {
    return PurchasePlanInfo(MakeStandaloneHost(Config(std::move(data_rights))));
  }
  HostConfig Config(std::set<std::pair<int32_t, int16_t>> data_rights) {
    HostConfig config;
    config.ini_path = ini_;
    config.data_rights = std::move(data_rights);
    return config;
  }
  double Value(const std::string& sql) {
    const Variant v = conn().QueryValue(sql);
    return v.IsNull() ? -999 : v.ToDouble();
  }
  std::string Text(const std::string& sql) { return conn().QueryValue(sql).ToText(); }
  std::string Today() {
    const Date d = conn().QueryValue("select " + conn().dialect().Now()).ToDate();
    char buf[16];
    std::snprintf(buf, sizeof buf, "%04d%02d%02d", d.year(), d.month(), d.day());
    return buf;
  }
  bool Sqlite() { return conn().dialect().engine() == db::Engine::kSqlite; }
  // The rows of a query as text, one line each: what a scenario pins.
  std::string Dump(const std::string& sql) {
    std::string out;
    conn().QueryRows(sql, {}, [&](std::vector<Variant>& r) {
      for (size_t i = 0; i < r.size(); ++i)
        out += (i ? "|" : "") + (r[i].IsNull() ? "null" : r[i].ToText());
      out += "\n";
    });
    return out;
  }

  std::string ini_;
};
MRPCALC_ALL_SCHEMAS(Plans);

TEST(PlanNumbers, CommaListsAsTheErpKeepsThem) {
  EXPECT_EQ(plan::AddPlanNumber("", "P1"), "P1");
  EXPECT_EQ(plan::AddPlanNumber("P0", "P1"), "P0,P1");
  EXPECT_EQ(plan::AddPlanNumber("P0,P1", "P1"), "P0,P1");
  EXPECT_EQ(plan::AddPlanNumber("P12", "P1"), "P12");  // contained as a substring
  EXPECT_EQ(plan::RemovePlanNumber("A,B", "A"), "B");
  EXPECT_EQ(plan::RemovePlanNumber("A,B", "B"), ",A,");     // as it stands
  EXPECT_EQ(plan::RemovePlanNumber("A,B,C", "B"), ",A,C");  // gains a leading comma
  EXPECT_EQ(plan::RemovePlanNumber("A", "A"), ",");         // cleared when nothing is covered
}

TEST_P(Plans, SaveNumbersLinksAndBackReferences) {
  auto u = Update();
  const std::string today = Today();
  const std::string first = u.UpdatePurchasePlan(
      dsn(),
      Rows({Task(85, "WORK000001", 1, 10), SalesLine(1, 1, 20), Task(91, "OUT000001", 1, 4)}),
      Rows({PlanLine(3001, "S001", 150, 3, "it's"), PlanLine(3004, "S002", 3, 1)}), 16);
  EXPECT_EQ(first, "CJ" + today + "001");
  EXPECT_EQ(Value("select FInterID from PurchasePlan"), 1000);
  EXPECT_EQ(Value("select FBillerID from PurchasePlan"), 16);
  EXPECT_EQ(Value("select count(*) from PurchasePlanEntry where FInterID = 1000"), 2);
  EXPECT_EQ(Text("select FNote from PurchasePlanEntry where FEntryID = 1"), "it｀s");
  // Links: by position, the task's id found by its number.
  EXPECT_EQ(Dump("select FEntryID, FSourceTranType, FSourceInterId, FSourceFEntryID, FQty from "
                 "PurchaseLink order by FEntryID"),
            "1|85|1|0|10\n2|81|1|1|20\n3|91|1|0|4\n");
  // The legacy "0" became the plan number; the completion quantities rose,
  // a task by its unit's coefficient (the wheel sets' unit counts 1).
  EXPECT_EQ(Text("select FPurchasePlanBillNo from ICMO where FInterID = 1"), first);
  EXPECT_EQ(Value("select FStockFinishQty from ICMO where FInterID = 1"), 10);
  EXPECT_EQ(Text("select FPurchasePlanBillNo from ICOutMO where FInterID = 1"), first);
  EXPECT_EQ(
      Value("select FBaseUnitStockFinishQty from SEOrderEntry where FInterID = 1 and FEntryID = 1"),
      20);
  EXPECT_EQ(
      Text("select FPurchasePlanBillNo from SEOrderEntry where FInterID = 1 and FEntryID = 1"),
      first);

  // The next plan of the day; the same source is given each number once.
  const std::string second = u.UpdatePurchasePlan(dsn(), Rows({Task(85, "WORK000001", 1, 1)}),
                                                  Rows({PlanLine(3004, "S002", 1, 1)}), 16);
  EXPECT_EQ(second, "CJ" + today + "002");
  EXPECT_EQ(Value("select max(FInterID) from PurchasePlan"), 1001);
  EXPECT_EQ(Text("select FPurchasePlanBillNo from ICMO where FInterID = 1"), first + "," + second);
  conn().Execute("update ICMO set FPurchasePlanBillNo = ? where FInterID = 1", {second});
  u.UpdatePurchasePlan(dsn(), Rows({Task(85, "WORK000001", 1, 1)}), Rows({}), 16);
  // A plan of yesterday does not count; after serial 999 the serial is 000, and stays.
  conn().Execute("insert into PurchasePlan (FInterID, FBillNo) values (1500, 'CJ20000101998')");
  conn().Execute("insert into PurchasePlan (FInterID, FBillNo) values (1501, ?)",
                 {"CJ" + today + "999"});
  EXPECT_EQ(u.UpdatePurchasePlan(dsn(), Rows({}), Rows({}), 16), "CJ" + today + "000");
  EXPECT_EQ(u.UpdatePurchasePlan(dsn(), Rows({}), Rows({}), 16), "CJ" + today + "000");
  EXPECT_EQ(Value("select max(FInterID) from PurchasePlan"), 1503);

  // A source of another type: the whole save is refused, nothing written.
  const double plans = Value("select count(*) from PurchasePlan");
  EXPECT_ERROR(u.UpdatePurchasePlan(dsn(), Rows({Task(70, "X", 1, 1)}), Rows({}), 16), ErrorCategory::kInvalidInput, "");
  EXPECT_EQ(Value("select count(*) from PurchasePlan"), plans);
}

TEST_P(Plans, PricesFollowTheIniSetting) {
  conn().Execute(
      "insert into t_ICItem (FItemID, FNumber, FName, FErpClsID, FUnitID, FTaxRate)"
      " values (3999, '3.99', 'bare', 1, 1, 13)");
  conn().Execute("update t_ICItem set FOrderPrice = null where FItemID = 3999");
  auto u = Update();
  const auto lines = Rows({PlanLine(3001, "S001", 150, 3), PlanLine(3999, "S001", 5, 1)});
  u.UpdatePurchasePlan(dsn(), Rows({}), lines, 16);
  // Setting 0: the price-list band, unchanged by tax; no source at all: 0.
  EXPECT_DOUBLE_EQ(Value("select FPrice from PurchasePlanEntry where FItemID = 3001"), 18.9);
  EXPECT_DOUBLE_EQ(Value("select FAuxPrice from PurchasePlanEntry where FItemID = 3001"), 945);
  EXPECT_DOUBLE_EQ(Value("select FAuxQty from PurchasePlanEntry where FItemID = 3001"), 3);
  EXPECT_DOUBLE_EQ(Value("select FAmount from PurchasePlanEntry where FItemID = 3001"), 2835);
  EXPECT_DOUBLE_EQ(Value("select FPrice from PurchasePlanEntry where FItemID = 3999"), 0);
  EXPECT_DOUBLE_EQ(Value("select FAmount from PurchasePlanEntry where FItemID = 3999"), 0);
  // Setting 2: the last stock bill's price without tax (836.28 a roll of
  // 50 m), in metres, with 13 % tax put on.
  Ini("[frmBill]\nCGSrcPrice=2\n");
  u.UpdatePurchasePlan(dsn(), Rows({}), Rows({PlanLine(3001, "S001", 150, 3)}), 16);
  EXPECT_NEAR(Value("select FPrice from PurchasePlanEntry where FInterID = 1001"),
              836.28 / 50 * 1.13, 1e-9);
  // Setting 1: the last purchase order's tax-included price (18.9).
  Ini("[frmBill]\nCGSrcPrice=1\n");
  u.UpdatePurchasePlan(dsn(), Rows({}), Rows({PlanLine(3001, "S001", 10, 3)}), 16);
  EXPECT_DOUBLE_EQ(Value("select FPrice from PurchasePlanEntry where FInterID = 1002"), 18.9);
}

TEST_P(Plans, PushMakesOrdersAndRaisesThePlan) {
  auto u = Update();
  u.UpdatePurchasePlan(dsn(), Rows({}),
                       Rows({PlanLine(3001, "S001", 150, 3), PlanLine(3004, "S002", 3, 1),
                             PlanLine(3004, "S002", 5, 1)}),
                       16);
  std::string ids;
  // Line 1000_2 goes in two order lines; 1000_3 with it in the second.
  VectorPtr made = u.PushBill(
      dsn(),
      Rows({PushLine("1000_1", 1, 3001, 100, 18.9, 0, 13, {{1000, 1, 100}}, 3),
            PushLine("1000_2a", 2, 3004, 3, 10, 10, 17, {{1000, 2, 1}}),
            PushLine("1000_2b,1000_3", 2, 3004, 7, 10, 0, 17, {{1000, 2, 2}, {1000, 3, 5}})}),
      16, ids, *Date::Parse("2026-11-22"));
  ASSERT_EQ(made->Count(), 2);
  const int a = made->Item(1)->Get("FInterID").ToLong(),
            b = made->Item(2)->Get("FInterID").ToLong();
  EXPECT_EQ(ids, std::to_string(a) + "," + std::to_string(b));
  EXPECT_EQ(Value("select FPOStyle from POOrder where FInterID = " + std::to_string(a)), 252);
  // 3 x 10.00 at 10 % discount and 17 % tax, two decimals.
  const std::string line =
      " from POOrderEntry where FInterID = " + std::to_string(b) + " and FEntryID = 1";
  EXPECT_DOUBLE_EQ(Value("select FAllAmount" + line), 27);
  EXPECT_DOUBLE_EQ(Value("select FAmount" + line), 23.08);
  EXPECT_DOUBLE_EQ(Value("select FTaxAmount" + line), 3.92);
  EXPECT_DOUBLE_EQ(Value("select FDescount" + line), 3);
  EXPECT_DOUBLE_EQ(Value("select FTaxRate" + line), 10);  // the discount, in the order's naming
  EXPECT_DOUBLE_EQ(Value("select FCess" + line), 17);
  EXPECT_EQ(Text("select FPurchasePlanKey" + line), "1000_2a");
  // The tube in rolls of 50 m.
  EXPECT_DOUBLE_EQ(Value("select FAuxQty from POOrderEntry where FInterID = " + std::to_string(a)),
                   2);
  EXPECT_EQ(Value("select FUnitID from POOrderEntry where FInterID = " + std::to_string(a)), 4);
  // Plan line 2 rose once by both parts; fully purchased lines closed.
  EXPECT_DOUBLE_EQ(Value("select FPurchaseFinishQty from PurchasePlanEntry where FEntryID = 2"), 3);
  EXPECT_EQ(Dump("select FEntryID, FClosed, FPushQty from PurchasePlanEntry order by FEntryID"),
            "1|0|0\n2|1|0\n3|1|0\n");
  EXPECT_EQ(Value("select count(*) from PurchasePlanOrder"), 4);

  // A style named in the INI file, upper-cased.
  Ini("[frmBill]\nDefaultCGStyle=cg02\n");
  u.PushBill(dsn(), Rows({PushLine("1000_1", 1, 3001, 10, 18.9, 0, 13, {{1000, 1, 10}}, 3)}), 16,
             ids, *Date::Parse("2026-11-22"));
  EXPECT_EQ(Value("select FPOStyle from POOrder where FInterID = " + ids), 253);
  EXPECT_ERROR(u.PushBill(dsn(), Rows({}), 16, ids, Date()), ErrorCategory::kInvalidInput, "");
}

TEST_P(Plans, PushCopiesTemplateRelationsWithCheckedNames) {
  auto u = Update();
  u.UpdatePurchasePlan(dsn(), Rows({}), Rows({PlanLine(3001, "S001", 150, 3)}), 16);
  // The order's FPOOrdBillNo takes its supplier's name; the line's note
  // takes its item's code; a relation without a comma does nothing.
  conn().Execute(
      "insert into ICTemplate (FID, FFieldName, FDefaultCtl, FCtlType, FNeedSave, FRelationID,"
      " FAction) values ('P02', 'FPOOrdBillNo', 0, 30, 1,"
      " 'x,FSupplyID,t_Supplier,FItemID,FItemID,t_Supplier,FItemID,FName', 'A3'),"
      " ('P02', 'FBillNo', 0, 30, 1, 'single', 'A3')");
  conn().Execute(
      "insert into ICTemplateEntry (FID, FFieldName, FDefaultCtl, FCtlType, FNeedSave,"
      " FRelationID, FAction) values ('P02', 'FNote', 0, 30, 1,"
      " 'x,FItemID,t_ICItem,FItemID,FItemID,t_ICItem,FItemID,FNumber', 'xA3x')");
  std::string ids;
  const auto line = [] {
    return Rows({PushLine("1000_1", 1, 3001, 10, 18.9, 0, 13, {{1000, 1, 10}}, 3)});
  };
  u.PushBill(dsn(), line(), 16, ids, *Date::Parse("2026-11-22"));
  EXPECT_EQ(Text("select FPOOrdBillNo from POOrder where FInterID = " + ids), "华东铝业有限公司");
  EXPECT_EQ(Text("select FNote from POOrderEntry where FInterID = " + ids), "3.01");
  EXPECT_EQ(Text("select FBillNo from POOrder where FInterID = " + ids).substr(0, 5), "POORD");
  // A name that is not an identifier is refused before anything runs.
  conn().Execute(
      "update ICTemplateEntry set FRelationID ="
      " 'x,FItemID,t_ICItem,FItemID,FItemID,t_ICItem,FItemID,FNumber);drop table t_Item;--'");
  const double orders = Value("select count(*) from POOrder");
  EXPECT_ERROR(u.PushBill(dsn(), line(), 16, ids, *Date::Parse("2026-11-22")), ErrorCategory::kInvalidInput, "");
  EXPECT_EQ(Value("select count(*) from POOrder"), orders);
  EXPECT_TRUE(conn().TableExists("t_Item"));
}

TEST_P(Plans, AFailedPushLeavesEveryTableAsItWas) {
  auto u = Update();
  u.UpdatePurchasePlan(dsn(), Rows({}),
                       Rows({PlanLine(3001, "S001", 150, 3), PlanLine(3004, "S002", 3, 1)}), 16);
  if (Sqlite()) {
    conn().Execute(
        "create trigger refuse_po before insert on POOrder when new.FSupplyID = 2"
        " begin select raise(abort, 'injected failure'); end");
  } else {
    conn().Execute(
        "create function refuse_po() returns trigger language plpgsql as $$ begin"
        " if new.FSupplyID = 2 then raise exception 'injected failure'; end if;"
        " return new; end $$");
    conn().Execute(
        "create trigger refuse_po before insert on POOrder for each row"
        " execute function refuse_po()");
  }
  const std::string before = Dump("select * from PurchasePlanEntry order by FEntryID") +
                             Dump("select count(*) from POOrder") +
                             Dump("select count(*) from POOrderEntry") +
                             Dump("select count(*) from PurchasePlanOrder");
  std::string ids = "untouched";
  EXPECT_ERROR(u.PushBill(dsn(),
                          Rows({PushLine("1000_1", 1, 3001, 100, 18.9, 0, 13, {{1000, 1, 100}}, 3),
                                PushLine("1000_2", 2, 3004, 3, 10, 0, 17, {{1000, 2, 3}})}),
                          16, ids, *Date::Parse("2026-11-22")),
               ErrorCategory::kDatabase, "injected failure");
  EXPECT_EQ(Dump("select * from PurchasePlanEntry order by FEntryID") +
                Dump("select count(*) from POOrder") + Dump("select count(*) from POOrderEntry") +
                Dump("select count(*) from PurchasePlanOrder"),
            before);
  // No number was used up: the next order takes the first of the day.
  conn().Execute("drop trigger refuse_po" + std::string(Sqlite() ? "" : " on POOrder"));
  VectorPtr made =
      u.PushBill(dsn(), Rows({PushLine("1000_1", 1, 3001, 100, 18.9, 0, 13, {{1000, 1, 100}}, 3)}),
                 16, ids, *Date::Parse("2026-11-22"));
  EXPECT_EQ(made->Item(1)->Get("FBillNO").ToText().substr(13), "0001");
  EXPECT_EQ(made->Item(1)->Get("FInterID").ToLong(), 4);
}

TEST_P(Plans, AFailedSaveLeavesEveryTableAsItWas) {
  if (Sqlite()) {
    conn().Execute(
        "create trigger refuse_line before insert on PurchasePlanEntry"
        " when new.FItemID = 3004 begin select raise(abort, 'injected failure'); end");
  } else {
    conn().Execute(
        "create function refuse_line() returns trigger language plpgsql as $$ begin"
        " if new.FItemID = 3004 then raise exception 'injected failure'; end if;"
        " return new; end $$");
    conn().Execute(
        "create trigger refuse_line before insert on PurchasePlanEntry for each row"
        " execute function refuse_line()");
  }
  const auto tables = [&] {
    return Dump("select count(*) from PurchasePlan") + Dump("select count(*) from PurchaseLink") +
           Dump("select count(*) from PurchasePlanEntry") +
           Dump(
               "select FInterID, FStockFinishQty, FPurchasePlanBillNo from ICMO order by "
               "FInterID") +
           Dump(
               "select FInterID, FEntryID, FStockFinishQty, FBaseUnitStockFinishQty,"
               " FPurchasePlanBillNo from SEOrderEntry order by FInterID, FEntryID");
  };
  const std::string before = tables();
  auto u = Update();
  EXPECT_ERROR(u.UpdatePurchasePlan(
                   dsn(), Rows({Task(85, "WORK000001", 1, 10), SalesLine(1, 1, 20)}),
                   Rows({PlanLine(3001, "S001", 150, 3), PlanLine(3004, "S002", 3, 1)}), 16),
               ErrorCategory::kDatabase, "injected failure");
  EXPECT_EQ(tables(), before);
  // The number was not used up either.
  conn().Execute("drop trigger refuse_line" + std::string(Sqlite() ? "" : " on PurchasePlanEntry"));
  EXPECT_EQ(u.UpdatePurchasePlan(dsn(), Rows({}), Rows({PlanLine(3001, "S001", 1, 3)}), 16),
            "CJ" + Today() + "001");
}

TEST_P(Plans, CloseReopenAndDelete) {
  auto u = Update();
  const std::string p1 =
      u.UpdatePurchasePlan(dsn(), Rows({Task(85, "WORK000002", 2, 4)}),
                           Rows({PlanLine(3004, "S002", 3, 1), PlanLine(3004, "S002", 5, 1)}), 16);
  auto lines = Rows({Row({{"FInterID", 1000}, {"FEntryID", 1}}),
                     Row({{"FInterID", 1000}, {"FEntryID", 1}}), Row({{"FEntryID", 1}})});
  VectorPtr r = u.ClosePurchasePlan(dsn(), lines);
  ASSERT_EQ(r->Count(), 3);
  EXPECT_EQ(r->Item(1).get(), lines->Item(1).get());  // the same rows
  EXPECT_EQ(r->Item(1)->Get("Succeed").ToLong(), 1);
  EXPECT_EQ(r->Item(1)->Get("FClosed").ToLong(), 0);  // read before the close
  EXPECT_EQ(r->Item(2)->Get("Succeed").ToLong(), 0);
  EXPECT_EQ(r->Item(2)->Get("Error").ToText(), "该记录已经关闭，不能再次关闭！");
  EXPECT_EQ(r->Item(3)->Get("Succeed").ToLong(), 0);  // plan 0
  EXPECT_EQ(Value("select FClosed from PurchasePlanEntry where FEntryID = 1"), 2);
  EXPECT_EQ(u.ClosePurchasePlan(dsn(), Vector::Create())->Count(), 0);

  // A plan with a closed line cannot be deleted.
  r = u.DeletePurchasePlan(dsn(), Rows({Row({{"FInterID", 1000}, {"FBillNo", p1}})}));
  EXPECT_EQ(r->Item(1)->Get("Succeed").ToLong(), 0);
  EXPECT_EQ(r->Item(1)->Get("Error").ToText(), "该采购计划单中存在已关闭记录！");
  r = u.UnClosePurchasePlan(dsn(), Rows({Row({{"FInterID", 1000}, {"FEntryID", 1}}),
                                         Row({{"FInterID", 1000}, {"FEntryID", 2}})}));
  EXPECT_EQ(r->Item(1)->Get("Succeed").ToLong(), 1);
  EXPECT_EQ(r->Item(1)->Get("FClosed").ToLong(), 0);
  EXPECT_EQ(r->Item(2)->Get("Succeed").ToLong(), 0);
  EXPECT_FALSE(r->Item(2)->Contains("Error"));
  conn().Execute("update PurchasePlanEntry set FClosed = 1 where FEntryID = 2");
  r = u.UnClosePurchasePlan(dsn(), Rows({Row({{"FInterID", 1000}, {"FEntryID", 2}})}));
  EXPECT_EQ(r->Item(1)->Get("FClosed").ToLong(), 1);
  r = u.ClosePurchasePlan(dsn(), Rows({Row({{"FInterID", 1000}, {"FEntryID", 2}})}));
  EXPECT_EQ(r->Item(1)->Get("Succeed").ToLong(), 0);  // fully purchased stays as it is
  conn().Execute("update PurchasePlanEntry set FClosed = 0");

  // Pushed to two orders: refused, both numbers named.
  std::string ids;
  u.PushBill(dsn(),
             Rows({PushLine("a", 1, 3004, 1, 1, 0, 13, {{1000, 1, 1}}),
                   PushLine("b", 2, 3004, 1, 1, 0, 13, {{1000, 2, 1}})}),
             16, ids, *Date::Parse("2026-11-22"));
  conn().Execute("update PurchasePlanEntry set FClosed = 2 where FEntryID = 1");
  r = u.DeletePurchasePlan(dsn(), Rows({Row({{"FInterID", 1000}, {"FBillNo", p1}})}));
  const std::string numbers = Text("select min(FBillNo) from POOrder where FInterID > 3") + "," +
                              Text("select max(FBillNo) from POOrder where FInterID > 3");
  EXPECT_EQ(r->Item(1)->Get("Error").ToText(), "该采购计划单已与采购订单" + numbers + "关联！");

  // A second plan of the same task: deleted, listed twice, returned once;
  // the task's quantity drops back and its list loses the number.
  const std::string p2 = u.UpdatePurchasePlan(dsn(), Rows({Task(85, "WORK000002", 2, 4)}),
                                              Rows({PlanLine(3004, "S002", 3, 1)}), 16);
  EXPECT_EQ(Text("select FPurchasePlanBillNo from ICMO where FInterID = 2"), p1 + "," + p2);
  EXPECT_EQ(Value("select FStockFinishQty from ICMO where FInterID = 2"), 8);
  auto twice = Rows(
      {Row({{"FInterID", 1001}, {"FBillNo", p2}}), Row({{"FInterID", 1001}, {"FBillNo", p2}})});
  r = u.DeletePurchasePlan(dsn(), twice);
  ASSERT_EQ(r->Count(), 1);
  EXPECT_EQ(twice->Item(2)->Get("Succeed").ToLong(), 1);
  EXPECT_EQ(Value("select count(*) from PurchasePlan where FInterID = 1001"), 0);
  EXPECT_EQ(Value("select count(*) from PurchaseLink where FInterID = 1001"), 0);
  EXPECT_EQ(Value("select FStockFinishQty from ICMO where FInterID = 2"), 4);
  EXPECT_EQ(Text("select FPurchasePlanBillNo from ICMO where FInterID = 2"), "," + p1 + ",");
  // The only plan of a task whose source is gone meanwhile: still deleted.
  const std::string p3 = u.UpdatePurchasePlan(dsn(), Rows({Task(91, "OUT000001", 1, 20)}),
                                              Rows({PlanLine(3004, "S002", 3, 1)}), 16);
  conn().Execute("delete from ICOutMO");
  r = u.DeletePurchasePlan(dsn(), Rows({Row({{"FInterID", 1002}, {"FBillNo", p3}})}));
  EXPECT_EQ(r->Item(1)->Get("Succeed").ToLong(), 1);
  EXPECT_EQ(Value("select count(*) from PurchasePlanEntry where FInterID = 1002"), 0);
}

TEST_P(Plans, DeletingTheOnlyPlanOfATaskClearsIt) {
  auto u = Update();
  const std::string p = u.UpdatePurchasePlan(dsn(), Rows({Task(85, "WORK000002", 2, 4)}),
                                             Rows({PlanLine(3004, "S002", 3, 1)}), 16);
  ASSERT_EQ(Text("select FPurchasePlanBillNo from ICMO where FInterID = 2"), p);
  u.DeletePurchasePlan(dsn(), Rows({Row({{"FInterID", 1000}, {"FBillNo", p}})}));
  EXPECT_EQ(Value("select FStockFinishQty from ICMO where FInterID = 2"), 0);
  EXPECT_EQ(Text("select FPurchasePlanBillNo from ICMO where FInterID = 2"), "");
}

// save -> push -> order edited -> write-back -> close -> delete refused.
TEST_P(Plans, ScenarioFromSaveToARefusedDeletion) {
  auto u = Update();
  const std::string p =
      u.UpdatePurchasePlan(dsn(), Rows({Task(85, "WORK000001", 1, 10)}),
                           Rows({PlanLine(3004, "S002", 4, 1), PlanLine(3004, "S002", 6, 1),
                                 PlanLine(3002, "S002", 50, 1)}),
                           16);
  std::string ids;
  u.PushBill(dsn(),
             Rows({PushLine("1000_1,1000_2", 2, 3004, 10, 0.8, 0, 13, {{1000, 1, 4}, {1000, 2, 6}}),
                   PushLine("1000_3", 2, 3002, 50, 0.15, 0, 13, {{1000, 3, 50}})}),
             16, ids, *Date::Parse("2026-11-22"));
  ASSERT_EQ(ids, "4");
  // Nothing changed: nothing to write back.
  EXPECT_EQ(u.UpdatePurchasePlanQty(dsn(), 4), nullptr);
  // The spokes cut from 10 to 3: line 1 keeps 3, line 2's link goes.
  conn().Execute("update POOrderEntry set FQty = 3 where FInterID = 4 and FEntryID = 1");
  VectorPtr changed = u.UpdatePurchasePlanQty(dsn(), 4);
  ASSERT_EQ(changed->Count(), 1);
  EXPECT_EQ(changed->Item(1)->Get("OldFPurchasePlanKey").ToText(), "1000_1,1000_2");
  EXPECT_EQ(changed->Item(1)->Get("NewFPurchasePlanKey").ToText(), "1000_1");
  EXPECT_EQ(changed->Item(1)->Get("FPurchasePlanBillNo").ToText(), p);
  EXPECT_EQ(changed->Item(1)->Get("FNumber").ToText(), "3.04");
  // Bolts raised from 50 to 70: the last link takes the excess.
  conn().Execute("update POOrderEntry set FQty = 70 where FInterID = 4 and FEntryID = 2");
  ASSERT_EQ(u.UpdatePurchasePlanQty(dsn(), 4)->Count(), 1);
  // Cancelled and restored: back where it was; then line 2 closed by hand.
  const std::string before =
      Dump("select FEntryID, FPurchaseFinishQty, FClosed from PurchasePlanEntry order by FEntryID");
  u.UpdatePurchasePlanQtyOfCancelBill(dsn(), 4, true);
  EXPECT_EQ(
      Dump("select FEntryID, FPurchaseFinishQty, FClosed from PurchasePlanEntry order by FEntryID"),
      "1|0|0\n2|0|0\n3|0|0\n");
  u.UpdatePurchasePlanQtyOfCancelBill(dsn(), 4, false);
  EXPECT_EQ(
      Dump("select FEntryID, FPurchaseFinishQty, FClosed from PurchasePlanEntry order by FEntryID"),
      before);
  u.ClosePurchasePlan(dsn(), Rows({Row({{"FInterID", 1000}, {"FEntryID", 2}})}));
  VectorPtr r = u.DeletePurchasePlan(dsn(), Rows({Row({{"FInterID", 1000}, {"FBillNo", p}})}));
  EXPECT_EQ(r->Item(1)->Get("Succeed").ToLong(), 0);

  EXPECT_EQ(Dump("select FEntryID, FItemID, FQty, FPurchaseFinishQty, FPushQty, FClosed"
                 " from PurchasePlanEntry order by FEntryID"),
            "1|3004|4|3|0|0\n2|3004|6|0|0|2\n3|3002|50|70|0|1\n");
  EXPECT_EQ(
      Dump("select FItemID, FPurchasePlanKey, FPurchasePlanInterID, FPurchasePlanEntryID, FQty"
           " from PurchasePlanOrder order by FPurchasePlanEntryID"),
      "3004|1000_1|1000|1|3\n3002|1000_3|1000|3|70\n");
  EXPECT_EQ(Dump("select FEntryID, FQty, FPurchasePlanKey, FPurchasePlanBillNo from POOrderEntry"
                 " where FInterID = 4 order by FEntryID"),
            "1|3|1000_1|" + p + "\n2|70|1000_3|" + p + "\n");

  // A deleted order line: its links are taken back and removed.
  conn().Execute("delete from POOrderEntry where FInterID = 4 and FEntryID = 2");
  u.UpdatePurchasePlanQtyOfDeleteRow(dsn(), 4);
  EXPECT_EQ(Dump("select FPurchaseFinishQty, FClosed from PurchasePlanEntry where FEntryID = 3"),
            "0|0\n");
  EXPECT_EQ(Value("select count(*) from PurchasePlanOrder"), 1);
}

TEST_P(Plans, EightConcurrentSavesGetEightNumbers) {
  const auto lines = InChildProcesses(8, [&](int, std::ostream& out) {
    auto u = Update();
    out << u.UpdatePurchasePlan(dsn(), Rows({Task(85, "WORK000001", 1, 1)}),
                                Rows({PlanLine(3004, "S002", 1, 1)}), 16)
        << "\n";
  });
  EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), 8u);
  EXPECT_EQ(Value("select count(distinct FInterID) from PurchasePlan"), 8);
  EXPECT_EQ(Value("select max(FInterID) from PurchasePlan"), 1007);
  EXPECT_EQ(Value("select FStockFinishQty from ICMO where FInterID = 1"), 8);
}

TEST_P(Plans, ReportFiltersRightsAndSources) {
  auto u = Update();
  const std::string p1 =
      u.UpdatePurchasePlan(dsn(), Rows({Task(85, "WORK000001", 1, 10), SalesLine(2, 1, 5)}),
                           Rows({PlanLine(3001, "S001", 150, 3), PlanLine(3004, "S002", 3, 1),
                                 PlanLine(3004, "", 2, 1)}),
                           16);
  const std::string p2 =
      u.UpdatePurchasePlan(dsn(), Rows({}), Rows({PlanLine(3002, "S002", 9, 1)}), 16);
  auto info = Info();
  std::string none;
  VectorPtr all = info.GetRptData(dsn(), Dictionary::Create(), 1, none);
  ASSERT_EQ(all->Count(), 4);
  const Dictionary& first = *all->Item(1);
  EXPECT_EQ(first.size(), 39u);
  EXPECT_EQ(first.key(38), "FSourceNo");
  // Each source type present lists the bills of that type whose id is any
  // of the plan's source ids (1 and 2 here), as the ERP's statement does.
  EXPECT_EQ(first.Get("FSourceNo").ToText(), "SEORD000001,SEORD000002,WORK000001,WORK000002");
  EXPECT_EQ(first.Get("FKey").ToText(), "1000_1");
  EXPECT_EQ(first.Get("FUnitName").ToText(), "米");
  EXPECT_DOUBLE_EQ(first.Get("FPushQty").ToDouble(), 150);  // the open quantity
  EXPECT_EQ(all->Item(4)->Get("FSourceNo").ToText(), "");
  // A plan number wins over the filter.
  std::string one = p2;
  auto filter = Dictionary::Create();
  filter->Set("BBillNo", p1);
  filter->Set("EBillNo", p1);
  EXPECT_EQ(info.GetRptData(dsn(), filter, 1, one)->Count(), 1);
  none.clear();
  EXPECT_EQ(info.GetRptData(dsn(), filter, 1, none)->Count(), 3);
  filter->Set("Closed", 1);
  conn().Execute("update PurchasePlanEntry set FClosed = 2 where FInterID = 1000 and FEntryID = 1");
  EXPECT_EQ(info.GetRptData(dsn(), filter, 1, none)->Count(), 2);
  filter = Dictionary::Create();
  filter->Set("BItemNumber", "3.02");
  filter->Set("EItemNumber", "3.03");
  EXPECT_EQ(info.GetRptData(dsn(), filter, 1, none)->Count(), 1);
  // User 7, restricted on suppliers: lines without one, and S002 ("1,17,"
  // holds "7").
  VectorPtr seen = Info({{7, 2}}).GetRptData(dsn(), Dictionary::Create(), 7, none);
  EXPECT_EQ(seen->Count(), 3);

  // Lookups.
  double rate = -1;
  EXPECT_EQ(info.GetSupplierID(dsn(), "S003", rate), 0);  // deleted
  EXPECT_EQ(rate, -1);
  EXPECT_EQ(info.GetSupplierID(dsn(), "S002", rate), 2);
  EXPECT_EQ(rate, 13);
  EXPECT_DOUBLE_EQ(info.GetPurchasePlanPrice(dsn(), 4, 3001, 150), 18.9);  // S001's band
  EXPECT_DOUBLE_EQ(info.GetPurchasePlanPrice(dsn(), 4, 3005, 1e6), 10);    // invoice
  EXPECT_DOUBLE_EQ(info.GetPurchasePlanPrice(dsn(), 1, 3007, 1), 6);       // order price
  conn().Execute("update t_ICItem set FOrderPrice = 0 where FItemID = 3007");
  EXPECT_DOUBLE_EQ(info.GetPurchasePlanPrice(dsn(), 1, 3007, 1), 0);
  EXPECT_EQ(info.GetBillDate(dsn(), " " + p1 + " ").substr(0, 4), Today().substr(0, 4));
  EXPECT_EQ(info.GetBillDate(dsn(), "CJ00000000000"), "");
}

}  // namespace
}  // namespace mrpcalc::testing
