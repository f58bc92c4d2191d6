// ERP table definitions. Types follow the ERP's own where its statements
// show them (decimal(23,10) quantities, varchar codes).
#include "schema/erp_schema.h"

#include <algorithm>
#include <unordered_map>

#include "record/error.h"

namespace mrpcalc::schema {

using db::ColumnDef;
using db::ColumnType;
using db::Connection;
using db::Transaction;

namespace {

ColumnDef Int(const char* name, const char* def = "") { return {name, ColumnType::kInt, 0, def}; }
ColumnDef Small(const char* name, const char* def = "0") {
  return {name, ColumnType::kSmallInt, 0, def};
}
ColumnDef Qty(const char* name, const char* def = "0") {
  return {name, ColumnType::kDecimal, 0, def};
}
ColumnDef Money(const char* name) { return {name, ColumnType::kMoney, 0, "0"}; }
ColumnDef Rate(const char* name) { return {name, ColumnType::kFloat, 0, "0"}; }
ColumnDef Str(const char* name, int length, const char* def = "") {
  return {name, ColumnType::kVarchar, length, def};
}
ColumnDef When(const char* name) { return {name, ColumnType::kDateTime, 0, ""}; }

std::vector<TableDef> BuildErpTables() {
  return {
      // Base data.
      {"t_MeasureUnit",
       {Int("FMeasureUnitID"), Int("FItemID"), Str("FNumber", 30), Str("FName", 80),
        Qty("FCoefficient", "1"), Int("FUnitGroupID", "0")},
       {"FMeasureUnitID"}},
      {"t_ICItem",
       {Int("FItemID"), Str("FNumber", 80), Str("FName", 255), Str("FModel", 255), Int("FErpClsID"),
        Int("FUnitID"), Int("FOrderUnitID", "0"), Qty("FSecInv"), Small("FQtyDecimal", "0"),
        Small("FPriceDecimal", "2"), Qty("FOrderPrice"), Rate("FTaxRate"), Int("FSource", "0"),
        Int("FAuxClassID", "0"), Small("FDeleted", "0")},
       {"FItemID"}},
      {"t_AuxItem",
       {Int("FItemID"), Str("FNumber", 80), Str("FName", 255), Int("FItemClassID", "0")},
       {"FItemID"}},
      {"t_Item",
       {Int("FItemID"), Int("FItemClassID"), Str("FNumber", 80), Str("FName", 255),
        Int("FParentID", "0"), Small("FDetail", "1"), Small("FLevel", "1"), Small("FDeleted", "0"),
        Str("FRightUserID", 1000, "''")},
       {"FItemID"}},
      {"t_Stock",
       {Int("FItemID"), Str("FNumber", 80), Str("FName", 255), Int("FTypeID", "500"),
        Int("FParentID", "0"), Str("FRightUserID", 1000, "''")},
       {"FItemID"}},
      {"t_Supplier",
       {Int("FItemID"), Str("FNumber", 80), Str("FName", 255), Str("FRightUserID", 1000, "''"),
        Small("FDeleted", "0"), Rate("FValueAddRate"), Money("FCreditDegree"),
        Int("FDepartment", "0"), Int("FEmployee", "0")},
       {"FItemID"}},
      // Bands are looked up by item; the line number is init's own.
      {"t_SupplyEntry",
       {Int("FSupID"), Int("FEntryID"), Int("FItemID"), Qty("FPrice"), Qty("FStartQty"),
        Qty("FEndQty")},
       {},
       {{"FItemID"}}},
      {"t_Currency",
       {Int("FCurrencyID"), Str("FNumber", 30), Str("FName", 80), Small("FScale", "2")},
       {"FCurrencyID"}},
      {"t_Settle", {Int("FItemID"), Str("FNumber", 30), Str("FName", 80)}, {"FItemID"}},
      {"t_SubMessage",
       {Int("FInterID"), Int("FTypeID"), Str("FID", 30), Str("FName", 80)},
       {"FInterID"}},
      {"t_SystemProfile",
       {Str("FCategory", 30), Str("FKey", 100), Str("FValue", 255), Str("FDescription", 255)},
       {"FCategory", "FKey"}},
      // Users and rights.
      {"t_User", {Int("FUserID"), Str("FName", 80)}, {"FUserID"}},
      {"t_Group", {Int("FGroupID"), Int("FUserID")}, {"FGroupID", "FUserID"}},
      {"t_GroupAccess",
       {Int("FGroupID"), Int("FUserID"), Int("FType", "1"), Str("FSubSys", 30, "''")},
       {}},
      {"t_GroupAccessType",
       {Str("FSubSys", 30), Str("FAccess", 80), Int("FGroupID"), Int("FMask", "0")},
       {}},
      // Bills of material.
      {"ICBOM",
       {Int("FInterID"), Str("FBOMNumber", 80), Int("FItemID"), Qty("FQty", "1"),
        Int("FAuxPropID", "0"), Int("FUnitID", "0"), Int("FUseStatus"), Small("FStatus", "0")},
       {"FInterID"},
       {{"FItemID"}}},
      {"ICBOMChild",
       {Int("FInterID"), Int("FEntryID"), Int("FItemID"), Qty("FQty"), Qty("FScrap"),
        Int("FAuxPropID", "0"), Int("FUnitID", "0"), Str("FNote", 255, "''")},
       {"FInterID", "FEntryID"}},
      // Demand: sales orders, production and outsourcing tasks.
      {"SEOrder",
       {Int("FInterID"), Str("FBillNo", 50), Int("FTranType", "81"), When("FDate"),
        Small("FStatus", "0"), Int("FCustID", "0")},
       {"FInterID"}},
      {"SEOrderEntry",
       {Int("FInterID"), Int("FEntryID"), Int("FItemID"), Int("FAuxPropID", "0"), Qty("FQty"),
        Qty("FAuxQty"), Qty("FCommitQty"), Int("FUnitID"), When("FDate"), Qty("FStockFinishQty"),
        Qty("FBaseUnitStockFinishQty"), Str("FPurchasePlanBillNo", 500, "''")},
       {"FInterID", "FEntryID"}},
      {"ICMO",
       {Int("FInterID"), Str("FBillNo", 50), Int("FTranType", "85"), Small("FStatus", "0"),
        Int("FItemID"), Int("FAuxPropID", "0"), Qty("FQty"), Qty("FAuxQty"), Int("FUnitID"),
        Qty("FStockFinishQty"), When("FBeginDate"), When("FDate"),
        Str("FPurchasePlanBillNo", 500, "''")},
       {"FInterID"},
       {{"FBillNo"}}},
      {"ICMOEntry",
       {Int("FInterID"), Int("FEntryID"), Int("FItemID"), Qty("FPlanQty"), Int("FAuxPropID", "0"),
        Qty("FScrapRate"), Int("FUnitID", "0"), Str("FNote", 255, "''")},
       {"FInterID", "FEntryID"}},
      {"ICOutMO",
       {Int("FInterID"), Str("FBillNo", 50), Int("FTranType", "91"), Small("FStatus", "0"),
        Int("FItemID"), Int("FAuxPropID", "0"), Qty("FQty"), Qty("FAuxQty"), Int("FUnitID"),
        Qty("FStockFinishQty"), When("FBeginDate"), When("FDate"),
        Str("FPurchasePlanBillNo", 500, "''")},
       {"FInterID"},
       {{"FBillNo"}}},
      {"ICOutMOEntry",
       {Int("FInterID"), Int("FEntryID"), Int("FItemID"), Qty("FPlanQty"), Int("FAuxPropID", "0"),
        Qty("FScrapRate"), Int("FUnitID", "0"), Str("FNote", 255, "''")},
       {"FInterID", "FEntryID"}},
      // Stock.
      {"ICInventory",
       {Int("FItemID"), Int("FAuxPropID", "0"), Int("FStockID"), Qty("FQty"),
        Str("FBatchNo", 80, "''")},
       {},
       {{"FItemID"}, {"FStockID"}}},
      {"ICStockBill",
       {Int("FInterID"), Str("FBillNo", 50), Int("FTranType"), When("FDate"), Int("FSupplyID", "0"),
        Int("FCheckerID", "0")},
       {"FInterID"}},
      {"ICStockBillEntry",
       {Int("FInterID"), Int("FEntryID"), Int("FItemID"), Int("FAuxPropID", "0"), Qty("FQty"),
        Qty("FPrice"), Qty("FAuxPrice"), Int("FUnitID", "0"), Int("FSourceInterId", "0"),
        Int("FSourceEntryID", "0")},
       {"FInterID", "FEntryID"},
       {{"FItemID"}, {"FSourceInterId", "FSourceEntryID"}}},
      // Purchasing.
      {"POOrder",
       {Str("FBrNo", 10, "'0'"),
        Int("FInterID"),
        Str("FBillNo", 50),
        Int("FTranType", "71"),
        Int("FSupplyID"),
        When("FDate"),
        Int("FCurrencyID", "1"),
        Rate("FExchangeRate"),
        Int("FBillerID", "0"),
        Int("FCheckerID", "0"),
        Small("FCancellation", "0"),
        Small("FStatus", "0"),
        Int("FPOStyle", "252"),
        Int("FSettleID", "0"),
        Int("FAreaPs", "20302"),
        When("FSettleDate"),
        Int("FEmpID", "0"),
        Int("FDeptID", "0"),
        Int("FMangerID", "0"),
        Int("FRelateBrID", "0"),
        Int("FBrID", "0"),
        Str("FPOOrdBillNo", 50, "''")},
       {"FInterID"}},
      {"POOrderEntry",
       {Str("FBrNo", 10, "'0'"),
        Int("FInterID"),
        Int("FEntryID"),
        Int("FItemID"),
        When("FDate"),
        Int("FAuxPropID", "0"),
        Int("FUnitID", "0"),
        Qty("FQty"),
        Qty("FAuxQty"),
        Qty("FCommitQty"),
        Qty("FStockQty"),
        Qty("FAuxStockQty"),
        Qty("FPrice"),
        Qty("FAuxPrice"),
        Qty("FTaxPrice"),
        Qty("FAuxTaxPrice"),
        Rate("FCess"),
        Rate("FTaxRate"),
        Money("FAmount"),
        Qty("FPriceDiscount"),
        Qty("FAuxPriceDiscount"),
        Money("FDescount"),
        Money("FAllAmount"),
        Money("FTaxAmount"),
        Str("FNote", 255, "''"),
        Str("FPurchasePlanBillNo", 500, "''"),
        Str("FPurchasePlanKey", 500, "''")},
       {"FInterID", "FEntryID"},
       {{"FItemID"}}},
      {"ICPurchase",
       {Int("FInterID"), Str("FBillNo", 50), Int("FTranType", "75"), When("FDate"),
        Int("FSupplyID")},
       {"FInterID"}},
      {"ICPurchaseEntry",
       {Int("FInterID"), Int("FEntryID"), Int("FItemID"), Qty("FQty"), Qty("FPrice"),
        Qty("FTaxPrice"), Qty("FAuxTaxPrice"), Int("FUnitID", "0")},
       {"FInterID", "FEntryID"},
       {{"FItemID"}}},
      // Purchase plans.
      {"PurchasePlan",
       {Int("FInterID"), Str("FBillNo", 30), When("FDate"), Int("FBillerID", "0")},
       {"FInterID"}},
      {"PurchasePlanEntry",
       {Str("FBillNo", 30),
        Int("FInterID"),
        Int("FEntryID"),
        Int("FItemID"),
        Int("FAuxPropID", "0"),
        Int("FSupplyID", "0"),
        Qty("FQty"),
        Qty("FPrice"),
        Money("FAmount"),
        Int("FUnitID", "0"),
        Qty("FAuxQty"),
        Qty("FAuxPrice"),
        Rate("FTaxRate"),
        Rate("FCess"),
        Money("FTaxAmount"),
        When("FDate"),
        Str("FNote", 255, "''"),
        Qty("FPushQty"),
        Qty("FPurchaseFinishQty"),
        Small("FClosed", "0")},
       {"FInterID", "FEntryID"}},
      {"PurchaseLink",
       {Str("FBillNo", 30), Int("FInterID"), Int("FEntryID"), Int("FSourceTranType"),
        Int("FSourceInterId"), Int("FSourceFEntryID", "0"), Qty("FQty")},
       {}},
      {"PurchasePlanOrder",
       {Int("FInterID"), Int("FItemID"), Str("FPurchasePlanKey", 500), Int("FPurchasePlanInterID"),
        Int("FPurchasePlanEntryID"), Qty("FQty")},
       {}},
      // Form settings.
      {"ICMrpStockPlan",
       {Str("FUserID", 20), Str("FStockStr", 4000, "''"), Str("FStockKey", 4000, "''"),
        Str("FStockInfo", 4000, "''"), Small("FFrmType", "0"), Str("FSubID", 50, "''")},
       {}},
      {"ICChatBillTitle", {Int("FTypeID"), Str("FColCaption", 100), Small("FVisible", "0")}, {}},
      {"ICSchemeProfile",
       {Int("FSchemeID"), Small("FStatus", "0"), Int("FTranType"), Int("FUserID")},
       {"FSchemeID"}},
      {"ICSchemeProfileEntry", {Int("FSchemeID"), Str("FKey", 100), Str("FValue", 4000, "''")}, {}},
      {"ICTemplate",
       {Str("FID", 10), Str("FFieldName", 80), Small("FDefaultCtl", "0"), Int("FCtlType", "0"),
        Small("FNeedSave", "0"), Str("FRelationID", 500, "''"), Str("FAction", 100, "''")},
       {}},
      {"ICTemplateEntry",
       {Str("FID", 10), Str("FFieldName", 80), Small("FMustInput", "0"), Small("FDefaultCtl", "0"),
        Int("FCtlType", "0"), Small("FNeedSave", "0"), Str("FRelationID", 500, "''"),
        Str("FAction", 100, "''")},
       {}},
  };
}

// The init-only columns of each ERP table.
void MarkInitOnly(std::vector<TableDef>& tables) {
  static const std::unordered_map<std::string, std::vector<std::string>> kInitOnly = {
      {"t_MeasureUnit", {"FNumber", "FUnitGroupID"}},
      {"t_Stock", {"FNumber", "FName"}},
      {"t_ICItem", {"FDeleted"}},
      {"t_AuxItem", {"FNumber", "FItemClassID"}},
      {"t_SupplyEntry", {"FEntryID"}},
      {"t_Currency", {"FNumber", "FName"}},
      {"t_Settle", {"FNumber"}},
      {"t_SubMessage", {"FName"}},
      {"t_SystemProfile", {"FDescription"}},
      {"t_User", {"FName"}},
      {"t_GroupAccess", {"FSubSys"}},
      {"ICBOM", {"FBOMNumber", "FUnitID"}},
      {"SEOrder", {"FDate", "FCustID"}},
      {"ICMO", {"FDate"}},
      {"ICMOEntry", {"FUnitID"}},
      {"ICOutMO", {"FDate"}},
      {"ICOutMOEntry", {"FUnitID"}},
      {"ICInventory", {"FBatchNo"}},
      {"ICStockBill", {"FBillNo"}},
      {"ICStockBillEntry", {"FPrice"}},
      {"POOrder", {"FCheckerID"}},
      {"ICPurchase", {"FBillNo", "FTranType"}},
      {"ICPurchaseEntry", {"FQty", "FPrice"}},
  };
  for (auto& table : tables) {
    if (auto it = kInitOnly.find(table.name); it != kInitOnly.end()) table.init_only = it->second;
  }
}

std::vector<TableDef> BuildOwnTables() {
  return {
      // Next interior id per bill table, for engines without the ERP's
      // stored procedure.
      {"mrpcalc_InteriorID", {Str("FTableName", 128), Int("FLastID", "0")}, {"FTableName"}},
      // Bill number counters per bill type and day.
      {"mrpcalc_BillNumber",
       {Str("FBillType", 30), Str("FDay", 8), Int("FLastSerial", "0")},
       {"FBillType", "FDay"}},
      // Named locks: work that reads a maximum and writes after it (plan
      // numbers) holds its row until its unit of work ends.
      {"mrpcalc_Lock", {Str("FName", 128), Int("FCount", "0")}, {"FName"}},
      // Tokens of the HTTP service: only a hash of each is kept.
      {"mrpcalc_Token",
       {Str("FTokenHash", 64), Int("FUserID"), When("FCreated"), Small("FRevoked", "0")},
       {"FTokenHash"}},
      // The first answer to each write a client sent with an idempotency
      // key, per user and key, with a digest of the request it answered.
      {"mrpcalc_Request",
       {Int("FUserID"), Str("FKey", 100), Str("FDigest", 64), {"FAnswer", ColumnType::kText, 0, ""},
        When("FCreated")},
       {"FUserID", "FKey"}},
      // Time-phased planning: parameters per item, or per item and
      // supplier (FSupplyID 0: any supplier); zeros change nothing.
      {"mrpcalc_PlanParam",
       {Int("FItemID"), Int("FSupplyID", "0"), Int("FLeadTime", "0"), Int("FProdLeadTime", "0"),
        Qty("FProdLeadPerUnit", "0"), Qty("FSafetyQty", "0"), Qty("FSafetyDays", "0"),
        Qty("FMinQty", "0"), Qty("FMultiple", "0"), Qty("FMaxQty", "0"),
        Int("FOrderPeriod", "0"), Int("FFirmFence", "0")},
       {"FItemID", "FSupplyID"}},
      // The working calendar: weekdays 1 (Monday) to 7; without rows,
      // Monday to Friday. Holidays by day.
      {"mrpcalc_WorkWeek", {Int("FWeekday"), Small("FWorking", "1")}, {"FWeekday"}},
      {"mrpcalc_Holiday", {When("FDate")}, {"FDate"}},
      // Saved time-phased runs and their planned orders.
      {"mrpcalc_PhasedRun",
       {Int("FRunID"), When("FCreated"), Int("FUserID", "0"),
        {"FSettings", ColumnType::kText, 0, ""}},
       {"FRunID"}},
      {"mrpcalc_PhasedOrder",
       {Int("FRunID"), Int("FLine"), Int("FItemID"), Str("FItemNumber", 80, "''"), Qty("FQty"),
        When("FDue"), When("FRelease"), Small("FLate", "0"), Str("FReasons", 2000, "''")},
       {"FRunID", "FLine"}},
  };
}

}  // namespace

const std::vector<TableDef>& ErpTables() {
  static const std::vector<TableDef> tables = [] {
    auto built = BuildErpTables();
    MarkInitOnly(built);
    return built;
  }();
  return tables;
}

const std::vector<TableDef>& OwnTables() {
  static const std::vector<TableDef> tables = BuildOwnTables();
  return tables;
}


namespace {

// The table as the ERP has it: its own columns only, no keys or indexes.
TableDef ErpColumnsOnly(const TableDef& table) {
  TableDef erp{table.name, {}, {}};
  for (const auto& column : table.columns) {
    if (std::find(table.init_only.begin(), table.init_only.end(), column.name) !=
        table.init_only.end()) {
      continue;
    }
    db::ColumnDef c = column;
    // The branch number is text in some ERP databases and a number in others.
    if (c.name == "FBrNo") c = {"FBrNo", ColumnType::kInt, 0, "0"};
    erp.columns.push_back(std::move(c));
  }
  return erp;
}

}  // namespace

void CreateErpSchema(Connection& connection, bool replace, SchemaForm form) {
  Transaction tx(connection);
  std::vector<TableDef> tables;
  for (const auto& table : ErpTables()) {
    tables.push_back(form == SchemaForm::kInit ? table : ErpColumnsOnly(table));
  }
  if (form == SchemaForm::kInit) tables.insert(tables.end(), OwnTables().begin(), OwnTables().end());
  for (const auto& table : tables) {
    if (connection.TableExists(table.name)) {
      if (!replace) {
        throw Error(ErrorCategory::kInvalidInput,
                    "table " + table.name +
                        " already exists; use --replace to drop and create the ERP tables again");
      }
      connection.Execute("drop table " + table.name);
    }
    connection.Execute(
        connection.dialect().CreateTable(table.name, table.columns, table.primary_key));
    for (const auto& columns : table.indexes) {
      std::string name = "IX_" + table.name, list;
      for (const auto& column : columns) {
        name += "_" + column;
        list += (list.empty() ? "" : ", ") + column;
      }
      connection.Execute("create index " + name + " on " + table.name + " (" + list + ")");
    }
  }
  tx.Commit();
}

std::vector<std::string> UpgradeOwnTables(Connection& connection, Upgrade when) {
  if (connection.InTransaction()) {
    throw Error(ErrorCategory::kInternal,
                "mrpcalc's own tables are brought up to date outside any unit of work");
  }
  // One look at the catalogue: ours, and the ERP's item table.
  std::vector<std::string> names;
  for (const auto& table : OwnTables()) names.push_back(table.name);
  names.push_back("t_ICItem");
  const std::vector<std::string> existing = connection.ExistingTables(names);
  auto exists = [&](const std::string& name) {
    return std::find(existing.begin(), existing.end(), name) != existing.end();
  };
  std::vector<const TableDef*> missing;
  for (const auto& table : OwnTables()) {
    if (!exists(table.name)) missing.push_back(&table);
  }
  if (missing.empty()) return {};
  if (when == Upgrade::kWithErpTables && !exists("t_ICItem")) return {};
  std::vector<std::string> created;
  for (const TableDef* table : missing) {
    // One table a unit: another process may create the same one meanwhile.
    try {
      Transaction tx(connection);
      connection.Execute(
          connection.dialect().CreateTable(table->name, table->columns, table->primary_key));
      tx.Commit();
      created.push_back(table->name);
    } catch (const Error& e) {
      if (!connection.TableExists(table->name)) {
        throw Error(ErrorCategory::kDatabase,
                    "cannot create mrpcalc's table " + table->name +
                        " (run `mrpcalc upgrade` as a user who may create tables): " + e.what());
      }
    }
  }
  return created;
}

}  // namespace mrpcalc::schema
