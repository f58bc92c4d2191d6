// Demo data: a small bicycle maker with every case the planner meets —
// purchased, assembled, self-made and other materials; order units with
// other coefficients; multi-level bills with scrap and batch quantities; a
// bill not in use and a made part without a bill; warehouse groups, a virtual
// warehouse and a negative balance; open sales orders and tasks with issues
// against them; purchase orders partly received; receipts and invoices from
// several suppliers, one of them deleted; users with and without rights.
#include <initializer_list>

#include "sample/demo_data.h"

#include "record/date.h"
#include "sample/row_inserter.h"

namespace mrpcalc::sample {

using db::Connection;
using db::Params;
using db::Transaction;

namespace {

void Insert(Connection& c, const std::string& table, const std::string& columns,
            std::initializer_list<Params> rows) {
  RowInserter insert(c, table, columns);
  for (const auto& row : rows) insert.Insert(row);
}

Variant D(const char* text) { return Variant(*Date::Parse(text)); }

}  // namespace

void LoadDemoData(Connection& c) {
  Transaction tx(c);

  Insert(c, "t_MeasureUnit", "FMeasureUnitID,FItemID,FNumber,FName,FCoefficient,FUnitGroupID",
         {{1, 1, "PCS", "个", 1.0, 1},
          {2, 2, "BOX", "盒(100个)", 100.0, 1},
          {3, 3, "M", "米", 1.0, 2},
          {4, 4, "ROLL", "卷(50米)", 50.0, 2},
          {5, 5, "KG", "千克", 1.0, 3},
          {6, 6, "SET", "套", 1.0, 1}});

  Insert(c, "t_AuxItem", "FItemID,FNumber,FName,FItemClassID",
         {{1, "RED", "红色", 3001}, {2, "BLK", "黑色", 3001}, {3, "NONAME", Variant::Null(), 3001}});

  // FErpClsID: 1 purchased, 2 assembled, 3 self-made, anything else other.
  Insert(c, "t_ICItem",
         "FItemID,FNumber,FName,FModel,FErpClsID,FUnitID,FOrderUnitID,FSecInv,FQtyDecimal,"
         "FPriceDecimal,FOrderPrice,FTaxRate,FSource,FAuxClassID",
         {{1001, "1.01", "电动自行车", "EB-26", 2, 1, 0, 2.0, 0, 2, 0.0, 13.0, 0, 0},
          {1002, "1.02", "折叠自行车", "FB-20", 2, 1, 0, 0.0, 0, 2, 0.0, 13.0, 0, 0},
          {1003, "1.03", "儿童三轮车", "KT-12", 2, 1, 0, 0.0, 0, 2, 0.0, 13.0, 0, 0},
          {2001, "2.01", "车架总成", "FR-A", 3, 1, 0, 5.0, 0, 2, 0.0, 13.0, 0, 0},
          {2002, "2.02", "车轮组件", "WH-26", 2, 6, 0, 4.0, 0, 2, 0.0, 13.0, 0, 0},
          {2003, "2.03", "电池包", "BP-36V", 3, 1, 0, 0.0, 0, 2, 0.0, 13.0, 0, 0},
          {3001, "3.01", "铝管", "AL-32", 1, 3, 4, 50.0, 2, 2, 18.5, 13.0, 1, 0},
          {3002, "3.02", "螺栓M8", "M8x40", 1, 1, 2, 200.0, 0, 4, 0.12, 13.0, 2, 0},
          {3003, "3.03", "轮胎", "26x2.1", 1, 1, 0, 10.0, 0, 2, 45.0, 13.0, 4, 1},
          {3004, "3.04", "辐条", "SP-2.0", 1, 1, 0, 0.0, 0, 2, 0.8, 13.0, 0, 0},
          {3005, "3.05", "电芯", "18650", 1, 1, 0, 100.0, 0, 2, 9.6, 13.0, 4, 0},
          {3006, "3.06", "油漆", "PT-RED", 1, 5, 0, 0.0, 3, 2, 32.0, 13.0, 1, 0},
          {3007, "3.07", "包装箱", "CT-L", 5, 1, 0, 0.0, 0, 2, 6.0, 13.0, 0, 0},
          {3008, "3.08", "车座", "SD-01", 1, 1, 0, 0.0, 0, 2, 28.0, 13.0, 3, 1}});

  // ICBOM: FUseStatus 1072 is in use, 1036 is not; FStatus 1 is approved.
  Insert(c, "ICBOM", "FInterID,FBOMNumber,FItemID,FQty,FAuxPropID,FUnitID,FUseStatus,FStatus",
         {{1, "BOM000001", 1001, 1.0, 0, 1, 1072, 1},
          {2, "BOM000002", 1002, 2.0, 0, 1, 1072, 1},
          {3, "BOM000003", 1003, 1.0, 0, 1, 1036, 1},
          {4, "BOM000004", 2001, 1.0, 0, 1, 1072, 1},
          {5, "BOM000005", 2002, 1.0, 0, 6, 1072, 1}});
  Insert(c, "ICBOMChild", "FInterID,FEntryID,FItemID,FQty,FScrap,FAuxPropID,FUnitID,FNote",
         {{1, 1, 2001, 1.0, 0.0, 0, 1, ""},
          {1, 2, 2002, 2.0, 0.0, 0, 6, ""},
          {1, 3, 2003, 1.0, 0.0, 0, 1, "自制电池"},
          {1, 4, 3008, 1.0, 0.0, 2, 1, ""},
          {1, 5, 3007, 1.0, 0.0, 0, 1, ""},
          {1, 6, 3002, 12.0, 5.0, 0, 1, "含备件"},
          {2, 1, 2001, 2.0, 0.0, 0, 1, ""},
          {2, 2, 2002, 4.0, 0.0, 0, 6, ""},
          {2, 3, 3008, 2.0, 0.0, 1, 1, ""},
          {2, 4, 3007, 2.0, 0.0, 0, 1, ""},
          {3, 1, 3004, 10.0, 0.0, 0, 1, ""},
          {4, 1, 3001, 2.5, 4.0, 0, 3, ""},
          {4, 2, 3002, 8.0, 0.0, 0, 1, ""},
          {4, 3, 3006, 0.3, 10.0, 0, 5, ""},
          {5, 1, 3003, 1.0, 0.0, 2, 1, ""},
          {5, 2, 3004, 36.0, 2.0, 0, 1, ""},
          {5, 3, 3002, 2.0, 0.0, 0, 1, ""}});

  Insert(c, "t_SubMessage", "FInterID,FTypeID,FID,FName",
         {{1072, 30, "zt01", "使用"},
          {1036, 30, "zt02", "未使用"},
          {252, 162, "CG01", "外购入库"},
          {253, 162, "CG02", "委外加工"}});

  // Warehouses: t_Item class 5 with groups and leaves; t_Stock type 502 is virtual.
  Insert(c, "t_Item", "FItemID,FItemClassID,FNumber,FName,FParentID,FDetail,FLevel,FDeleted,FRightUserID",
         {{10, 5, "01", "原材料库", 0, 0, 1, 0, "16,"},
          {11, 5, "01.01", "原材料一库", 10, 1, 2, 0, "16,"},
          {12, 5, "01.02", "原材料二库", 10, 1, 2, 0, ""},
          {20, 5, "02", "成品库", 0, 1, 1, 0, "16,"},
          {30, 5, "03", "虚拟仓", 0, 1, 1, 0, "16,"}});
  Insert(c, "t_Stock", "FItemID,FNumber,FName,FTypeID,FParentID,FRightUserID",
         {{11, "01.01", "原材料一库", 500, 10, "16,"},
          {12, "01.02", "原材料二库", 500, 10, ""},
          {20, "02", "成品库", 500, 0, "16,"},
          {30, "03", "虚拟仓", 502, 0, "16,"}});
  Insert(c, "ICInventory", "FItemID,FAuxPropID,FStockID,FQty",
         {{3001, 0, 11, 120.0},
          {3002, 0, 11, 500.0},
          {3002, 0, 12, 200.0},
          {3003, 2, 12, 30.0},
          {3003, 1, 12, 10.0},
          {3004, 0, 11, -20.0},
          {3008, 2, 30, 15.0},
          {1001, 0, 20, 5.0},
          {2001, 0, 20, 3.0}});

  // Suppliers: S003 is deleted; S002's name holds an apostrophe.
  Insert(c, "t_Supplier",
         "FItemID,FNumber,FName,FRightUserID,FDeleted,FValueAddRate,FCreditDegree,FDepartment,FEmployee",
         {{1, "S001", "华东铝业有限公司", "16,", 0, 13.0, 50000.0, 0, 0},
          {2, "S002", "O'Brien Fasteners Ltd.", "1,17,", 0, 13.0, 0.0, 0, 0},
          {3, "S003", "南方橡胶厂", "16,", 1, 13.0, 0.0, 0, 0},
          {4, "S004", "明光电池有限公司", "", 0, 0.0, 20000.0, 0, 0}});
  Insert(c, "t_SupplyEntry", "FSupID,FEntryID,FItemID,FPrice,FStartQty,FEndQty",
         {{1, 1, 3001, 19.8, 0.0, 99.99},
          {1, 2, 3001, 18.9, 100.0, 100000.0},
          {2, 1, 3002, 0.15, 0.0, 100000.0},
          {4, 1, 3005, 10.2, 0.0, 100000.0}});
  Insert(c, "t_Currency", "FCurrencyID,FNumber,FName,FScale", {{1, "RMB", "人民币", 2}});
  Insert(c, "t_Settle", "FItemID,FNumber,FName", {{1, "01", "现金"}, {2, "02", "转账"}});
  Insert(c, "t_SystemProfile", "FCategory,FKey,FValue,FDescription",
         {{"IC", "BOMType", "1", "BOM scrap: 1 yield loss, 2 surcharge"},
          {"IC", "UPSTOCKWHENSAVE", "1", "stock bills count when saved"},
          {"GL", "FBWB", "1", "base currency"},
          {"IC", "CreditDegreeCG", "1", "supplier credit check"}});

  // Users: 1 is in the administrators' group 1; 16 holds rights through
  // user group 20; 17 holds nothing.
  Insert(c, "t_User", "FUserID,FName",
         {{1, "administrator"}, {16, "planner"}, {17, "buyer"}, {20, "采购组"}});
  Insert(c, "t_Group", "FGroupID,FUserID", {{1, 1}, {20, 16}});
  Insert(c, "t_GroupAccessType", "FSubSys,FAccess,FGroupID,FMask",
         {{"IC", "供应链", 1, 0}, {"GL", "总账", 2, 0}});
  Insert(c, "t_GroupAccess", "FGroupID,FUserID,FType,FSubSys",
         {{1, 20, 1, "IC"}, {2, 17, 0, "GL"}});

  // Sales orders: FStatus 1 and 2 are open, 3 is closed.
  Insert(c, "SEOrder", "FInterID,FBillNo,FTranType,FDate,FStatus,FCustID",
         {{1, "SEORD000001", 81, D("2026-11-02"), 1, 1},
          {2, "SEORD000002", 81, D("2026-11-10"), 2, 2},
          {3, "SEORD000003", 81, D("2026-10-01"), 3, 1}});
  Insert(c, "SEOrderEntry",
         "FInterID,FEntryID,FItemID,FAuxPropID,FQty,FAuxQty,FCommitQty,FUnitID,FDate,"
         "FStockFinishQty,FBaseUnitStockFinishQty",
         {{1, 1, 1001, 0, 20.0, 20.0, 0.0, 1, D("2026-12-10"), 0.0, 0.0},
          {1, 2, 1002, 0, 10.0, 10.0, 4.0, 1, D("2026-12-05"), 0.0, 0.0},
          {2, 1, 1001, 0, 5.0, 5.0, 0.0, 1, D("2026-12-20"), 0.0, 0.0},
          {2, 2, 1003, 0, 8.0, 8.0, 0.0, 1, D("2026-12-20"), 0.0, 0.0},
          {3, 1, 1002, 0, 3.0, 3.0, 3.0, 1, D("2026-10-15"), 0.0, 0.0}});

  // A production task for frames and an outsourcing task for wheel sets,
  // each with its material plan.
  Insert(c, "ICMO",
         "FInterID,FBillNo,FTranType,FStatus,FItemID,FAuxPropID,FQty,FAuxQty,FUnitID,"
         "FStockFinishQty,FBeginDate,FDate,FPurchasePlanBillNo",
         {{1, "WORK000001", 85, 1, 2001, 0, 10.0, 10.0, 1, 0.0, D("2026-12-01"), D("2026-11-20"), "0"},
          {2, "WORK000002", 85, 2, 2001, 0, 4.0, 4.0, 1, 0.0, D("2026-12-08"), D("2026-11-21"), ""}});
  Insert(c, "ICMOEntry", "FInterID,FEntryID,FItemID,FPlanQty,FAuxPropID,FScrapRate,FUnitID,FNote",
         {{1, 1, 3001, 26.0, 0, 4.0, 3, ""},
          {1, 2, 3002, 80.0, 0, 0.0, 1, ""},
          {1, 3, 3006, 3.3, 0, 10.0, 5, "红色面漆"},
          {2, 1, 3001, 10.4, 0, 4.0, 3, ""},
          {2, 2, 3002, 32.0, 0, 0.0, 1, ""},
          {2, 3, 3006, 1.32, 0, 10.0, 5, ""}});
  Insert(c, "ICOutMO",
         "FInterID,FBillNo,FTranType,FStatus,FItemID,FAuxPropID,FQty,FAuxQty,FUnitID,"
         "FStockFinishQty,FBeginDate,FDate,FPurchasePlanBillNo",
         {{1, "OUT000001", 91, 1, 2002, 0, 20.0, 20.0, 6, 0.0, D("2026-12-03"), D("2026-11-18"), ""}});
  Insert(c, "ICOutMOEntry", "FInterID,FEntryID,FItemID,FPlanQty,FAuxPropID,FScrapRate,FUnitID,FNote",
         {{1, 1, 3003, 20.0, 2, 0.0, 1, ""},
          {1, 2, 3004, 734.4, 0, 2.0, 1, ""},
          {1, 3, 3002, 40.0, 0, 0.0, 1, ""}});

  // Purchase orders: POORD1 partly received, POORD2 fully received, POORD3
  // from the deleted supplier and the latest of all.
  Insert(c, "POOrder",
         "FInterID,FBillNo,FTranType,FSupplyID,FDate,FCurrencyID,FExchangeRate,FBillerID,FStatus,"
         "FPOStyle,FAreaPs,FSettleDate",
         {{1, "POORD000001", 71, 1, D("2026-11-01"), 1, 1.0, 1, 1, 252, 20302, D("2026-11-01")},
          {2, "POORD000002", 71, 2, D("2026-10-20"), 1, 1.0, 1, 2, 252, 20302, D("2026-10-20")},
          {3, "POORD000003", 71, 3, D("2026-11-12"), 1, 1.0, 1, 1, 252, 20302, D("2026-11-12")}});
  Insert(c, "POOrderEntry",
         "FInterID,FEntryID,FItemID,FDate,FAuxPropID,FUnitID,FQty,FAuxQty,FCommitQty,FPrice,"
         "FAuxPrice,FTaxPrice,FAuxTaxPrice,FCess,FAmount,FAllAmount,FTaxAmount",
         {{1, 1, 3001, D("2026-11-25"), 0, 4, 100.0, 2.0, 40.0, 16.7257, 836.28, 18.9, 945.0, 13.0,
           1672.57, 1890.0, 217.43},
          {2, 1, 3002, D("2026-10-30"), 0, 2, 1000.0, 10.0, 1000.0, 0.1327, 13.27, 0.15, 15.0, 13.0,
           132.74, 150.0, 17.26},
          {3, 1, 3003, D("2026-11-30"), 2, 1, 50.0, 50.0, 0.0, 38.0531, 38.0531, 43.0, 43.0, 13.0,
           1902.65, 2150.0, 247.35}});

  // Stock bills: type 1 purchase receipts, type 24 issues to the tasks.
  Insert(c, "ICStockBill", "FInterID,FBillNo,FTranType,FDate,FSupplyID,FCheckerID",
         {{1, "WIN000001", 1, D("2026-11-05"), 1, 1},
          {2, "WIN000002", 1, D("2026-10-28"), 2, 1},
          {3, "SOUT000001", 24, D("2026-11-15"), 0, 1},
          {4, "SOUT000002", 24, D("2026-11-16"), 0, 0}});
  Insert(c, "ICStockBillEntry",
         "FInterID,FEntryID,FItemID,FAuxPropID,FQty,FPrice,FAuxPrice,FUnitID,FSourceInterId,FSourceEntryID",
         {{1, 1, 3001, 0, 40.0, 16.7257, 836.28, 4, 0, 0},
          {2, 1, 3002, 0, 1000.0, 0.1327, 13.27, 2, 0, 0},
          {3, 1, 3001, 0, 10.0, 0.0, 0.0, 3, 1, 1},
          {3, 2, 3002, 0, 30.0, 0.0, 0.0, 1, 1, 2},
          {4, 1, 3006, 0, 1.0, 0.0, 0.0, 5, 1, 3}});
  Insert(c, "ICPurchase", "FInterID,FBillNo,FTranType,FDate,FSupplyID",
         {{1, "ZPOFP000001", 75, D("2026-11-06"), 1}, {2, "ZPOFP000002", 75, D("2026-11-08"), 4}});
  Insert(c, "ICPurchaseEntry", "FInterID,FEntryID,FItemID,FQty,FPrice,FTaxPrice,FAuxTaxPrice,FUnitID",
         {{1, 1, 3001, 40.0, 16.7257, 18.9, 945.0, 4},
          {2, 1, 3005, 500.0, 8.8496, 10.0, 10.0, 1}});

  Insert(c, "ICTemplateEntry", "FID,FFieldName,FMustInput", {{"P02", "FAuxPropID", 0}});
  Insert(c, "ICChatBillTitle", "FTypeID,FColCaption,FVisible",
         {{90, "生成采购建议标志$", 1}, {90, "生成采购计划标志$", 1}, {61, "生成采购建议标志$", 0}});

  tx.Commit();
}

}  // namespace mrpcalc::sample
