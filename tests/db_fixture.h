// One database suite, every engine: a test derives from DbTest and runs once
// per engine on a fresh, empty database.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "db/connection.h"
#include "record/variant.h"

namespace mrpcalc::testing {

// The first sheet of a workbook as a spreadsheet shows it: rows of cell
// texts, numbers as written in the file ("31", "36.4"), empty cells "".
// Read with the unzip tool.
std::vector<std::vector<std::string>> ReadWorkbook(const std::string& path);

// "sqlite", and "postgres" when MRPCALC_TEST_PG_DSN names a server.
std::vector<std::string> Engines();
// Each engine twice: as `init` makes the ERP tables ("sqlite"), and with
// exactly the ERP's own columns, no keys and none of our tables
// ("sqlite_erp"), as a buyer's database is before mrpcalc first runs.
std::vector<std::string> EnginesAndSchemas();
// The engine a test parameter names ("sqlite" for "sqlite_erp").
std::string EngineOf(const std::string& param);

// A DSN for a fresh, empty database of the engine (or test parameter). For SQLite a new file in
// a temporary folder; for PostgreSQL the test server with its public schema
// dropped and created again.
std::string FreshDsn(const std::string& engine);

// Runs body(p, out) in `processes` forked children at the same time, p
// from 0; each writes lines to its own stream. Returns every line written.
// A child that throws fails the test (ADD_FAILURE) with its message.
std::vector<std::string> InChildProcesses(int processes,
                                          const std::function<void(int, std::ostream&)>& body);

// How many different values the k-th blank-separated word of the lines takes.
inline size_t DistinctWords(const std::vector<std::string>& lines, size_t k) {
  std::set<std::string> seen;
  for (const auto& line : lines) {
    size_t from = 0;
    for (size_t i = 0; i < k; ++i) from = line.find(' ', from) + 1;
    seen.insert(line.substr(from, line.find(' ', from) - from));
  }
  return seen.size();
}

// Host rows in a line: Row({{"FItemID", 1}}), Rows({row, row}).
inline DictionaryPtr Row(std::initializer_list<std::pair<const char*, Variant>> cells) {
  auto row = Dictionary::Create();
  for (const auto& [k, v] : cells) row->Set(k, v);
  return row;
}
inline VectorPtr Rows(std::initializer_list<DictionaryPtr> rows) {
  auto v = Vector::Create();
  for (const auto& r : rows) v->Add(r);
  return v;
}

// Rows of the buyer's methods, as the ERP's forms fill them.
// A line to buy, from an MRP result (a plan's or a confirmation's line).
inline DictionaryPtr PlanLine(int item, const char* supplier, double qty, int unit,
                       const char* memo = "") {
  return Row({{"FBomItemID", item},
              {"FItemNumber", ""},
              {"FItemName", ""},
              {"FItemModel", ""},
              {"FAuxPropID", 0},
              {"FAuxProp", ""},
              {"FSupplyNumber", supplier},
              {"FSupplyName", ""},
              {"FUnitID", unit},
              {"FUnitName", ""},
              {"FQty", qty},
              {"FMemo", memo},
              {"FDate", "2026-12-01"}});
}

// A confirmed line to order (MakePOOrderBill).
inline DictionaryPtr OrderLine(int supplier, int item, double qty, double price, double tax,
                        double coefficient = 1, int decimals = 2, int unit = 1) {
  return Row({{"FSupplyID", supplier},
              {"FItemID", item},
              {"FAuxQty", qty / coefficient},
              {"FQty", qty},
              {"FPrice", price},
              {"FCoefficient", coefficient},
              {"FPriceDecimal", decimals},
              {"FDiscountRate", 0},
              {"FTaxRate", tax},
              {"FUnitID", unit},
              {"FAuxPropID", 0},
              {"FNote", "it's urgent"},
              {"FDate", "2026-12-01"},
              {"FPushQty", qty}});
}

// One order line of a push: the plan parts behind it as (plan, line, qty).
inline DictionaryPtr PushLine(const std::string& key, int supplier, int item, double qty, double price,
                       double discount, double tax, std::vector<std::tuple<int, int, double>> parts,
                       int unit = 1) {
  auto entries = Vector::Create();
  for (auto [plan, line, q] : parts) {
    entries->Add(Row({{"FKey", key},
                      {"FInterID", plan},
                      {"FEntryID", line},
                      {"FItemID", item},
                      {"FBillNo", "CJ"},
                      {"FPushQty", q}}));
  }
  return Row({{"FKey", key},
              {"FSupplyID", supplier},
              {"FItemID", item},
              {"FAuxPropID", 0},
              {"FUnitID", unit},
              {"FPushQty", qty},
              {"FPrice", price},
              {"FDiscountRate", discount},
              {"FTaxRate", tax},
              {"FMemo", "m"},
              {"FFinishDate", "2026-12-01"},
              {"FBillNo", "CJ"},
              {"FIsMerge", 0},
              {"FStartKey", ""},
              {"FEndKey", ""},
              {"FMergeSumQty", 0},
              {"EntryDataVct", entries}});
}

class DbTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override;
  db::Connection& conn() { return *connection_; }
  const std::string& dsn() const { return dsn_; }
  std::string engine() const { return EngineOf(GetParam()); }
  // True on the schema with exactly the ERP's columns.
  bool erp_columns_only() const { return GetParam() != engine(); }
  // Creates the ERP tables in this test's form of them.
  void CreateSchema(db::Connection& connection);

 private:
  std::string dsn_;
  db::ConnectionPtr connection_;
};

// A fresh database holding the ERP tables and the demo data.
class DemoDbTest : public DbTest {
 protected:
  void SetUp() override;
};

#define MRPCALC_ALL_ENGINES(Suite)                                      \
  INSTANTIATE_TEST_SUITE_P(Engines, Suite, ::testing::ValuesIn(::mrpcalc::testing::Engines()), \
                           [](const auto& info) { return info.param; })

// Suites over the ERP tables run on both forms of them.
#define MRPCALC_ALL_SCHEMAS(Suite)                                                 \
  INSTANTIATE_TEST_SUITE_P(Engines, Suite,                                         \
                           ::testing::ValuesIn(::mrpcalc::testing::EnginesAndSchemas()), \
                           [](const auto& info) { return info.param; })

}  // namespace mrpcalc::testing
