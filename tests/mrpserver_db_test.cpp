// The MRP data service on the demo database, on every engine: selection,
// lookups, confirmation, purchase orders (atomic and never sharing a
// number), credit check, source completion, stock scope and validation.
#include <set>

#include "expect_error.h"
#include "db_fixture.h"
#include "mrpserver/mrp_data_server.h"
#include "services/host_config.h"

namespace mrpcalc::testing {
namespace {

class Server : public DemoDbTest {
 protected:
  // Data rights restrict these (user, object type) pairs.
  MrpDataServer Make(std::set<std::pair<int32_t, int16_t>> data_rights = {},
                     std::string language = "") {
    HostConfig config;
    config.data_rights = std::move(data_rights);
    config.language = std::move(language);
    config.props = "UserID=16;";
    return MrpDataServer(MakeStandaloneHost(config));
  }
  double Value(const std::string& sql) { return conn().QueryValue(sql).ToDouble(); }
  bool Sqlite() { return conn().dialect().engine() == db::Engine::kSqlite; }
  // A trigger that refuses purchase orders of one supplier.
  void RefuseOrdersOf(int supplier) {
    const std::string id = std::to_string(supplier);
    if (Sqlite()) {
      conn().Execute("create trigger refuse_po before insert on POOrder when new.FSupplyID = " +
                     id + " begin select raise(abort, 'injected failure'); end");
    } else {
      conn().Execute(
          "create function refuse_po() returns trigger language plpgsql as $$ begin"
          " if new.FSupplyID = " +
          id +
          " then raise exception 'injected failure';"
          " end if; return new; end $$");
      conn().Execute(
          "create trigger refuse_po before insert on POOrder for each row"
          " execute function refuse_po()");
    }
  }
};
MRPCALC_ALL_SCHEMAS(Server);

TEST_P(Server, SelectionTakesEachPickOnceNetsAndOverrides) {
  auto s = Make();
  // Warehouse 30 is virtual: it counts in FAllStockQty only.
  conn().Execute(
      "insert into ICInventory (FItemID, FAuxPropID, FStockID, FQty) values (1001, 0, 30, 4)");
  auto picks = Rows({Row({{"Ftrantype", 81}, {"FinterID", 1}, {"FEntryID", 1}}),
                     Row({{"Ftrantype", "85"}, {"FinterID", "1"}}),
                     Row({{"Ftrantype", 85}, {"FinterID", 1}}),
                     Row({{"Ftrantype", 81}, {"FinterID", 1}, {"FEntryID", 2}, {"FQty", 12}})});
  VectorPtr rows = s.GetSelectData(dsn(), picks, ",,20,,30,", false, false, false);
  ASSERT_EQ(rows->Count(), 3);  // the task picked twice is planned once
  const Dictionary& first = *rows->Item(1);
  EXPECT_EQ(first.key(5), "FAuxQty");
  EXPECT_EQ(first.size(), 19u);
  EXPECT_EQ(first.Get("FBillNO").ToText(), "SEORD000001");
  EXPECT_EQ(first.Get("FBSUnitName").ToText(), "个");
  EXPECT_DOUBLE_EQ(first.Get("FAllStockQty").ToDouble(), 9);
  EXPECT_DOUBLE_EQ(first.Get("FActualQty").ToDouble(), 5);
  EXPECT_DOUBLE_EQ(first.Get("FQty").ToDouble(), 20);
  EXPECT_EQ(rows->Item(2)->Get("FEntryID").ToLong(), 0);
  EXPECT_DOUBLE_EQ(rows->Item(2)->Get("FQty").ToDouble(), 10);
  EXPECT_EQ(rows->Item(3)->Get("FQty").ToLong(), 12);

  // No warehouses: no stock. Nothing picked: Nothing.
  rows = s.GetSelectData(dsn(), picks, "", false, false, false);
  EXPECT_DOUBLE_EQ(rows->Item(1)->Get("FAllStockQty").ToDouble(), 0);
  EXPECT_EQ(s.GetSelectData(dsn(), Vector::Create(), "", true, false, false), nullptr);

  // Netting, first picked first served: stock 10, rows 6 and 6.
  conn().Execute("update ICInventory set FQty = 10 where FItemID = 1001 and FStockID = 20");
  auto twice = Rows({Row({{"Ftrantype", 81}, {"FinterID", 1}, {"FEntryID", 1}, {"FQty", 6}}),
                     Row({{"Ftrantype", 81}, {"FinterID", 2}, {"FEntryID", 1}, {"FQty", 6}})});
  rows = s.GetSelectData(dsn(), twice, "20", true, false, false);
  EXPECT_DOUBLE_EQ(rows->Item(1)->Get("FQty").ToDouble(), 0);
  EXPECT_DOUBLE_EQ(rows->Item(2)->Get("FQty").ToDouble(), 2);
  // The virtual option switched on but not chosen: no netting at all.
  rows = s.GetSelectData(dsn(), twice, "20", true, true, false);
  EXPECT_EQ(rows->Item(1)->Get("FQty").ToLong(), 6);
  // Chosen: only the virtual warehouses' stock nets (4 of item 1001).
  rows = s.GetSelectData(dsn(), twice, "20", true, true, true);
  EXPECT_DOUBLE_EQ(rows->Item(1)->Get("FQty").ToDouble(), 2);
  EXPECT_EQ(rows->Item(2)->Get("FQty").ToLong(), 6);
  // A negative balance matches too: the task's open 10 grows by 3.
  conn().Execute("update ICInventory set FQty = -3 where FItemID = 2001");
  rows = s.GetSelectData(dsn(), Rows({Row({{"Ftrantype", 85}, {"FinterID", 1}})}), "20", true,
                         false, false);
  EXPECT_DOUBLE_EQ(rows->Item(1)->Get("FQty").ToDouble(), 13);

  // A first pick of another type has no statement to join and fails; a
  // warehouse list that is not ids is refused.
  EXPECT_ERROR(s.GetSelectData(dsn(), Rows({Row({{"Ftrantype", 70}, {"FinterID", 1}})}), "", false,
                               false, false), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(s.GetSelectData(dsn(), twice, "20) or (1=1", false, false, false), ErrorCategory::kInvalidInput, "");
}

TEST_P(Server, LookupsAndValidation) {
  auto s = Make({{16, 2}});
  EXPECT_TRUE(s.CheckBOMExist(dsn(), "1001,2001", 2));
  EXPECT_FALSE(s.CheckBOMExist(dsn(), "1001,1003", 2));  // 1003's bill is not in use
  EXPECT_ERROR(s.CheckBOMExist(dsn(), "1001,x", 2), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(s.CheckBOMExist(dsn(), "", 0), ErrorCategory::kInvalidInput, "");
  EXPECT_TRUE(s.IsBOMParent(dsn(), 2002));
  EXPECT_FALSE(s.IsBOMParent(dsn(), 1003));
  EXPECT_EQ(s.GetSupplierNameByNumber(dsn(), "S002"), "O'Brien Fasteners Ltd.");
  EXPECT_ERROR(s.GetSupplierNameByNumber(dsn(), "S003"), ErrorCategory::kNotFound, "no supplier with the code \"S003\"");  // deleted
  EXPECT_EQ(s.getSysInfo(dsn(), "IC", "BOMType").ToText(), "1");
  EXPECT_TRUE(s.getSysInfo(dsn(), "IC", "NoSuchKey").IsEmpty());

  // Rights: the administrator passes any code; 17 holds no right; 16 holds
  // one through his group and data rights name him on S001 only; 18 holds
  // one directly and no data rights.
  conn().Execute("insert into t_GroupAccess (FGroupID, FUserID, FType) values (1, 18, 1)");
  EXPECT_TRUE(s.IsSupplierright(dsn(), "NOPE", 1));
  EXPECT_FALSE(s.IsSupplierright(dsn(), "S001", 17));
  EXPECT_TRUE(s.IsSupplierright(dsn(), "S001", 16));
  EXPECT_FALSE(s.IsSupplierright(dsn(), "S002", 16));
  EXPECT_TRUE(s.IsSupplierright(dsn(), "S002", 18));
  auto seven = Make({{7, 2}});  // user 7 is "in" the list "1,17,": a substring test
  conn().Execute("insert into t_GroupAccess (FGroupID, FUserID, FType) values (1, 7, 1)");
  EXPECT_TRUE(seven.IsSupplierright(dsn(), "S002", 7));

  EXPECT_FALSE(s.IsMustInput(dsn()));
  conn().Execute("update ICTemplateEntry set FMustInput = 1");
  EXPECT_TRUE(s.IsMustInput(dsn()));
  EXPECT_EQ(s.checkMustInput(dsn(), 3, 3003, "3.03", "  "),
            "第3行，物料【3.03】的辅助属性不能为空！\n");
  EXPECT_EQ(s.checkMustInput(dsn(), 3, 3003, "3.03", 2), "");
  EXPECT_EQ(s.checkMustInput(dsn(), 3, 3001, "3.01", ""), "");  // no auxiliary class
  EXPECT_EQ(Make({}, "en").checkMustInput(dsn(), 3, 3003, "3.03", ""),
            "Line 3: the auxiliary property of material [3.03] must not be empty!\n");

  // A battery pack that holds the e-bike: both lead back to themselves.
  conn().Execute(
      "insert into ICBOM (FInterID, FItemID, FQty, FUseStatus, FStatus)"
      " values (9, 2003, 1, 1072, 1)");
  conn().Execute(
      "insert into ICBOMChild (FInterID, FEntryID, FItemID, FQty) values (9, 1, 1001, 1)");
  std::string message = "earlier\r\n";
  auto lines = Rows({Row({{"FItemID", 1002}, {"FItemName", "折叠自行车"}, {"FItemNumber", "1.02"}}),
                     Row({{"FItemID", 1001}, {"FItemName", "电动自行车"}, {"FItemNumber", "1.01"}}),
                     Row({{"FItemID", 2003}, {"FItemName", "电池包"}, {"FItemNumber", "2.03"}})});
  EXPECT_TRUE(s.IsBomExpand(dsn(), lines, message));
  EXPECT_EQ(
      message,
      "以下产品的Bom子件存在死循环,请修改！\r\nearlier\r\n电池包(2.03)\r\n电动自行车(1.01)\r\n");
  EXPECT_EQ(lines->Count(), 3);
  message.clear();
  EXPECT_FALSE(s.IsBomExpand(dsn(), Rows({lines->Item(1)}), message));
  EXPECT_EQ(message, "");
}

TEST_P(Server, ConfirmationPricesUnitsAndTax) {
  auto s = Make();
  // Supplier 2's own band for aluminium tube, below supplier 1's.
  conn().Execute(
      "insert into t_SupplyEntry (FSupID, FItemID, FPrice, FStartQty, FEndQty)"
      " values (2, 3001, 17, 0, 99.99)");
  conn().Execute(
      "insert into t_ICItem (FItemID, FNumber, FName, FErpClsID, FUnitID, FOrderPrice,"
      " FTaxRate) values (3999, '3.99', 'bare', 1, 1, 0, 9)");
  auto line = [](int item, const char* supplier, double qty, const char* memo) {
    return Row({{"FBomItemID", item},
                {"FItemNumber", "n"},
                {"FItemName", "O'Name"},
                {"FItemModel", ""},
                {"FAuxPropID", ""},
                {"FAuxProp", Variant::Null()},
                {"FSupplyNumber", supplier},
                {"FSupplyName", "s"},
                {"FUnitID", "1"},
                {"FUnitName", "u"},
                {"FQty", qty},
                {"FMemo", memo},
                {"FDate", ""}});
  };
  auto input = Rows({line(3001, "S002", 10, "a'b"), line(3002, "S002", 250, ""),
                     line(3999, "NOSUCH", 5, ""), line(3005, "S004", 600, "")});
  VectorPtr rows = s.GetMrpConfirmData(dsn(), input);
  ASSERT_EQ(rows->Count(), 4);
  EXPECT_EQ(rows->Item(1)->size(), 23u);
  EXPECT_EQ(rows->Item(1)->key(22), "Fdate");
  // The supplier's own band wins, but the unit price keeps the first band's.
  const Dictionary& tube = *rows->Item(1);
  EXPECT_DOUBLE_EQ(tube.Get("FPrice").ToDouble(), 17);
  EXPECT_DOUBLE_EQ(tube.Get("FAuxPrice").ToDouble(), 19.8 * 50);
  EXPECT_DOUBLE_EQ(tube.Get("FAuxQty").ToDouble(), 0.2);
  EXPECT_DOUBLE_EQ(tube.Get("FCoefficient").ToDouble(), 50);
  EXPECT_EQ(tube.Get("FNote").ToText(), "a｀b");
  EXPECT_EQ(input->Item(1)->Get("FMemo").ToText(), "a｀b");
  EXPECT_EQ(tube.Get("FSupplyID").ToLong(), 2);
  EXPECT_DOUBLE_EQ(tube.Get("FTaxRate").ToDouble(), 13);
  EXPECT_EQ(tube.Get("FItemName").ToText(), "O'Name");
  EXPECT_EQ(tube.Get("Fdate").ToDate(), Date::FromParts(1900, 1, 1));
  EXPECT_EQ(tube.Get("FAuxPropID").ToLong(), 0);
  // Bolts in boxes of 100.
  EXPECT_DOUBLE_EQ(rows->Item(2)->Get("FAuxQty").ToDouble(), 2.5);
  EXPECT_EQ(rows->Item(2)->Get("FPriceDecimal").ToLong(), 4);
  // No band, no invoice, no order price: 0; an unknown supplier stays
  // Null and the tax rate falls back to the item's; no order unit keeps
  // the defaults.
  const Dictionary& bare = *rows->Item(3);
  EXPECT_DOUBLE_EQ(bare.Get("FPrice").ToDouble(), 0);
  EXPECT_TRUE(bare.Get("FSupplyID").IsNull());
  EXPECT_DOUBLE_EQ(bare.Get("FTaxRate").ToDouble(), 9);
  EXPECT_DOUBLE_EQ(bare.Get("FCoefficient").ToDouble(), 1);
  EXPECT_DOUBLE_EQ(bare.Get("FAuxQty").ToDouble(), 0);
  EXPECT_DOUBLE_EQ(bare.Get("FAuxPrice").ToDouble(), 0);
  EXPECT_TRUE(bare.Get("FAuxUnitID").IsNull() || bare.Get("FAuxUnitID").ToLong() == 0);
  // Cells: the band of S004 (10.2) before the invoice (10.0); S004 has no tax rate.
  EXPECT_DOUBLE_EQ(rows->Item(4)->Get("FPrice").ToDouble(), 10.2);
  EXPECT_DOUBLE_EQ(rows->Item(4)->Get("FTaxRate").ToDouble(), 13);
  // No band: the last invoice from this supplier.
  conn().Execute("delete from t_SupplyEntry where FItemID = 3005");
  rows = s.GetMrpConfirmData(dsn(), Rows({line(3005, "S004", 600, "")}));
  EXPECT_DOUBLE_EQ(rows->Item(1)->Get("FPrice").ToDouble(), 10);
  auto words = line(3005, "S004", 600, "");
  words->Set("FAuxPropID", "red");
  EXPECT_ERROR(s.GetMrpConfirmData(dsn(), Rows({words})), ErrorCategory::kInvalidInput, "");
}

TEST_P(Server, PurchaseOrdersOnePerSupplier) {
  auto s = Make();
  const Date today = *Date::Parse("2026-11-22");
  auto lines = Rows({OrderLine(1, 3001, 12, 11.7, 13, 12, 2), OrderLine(2, 3002, 1, 117, 17, 1, 0),
                     OrderLine(1, 3006, 12, 11.7, 13, 12, 0)});
  VectorPtr made = s.MakePOOrderBill(dsn(), lines, 16, today);
  ASSERT_EQ(made->Count(), 2);
  EXPECT_EQ(made->Item(1)->Get("FSupplyName").ToText(), "华东铝业有限公司");
  EXPECT_EQ(made->Item(2)->Get("FSupplyName").ToText(), "O'Brien Fasteners Ltd.");
  const int a = made->Item(1)->Get("FInterID").ToLong(),
            b = made->Item(2)->Get("FInterID").ToLong();
  EXPECT_EQ(s.last_orders(), std::to_string(a) + "," + std::to_string(b));
  EXPECT_NE(made->Item(1)->Get("FBillNO").ToText(), made->Item(2)->Get("FBillNO").ToText());
  auto at = [&](int id, int entry, const char* column) {
    return Value("select " + std::string(column) + " from POOrderEntry where FInterID = " +
                 std::to_string(id) + " and FEntryID = " + std::to_string(entry));
  };
  // Supplier 1: lines 1 and 2 in input order; the unit price rounded to
  // the item's price decimals (140.40, then 140).
  EXPECT_DOUBLE_EQ(at(a, 1, "FAuxTaxPrice"), 140.4);
  EXPECT_DOUBLE_EQ(at(a, 2, "FAuxTaxPrice"), 140);
  EXPECT_EQ(at(a, 2, "FItemID"), 3006);
  EXPECT_EQ(at(a, 1, "FUnitID"), 4);  // the tube's purchase unit
  EXPECT_EQ(at(a, 2, "FUnitID"), 1);  // paint has none: the line's own unit
  // 117 with 17 % tax: amount 100, all 117, tax 17, price net 100.
  EXPECT_DOUBLE_EQ(at(b, 1, "FAmount"), 100);
  EXPECT_DOUBLE_EQ(at(b, 1, "FAllAmount"), 117);
  EXPECT_DOUBLE_EQ(at(b, 1, "FTaxAmount"), 17);
  EXPECT_DOUBLE_EQ(at(b, 1, "FPrice"), 100);
  EXPECT_DOUBLE_EQ(at(b, 1, "FCess"), 17);
  EXPECT_EQ(conn().QueryValue("select FNote from POOrderEntry where FInterID = ?", {b}).ToText(),
            "it's urgent");
  EXPECT_EQ(conn().QueryValue("select FBillerID from POOrder where FInterID = ?", {b}).ToLong(),
            16);
  EXPECT_EQ(conn().QueryValue("select FDate from POOrder where FInterID = ?", {b}).ToDate(), today);

  // Every line with its header's columns, spelled as the tables spell them.
  RecordSetPtr all = s.getPOOrderBills(dsn());
  EXPECT_EQ(all->RecordCount(), 6u);
  EXPECT_EQ(all->columns()[0], "FEntryID");
  EXPECT_GE(all->ColumnIndex("FBillNo"), 0);
  EXPECT_EQ(s.RefreshPOOrderBill(dsn(), std::to_string(b) + ",999")->Count(), 1);
  EXPECT_ERROR(s.RefreshPOOrderBill(dsn(), ""), ErrorCategory::kInvalidInput, "");
  EXPECT_ERROR(s.RefreshPOOrderBill(dsn(), "1;delete from POOrder"), ErrorCategory::kInvalidInput, "");

  // Nothing to order: Nothing, and nothing written or drawn.
  const double orders = Value("select count(*) from POOrder");
  EXPECT_EQ(s.MakePOOrderBill(dsn(), Vector::Create(), 16, today), nullptr);
  EXPECT_EQ(Value("select count(*) from POOrder"), orders);
  // A line without a supplier is refused before anything is written.
  auto bad = Rows({OrderLine(1, 3001, 1, 1, 13)});
  bad->Item(1)->Set("FSupplyID", "");
  EXPECT_ERROR(s.MakePOOrderBill(dsn(), bad, 16, today), ErrorCategory::kInvalidInput, "");
  EXPECT_EQ(Value("select count(*) from POOrder"), orders);
}

TEST_P(Server, AFailedGenerationLeavesNoOrderAndNoNumber) {
  auto s = Make();
  const Date today = *Date::Parse("2026-11-22");
  RefuseOrdersOf(4);  // the third supplier of the batch
  auto lines = Rows({OrderLine(1, 3001, 10, 18, 13), OrderLine(2, 3002, 100, 0.15, 13),
                     OrderLine(4, 3005, 100, 10, 13)});
  const double orders = Value("select count(*) from POOrder");
  const double entries = Value("select count(*) from POOrderEntry");
  try {
    s.MakePOOrderBill(dsn(), lines, 16, today);
    FAIL() << "the trigger did not fire";
  } catch (const Error& e) {
    EXPECT_NE(std::string(e.what()).find("injected failure"), std::string::npos) << e.what();
  }
  EXPECT_EQ(Value("select count(*) from POOrder"), orders);
  EXPECT_EQ(Value("select count(*) from POOrderEntry"), entries);
  // The numbers drawn for the first two orders went back too.
  conn().Execute("drop trigger refuse_po" + std::string(Sqlite() ? "" : " on POOrder"));
  VectorPtr made = s.MakePOOrderBill(dsn(), lines, 16, today);
  ASSERT_EQ(made->Count(), 3);
  EXPECT_EQ(made->Item(1)->Get("FInterID").ToLong(), 4);
  EXPECT_EQ(made->Item(1)->Get("FBillNO").ToText().substr(13), "0001");
}

// Two processes make 15 generations of two orders each at the same time.
TEST_P(Server, ConcurrentGenerationsNeverShareANumberOrAnId) {
  constexpr int kRuns = 15;
  const auto lines = InChildProcesses(2, [&](int, std::ostream& out) {
    auto s = Make();
    for (int i = 0; i < kRuns; ++i) {
      VectorPtr made = s.MakePOOrderBill(
          dsn(), Rows({OrderLine(1, 3001, 10, 18, 13), OrderLine(2, 3002, 100, 0.15, 13)}), 16,
          *Date::Parse("2026-11-22"));
      for (const auto& r : made->rows())
        out << r->Get("FInterID").ToLong() << " " << r->Get("FBillNO").ToText() << "\n";
    }
  });
  ASSERT_EQ(lines.size(), 4u * kRuns);
  EXPECT_EQ(DistinctWords(lines, 0), 4u * kRuns);  // interior ids
  EXPECT_EQ(DistinctWords(lines, 1), 4u * kRuns);  // bill numbers
  EXPECT_EQ(Value("select count(*) from POOrder"), 3 + 4 * kRuns);
  EXPECT_EQ(Value("select count(distinct FInterID) from POOrderEntry"), 3 + 4 * kRuns);
}

TEST_P(Server, CreditCheck) {
  auto s = Make();
  auto two = Rows({OrderLine(1, 3001, 1, 117, 17), OrderLine(1, 3006, 1, 117, 17)});
  std::string type, names;
  conn().Execute("update t_Supplier set FCreditDegree = 150 where FItemID = 1");
  EXPECT_FALSE(s.CheckCreditDegrees(dsn(), two, type, names));
  EXPECT_EQ(type, "1");
  EXPECT_EQ(names, "华东铝业有限公司[S001]");
  names.clear();
  conn().Execute("update t_Supplier set FCreditDegree = 200 where FItemID = 1");  // equal passes
  EXPECT_TRUE(s.CheckCreditDegrees(dsn(), two, type, names));
  conn().Execute("update t_Supplier set FCreditDegree = 0 where FItemID = 1");  // no limit
  EXPECT_TRUE(s.CheckCreditDegrees(dsn(), two, type, names));
  EXPECT_EQ(names, "");
  conn().Execute(
      "update t_Supplier set FCreditDegree = 10, FNumber = '01', FName = 'A' where FItemID = 1");
  conn().Execute(
      "update t_Supplier set FCreditDegree = 10, FNumber = '02', FName = 'B' where FItemID = 2");
  auto both = Rows({OrderLine(2, 3002, 1, 117, 17), OrderLine(1, 3001, 1, 117, 17)});
  EXPECT_FALSE(s.CheckCreditDegrees(dsn(), both, type, names));
  EXPECT_EQ(names, "A[01]、B[02]");
  // Switched off: true, names untouched.
  conn().Execute("update t_SystemProfile set FValue = '0' where FKey = 'CreditDegreeCG'");
  names = "kept";
  EXPECT_TRUE(s.CheckCreditDegrees(dsn(), both, type, names));
  EXPECT_EQ(type, "0");
  EXPECT_EQ(names, "kept");
}

TEST_P(Server, StockFinishedQuantitiesOfSourceDocuments) {
  auto s = Make();
  conn().Execute("update t_MeasureUnit set FCoefficient = 2 where FMeasureUnitID = 6");
  conn().Execute(
      "insert into ICOutMO (FInterID, FBillNo, FItemID, FQty, FUnitID, FStockFinishQty)"
      " values (2, 'WORK000001', 2002, 5, 1, 0)");  // same number as a production task
  conn().Execute("update t_MeasureUnit set FCoefficient = 0 where FMeasureUnitID = 1");
  auto rows = Rows({Row({{"Ftrantype", 85}, {"FQty", 5}, {"FBillNO", "WORK000001"}}),
                    Row({{"Ftrantype", 91}, {"FQty", 3}, {"FBillNO", "WORK000001"}}),
                    Row({{"Ftrantype", 91}, {"FQty", 4}, {"FBillNO", "OUT000001"}}),
                    Row({{"Ftrantype", 81}, {"FQty", 4}, {"FInterID", 1}, {"FEntryID", 1}}),
                    Row({{"Ftrantype", 81}, {"FQty", 6}, {"FInterID", 1}, {"FEntryID", 1}}),
                    Row({{"Ftrantype", 24}, {"FQty", 99}, {"FBillNO", "WORK000002"}})});
  s.UpdateBillStockFinishQty(dsn(), rows, "ignored");
  EXPECT_DOUBLE_EQ(Value("select FStockFinishQty from ICMO where FInterID = 1"),
                   5);  // coefficient 0: undivided
  EXPECT_DOUBLE_EQ(Value("select FStockFinishQty from ICMO where FInterID = 2"), 0);
  EXPECT_DOUBLE_EQ(Value("select FStockFinishQty from ICOutMO where FInterID = 2"), 3);
  EXPECT_DOUBLE_EQ(Value("select FStockFinishQty from ICOutMO where FInterID = 1"), 2);  // 4 / 2
  // Sales line: the base figure takes both, the finished one the base
  // before the last row plus the last row.
  EXPECT_DOUBLE_EQ(
      Value("select FBaseUnitStockFinishQty from SEOrderEntry where FInterID = 1 and FEntryID = 1"),
      10);
  EXPECT_DOUBLE_EQ(
      Value("select FStockFinishQty from SEOrderEntry where FInterID = 1 and FEntryID = 1"), 10);
  s.UpdateBillStockFinishQty(dsn(), Vector::Create(), "");
}

TEST_P(Server, StockScopeFollowsRights) {
  auto plain = Make();
  auto restricted = Make({{16, 4}});
  std::string str, key, info;
  // The administrator sees every real warehouse; 17 sees nothing.
  ASSERT_TRUE(plain.ReturnEmptyStockInfo(dsn(), 1, str, key, info));
  EXPECT_EQ(str, "01 - 原材料库,02 - 成品库");
  EXPECT_EQ(key, "11,12,20");
  EXPECT_EQ(info, "10,11,12,20");
  str = key = info = "untouched";
  EXPECT_FALSE(plain.ReturnEmptyStockInfo(dsn(), 17, str, key, info));
  EXPECT_EQ(key, "untouched");
  ASSERT_TRUE(restricted.ReturnEmptyStockInfo(dsn(), 16, str, key, info));
  EXPECT_EQ(key, "11,20");
  EXPECT_EQ(info, "10,11,20");
  EXPECT_EQ(plain.GetItemStock(dsn(), 5, 17, false), nullptr);
  EXPECT_EQ(plain.GetItemStock(dsn(), 5, 1, false)->RecordCount(), 4u);
  EXPECT_EQ(plain.GetItemStock(dsn(), 5, 1, true)->RecordCount(), 5u);
  EXPECT_EQ(restricted.GetItemStock(dsn(), 5, 16, false)->RecordCount(), 3u);
  EXPECT_EQ(plain.GetItemStock(dsn(), 5, 1, true)->columns()[4], "fDetail");

  // Stored as given, apostrophes included; the administrator's comes back as stored.
  ASSERT_TRUE(plain.UpdateStockInfo(dsn(), 1, "01.01 - O'Store", "11,12", "10,11,12", 1, "a'b"));
  ASSERT_TRUE(plain.GetStockInfo(dsn(), 1, str, key, info, 1, "a'b"));
  EXPECT_EQ(str, "01.01 - O'Store");
  EXPECT_EQ(key, "11,12");
  // A restricted user's scope is cut to what he may see.
  plain.UpdateStockInfo(dsn(), 16, "x", "11,12,99", "10,11,12", 1, "");
  ASSERT_TRUE(restricted.GetStockInfo(dsn(), 16, str, key, info, 1, ""));
  EXPECT_EQ(key, "11");
  EXPECT_EQ(info, "10,11");
  EXPECT_EQ(str, "01.01 - 原材料一库");
  // Every warehouse of a group chosen: the group stands for them.
  conn().Execute("update t_Item set FRightUserID = '16,' where FItemID = 12");
  plain.UpdateStockInfo(dsn(), 16, "x", "11,12", "10,11,12", 1, "");
  ASSERT_TRUE(restricted.GetStockInfo(dsn(), 16, str, key, info, 1, ""));
  EXPECT_EQ(key, "11,12");
  EXPECT_EQ(str, "01 - 原材料库");
  // Nothing left that he may see: all three empty.
  conn().Execute("update t_Item set FRightUserID = '' where FItemID in (11, 12)");
  ASSERT_TRUE(restricted.GetStockInfo(dsn(), 16, str, key, info, 1, ""));
  EXPECT_EQ(str + key + info, "");
  // A user without rights loses his stored scope.
  plain.UpdateStockInfo(dsn(), 17, "x", "11", "11", 1, "");
  EXPECT_FALSE(plain.GetStockInfo(dsn(), 17, str, key, info, 1, ""));
  EXPECT_EQ(Value("select count(*) from ICMrpStockPlan where FUserID = '17'"), 0);
  EXPECT_FALSE(plain.GetStockInfo(dsn(), 1, str, key, info, 2, ""));
}

TEST_P(Server, VirtualWarehouses) {
  auto s = Make();
  EXPECT_EQ(s.GetVirtualStock(dsn()), "30");
  EXPECT_EQ(Make({{16, 4}}).GetVirtualStock(dsn()), "30");  // named in its rights
  conn().Execute("update t_Stock set FRightUserID = '' where FItemID = 30");
  EXPECT_EQ(Make({{16, 4}}).GetVirtualStock(dsn()), "");
  std::string key = "11,30";
  EXPECT_TRUE(s.IsVirtualsStockKey(dsn(), key));
  key = "11,12";
  EXPECT_FALSE(s.IsVirtualsStockKey(dsn(), key));
  key = "";
  EXPECT_ERROR(s.IsVirtualsStockKey(dsn(), key), ErrorCategory::kInvalidInput, "");
  EXPECT_TRUE(s.IsVirtualStock(dsn(), "11,130"));  // a textual test
  EXPECT_FALSE(s.IsVirtualStock(dsn(), "11,12"));

  // Out, then in; other sub-ids of the form type go.
  s.UpdateStockInfo(dsn(), 1, "other", "11", "11", 3, "other");
  std::string str = "01.01 - 原材料一库,03 - 虚拟仓", info = "11,30";
  key = "11,30";
  ASSERT_TRUE(s.UpdateVirtualStockInfo(dsn(), 5, 1, str, key, info, false, 3, "main"));
  EXPECT_EQ(str, "01.01 - 原材料一库");
  EXPECT_EQ(key, "11");
  EXPECT_EQ(info, "11");
  EXPECT_EQ(Value("select count(*) from ICMrpStockPlan where FUserID = '1' and FFrmType = 3"), 1);
  str = key = info = "";
  ASSERT_TRUE(s.UpdateVirtualStockInfo(dsn(), 5, 1, str, key, info, true, 3, "main"));
  EXPECT_EQ(str, "03 - 虚拟仓");
  EXPECT_EQ(key, "30");
  key = "11";
  info = "10,11";
  str = "01.01 - 原材料一库";
  ASSERT_TRUE(s.UpdateVirtualStockInfo(dsn(), 5, 1, str, key, info, true, 3, "main"));
  EXPECT_EQ(key, "11,30");
  EXPECT_EQ(str, "01.01 - 原材料一库,03 - 虚拟仓");
  // No rights: every stored scope of the form type goes, and false.
  s.UpdateStockInfo(dsn(), 17, "x", "11", "11", 3, "main");
  EXPECT_FALSE(s.UpdateVirtualStockInfo(dsn(), 5, 17, str, key, info, true, 3, "main"));
  EXPECT_EQ(Value("select count(*) from ICMrpStockPlan where FUserID = '17'"), 0);
}

TEST_P(Server, StockStatusOptionRemembersTheBillType) {
  conn().Execute(
      "insert into ICSchemeProfile (FSchemeID, FStatus, FTranType, FUserID) values (7, 2, 36, 16)");
  conn().Execute(
      "insert into ICSchemeProfileEntry (FSchemeID, FKey, FValue) values"
      " (7, 'HideColumns', 'A||0##<&1000##<&2##<&FStockStatus##<&3||B')");
  auto s = Make();
  int32_t visible = 9, status = 0;
  std::string value = "caller's";
  // A fresh object writes with type 0 and scheme 0: nothing changes.
  s.UpdateFStockStatus(dsn(), "生产任务单", status);
  EXPECT_EQ(Value("select FVisible from ICChatBillTitle where FTypeID = 90 and FColCaption = "
                  "'生成采购计划标志$'"),
            1);
  s.GetFStockStatus(dsn(), "生产任务单", visible, value, 16);
  EXPECT_EQ(visible, 1);
  EXPECT_EQ(value, "A||0##<&1000##<&2##<&FStockStatus##<&3||B");
  status = 0;
  s.UpdateFStockStatus(dsn(), "whatever", status);  // the remembered type 90
  EXPECT_EQ(Value("select FVisible from ICChatBillTitle where FTypeID = 90 and FColCaption = "
                  "'生成采购计划标志$'"),
            0);
  EXPECT_EQ(Value("select FVisible from ICChatBillTitle where FTypeID = 90 and FColCaption = "
                  "'生成采购建议标志$'"),
            1);
  status = 1;
  s.UpdateFStockStatus(dsn(), "", status);
  EXPECT_EQ(
      conn().QueryValue("select FValue from ICSchemeProfileEntry where FSchemeID = 7").ToText(),
      "A||B");
  visible = 0;
  value = "it's hidden";
  s.SetFStockStatus(dsn(), "", visible, value);
  EXPECT_EQ(Value("select FVisible from ICChatBillTitle where FTypeID = 90 and FColCaption = "
                  "'生成采购建议标志$'"),
            0);
  EXPECT_EQ(
      conn().QueryValue("select FValue from ICSchemeProfileEntry where FSchemeID = 7").ToText(),
      "it's hidden");
  // Another bill type: 61 / 32, no scheme, FValue as the caller passed it.
  value = "mine";
  s.GetFStockStatus(dsn(), "采购订单", visible, value, 16);
  EXPECT_EQ(visible, 0);
  EXPECT_EQ(value, "mine");
}

}  // namespace
}  // namespace mrpcalc::testing
