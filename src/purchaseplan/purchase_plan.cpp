// Method tables of the two purchase plan classes.
#include "purchaseplan/purchase_plan.h"

namespace mrpcalc {
namespace {

Variant OrNothing(const VectorPtr& v) { return v ? Variant(v) : Variant::Null(); }
std::string Text(const Variant& v) {
  return v.IsEmpty() || v.IsNull() ? std::string() : v.ToText();
}

// The connection of InsertPurchasePlanEntry: the caller's unit of work on
// that description when there is one, else a unit of work of its own.
template <class Body>
void OnConnection(const std::string& dsn, Body&& body) {
  if (UnitOfWork* unit = UnitOfWork::Find(dsn)) {
    body(unit->connection());
    return;
  }
  UnitOfWork own(dsn);
  body(own.connection());
  own.Commit();
}

}  // namespace

ClassSpec PurchasePlanUpdateClass() {
  const std::string id = kPurchasePlanUpdateProgId;
  using T = ParamType;
  const auto dsn = In("sDsn", T::kString);
  auto self = [](ComponentObject& o) -> PurchasePlanUpdate& {
    return static_cast<PurchasePlanUpdate&>(o);
  };
  auto vec = [](const Variant& v) { return v.AsVector(); };
  return {id,
          [](const Host& host) { return std::make_unique<PurchasePlanUpdate>(host); },
          {
              TransModeMethod(),
              {"UpdatePurchasePlanEntry",
               {dsn, In("vctListData", T::kVector)},
               "",
               [=](ComponentObject& o, Args& a) {
                 self(o).UpdatePurchasePlanEntry(Text(a[0]), vec(a[1]));
                 return Variant();
               }},
              {"InsertPurchasePlanEntry",
               {In("cn", T::kConnection), In("vctListData", T::kVector),
                In("lMaxFInterID", T::kLong), In("strMaxFBillNo", T::kString)},
               "",
               [=](ComponentObject& o, Args& a) {
                 OnConnection(Text(a[0]), [&](db::Connection& c) {
                   self(o).InsertPurchasePlanEntry(c, vec(a[1]), a[2].ToLong(), Text(a[3]));
                 });
                 return Variant();
               }},
              {"UpdatePurchasePlan",
               {dsn, In("vctStockBill", T::kVector), In("vctListData", T::kVector),
                In("UserID", T::kLong)},
               "String",
               [=](ComponentObject& o, Args& a) {
                 return Variant(
                     self(o).UpdatePurchasePlan(Text(a[0]), vec(a[1]), vec(a[2]), a[3].ToLong()));
               }},
              {"UpdatePurchasePlanQty",
               {dsn, Ref("lOrderInterID", T::kLong)},
               "Vector",
               [=](ComponentObject& o, Args& a) {
                 return OrNothing(self(o).UpdatePurchasePlanQty(Text(a[0]), a[1].ToLong()));
               }},
              {"UpdatePurchasePlanQtyOfDeleteRow",
               {dsn, Ref("lOrderInterID", T::kLong)},
               "",
               [=](ComponentObject& o, Args& a) {
                 self(o).UpdatePurchasePlanQtyOfDeleteRow(Text(a[0]), a[1].ToLong());
                 return Variant();
               }},
              {"UpdatePurchasePlanQtyOfCancelBill",
               {dsn, In("lOrderInterID", T::kLong), In("blnIsCancel", T::kBoolean)},
               "",
               [=](ComponentObject& o, Args& a) {
                 self(o).UpdatePurchasePlanQtyOfCancelBill(Text(a[0]), a[1].ToLong(),
                                                           a[2].ToBoolean());
                 return Variant();
               }},
              {"ClosePurchasePlan",
               {dsn, In("vctListData", T::kVector)},
               "Vector",
               [=](ComponentObject& o, Args& a) {
                 return OrNothing(self(o).ClosePurchasePlan(Text(a[0]), vec(a[1])));
               }},
              {"UnClosePurchasePlan",
               {dsn, In("vctListData", T::kVector)},
               "Vector",
               [=](ComponentObject& o, Args& a) {
                 return OrNothing(self(o).UnClosePurchasePlan(Text(a[0]), vec(a[1])));
               }},
              {"PushBill",
               {dsn, In("vctListData", T::kVector), In("BillerID", T::kLong),
                Ref("StrOutInterids", T::kString), Opt("SysDate", T::kDate, Date())},
               "Vector",
               [=](ComponentObject& o, Args& a) {
                 std::string ids = Text(a[3]);
                 Variant result;
                 try {
                   result = OrNothing(
                       self(o).PushBill(Text(a[0]), vec(a[1]), a[2].ToLong(), ids, a[4].ToDate()));
                 } catch (...) {
                   a[3] = Variant(ids);
                   throw;
                 }
                 a[3] = Variant(ids);
                 return result;
               }},
              {"DeletePurchasePlan",
               {dsn, Ref("vctListData", T::kVector)},
               "Vector",
               [=](ComponentObject& o, Args& a) {
                 return OrNothing(self(o).DeletePurchasePlan(Text(a[0]), vec(a[1])));
               }},
          }};
}

ClassSpec PurchasePlanInfoClass() {
  const std::string id = kPurchasePlanInfoProgId;
  using T = ParamType;
  const auto dsn = In("sDsn", T::kString);
  auto self = [](ComponentObject& o) -> PurchasePlanInfo& {
    return static_cast<PurchasePlanInfo&>(o);
  };
  return {id,
          [](const Host& host) { return std::make_unique<PurchasePlanInfo>(host); },
          {
              TransModeMethod(),
              {"GetRptData",
               {dsn, In("Filter", T::kDictionary), In("UserID", T::kLong),
                OptRef("StrPurchasePlanBillNo", T::kString, "")},
               "Vector",
               [=](ComponentObject& o, Args& a) {
                 std::string bill_no = Text(a[3]);
                 Variant result = OrNothing(
                     self(o).GetRptData(Text(a[0]), a[1].AsDictionary(), a[2].ToLong(), bill_no));
                 a[3] = Variant(bill_no);
                 return result;
               }},
              {"GetSupplierID",
               {dsn, In("sNumber", T::kString), Ref("dblValueAddRate", T::kDouble)},
               "Long",
               [=](ComponentObject& o, Args& a) {
                 double rate = a[2].IsEmpty() ? 0 : a[2].ToDouble();
                 const int32_t found = self(o).GetSupplierID(Text(a[0]), Text(a[1]), rate);
                 a[2] = Variant(rate);
                 return Variant(found);
               }},
              {"GetPurchasePlanPrice",
               {dsn, In("lSupplyID", T::kLong), In("lItemID", T::kLong), In("dblQty", T::kDouble)},
               "Double",
               [=](ComponentObject& o, Args& a) {
                 return Variant(self(o).GetPurchasePlanPrice(Text(a[0]), a[1].ToLong(),
                                                             a[2].ToLong(), a[3].ToDouble()));
               }},
              {"GetBillDate",
               {dsn, In("StrPurchasePlanBillNo", T::kString)},
               "String",
               [=](ComponentObject& o, Args& a) {
                 return Variant(self(o).GetBillDate(Text(a[0]), Text(a[1])));
               }},
          }};
}

}  // namespace mrpcalc
