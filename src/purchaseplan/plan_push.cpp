// Pushing purchase plan lines into purchase orders.
#include <algorithm>
#include <map>
#include <set>

#include "purchaseplan/plan_link_repository.h"
#include "purchaseplan/plan_repository.h"
#include "purchaseplan/purchase_plan.h"
#include "purchaseplan/template_repository.h"
#include "record/column_value.h"
#include "record/erp_codes.h"
#include "record/text.h"
#include "services/base_data_repository.h"
#include "services/order_repository.h"
#include "services/profile.h"
#include "services/purchase_lines.h"

namespace mrpcalc {
namespace {

using Row = std::vector<Variant>;

// A purchase order line to make, and the plan lines behind it.
struct PushLine {
  std::string key;
  int32_t supply_id = 0, item_id = 0;
  double qty = 0, price = 0, discount_rate = 0, tax_rate = 0;
  int32_t unit_id = 0, aux_unit_id = 0, aux_prop_id = 0;
  double aux_qty = 0, aux_price = 0;
  std::string note, plan_numbers;
  Date date;
};

struct PlanPart {
  std::string key;
  int32_t plan_inter_id = 0, plan_entry_id = 0, item_id = 0;
  double qty = 0;
};

std::string Where(const char* key, const std::string& row) {
  return std::string("\"") + key + "\" of " + row;
}

// Reads the lines and their plan parts as the working tables hold them.
// A value the working table could not take fails the call before anything
// is written: a merge flag or merged quantity that is not a number, a line
// without its plan lines.
void ReadPushLines(const VectorPtr& rows, std::vector<PushLine>& lines,
                   std::vector<PlanPart>& parts) {
  std::set<std::string> keys;  // as the server compares them, without regard to case
  if (!rows) return;
  for (size_t i = 0; i < rows->rows().size(); ++i) {
    const Dictionary& row = *rows->rows()[i];
    const std::string at = "vctListData row " + std::to_string(i + 1);
    PushLine l;
    l.key = TextValue(row.Get("FKey"));
    if (!keys.insert(FoldKey(l.key)).second) {
      ThrowInvalid(at + " repeats the key \"" + l.key +
                   "\" (letter case aside): each order line needs its own FKey");
    }
    l.supply_id = IntValue(row.Get("FSupplyID"), Where("FSupplyID", at));
    l.item_id = IntValue(row.Get("FItemID"), Where("FItemID", at));
    l.qty = RoundDecimal(NumberValue(row.Get("FPushQty"), Where("FPushQty", at)));
    l.price = RoundDecimal(NumberValue(row.Get("FPrice"), Where("FPrice", at)));
    l.discount_rate =
        RoundDecimal(NumberValue(row.Get("FDiscountRate"), Where("FDiscountRate", at)));
    l.tax_rate = RoundDecimal(NumberValue(row.Get("FTaxRate"), Where("FTaxRate", at)));
    if (1 + l.tax_rate / 100 == 0)
      ThrowInvalid(Where("FTaxRate", at) + " is -100: division by zero");
    l.unit_id = IntValue(row.Get("FUnitID"), Where("FUnitID", at));
    l.aux_prop_id = IntValue(row.Get("FAuxPropID"), Where("FAuxPropID", at));
    l.note = TextValue(row.Get("FMemo"));
    l.date = QuotedDateValue(row.Get("FFinishDate"), Where("FFinishDate", at));
    l.plan_numbers = TextValue(row.Get("FBillNo"));
    NumberValue(row.Get("FIsMerge"), Where("FIsMerge", at));
    NumberValue(row.Get("FMergeSumQty"), Where("FMergeSumQty", at));
    const VectorPtr entries = row.Get("EntryDataVct").AsVector();
    if (!entries) {
      ThrowInvalid(at + " has no \"EntryDataVct\": give the plan lines behind the order line"
                        " (an empty list when there are none)");
    }
    for (size_t k = 0; k < entries->rows().size(); ++k) {
      const Dictionary& e = *entries->rows()[k];
      const std::string in = "EntryDataVct row " + std::to_string(k + 1) + " of " + at;
      parts.push_back({TextValue(e.Get("FKey")),
                       IntValue(e.Get("FInterID"), Where("FInterID", in)),
                       IntValue(e.Get("FEntryID"), Where("FEntryID", in)),
                       IntValue(e.Get("FItemID"), Where("FItemID", in)),
                       RoundDecimal(NumberValue(e.Get("FPushQty"), Where("FPushQty", in)))});
    }
    lines.push_back(std::move(l));
  }
}

// The purchase unit: the item's order unit, else the line's own unit; a
// line in another unit gives quantity and price in it to every line of
// its material (the first such line, where the unit's coefficient is not 0).
void PurchaseUnits(db::Connection& c, std::vector<PushLine>& lines) {
  std::set<int32_t> items;
  for (const auto& l : lines) items.insert(l.item_id);
  const std::map<int32_t, int32_t> order_unit =
      repo::OrderUnits(c, {items.begin(), items.end()});
  std::set<int32_t> units;
  for (auto& l : lines) {
    if (auto u = order_unit.find(l.item_id); u != order_unit.end()) l.aux_unit_id = u->second;
    if (l.aux_unit_id == 0) l.aux_unit_id = l.unit_id;
    if (l.aux_unit_id == l.unit_id) {
      l.aux_qty = l.qty;
      l.aux_price = l.price;
    } else {
      units.insert(l.aux_unit_id);
    }
  }
  // By t_MeasureUnit.FItemID, the first non-zero.
  const std::map<int32_t, double> coefficient = repo::NonZeroCoefficients(c, {units.begin(), units.end()});
  for (auto& l : lines) {
    for (const auto& other : lines) {
      if (other.item_id != l.item_id || other.aux_unit_id == other.unit_id) continue;
      auto u = coefficient.find(other.aux_unit_id);
      if (u == coefficient.end()) continue;
      l.aux_qty = RoundDecimal(other.qty / u->second);
      l.aux_price = RoundDecimal(other.price * u->second);
      break;
    }
  }
}

}  // namespace

VectorPtr PurchasePlanUpdate::PushBill(const std::string& dsn, const VectorPtr& vctListData,
                                       int32_t BillerID, std::string& StrOutInterids,
                                       const Date& SysDate) {
  return Run(dsn, [&](db::Connection& c) -> VectorPtr {
    const int32_t currency = OrderCurrencyId(c);
    const int scale = BaseCurrencyScale(c);
    int32_t style = kPurchaseStyle;
    std::string style_name = host_.ini ? host_.ini->Get("frmBill", "DefaultCGStyle") : "";
    std::transform(style_name.begin(), style_name.end(), style_name.begin(),
                   [](unsigned char ch) { return static_cast<char>(std::toupper(ch)); });
    if (!style_name.empty()) {
      if (const auto found = repo::PurchaseStyleNamed(c, style_name)) style = *found;
    }

    std::vector<PushLine> lines;
    std::vector<PlanPart> parts;
    ReadPushLines(vctListData, lines, parts);
    std::set<int32_t> suppliers;
    for (const auto& l : lines) suppliers.insert(l.supply_id);
    if (suppliers.empty()) {
      throw Error(ErrorCategory::kInvalidInput, "no purchase line to push: vctListData is empty",
                  -1);
    }
    PurchaseUnits(c, lines);
    // Supplier -> employee, department.
    std::map<int32_t, std::pair<int32_t, int32_t>> staff =
        repo::SupplierStaff(c, {suppliers.begin(), suppliers.end()});

    PurchaseOrderWriter orders(c, *host_.numbering);
    OrderLineWriter entry(c);
    const std::vector<repo::TemplateRelation> relations = repo::TemplateRelations(c);
    for (int32_t supplier : suppliers) {
      const auto people =
          staff.count(supplier) ? staff[supplier] : std::pair<int32_t, int32_t>{0, 0};
      OrderHeader header;
      header.supplier = supplier;
      header.date = SysDate;  // without one, the zero date 1899-12-30
      header.currency = currency;
      header.biller = BillerID;
      header.style = style;
      header.employee = people.first;
      header.department = people.second;
      header.settle_zero = false;
      const int32_t order = orders.Header(header);
      int32_t e = 0;
      std::vector<repo::OrderLink> links;
      for (const PushLine& l : lines) {
        if (l.supply_id != supplier) continue;
        entry.Write(order, ++e,
                    {l.item_id, l.aux_prop_id, l.aux_unit_id, l.date, l.qty, l.aux_qty, l.price,
                     l.aux_price, l.discount_rate, l.tax_rate, l.note, l.plan_numbers, l.key},
                    scale);
        for (const PlanPart& p : parts) {
          if (EqualsIgnoringCase(p.key, l.key)) {
            links.push_back(
                {order, p.item_id, p.key, {p.plan_inter_id, p.plan_entry_id}, p.qty});
          }
        }
      }
      repo::InsertOrderLinks(c, links);
      repo::CopyTemplateRelations(c, relations, order, supplier);
    }

    // The plan lines take what was pushed; every fully purchased line of
    // every plan is closed.
    std::map<repo::PlanLineKey, double> pushed;
    for (const PlanPart& p : parts) pushed[{p.plan_inter_id, p.plan_entry_id}] += p.qty;
    for (auto& [plan_line, qty] : pushed) qty = RoundDecimal(qty);
    repo::RecordPushed(c, pushed);
    repo::CloseFullyPurchased(c);

    const std::vector<int32_t>& made = orders.made();
    StrOutInterids = db::JoinIds(made);
    return repo::OrderSummariesOfKnownSuppliers(c, made);
  });
}

}  // namespace mrpcalc
