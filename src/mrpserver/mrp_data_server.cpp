// Method table of MrpDataServer.
#include "mrpserver/mrp_data_server.h"

namespace mrpcalc {

ClassSpec MrpDataServerClass() {
  const std::string id = kMrpDataServerProgId;
  using T = ParamType;
  const auto dsn = In("sDsn", T::kString);
  const auto str = Ref("sStockStr", T::kString);
  const auto key = Ref("sStockKey", T::kString);
  const auto info = Ref("sStockInfo", T::kString);
  auto self = [](ComponentObject& o) -> MrpDataServer& { return static_cast<MrpDataServer&>(o); };
  return {
      id,
      [](const Host& host) { return std::make_unique<MrpDataServer>(host); },
      {
          TransModeMethod(),
          Unbuilt(id, "GetSelectData",
                  {dsn, In("vctData", T::kVector), Opt("sStockKey", T::kString, ""),
                   Opt("blnStockQty", T::kBoolean, false), Opt("blnchkVirtual", T::kBoolean, false),
                   Opt("blnchkVirtualValue", T::kBoolean, false)},
                  "Object"),
          Unbuilt(id, "CheckBOMExist",
                  {dsn, In("strID", T::kString), In("intSize", T::kInteger)}, "Boolean"),
          Unbuilt(id, "GetSupplierNameByNumber", {dsn, In("sNumber", T::kString)}, "String"),
          Unbuilt(id, "GetMrpConfirmData", {dsn, In("vctListData", T::kVector)}, "Vector"),
          Unbuilt(id, "MakePOOrderBill",
                  {dsn, In("vctListData", T::kVector), In("BillerID", T::kLong),
                   Opt("g_dteSysDate", T::kDate, Date())},
                  "Vector"),
          Unbuilt(id, "getPOOrderBills", {dsn}, "Object"),
          Unbuilt(id, "getSysInfo", {dsn, In("sCategory", T::kString), In("sKey", T::kString)},
                  "Variant"),
          Unbuilt(id, "CheckCreditDegrees",
                  {dsn, In("vctListData", T::kVector), Ref("strCheckType", T::kString),
                   Ref("SupplyName", T::kString)},
                  "Boolean"),
          Unbuilt(id, "RefreshPOOrderBill", {dsn, In("StrInterIDs", T::kString)}, "Vector"),
          Unbuilt(id, "UpdateBillStockFinishQty",
                  {dsn, In("vctStockBill", T::kVector), In("BillType", T::kString)}),
          Unbuilt(id, "UpdateFStockStatus",
                  {dsn, In("BillType", T::kString), Ref("FStockStatus", T::kInteger)}),
          Unbuilt(id, "GetFStockStatus",
                  {dsn, In("BillType", T::kString), Ref("FVisible", T::kInteger),
                   Ref("FValue", T::kString), Opt("UserID", T::kLong, int32_t{0})}),
          Unbuilt(id, "SetFStockStatus",
                  {dsn, In("BillType", T::kString), Ref("FVisible", T::kInteger),
                   Ref("FValue", T::kString)}),
          {"GetNewBillDate", {In("GetSystemDate", T::kBoolean)}, "Date",
           [self](ComponentObject& o, Args& a) {
             return Variant(self(o).GetNewBillDate(a[0].ToBoolean()));
           }},
          {"GetSysDate", {}, "Date",
           [self](ComponentObject& o, Args&) { return Variant(self(o).GetSysDate()); }},
          Unbuilt(id, "GetItemStock",
                  {dsn, In("TypeID", T::kLong), In("UserID", T::kLong), In("IsVirtual", T::kBoolean)},
                  "Object"),
          Unbuilt(id, "GetStockInfo",
                  {dsn, In("UserID", T::kLong), str, key, info, In("FrmType", T::kInteger),
                   In("sSubID", T::kString)},
                  "Boolean"),
          Unbuilt(id, "UpdateStockInfo",
                  {dsn, In("UserID", T::kLong), In("sStockStr", T::kString),
                   In("sStockKey", T::kString), In("sStockInfo", T::kString),
                   In("FrmType", T::kInteger), In("sSubID", T::kString)},
                  "Boolean"),
          Unbuilt(id, "ReturnEmptyStockInfo", {dsn, In("UserID", T::kLong), str, key, info},
                  "Boolean"),
          Unbuilt(id, "UpdateVirtualStockInfo",
                  {dsn, In("TypeID", T::kLong), In("UserID", T::kLong), str, key, info,
                   In("IsVirtual", T::kBoolean), In("FrmType", T::kInteger), In("sSubID", T::kString)},
                  "Boolean"),
          Unbuilt(id, "IsVirtualsStockKey", {dsn, key}, "Boolean"),
          Unbuilt(id, "IsVirtualStock", {dsn, In("sStockKey", T::kString)}, "Boolean"),
          Unbuilt(id, "GetVirtualStock", {dsn}, "String"),
          Unbuilt(id, "IsSupplierright",
                  {dsn, In("sNumber", T::kString), Opt("UserID", T::kLong, int32_t{0})}, "Boolean"),
          Unbuilt(id, "IsBomExpand",
                  {dsn, In("vctListData", T::kVector), Ref("UnContinueString", T::kString)},
                  "Boolean"),
          Unbuilt(id, "IsMustInput", {dsn}, "Boolean"),
          Unbuilt(id, "checkMustInput",
                  {dsn, In("i", T::kInteger), In("itemID", T::kVariant), In("itemCode", T::kVariant),
                   In("AuxPropID", T::kVariant)},
                  "String"),
          Unbuilt(id, "IsBOMParent", {dsn, In("lItemID", T::kLong)}, "Boolean"),
      }};
}

}  // namespace mrpcalc
