// Saving purchase plans and editing their lines.
#include <cstdio>
#include <set>

#include "purchaseplan/plan_link_repository.h"
#include "purchaseplan/plan_repository.h"
#include "purchaseplan/plan_rules.h"
#include "purchaseplan/plan_source_repository.h"
#include "purchaseplan/purchase_plan.h"
#include "purchaseplan/source_links.h"
#include "record/column_value.h"
#include "record/text.h"
#include "services/numbering.h"
#include "services/purchase_lines.h"

namespace mrpcalc {
namespace {

using Row = std::vector<Variant>;

constexpr int32_t kFirstPlanInterId = 1000;

struct PlanNumber {
  int32_t inter_id = 0;
  std::string bill_no;
};

}  // namespace

std::string plan::DailySerial(const std::vector<std::string>& numbers, const std::string& prefix) {
  // The day's numbers and their serials compare as the server compares
  // text, without regard to case.
  const std::string folded_prefix = FoldKey(prefix);
  std::string largest;
  bool any = false;
  for (const std::string& stored : numbers) {
    const std::string no = FoldKey(stored);
    if (no.compare(0, folded_prefix.size(), folded_prefix) != 0) continue;
    const std::string tail = no.size() > 3 ? no.substr(no.size() - 3) : no;
    if (!any || tail > largest) largest = tail;
    any = true;
  }
  const int32_t serial =
      1001 + (any ? QuotedIntValue(Variant(largest), "the serial of plan " + largest) : 0);
  const std::string digits = std::to_string(serial);
  return digits.substr(digits.size() - 3);
}

namespace {

// The next interior id (the largest plus 1, the first 1000) and number:
// "CJ", the server's date, and the last three digits of 1001 plus the
// day's largest serial (its last three characters, compared as text), so
// that after 999 every further plan of the day gets 000.
PlanNumber NextPlanNumber(db::Connection& c) {
  PlanNumber n;
  const std::optional<int32_t> largest = repo::LargestPlanId(c);
  n.inter_id = largest ? *largest + 1 : kFirstPlanInterId;
  const Date today = repo::ServerNow(c);
  char prefix[16];
  std::snprintf(prefix, sizeof prefix, "CJ%04d%02d%02d", today.year(), today.month(), today.day());
  n.bill_no = prefix + plan::DailySerial(repo::PlanNumbersStartingWith(c, FoldKey(prefix)), prefix);
  return n;
}

// One link per source row: its position, type, source and quantity. A
// task is found by its bill number (every task of that number links).
void InsertLinks(db::Connection& c, const std::vector<plan::SourceLine>& lines,
                 const PlanNumber& plan) {
  std::set<std::string> bills[2];
  for (size_t i = 0; i < lines.size(); ++i) {
    const auto& l = lines[i];
    if (l.type == plan::kProductionTask) bills[0].insert(FoldKey(l.bill_no));
    if (l.type == plan::kOutsourcingTask) bills[1].insert(FoldKey(l.bill_no));
    if (l.type != plan::kProductionTask && l.type != plan::kOutsourcingTask &&
        l.type != plan::kSalesOrder) {
      ThrowInvalid("vctStockBill row " + std::to_string(i + 1) + " has source type " +
                   std::to_string(l.type) +
                   ": a plan links sales orders (81), production tasks (85) and outsourcing "
                   "tasks (91) only");
    }
  }
  const std::multimap<std::string, int32_t> tasks[2] = {
      repo::TaskIdsByBill(c, plan::kProductionTask, {bills[0].begin(), bills[0].end()}),
      repo::TaskIdsByBill(c, plan::kOutsourcingTask, {bills[1].begin(), bills[1].end()})};
  std::vector<repo::SourceLink> links;
  for (size_t i = 0; i < lines.size(); ++i) {
    const auto& l = lines[i];
    const int32_t position = static_cast<int32_t>(i + 1);
    if (l.type == plan::kSalesOrder) {
      links.push_back({plan.bill_no, plan.inter_id, position, l.type, l.inter_id, l.entry_id, l.qty});
      continue;
    }
    const auto range =
        tasks[l.type == plan::kProductionTask ? 0 : 1].equal_range(FoldKey(l.bill_no));
    for (auto it = range.first; it != range.second; ++it) {
      links.push_back({plan.bill_no, plan.inter_id, position, l.type, it->second, 0, l.qty});
    }
  }
  repo::InsertSourceLinks(c, links);
}

std::string Where(const char* key, size_t row) {
  return std::string("\"") + key + "\" of vctListData row " + std::to_string(row);
}

}  // namespace

std::string PurchasePlanUpdate::UpdatePurchasePlan(const std::string& dsn,
                                                   const VectorPtr& vctStockBill,
                                                   const VectorPtr& vctListData, int32_t UserID) {
  return Run(dsn, [&](db::Connection& c) -> std::string {
    const std::vector<plan::SourceLine> sources =
        plan::ReadSourceLines(vctStockBill, "vctStockBill");
    // The lines are read before a number is drawn: a line the plan could
    // not take fails the save with nothing written.
    ReadPricedLines(vctListData, LineIds::kBare);
    // Saves queue here: the next one reads the maximum after this one ends.
    HoldLock(c, "PurchasePlan");
    const PlanNumber plan = NextPlanNumber(c);
    if (plan.inter_id == 0 || Trim(plan.bill_no).empty()) return {};
    repo::InsertPlanHeader(c, plan.bill_no, plan.inter_id, repo::ServerNow(c).StartOfDay(),
                           UserID);
    InsertLinks(c, sources, plan);
    plan::ApplySourceLinks(c, {{sources, plan.bill_no}}, plan::Sign::kAdd);
    InsertPurchasePlanEntry(c, vctListData, plan.inter_id, plan.bill_no);
    return plan.bill_no;
  });
}

void PurchasePlanUpdate::InsertPurchasePlanEntry(db::Connection& c, const VectorPtr& vctListData,
                                                 int32_t lMaxFInterID,
                                                 const std::string& strMaxFBillNo) {
  std::vector<PricedLine> lines = ReadPricedLines(vctListData, LineIds::kBare);
  PricingFacts facts = PricingFacts::Load(c, lines);
  // The price source after the price list, from the ERP's INI settings.
  const int setting =
      static_cast<int>(Variant(host_.ini ? host_.ini->Get("frmBill", "CGSrcPrice") : "").ToValue());
  std::vector<repo::NewPlanLine> rows;
  int32_t entry = 0;
  for (auto& l : lines) {
    facts.ResolveUnitAndSupplier(l);
    facts.PriceFromAnyBand(l);
    switch (setting) {
      case 1:
        l.price = facts.LastPrice(c, LastPriceSource::kOrder, l);
        break;
      case 2:
        l.price = facts.LastPrice(c, LastPriceSource::kStockBillConverted, l);
        break;
      case 3:
        l.price = facts.LastPrice(c, LastPriceSource::kInvoiceConverted, l);
        break;
      default:
        if (l.price.value_or(0) == 0) l.price = facts.LastPrice(c, LastPriceSource::kInvoice, l);
    }
    facts.OrderPriceFallback(l);
    facts.ConvertToPurchaseUnit(l);
    facts.TaxRate(l);
    // The stock bill's price is without tax: the tax goes on.
    if (setting == 2) {
      l.price = l.price && l.tax_rate
                    ? std::optional(RoundDecimal(*l.price * (100 + *l.tax_rate) / 100))
                    : std::nullopt;
    }
    ++entry;
    const std::string where =
        "line " + std::to_string(entry) + " of the plan (item " + std::to_string(l.item_id) + ")";
    if (!l.price) ThrowInvalid(where + " has no price");
    if (!l.aux_qty || !l.aux_price) ThrowInvalid(where + " has no quantity in its purchase unit");
    if (!l.tax_rate) ThrowInvalid(where + " has no tax rate");
    rows.push_back({entry, l.item_id, l.aux_prop_id, l.supply_id.value_or(0), l.unit_id, l.qty,
                    *l.price, RoundDecimal(l.qty * *l.price, 4), *l.aux_qty, *l.aux_price,
                    *l.tax_rate, l.date, l.note});
  }
  repo::InsertPlanLines(c, strMaxFBillNo, lMaxFInterID, rows);
}

void PurchasePlanUpdate::UpdatePurchasePlanEntry(const std::string& dsn,
                                                 const VectorPtr& vctListData) {
  Run(dsn, [&](db::Connection& c) {
    if (!vctListData) return;
    std::vector<repo::PlanLineEdit> edits;
    for (size_t i = 0; i < vctListData->rows().size(); ++i) {
      const Dictionary& row = *vctListData->rows()[i];
      const size_t n = i + 1;
      repo::PlanLineEdit e;
      e.price = RoundDecimal(NumberValue(row.Get("FPrice"), Where("FPrice", n)));
      e.supply_id = IntValue(row.Get("FSupplyID"), Where("FSupplyID", n));
      e.date = QuotedDateValue(row.Get("FFinishDate"), Where("FFinishDate", n));
      e.push_qty = RoundDecimal(NumberValue(row.Get("FPushQty"), Where("FPushQty", n)));
      e.tax_rate = NumberValue(row.Get("FTaxRate"), Where("FTaxRate", n));
      e.discount_rate = row.Get("FDiscountRate").ToValue();
      e.note = TextValue(row.Get("FMemo"));
      e.line = {IntValue(row.Get("FInterID"), Where("FInterID", n)),
                IntValue(row.Get("FEntryID"), Where("FEntryID", n))};
      edits.push_back(std::move(e));
    }
    repo::UpdatePlanLines(c, edits);
  });
}

}  // namespace mrpcalc
