// The ERP's own database, on every engine and on both forms of its tables:
// text compared as the ERP's server compares it (letter case aside), the
// zero date of an order, and the rows the ERP's statements would make the
// database refuse, refused with every table left as it was.
#include <algorithm>
#include <set>

#include "db_fixture.h"
#include "mrpserver/mrp_data_server.h"
#include "purchaseplan/purchase_plan.h"
#include "schema/erp_schema.h"
#include "services/host_config.h"

namespace mrpcalc::testing {
namespace {

// One order line of a push at 10 with 13 % tax, from one plan line.
DictionaryPtr PushOf(const std::string& key, int supplier, int item, double qty, int plan,
                     int line) {
  return PushLine(key, supplier, item, qty, 10, 0, 13, {{plan, line, qty}});
}

class ErpDatabase : public DemoDbTest {
 protected:
  Host MakeHost() {
    HostConfig config;
    config.props = "UserID=16;";
    return MakeStandaloneHost(config);
  }
  std::string Text(const std::string& sql, const db::Params& params = {}) {
    const Variant v = conn().QueryValue(sql, params);
    return v.IsNull() || v.IsEmpty() ? "" : v.ToText();
  }
  double Value(const std::string& sql, const db::Params& params = {}) {
    return conn().QueryValue(sql, params).ToDouble();
  }

  // Every row of every ERP table and of our own tables, sorted: what must
  // not change when a call is refused.
  std::string Snapshot() {
    std::vector<std::string> tables;
    for (const auto& t : schema::ErpTables()) tables.push_back(t.name);
    for (const auto& t : schema::OwnTables()) tables.push_back(t.name);
    std::string out;
    for (const auto& table : tables) {
      if (!conn().TableExists(table)) continue;
      std::vector<std::string> lines;
      conn().QueryRows("select * from " + table, {}, [&](std::vector<Variant>& r) {
        std::string line = table;
        for (const auto& v : r) line += "|" + (v.IsNull() ? std::string("null") : v.ToText());
        lines.push_back(std::move(line));
      });
      std::sort(lines.begin(), lines.end());
      for (const auto& l : lines) out += l + "\n";
    }
    return out;
  }

