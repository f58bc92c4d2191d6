// Method tables of the two purchase plan classes.
#include "purchaseplan/purchase_plan.h"

namespace mrpcalc {

ClassSpec PurchasePlanUpdateClass() {
  const std::string id = kPurchasePlanUpdateProgId;
  using T = ParamType;
  const auto dsn = In("sDsn", T::kString);
  return {id,
          [](const Host& host) { return std::make_unique<PurchasePlanUpdate>(host); },
          {
              TransModeMethod(),
              Unbuilt(id, "UpdatePurchasePlanEntry", {dsn, In("vctListData", T::kVector)}),
              Unbuilt(id, "InsertPurchasePlanEntry",
                      {In("cn", T::kConnection), In("vctListData", T::kVector),
                       In("lMaxFInterID", T::kLong), In("strMaxFBillNo", T::kString)}),
              Unbuilt(id, "UpdatePurchasePlan",
                      {dsn, In("vctStockBill", T::kVector), In("vctListData", T::kVector),
                       In("UserID", T::kLong)},
                      "String"),
              Unbuilt(id, "UpdatePurchasePlanQty", {dsn, Ref("lOrderInterID", T::kLong)}, "Vector"),
              Unbuilt(id, "UpdatePurchasePlanQtyOfDeleteRow", {dsn, Ref("lOrderInterID", T::kLong)}),
              Unbuilt(id, "UpdatePurchasePlanQtyOfCancelBill",
                      {dsn, In("lOrderInterID", T::kLong), In("blnIsCancel", T::kBoolean)}),
              Unbuilt(id, "ClosePurchasePlan", {dsn, In("vctListData", T::kVector)}, "Vector"),
              Unbuilt(id, "UnClosePurchasePlan", {dsn, In("vctListData", T::kVector)}, "Vector"),
              Unbuilt(id, "PushBill",
                      {dsn, In("vctListData", T::kVector), In("BillerID", T::kLong),
                       Ref("StrOutInterids", T::kString), Opt("SysDate", T::kDate, Date())},
                      "Vector"),
              Unbuilt(id, "DeletePurchasePlan", {dsn, Ref("vctListData", T::kVector)}, "Vector"),
          }};
}

ClassSpec PurchasePlanInfoClass() {
  const std::string id = kPurchasePlanInfoProgId;
  using T = ParamType;
  const auto dsn = In("sDsn", T::kString);
  return {id,
          [](const Host& host) { return std::make_unique<PurchasePlanInfo>(host); },
          {
              TransModeMethod(),
              Unbuilt(id, "GetRptData",
                      {dsn, In("Filter", T::kDictionary), In("UserID", T::kLong),
                       OptRef("StrPurchasePlanBillNo", T::kString, "")},
                      "Vector"),
              Unbuilt(id, "GetSupplierID",
                      {dsn, In("sNumber", T::kString), Ref("dblValueAddRate", T::kDouble)}, "Long"),
              Unbuilt(id, "GetPurchasePlanPrice",
                      {dsn, In("lSupplyID", T::kLong), In("lItemID", T::kLong),
                       In("dblQty", T::kDouble)},
                      "Double"),
              Unbuilt(id, "GetBillDate", {dsn, In("StrPurchasePlanBillNo", T::kString)}, "String"),
          }};
}

}  // namespace mrpcalc
