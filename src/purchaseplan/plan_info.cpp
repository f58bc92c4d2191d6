// The purchase plan report and the lookups of the plan form.
#include <map>
#include <set>

#include "purchaseplan/purchase_plan.h"
#include "record/column_value.h"
#include "record/erp_codes.h"
#include "record/text.h"
#include "services/purchase_lines.h"
#include "services/rights.h"

namespace mrpcalc {
namespace {

using Row = std::vector<Variant>;

const KeyList& ReportKeys() {
  static const KeyList keys = MakeKeyList({"FBillNo",
                                           "FInterID",
                                           "FEntryID",
                                           "FItemID",
                                           "FAuxPropID",
                                           "FSupplyID",
                                           "FQty",
                                           "FPushQty",
                                           "FDate",
                                           "FPrice",
                                           "FAmount",
                                           "FTaxRate",
                                           "FDiscountRate",
                                           "FTaxAmount",
                                           "FMemo",
                                           "FUnitID",
                                           "FAuxPrice",
                                           "FAuxQty",
                                           "FClosed",
                                           "FPurchaseFinishQty",
                                           "FPurchaseUnFinishQty",
                                           "FItemNumber",
                                           "FItemName",
                                           "FItemModel",
                                           "FSupplyNumber",
                                           "FSupplyName",
                                           "FAuxProp",
                                           "FUnitName",
                                           "FClose",
                                           "FVDate",
                                           "FFinishDate",
                                           "FKey",
                                           "FIsMerge",
                                           "FStartKey",
                                           "FEndKey",
                                           "FMergeSumQty",
                                           "FQtyDecimal",
                                           "FPriceDecimal",
                                           "FSourceNo"});
  return keys;
}

// Columns of the select, in report order up to FFinishDate, then the
// decimals and the supplier's rights text.
constexpr const char* kReportSelect =
    "select u1.FBillNo, u1.FInterID, u1.FEntryID, u1.FItemID, u1.FAuxPropID, u1.FSupplyID, u1.FQty,"
    " case when u1.FPushQty = 0 then case when u1.FQty - u1.FPurchaseFinishQty < 0 then 0"
    "  else u1.FQty - u1.FPurchaseFinishQty end else u1.FPushQty end,"
    " u1.FDate, u1.FPrice, u1.FAmount, u1.FTaxRate, u1.FCess, u1.FTaxAmount, u1.FNote, u1.FUnitID,"
    " u1.FAuxPrice, u1.FAuxQty, u1.FClosed, u1.FPurchaseFinishQty,"
    " case when u1.FQty - u1.FPurchaseFinishQty < 0 then 0 else u1.FQty - u1.FPurchaseFinishQty "
    "end,"
    " C.FNumber, C.FName, C.FModel, S.FNumber, S.FName, A.FName, U.FName,"
    " case when u1.FClosed <> 0 then 'Y' else '' end, v1.FDate, u1.FDate,"
    " C.FQtyDecimal, C.FPriceDecimal, S.FRightUserID"
    " from PurchasePlan v1 inner join PurchasePlanEntry u1 on v1.FInterID = u1.FInterID"
    " inner join t_ICItem C on u1.FItemID = C.FItemID"
    " left join t_Supplier S on u1.FSupplyID = S.FItemID"
    " left join t_AuxItem A on u1.FAuxPropID = A.FItemID"
    " inner join t_MeasureUnit U on u1.FUnitID = U.FItemID where 1 = 1";

enum { kQtyFrom = 6, kKeyAt = 31, kDecimalsAt = 36 };

Variant Num(const Variant& v) { return v.IsNull() ? v : Variant(v.ToDouble()); }
Variant Int(const Variant& v) { return v.IsNull() ? v : Variant(v.ToLong()); }

// The date text the ERP shows: the day alone at midnight.
std::string DateText(const Date& d) {
  return d == d.StartOfDay() ? d.ToDateString() : d.ToString();
}

}  // namespace

VectorPtr PurchasePlanInfo::GetRptData(const std::string& dsn, const DictionaryPtr& Filter,
                                       int32_t UserID, std::string& StrPurchasePlanBillNo) {
  return Run(dsn, [&](db::Connection& c) {
    const bool restricted = !IsAdministrator(c, UserID) && host_.data_rights &&
                            host_.data_rights->Applies(UserID, kDataRightSuppliers);
    const db::Dialect& d = c.dialect();
    std::string sql = kReportSelect;
    db::Params params;
    const std::string bill_no = Trim(StrPurchasePlanBillNo);
    if (!bill_no.empty()) {
      sql += " and " + d.TextIs("u1.FBillNo");
      params.emplace_back(FoldKey(bill_no));
    } else if (Filter) {
      // Codes and numbers compare as the server compares them.
      auto text = [&](const char* key, const char* column, const char* op) {
        const Variant* v = Filter->Find(key);
        if (!v || TextValue(*v).empty()) return;
        sql += " and " + d.CaseFolded(column) + op + "?";
        params.emplace_back(FoldKey(TextValue(*v)));
      };
      if (const Variant* v = Filter->Find("BDate")) {
        sql += " and v1.FDate >= ?";
        params.emplace_back(QuotedDateValue(*v, "Filter \"BDate\"").StartOfDay());
      }
      if (const Variant* v = Filter->Find("EDate")) {
        sql += " and v1.FDate <= ?";
        params.emplace_back(QuotedDateValue(*v, "Filter \"EDate\"").StartOfDay());
      }
      text("BItemNumber", "C.FNumber", " >= ");
      text("EItemNumber", "C.FNumber", " <= ");
      text("BBillNo", "u1.FBillNo", " >= ");
      text("EBillNo", "u1.FBillNo", " <= ");
      if (const Variant* v = Filter->Find("Closed"); v && v->ToValue() == 1)
        sql += " and u1.FClosed = 0";
    }
    sql += " order by v1.FDate, " + d.CaseFolded("v1.FBillNo") + ", " + d.CaseFolded("C.FNumber") +
           ", u1.FInterID, u1.FEntryID";

    auto out = Vector::Create();
    std::set<int32_t> plans;
    c.QueryRows(sql, params, [&](Row& r) {
      const Variant& supplier = r[5];
      if (restricted) {
        // Lines without a supplier, and lines of suppliers that name the user.
        const bool none = !supplier.IsNull() && supplier.ToDouble() == 0;
        const bool named = !supplier.IsNull() && supplier.ToDouble() != 0 && !r.back().IsNull() &&
                           RightsTextNamesUser(TextValue(r.back()), UserID);
        if (!none && !named) return;
      }
      auto row = Dictionary::Create(ReportKeys());
      for (size_t i = 0; i < kKeyAt; ++i) row->SetAt(i, std::move(r[i]));
      for (size_t i : {1, 2, 3, 4, 5, 15, 18}) row->SetAt(i, Int(row->value(i)));
      for (size_t i : {6, 7, 9, 10, 11, 12, 13, 16, 17, 19, 20}) row->SetAt(i, Num(row->value(i)));
      row->SetAt(kKeyAt, row->value(1).ToText() + "_" + row->value(2).ToText());
      row->SetAt(32, 0);
      row->SetAt(33, "");
      row->SetAt(34, "");
      row->SetAt(35, 0);
      row->SetAt(kDecimalsAt, Int(r[kKeyAt]));
      row->SetAt(kDecimalsAt + 1, Int(r[kKeyAt + 1]));
      plans.insert(row->value(1).ToLong());
      out->Add(row);
    });

    // The source numbers of each plan: per source type found in its links,
    // the bills of that type whose interior id is among the plan's source ids.
    std::map<int32_t, std::set<int32_t>> types, sources;
    std::set<int32_t> all_sources;
    db::QueryIn(c, std::vector<int32_t>(plans.begin(), plans.end()),
                "select FInterID, FSourceTranType, FSourceInterId from PurchaseLink"
                " where FInterID in (%IDS%)",
                [&](Row& r) {
                  const int32_t plan = r[0].ToLong();
                  if (!r[1].IsNull()) types[plan].insert(r[1].ToLong());
                  if (!r[2].IsNull()) {
                    sources[plan].insert(r[2].ToLong());
                    all_sources.insert(r[2].ToLong());
                  }
                });
    std::map<int32_t, std::vector<std::pair<int32_t, std::string>>> bills;  // type -> (id, no)
    const std::vector<int32_t> source_ids(all_sources.begin(), all_sources.end());
    for (auto [type, table] :
         {std::pair{kTranSalesOrder, "SEOrder"}, std::pair{kTranProductionTask, "ICMO"},
          std::pair{kTranOutsourcingTask, "ICOutMO"}}) {
      db::QueryIn(
          c, source_ids,
          std::string("select FInterID, FBillNo from ") + table +
              " where FInterID in (%IDS%) order by FInterID",
          [&, type = type](Row& r) { bills[type].emplace_back(r[0].ToLong(), TextValue(r[1])); });
    }
    std::map<int32_t, std::string> source_no;
    for (int32_t plan : plans) {
      std::string text;
      for (int32_t type : types[plan]) {
        for (const auto& [id, no] : bills[type]) {
          if (sources[plan].count(id)) text += no + ",";
        }
      }
      if (!text.empty()) text.pop_back();
      source_no[plan] = text;
    }
    for (const auto& row : out->rows()) row->SetAt(38, source_no[row->value(1).ToLong()]);
    return out;
  });
}

int32_t PurchasePlanInfo::GetSupplierID(const std::string& dsn, const std::string& sNumber,
                                        double& dblValueAddRate) {
  return Run(dsn, [&](db::Connection& c) {
    auto rs = c.Query("select FItemID, FValueAddRate from t_Supplier where " +
                          c.dialect().TextIs("FNumber") + " and FDeleted = 0 order by FItemID",
                      {FoldKey(sNumber)});
    if (rs->Eof()) return 0;
    const Variant& rate = rs->Field("FValueAddRate");
    dblValueAddRate = rate.IsNull() ? 0 : rate.ToDouble();
    return rs->Field("FItemID").ToLong();
  });
}

double PurchasePlanInfo::GetPurchasePlanPrice(const std::string& dsn, int32_t lSupplyID,
                                              int32_t lItemID, double dblQty) {
  return Run(dsn, [&](db::Connection& c) {
    auto first = [](const Variant& v) { return v.IsEmpty() || v.IsNull() ? 0.0 : v.ToDouble(); };
    // The quantity as the statement carried it: 15 significant digits.
    const double qty = NumberValue(Variant(dblQty), "dblQty");
    std::vector<PriceBand> bands;
    c.QueryRows(
        "select FSupID, FPrice, FStartQty, FEndQty from t_SupplyEntry where FItemID = ?"
        " and ? between FStartQty and FEndQty",
        {lItemID, qty}, [&](Row& r) {
          auto num = [](const Variant& v) { return v.IsNull() ? OptNum() : OptNum(v.ToDouble()); };
          bands.push_back({r[0].IsNull() ? 0 : r[0].ToLong(), num(r[1]), num(r[2]), num(r[3])});
        });
    SortBands(bands);
    double price = bands.empty() ? 0.0 : bands.front().price.value_or(0);
    if (price == 0) {
      price = first(c.QueryValue(
          c.dialect().SelectTop(1, "u1.FTaxPrice",
                                "from ICPurchase v1 inner join ICPurchaseEntry u1"
                                " on v1.FInterID = u1.FInterID where u1.FItemID = ?"
                                " and v1.FSupplyID = ? order by u1.FInterID, u1.FEntryID"),
          {lItemID, lSupplyID}));
    }
    if (price == 0) {
      price = first(c.QueryValue("select FOrderPrice from t_ICItem where FItemID = ?", {lItemID}));
    }
    return price;
  });
}

std::string PurchasePlanInfo::GetBillDate(const std::string& dsn,
                                          const std::string& StrPurchasePlanBillNo) {
  return Run(dsn, [&](db::Connection& c) -> std::string {
    const Variant d = c.QueryValue(
        "select FDate from PurchasePlan where " + c.dialect().TextIs("FBillNo") + " order by FInterID",
        {FoldKey(Trim(StrPurchasePlanBillNo))});
    if (d.IsEmpty() || d.IsNull()) return {};
    return DateText(d.ToDate());
  });
}

}  // namespace mrpcalc
