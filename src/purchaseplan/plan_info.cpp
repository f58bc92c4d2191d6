// The purchase plan report and the lookups of the plan form.
#include <map>
#include <set>

#include "purchaseplan/plan_link_repository.h"
#include "purchaseplan/plan_repository.h"
#include "purchaseplan/plan_source_repository.h"
#include "purchaseplan/purchase_plan.h"
#include "record/column_value.h"
#include "record/erp_codes.h"
#include "record/text.h"
#include "services/base_data_repository.h"
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
    repo::PlanReportFilter filter;
    const std::string bill_no = Trim(StrPurchasePlanBillNo);
    if (!bill_no.empty()) {
      filter.bill_no = bill_no;
    } else if (Filter) {
      auto text = [&](const char* key) -> std::optional<std::string> {
        const Variant* v = Filter->Find(key);
        if (!v || TextValue(*v).empty()) return std::nullopt;
        return TextValue(*v);
      };
      if (const Variant* v = Filter->Find("BDate"))
        filter.from = QuotedDateValue(*v, "Filter \"BDate\"").StartOfDay();
      if (const Variant* v = Filter->Find("EDate"))
        filter.to = QuotedDateValue(*v, "Filter \"EDate\"").StartOfDay();
      filter.item_from = text("BItemNumber");
      filter.item_to = text("EItemNumber");
      filter.bill_from = text("BBillNo");
      filter.bill_to = text("EBillNo");
      if (const Variant* v = Filter->Find("Closed"); v && v->ToValue() == 1)
        filter.open_only = true;
    }

    auto out = Vector::Create();
    std::set<int32_t> plans;
    repo::PlanReportRows(c, filter, [&](Row& r) {
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
    for (const repo::SourceLink& l : repo::SourceLinksOfPlans(c, {plans.begin(), plans.end()})) {
      if (l.type) types[l.plan].insert(*l.type);
      if (l.source) {
        sources[l.plan].insert(*l.source);
        all_sources.insert(*l.source);
      }
    }
    std::map<int32_t, std::vector<std::pair<int32_t, std::string>>> bills;  // type -> (id, no)
    const std::vector<int32_t> source_ids(all_sources.begin(), all_sources.end());
    for (int32_t type : {kTranSalesOrder, kTranProductionTask, kTranOutsourcingTask}) {
      bills[type] = repo::BillNumbers(c, type, source_ids);
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
    const auto supplier = repo::LiveSupplier(c, sNumber);
    if (!supplier) return 0;
    const Variant& rate = supplier->value_add_rate;
    dblValueAddRate = rate.IsNull() ? 0 : rate.ToDouble();
    return supplier->id;
  });
}

double PurchasePlanInfo::GetPurchasePlanPrice(const std::string& dsn, int32_t lSupplyID,
                                              int32_t lItemID, double dblQty) {
  return Run(dsn, [&](db::Connection& c) {
    auto first = [](const Variant& v) { return v.IsEmpty() || v.IsNull() ? 0.0 : v.ToDouble(); };
    // The quantity as the statement carried it: 15 significant digits.
    const double qty = NumberValue(Variant(dblQty), "dblQty");
    std::vector<PriceBand> bands;
    auto num = [](const Variant& v) { return v.IsNull() ? OptNum() : OptNum(v.ToDouble()); };
    for (const Row& r : repo::BandsHolding(c, lItemID, qty)) {
      bands.push_back({r[0].IsNull() ? 0 : r[0].ToLong(), num(r[1]), num(r[2]), num(r[3])});
    }
    SortBands(bands);
    double price = bands.empty() ? 0.0 : bands.front().price.value_or(0);
    if (price == 0) price = first(repo::FirstInvoicePrice(c, lItemID, lSupplyID));
    if (price == 0) price = first(repo::ItemOrderPrice(c, lItemID));
    return price;
  });
}

std::string PurchasePlanInfo::GetBillDate(const std::string& dsn,
                                          const std::string& StrPurchasePlanBillNo) {
  return Run(dsn, [&](db::Connection& c) -> std::string {
    const Variant d = repo::PlanDate(c, Trim(StrPurchasePlanBillNo));
    if (d.IsEmpty() || d.IsNull()) return {};
    return DateText(d.ToDate());
  });
}

}  // namespace mrpcalc