  // Runs the call, which must fail with invalid input whose message holds
  // every one of `words`, and leave the database as it was.
  template <class F>
  void ExpectRefused(F&& call, std::initializer_list<const char*> words) {
    const std::string before = Snapshot();
    try {
      call();
      ADD_FAILURE() << "the call was not refused";
    } catch (const Error& e) {
      EXPECT_EQ(e.category(), ErrorCategory::kInvalidInput) << e.what();
      for (const char* w : words) EXPECT_NE(std::string(e.what()).find(w), std::string::npos) << e.what();
    }
    EXPECT_EQ(Snapshot(), before);
  }
};
MRPCALC_ALL_SCHEMAS(ErpDatabase);

// Profile keys, supplier codes, bill numbers, plan numbers, template ids
// and actions and stock-scope keys in another case than the stored one.
TEST_P(ErpDatabase, TextComparesWithoutRegardToCase) {
  const Host host = MakeHost();
  MrpDataServer server(host);
  EXPECT_EQ(server.getSysInfo(dsn(), "ic", "bomtype").ToText(), "1");
  EXPECT_EQ(server.getSysInfo(dsn(), "Gl", "fbWB").ToText(), "1");
  EXPECT_EQ(server.GetSupplierNameByNumber(dsn(), "s001"), "华东铝业有限公司");
  PurchasePlanInfo info(host);
  double rate = -1;
  EXPECT_EQ(info.GetSupplierID(dsn(), "s002", rate), 2);
  EXPECT_DOUBLE_EQ(rate, 13);

  // Confirmation finds the supplier by a code in lower case: its id, its
  // own price band, its tax rate.
  auto confirmed = server.GetMrpConfirmData(
      dsn(), Rows({Row({{"FBomItemID", 3002}, {"FAuxPropID", 0}, {"FSupplyNumber", "s002"},
                        {"FUnitID", 1}, {"FQty", 100}, {"FDate", "2026-12-01"}})}));
  EXPECT_EQ(confirmed->Item(1)->Get("FSupplyID").ToLong(), 2);
  EXPECT_DOUBLE_EQ(confirmed->Item(1)->Get("FPrice").ToDouble(), 0.15);

  // A plan saved from a task named in lower case links it and marks it.
  PurchasePlanUpdate update(host);
  const std::string plan = update.UpdatePurchasePlan(
      dsn(),
      Rows({Row({{"Ftrantype", 85}, {"FBillNO", "work000001"}, {"FInterID", 1}, {"FQty", 26}})}),
      Rows({PlanLine(3001, "s001", 150, 3)}), 16);
  ASSERT_FALSE(plan.empty());
  EXPECT_EQ(Value("select count(*) from PurchaseLink where FSourceInterId = 1"), 1);
  EXPECT_EQ(Text("select FPurchasePlanBillNo from ICMO where FInterID = 1"), plan);
  EXPECT_EQ(Value("select FSupplyID from PurchasePlanEntry where FBillNo = ?", {plan}), 1);
  // The plan found by its number in lower case; the number not given twice.
  std::string lower = plan;
  std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
  EXPECT_EQ(info.GetRptData(dsn(), nullptr, 1, lower)->Count(), 1);
  EXPECT_FALSE(info.GetBillDate(dsn(), lower).empty());
  update.UpdatePurchasePlan(
      dsn(),
      Rows({Row({{"Ftrantype", 85}, {"FBillNO", "Work000001"}, {"FInterID", 1}, {"FQty", 1}})}),
      Rows({PlanLine(3001, "S001", 1, 3)}), 16);
  EXPECT_EQ(Text("select FPurchasePlanBillNo from ICMO where FInterID = 1").find(plan), 0u);

  // Received quantities reach a task named in another case.
  server.UpdateBillStockFinishQty(
      dsn(), Rows({Row({{"Ftrantype", 91}, {"FBillNO", "out000001"}, {"FQty", 6}})}), "");
  EXPECT_DOUBLE_EQ(Value("select FStockFinishQty from ICOutMO where FInterID = 1"), 6);

  // The order template's relation, its id and action written in lower case.
  conn().Execute(
      "insert into ICTemplate (FID, FFieldName, FDefaultCtl, FCtlType, FNeedSave, FRelationID,"
      " FAction) values ('p02', 'FPOOrdBillNo', 0, 30, 1,"
      " 'x,FSupplyID,t_Supplier,FItemID,FItemID,t_Supplier,FItemID,FName', 'a1,a3')");
  std::string ids;
  update.PushBill(dsn(), Rows({PushOf("k1", 1, 3001, 10, 1000, 1)}), 16, ids,
                  *Date::Parse("2026-11-22"));
  EXPECT_EQ(Text("select FPOOrdBillNo from POOrder where FInterID = " + ids), "华东铝业有限公司");

  // A stock scope stored for one sub-id is the scope of it in any case.
  EXPECT_TRUE(server.UpdateStockInfo(dsn(), 1, "01 - x", "11,12", "11,12", 1, "sc"));
  std::string str, key, got;
  EXPECT_TRUE(server.GetStockInfo(dsn(), 1, str, key, got, 1, "SC"));
  EXPECT_EQ(key, "11,12");
  EXPECT_TRUE(server.UpdateStockInfo(dsn(), 1, "01 - x", "11", "11", 1, "Sc"));
  EXPECT_EQ(Value("select count(*) from ICMrpStockPlan where FUserID = '1'"), 1);
}

// A push's keys name its order lines as the server matches them: two keys
// equal but for case are one key, refused before anything is written.
TEST_P(ErpDatabase, KeysEqualButForCaseAreRefused) {
  PurchasePlanUpdate update(MakeHost());
  update.UpdatePurchasePlan(dsn(), Rows({}),
                            Rows({PlanLine(3001, "S001", 150, 3), PlanLine(3004, "S002", 3, 1)}),
                            16);
  std::string ids;
  ExpectRefused(
      [&] {
        update.PushBill(dsn(),
                        Rows({PushOf("Key", 1, 3001, 10, 1000, 1),
                              PushOf("KEY", 2, 3004, 3, 1000, 2)}),
                        16, ids, *Date::Parse("2026-11-22"));
      },
      {"vctListData row 2", "\"KEY\""});
}

// Orders made without a date carry the zero date, 1899-12-30 00:00:00, in
// FDate and FSettleDate, from both order writers.
TEST_P(ErpDatabase, OrdersWithoutADateTakeTheZeroDate) {
  const Host host = MakeHost();
  const Date zero;
  ASSERT_EQ(zero.ToString(), "1899-12-30 00:00:00");
  MrpDataServer server(host);
  VectorPtr made =
      server.MakePOOrderBill(dsn(), Rows({OrderLine(1, 3001, 50, 18.9, 13, 50, 2, 3)}), 16, Date());
  PurchasePlanUpdate update(host);
  update.UpdatePurchasePlan(dsn(), Rows({}), Rows({PlanLine(3004, "S002", 3, 1)}), 16);
  std::string pushed;
  update.PushBill(dsn(), Rows({PushOf("1000_1", 2, 3004, 3, 1000, 1)}), 16, pushed, Date());
  for (const int32_t id : {static_cast<int32_t>(made->Item(1)->Get("FInterID").ToLong()),
                           static_cast<int32_t>(std::stol(pushed))}) {
    auto rs = conn().Query("select FDate, FSettleDate from POOrder where FInterID = ?", {id});
    ASSERT_FALSE(rs->Eof());
    EXPECT_EQ(rs->Field("FDate").ToDate(), zero) << rs->Field("FDate").ToText();
    EXPECT_EQ(rs->Field("FSettleDate").ToDate(), zero);
  }
}

// Rows the ERP's own statements could not write: the call fails with the
// row and the field, and nothing is written, no plan number drawn.
TEST_P(ErpDatabase, RowsTheDatabaseWouldRefuseChangeNothing) {
  PurchasePlanUpdate update(MakeHost());
  update.UpdatePurchasePlan(dsn(), Rows({}),
                            Rows({PlanLine(3001, "S001", 150, 3), PlanLine(3004, "S002", 3, 1)}),
                            16);

  // A plan line's property and unit are bare numbers in the plan's statement.
  for (const char* field : {"FAuxPropID", "FUnitID"}) {
    auto blank = PlanLine(3004, "S002", 3, 1);
    blank->Set(field, "");
    ExpectRefused(
        [&] {
          update.UpdatePurchasePlan(
              dsn(),
              Rows({Row({{"Ftrantype", 85}, {"FBillNO", "WORK000002"}, {"FInterID", 2},
                         {"FQty", 1}})}),
              Rows({PlanLine(3001, "S001", 1, 3), blank}), 16);
        },
        {"vctListData row 2", field});
  }

  std::string ids;
  auto push = [&](const DictionaryPtr& line) {
    return [&, line] {
      update.PushBill(dsn(), Rows({PushOf("1000_1", 1, 3001, 10, 1000, 1), line}), 16, ids,
                      *Date::Parse("2026-11-22"));
    };
  };
  // A push line's merged quantity is a bare number; its plan lines must be there.
  auto no_sum = PushOf("1000_2", 2, 3004, 3, 1000, 2);
  no_sum->Set("FMergeSumQty", "");
  ExpectRefused(push(no_sum), {"vctListData row 2", "FMergeSumQty"});
  auto no_entries = PushOf("1000_2", 2, 3004, 3, 1000, 2);
  no_entries->Remove("EntryDataVct");
  ExpectRefused(push(no_entries), {"vctListData row 2", "EntryDataVct"});

  // A template relation whose value query finds two rows: on the order,
  // two suppliers share the name that the relation looks up by; on its
  // lines, two items.
  auto relate = [&](const char* table, const char* field, const char* relation) {
    conn().Execute("delete from ICTemplate");
    conn().Execute("delete from ICTemplateEntry");
    conn().Execute(std::string("insert into ") + table +
                       " (FID, FFieldName, FDefaultCtl, FCtlType, FNeedSave, FRelationID, FAction)"
                       " values ('P02', ?, 0, 30, 1, ?, 'A3')",
                   {field, relation});
  };
  conn().Execute("update t_Supplier set FName = 'same' where FItemID in (1, 2)");
  relate("ICTemplate", "FPOOrdBillNo", "x,FSupplyID,t_Supplier,FItemID,FName,t_Supplier,FName,FNumber");
  ExpectRefused(push(PushOf("1000_2", 2, 3004, 3, 1000, 2)),
                {"POOrder.FPOOrdBillNo", "2 rows", "t_Supplier"});
  conn().Execute("update t_ICItem set FName = 'same' where FItemID in (3001, 3004)");
  relate("ICTemplateEntry", "FNote", "x,FItemID,t_ICItem,FItemID,FName,t_ICItem,FName,FNumber");
  ExpectRefused(push(PushOf("1000_2", 2, 3004, 3, 1000, 2)),
                {"POOrderEntry.FNote", "line 1", "t_ICItem"});
  // With one row the relation fills the field.
  conn().Execute("update t_ICItem set FName = 'other' where FItemID = 3004");
  push(PushOf("1000_2", 2, 3004, 3, 1000, 2))();
  EXPECT_EQ(Text("select FNote from POOrderEntry where FItemID = 3004"), "3.04");
}

}  // namespace
}  // namespace mrpcalc::testing
