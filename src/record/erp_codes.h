// The ERP's codes, in one place: document types, statuses and the defaults
// that new purchase orders carry. Every layer speaks them; none defines its
// own.
#pragma once

#include <cstdint>

namespace mrpcalc {

// Document types ("FTranType", "Ftrantype", "FSourceTranType").
inline constexpr int32_t kTranMaterialRow = 0;       // a material row of the MRP working table
inline constexpr int32_t kTranPurchaseReceipt = 1;   // ICStockBill: purchase receipt
inline constexpr int32_t kTranPurchaseOrder = 71;    // POOrder; the bill type of its numbers
inline constexpr int32_t kTranSalesOrder = 81;       // SEOrder / SEOrderEntry
inline constexpr int32_t kTranProductionTask = 85;   // ICMO / ICMOEntry, sub-id "SC"
inline constexpr int32_t kTranOutsourcingTask = 91;  // ICOutMO / ICOutMOEntry, sub-id "WW"

// Bills of material: ICBOM.FUseStatus of a bill in use.
inline constexpr int32_t kBomInUse = 1072;

// Warehouses: t_Item.FItemClassID of a warehouse, t_Stock.FTypeID of a
// virtual one.
inline constexpr int32_t kWarehouseClass = 5;
inline constexpr int32_t kVirtualWarehouse = 502;

// Material property (t_ICItem.FErpClsID).
inline constexpr int32_t kClsPurchased = 1;
inline constexpr int32_t kClsAssembled = 2;
inline constexpr int32_t kClsSelfMade = 3;
inline constexpr int32_t kClsMadeVirtual = 9;  // exploded like an assembled part

// A new purchase order's defaults (POOrder).
inline constexpr int32_t kPurchaseStyle = 252;        // FPOStyle, unless the INI names another
inline constexpr int32_t kPurchaseStyleType = 162;    // t_SubMessage.FTypeID of purchase styles
inline constexpr int32_t kPurchaseAreaPs = 20302;     // FAreaPs

// Purchase plan lines (PurchasePlanEntry.FClosed).
inline constexpr int32_t kPlanLineOpen = 0;
inline constexpr int32_t kPlanLineFullyPurchased = 1;
inline constexpr int32_t kPlanLineClosedByHand = 2;

}  // namespace mrpcalc
