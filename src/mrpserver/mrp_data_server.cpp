// Method table of MrpDataServer.
#include "mrpserver/mrp_data_server.h"

namespace mrpcalc {
namespace {

Variant OrNothing(const VectorPtr& v) { return v ? Variant(v) : Variant::Null(); }
Variant OrNothing(const RecordSetPtr& rs) { return rs ? Variant(ObjectPtr(rs)) : Variant::Null(); }

// By-reference arguments: read, handed to the method, written back.
struct Text {
  Variant& slot;
  std::string value;
  explicit Text(Variant& s) : slot(s), value(s.IsEmpty() || s.IsNull() ? "" : s.ToText()) {}
  ~Text() { slot = Variant(value); }
};
struct Int {
  Variant& slot;
  int32_t value;
  explicit Int(Variant& s) : slot(s), value(s.IsEmpty() ? 0 : s.ToLong()) {}
  ~Int() { slot = Variant(value); }
};

}  // namespace

ClassSpec MrpDataServerClass() {
  const std::string id = kMrpDataServerProgId;
  using T = ParamType;
  const auto dsn = In("sDsn", T::kString);
  const auto str = Ref("sStockStr", T::kString);
  const auto key = Ref("sStockKey", T::kString);
  const auto info = Ref("sStockInfo", T::kString);
  auto self = [](ComponentObject& o) -> MrpDataServer& { return static_cast<MrpDataServer&>(o); };
  auto s = [](const Variant& v) { return v.IsEmpty() || v.IsNull() ? std::string() : v.ToText(); };
  auto vec = [](const Variant& v) { return v.AsVector(); };
  return {
      id,
      [](const Host& host) { return std::make_unique<MrpDataServer>(host); },
      {
          TransModeMethod(),
          {"GetSelectData",
           {dsn, In("vctData", T::kVector), Opt("sStockKey", T::kString, ""),
            Opt("blnStockQty", T::kBoolean, false), Opt("blnchkVirtual", T::kBoolean, false),
            Opt("blnchkVirtualValue", T::kBoolean, false)},
           "Object",
           [=](ComponentObject& o, Args& a) {
             return OrNothing(self(o).GetSelectData(s(a[0]), vec(a[1]), s(a[2]), a[3].ToBoolean(),
                                                    a[4].ToBoolean(), a[5].ToBoolean()));
           }},
          {"CheckBOMExist",
           {dsn, In("strID", T::kString), In("intSize", T::kInteger)},
           "Boolean",
           [=](ComponentObject& o, Args& a) {
             return Variant(self(o).CheckBOMExist(s(a[0]), s(a[1]), a[2].ToLong()));
           }},
          {"GetSupplierNameByNumber",
           {dsn, In("sNumber", T::kString)},
           "String",
           [=](ComponentObject& o, Args& a) {
             return Variant(self(o).GetSupplierNameByNumber(s(a[0]), s(a[1])));
           }},
          {"GetMrpConfirmData",
           {dsn, In("vctListData", T::kVector)},
           "Vector",
           [=](ComponentObject& o, Args& a) {
             return OrNothing(self(o).GetMrpConfirmData(s(a[0]), vec(a[1])));
           }},
          {"MakePOOrderBill",
           {dsn, In("vctListData", T::kVector), In("BillerID", T::kLong),
            Opt("g_dteSysDate", T::kDate, Date())},
           "Vector",
           [=](ComponentObject& o, Args& a) {
             return OrNothing(
                 self(o).MakePOOrderBill(s(a[0]), vec(a[1]), a[2].ToLong(), a[3].ToDate()));
           }},
          {"getPOOrderBills",
           {dsn},
           "Object",
           [=](ComponentObject& o, Args& a) {
             return OrNothing(self(o).getPOOrderBills(s(a[0])));
           }},
          {"getSysInfo",
           {dsn, In("sCategory", T::kString), In("sKey", T::kString)},
           "Variant",
           [=](ComponentObject& o, Args& a) {
             return self(o).getSysInfo(s(a[0]), s(a[1]), s(a[2]));
           }},
          {"CheckCreditDegrees",
           {dsn, In("vctListData", T::kVector), Ref("strCheckType", T::kString),
            Ref("SupplyName", T::kString)},
           "Boolean",
           [=](ComponentObject& o, Args& a) {
             Text check(a[2]), names(a[3]);
             return Variant(
                 self(o).CheckCreditDegrees(s(a[0]), vec(a[1]), check.value, names.value));
           }},
          {"RefreshPOOrderBill",
           {dsn, In("StrInterIDs", T::kString)},
           "Vector",
           [=](ComponentObject& o, Args& a) {
             return OrNothing(self(o).RefreshPOOrderBill(s(a[0]), s(a[1])));
           }},
          {"UpdateBillStockFinishQty",
           {dsn, In("vctStockBill", T::kVector), In("BillType", T::kString)},
           "",
           [=](ComponentObject& o, Args& a) {
             self(o).UpdateBillStockFinishQty(s(a[0]), vec(a[1]), s(a[2]));
             return Variant();
           }},
          {"UpdateFStockStatus",
           {dsn, In("BillType", T::kString), Ref("FStockStatus", T::kInteger)},
           "",
           [=](ComponentObject& o, Args& a) {
             Int status(a[2]);
             self(o).UpdateFStockStatus(s(a[0]), s(a[1]), status.value);
             return Variant();
           }},
          {"GetFStockStatus",
           {dsn, In("BillType", T::kString), Ref("FVisible", T::kInteger),
            Ref("FValue", T::kString), Opt("UserID", T::kLong, int32_t{0})},
           "",
           [=](ComponentObject& o, Args& a) {
             Int visible(a[2]);
             Text value(a[3]);
             self(o).GetFStockStatus(s(a[0]), s(a[1]), visible.value, value.value, a[4].ToLong());
             return Variant();
           }},
          {"SetFStockStatus",
           {dsn, In("BillType", T::kString), Ref("FVisible", T::kInteger),
            Ref("FValue", T::kString)},
           "",
           [=](ComponentObject& o, Args& a) {
             Int visible(a[2]);
             Text value(a[3]);
             self(o).SetFStockStatus(s(a[0]), s(a[1]), visible.value, value.value);
             return Variant();
           }},
          {"GetNewBillDate",
           {In("GetSystemDate", T::kBoolean)},
           "Date",
           [self](ComponentObject& o, Args& a) {
             return Variant(self(o).GetNewBillDate(a[0].ToBoolean()));
           }},
          {"GetSysDate",
           {},
           "Date",
           [self](ComponentObject& o, Args&) { return Variant(self(o).GetSysDate()); }},
          {"GetItemStock",
           {dsn, In("TypeID", T::kLong), In("UserID", T::kLong), In("IsVirtual", T::kBoolean)},
           "Object",
           [=](ComponentObject& o, Args& a) {
             return OrNothing(
                 self(o).GetItemStock(s(a[0]), a[1].ToLong(), a[2].ToLong(), a[3].ToBoolean()));
           }},
          {"GetStockInfo",
           {dsn, In("UserID", T::kLong), str, key, info, In("FrmType", T::kInteger),
            In("sSubID", T::kString)},
           "Boolean",
           [=](ComponentObject& o, Args& a) {
             Text x(a[2]), k(a[3]), i(a[4]);
             return Variant(self(o).GetStockInfo(s(a[0]), a[1].ToLong(), x.value, k.value, i.value,
                                                 a[5].ToLong(), s(a[6])));
           }},
          {"UpdateStockInfo",
           {dsn, In("UserID", T::kLong), In("sStockStr", T::kString), In("sStockKey", T::kString),
            In("sStockInfo", T::kString), In("FrmType", T::kInteger), In("sSubID", T::kString)},
           "Boolean",
           [=](ComponentObject& o, Args& a) {
             return Variant(self(o).UpdateStockInfo(s(a[0]), a[1].ToLong(), s(a[2]), s(a[3]),
                                                    s(a[4]), a[5].ToLong(), s(a[6])));
           }},
          {"ReturnEmptyStockInfo",
           {dsn, In("UserID", T::kLong), str, key, info},
           "Boolean",
           [=](ComponentObject& o, Args& a) {
             Text x(a[2]), k(a[3]), i(a[4]);
             return Variant(
                 self(o).ReturnEmptyStockInfo(s(a[0]), a[1].ToLong(), x.value, k.value, i.value));
           }},
          {"UpdateVirtualStockInfo",
           {dsn, In("TypeID", T::kLong), In("UserID", T::kLong), str, key, info,
            In("IsVirtual", T::kBoolean), In("FrmType", T::kInteger), In("sSubID", T::kString)},
           "Boolean",
           [=](ComponentObject& o, Args& a) {
             Text x(a[3]), k(a[4]), i(a[5]);
             return Variant(self(o).UpdateVirtualStockInfo(
                 s(a[0]), a[1].ToLong(), a[2].ToLong(), x.value, k.value, i.value, a[6].ToBoolean(),
                 a[7].ToLong(), s(a[8])));
           }},
          {"IsVirtualsStockKey",
           {dsn, key},
           "Boolean",
           [=](ComponentObject& o, Args& a) {
             Text k(a[1]);
             return Variant(self(o).IsVirtualsStockKey(s(a[0]), k.value));
           }},
          {"IsVirtualStock",
           {dsn, In("sStockKey", T::kString)},
           "Boolean",
           [=](ComponentObject& o, Args& a) {
             return Variant(self(o).IsVirtualStock(s(a[0]), s(a[1])));
           }},
          {"GetVirtualStock",
           {dsn},
           "String",
           [=](ComponentObject& o, Args& a) { return Variant(self(o).GetVirtualStock(s(a[0]))); }},
          {"IsSupplierright",
           {dsn, In("sNumber", T::kString), Opt("UserID", T::kLong, int32_t{0})},
           "Boolean",
           [=](ComponentObject& o, Args& a) {
             return Variant(self(o).IsSupplierright(s(a[0]), s(a[1]), a[2].ToLong()));
           }},
          {"IsBomExpand",
           {dsn, In("vctListData", T::kVector), Ref("UnContinueString", T::kString)},
           "Boolean",
           [=](ComponentObject& o, Args& a) {
             Text message(a[2]);
             return Variant(self(o).IsBomExpand(s(a[0]), vec(a[1]), message.value));
           }},
          {"IsMustInput",
           {dsn},
           "Boolean",
           [=](ComponentObject& o, Args& a) { return Variant(self(o).IsMustInput(s(a[0]))); }},
          {"checkMustInput",
           {dsn, In("i", T::kInteger), In("itemID", T::kVariant), In("itemCode", T::kVariant),
            In("AuxPropID", T::kVariant)},
           "String",
           [=](ComponentObject& o, Args& a) {
             return Variant(self(o).checkMustInput(s(a[0]), a[1].ToLong(), a[2], a[3], a[4]));
           }},
          {"IsBOMParent",
           {dsn, In("lItemID", T::kLong)},
           "Boolean",
           [=](ComponentObject& o, Args& a) {
             return Variant(self(o).IsBOMParent(s(a[0]), a[1].ToLong()));
           }},
      }};
}

}  // namespace mrpcalc
