// The services' rules that need no database, on in-memory data.
#include <gtest/gtest.h>

#include "expect_error.h"
#include "mrpserver/selection_rules.h"
#include "mrpserver/stock_scope_rules.h"
#include "purchaseplan/plan_rules.h"
#include "record/recordset.h"

namespace mrpcalc {
namespace {

TEST(PlanNumbers, TheDaysLargestSerialPlusOneLetterCaseAside) {
  EXPECT_EQ(plan::DailySerial({}, "CJ20261124"), "001");
  EXPECT_EQ(plan::DailySerial({"CJ20261124001", "cj20261124007", "CJ20261123999"}, "CJ20261124"),
            "008");
  // The serial is the last three characters compared as text: after 999
  // the day goes on at 000 (1001 + 999 = 2000).
  EXPECT_EQ(plan::DailySerial({"CJ20261124999"}, "CJ20261124"), "000");
  EXPECT_EQ(plan::DailySerial({"CJ20261124999", "CJ20261124000"}, "CJ20261124"), "000");
  EXPECT_ERROR(plan::DailySerial({"CJ20261124X1"}, "CJ20261124"), ErrorCategory::kInvalidInput,
               "the serial of plan");
}

repo::Warehouse Store(int32_t id, const char* number, int level, int detail, int32_t parent,
                      bool is_virtual = false, const char* rights = "") {
  repo::Warehouse w;
  w.id = id;
  w.number = number;
  w.name = std::string("W") + number;
  w.level = level;
  w.detail = detail;
  w.stock_parent = parent;
  w.is_virtual = is_virtual;
  w.right_users = rights;
  return w;
}

// A group (10) of two warehouses (11, 12), a warehouse alone (20) and a
// virtual one (30).
std::vector<repo::Warehouse> Stores() {
  return {Store(10, "01", 1, 0, 0), Store(11, "01.1", 2, 1, 10, false, "16"),
          Store(12, "01.2", 2, 1, 10), Store(20, "02", 1, 1, 0, false, "16"),
          Store(30, "09", 1, 1, 0, true)};
}

TEST(StockScope, TheWholeScopeIsEveryRealWarehouseTheUserSees) {
  UserRights all;
  all.administrator = true;
  const scope::Scope whole = scope::WholeScope(Stores(), all, 16);
  EXPECT_EQ(whole.str, "01 - W01,02 - W02");
  EXPECT_EQ(whole.key, "11,12,20");
  EXPECT_EQ(whole.info, "10,11,12,20");
  UserRights filtered;
  filtered.group_right = true;
  filtered.data_rights = true;  // only warehouses naming the user
  const scope::Scope own = scope::WholeScope(Stores(), filtered, 16);
  EXPECT_EQ(own.key, "11,20");
  EXPECT_EQ(own.str, "02 - W02");
}

TEST(StockScope, AGroupWhollyChosenStandsForItsWarehouses) {
  EXPECT_EQ(scope::ScopeText(Stores(), {11, 12, 20}), "01 - W01,02 - W02");
  EXPECT_EQ(scope::ScopeText(Stores(), {11, 20}), "01.1 - W01.1,02 - W02");
  EXPECT_EQ(scope::ScopeText(Stores(), {30}), "");  // virtual ones are not shown
  EXPECT_EQ(scope::KeepAllowed("11,99,20", "11,12,20"), "11,20,");
  EXPECT_EQ(scope::DropLastComma("11,20,"), "11,20");
  // Cutting one warehouse out of the stored texts is a cut of text.
  EXPECT_EQ(scope::Without("11,30,20", "30"), "11,20");
  EXPECT_EQ(scope::Without("30", "30"), "");
  EXPECT_EQ(scope::Without("11,12", "1"), "2");
}

DictionaryPtr Line(const Variant& item, const Variant& prop, const Variant& qty) {
  auto row = Dictionary::Create();
  row->Set("FItemID", item);
  row->Set("FAuxPropID", prop);
  row->Set("FQty", qty);
  return row;
}

TEST(Selection, StockCoversTheFirstLinesPickedFirst) {
  auto lines = Vector::Create();
  lines->Add(Line(1, 0, 30.0));
  lines->Add(Line(1, 0, 50.0));
  lines->Add(Line(1, 0, 10.0));
  lines->Add(Line(2, 0, 5.0));              // no stock of item 2
  lines->Add(Line(Variant::Null(), 0, 7.0));  // no item: left alone
  NetAgainstStock(*lines, {{{1, 0}, 60.0}, {{2, 1}, 100.0}});
  std::vector<double> left;
  for (const auto& r : lines->rows()) left.push_back(r->Get("FQty").ToDouble());
  EXPECT_EQ(left, (std::vector<double>{0, 20, 10, 5, 7}));

  auto bad = Vector::Create();
  bad->Add(Line(1, 0, "many"));
  EXPECT_ERROR(NetAgainstStock(*bad, {{{1, 0}, 1.0}}), ErrorCategory::kInvalidInput, "FQty");
}

}  // namespace
}  // namespace mrpcalc
