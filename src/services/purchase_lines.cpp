// Pricing of purchase lines.
#include "services/purchase_lines.h"

#include <algorithm>
#include <set>
#include <tuple>

#include "record/column_value.h"
#include "record/error.h"
#include "record/text.h"

namespace mrpcalc {
namespace {

using Row = std::vector<Variant>;

Variant Cell(const OptNum& v) { return v ? Variant(*v) : Variant::Null(); }
Variant Cell(const OptInt& v) { return v ? Variant(*v) : Variant::Null(); }
OptNum Num(const Variant& v) { return v.IsNull() || v.IsEmpty() ? OptNum() : OptNum(v.ToDouble()); }
OptInt Int(const Variant& v) { return v.IsNull() || v.IsEmpty() ? OptInt() : OptInt(v.ToLong()); }
OptNum Dec(const OptNum& v) { return v ? OptNum(RoundDecimal(*v)) : v; }

std::string Where(const char* key, size_t row) {
  return std::string("\"") + key + "\" of vctListData row " + std::to_string(row);
}

const KeyList& LineKeys() {
  static const KeyList keys =
      MakeKeyList({"FItemID",       "FItemNumber", "FItemName",     "FItemModel",  "FAuxPropID",
                   "FAuxPropName",  "FSupplyID",   "FSupplyNumber", "FSupplyName", "FAuxUnitID",
                   "FUnitID",       "FUnitName",   "FCoefficient",  "FAuxQty",     "FQty",
                   "FAuxPrice",     "FPrice",      "FDiscountRate", "FTaxRate",    "FQtyDecimal",
                   "FPriceDecimal", "FNote",       "Fdate"});
  return keys;
}

// The newest document line of each item from each supplier, among lines
// whose unit is known.
struct DocumentQuery {
  const char* price;  // the price expression over u1
  const char* header;
  const char* lines;
};
DocumentQuery QueryOf(LastPriceSource source) {
  switch (source) {
    case LastPriceSource::kOrder:
      return {"u1.FTaxPrice", "POOrder", "POOrderEntry"};
    case LastPriceSource::kStockBillConverted:
      return {"u1.FAuxPrice", "ICStockBill", "ICStockBillEntry"};
    case LastPriceSource::kInvoiceConverted:
      return {"u1.FAuxTaxPrice", "ICPurchase", "ICPurchaseEntry"};
    case LastPriceSource::kInvoice:
      break;
  }
  return {"u1.FTaxPrice", "ICPurchase", "ICPurchaseEntry"};
}

}  // namespace

DictionaryPtr PricedLine::ToRow() const {
  Variant cells[] = {item_id,
                     number,
                     name,
                     model,
                     aux_prop_id,
                     aux_prop_name,
                     Cell(supply_id),
                     supply_number,
                     supply_name,
                     Cell(aux_unit_id),
                     unit_id,
                     unit_name,
                     Cell(coefficient),
                     Cell(aux_qty),
                     qty,
                     Cell(aux_price),
                     Cell(price),
                     discount_rate,
                     Cell(tax_rate),
                     Cell(qty_decimal),
                     Cell(price_decimal),
                     note,
                     date};
  auto row = Dictionary::Create(LineKeys());
  for (size_t i = 0; i < std::size(cells); ++i) row->SetAt(i, std::move(cells[i]));
  return row;
}

std::vector<PricedLine> ReadPricedLines(const VectorPtr& rows, LineIds ids) {
  auto id = [ids](const Variant& v, const std::string& what) {
    return ids == LineIds::kBare ? IntValue(v, what) : QuotedIntValue(v, what);
  };
  if (!rows) ThrowInvalid("vctListData is Nothing: give the lines to price");
  std::vector<PricedLine> lines;
  for (size_t i = 0; i < rows->rows().size(); ++i) {
    Dictionary& row = *rows->rows()[i];
    const size_t n = i + 1;
    if (row.Contains("FMemo")) row.Set("FMemo", ReplaceAll(TextValue(row.Get("FMemo")), "'", "｀"));
    PricedLine l;
    l.item_id = IntValue(row.Get("FBomItemID"), Where("FBomItemID", n));
    l.number = TextValue(row.Get("FItemNumber"));
    l.name = TextValue(row.Get("FItemName"));
    l.model = TextValue(row.Get("FItemModel"));
    l.aux_prop_id = id(row.Get("FAuxPropID"), Where("FAuxPropID", n));
    l.aux_prop_name = TextValue(row.Get("FAuxProp"));
    l.supply_number = TextValue(row.Get("FSupplyNumber"));
    l.supply_name = TextValue(row.Get("FSupplyName"));
    l.unit_id = id(row.Get("FUnitID"), Where("FUnitID", n));
    l.unit_name = TextValue(row.Get("FUnitName"));
    l.qty = RoundDecimal(NumberValue(row.Get("FQty"), Where("FQty", n)));
    l.note = TextValue(row.Get("FMemo"));
    l.date = QuotedDateValue(row.Get("FDate"), Where("FDate", n));
    lines.push_back(std::move(l));
  }
  return lines;
}

void SortBands(std::vector<PriceBand>& bands) {
  std::stable_sort(bands.begin(), bands.end(), [](const PriceBand& a, const PriceBand& b) {
    return std::tie(a.supplier, a.start, a.end, a.price) <
           std::tie(b.supplier, b.start, b.end, b.price);
  });
}

bool PricingFacts::Document::Newer(const Document& o) const {
  if (date != o.date) return date > o.date;  // no date is the oldest
  if (inter_id != o.inter_id) return inter_id > o.inter_id;
  return entry_id > o.entry_id;
}

PricingFacts PricingFacts::Load(db::Connection& c, const std::vector<PricedLine>& lines) {
  PricingFacts f;
  std::set<int32_t> items, units;
  std::set<std::string> suppliers;
  for (const auto& l : lines) {
    items.insert(l.item_id);
    suppliers.insert(FoldKey(l.supply_number));
    units.insert(l.unit_id);
  }
  f.item_ids_.assign(items.begin(), items.end());
  db::QueryIn(c, f.item_ids_,
              "select FItemID, FOrderUnitID, FOrderPrice, FTaxRate, FQtyDecimal, FPriceDecimal"
              " from t_ICItem where FItemID in (%IDS%)",
              [&](Row& r) {
                f.items_.emplace(r[0].ToLong(),
                                 Item{Int(r[1]), Num(r[2]), Num(r[3]), Int(r[4]), Int(r[5])});
              });
  // Supplier by code (the first of codes equal but for letter case) and
  // each supplier's tax rate.
  db::QueryIn(c, std::vector<std::string>(suppliers.begin(), suppliers.end()),
              "select FNumber, FItemID, FValueAddRate from t_Supplier where " +
                  c.dialect().CaseFolded("FNumber") + " in (%IDS%) order by FItemID",
              [&](Row& r) {
                f.supplier_by_code_.emplace(FoldKey(TextValue(r[0])), r[1].ToLong());
                f.supplier_tax_.emplace(r[1].ToLong(), Num(r[2]));
              });
  db::QueryIn(c, f.item_ids_,
              "select FItemID, FSupID, FPrice, FStartQty, FEndQty from t_SupplyEntry"
              " where FItemID in (%IDS%)",
              [&](Row& r) {
                f.bands_[r[0].ToLong()].push_back({r[1].ToLong(), Num(r[2]), Num(r[3]), Num(r[4])});
              });
  for (auto& [item, bands] : f.bands_) SortBands(bands);
  std::set<int32_t> order_units;
  for (const auto& [id, item] : f.items_) {
    if (item.order_unit) order_units.insert(*item.order_unit);
  }
  db::QueryIn(c, std::vector<int32_t>(order_units.begin(), order_units.end()),
              "select FItemID, FCoefficient from t_MeasureUnit where FItemID in (%IDS%)"
              " order by FMeasureUnitID",
              [&](Row& r) { f.purchase_unit_coefficient_.emplace(r[0].ToLong(), Num(r[1])); });
  db::QueryIn(c, std::vector<int32_t>(units.begin(), units.end()),
              "select FMeasureUnitID, FCoefficient from t_MeasureUnit"
              " where FMeasureUnitID in (%IDS%)",
              [&](Row& r) { f.unit_coefficient_.emplace(r[0].ToLong(), Num(r[1])); });
  return f;
}

void PricingFacts::ResolveUnitAndSupplier(PricedLine& l) const {
  if (auto it = items_.find(l.item_id); it != items_.end()) l.aux_unit_id = it->second.order_unit;
  if (auto s = supplier_by_code_.find(FoldKey(l.supply_number)); s != supplier_by_code_.end())
    l.supply_id = s->second;
}

void PricingFacts::PriceFromAnyBand(PricedLine& l) const {
  auto it = bands_.find(l.item_id);
  if (it == bands_.end()) return;
  for (const PriceBand& b : it->second) {
    if (b.Holds(l.qty)) {
      l.price = b.price;
      return;
    }
  }
}

void PricingFacts::PriceFromOwnBand(PricedLine& l) const {
  auto it = bands_.find(l.item_id);
  if (it == bands_.end() || !l.supply_id) return;
  for (const PriceBand& b : it->second) {
    if (b.supplier == *l.supply_id && b.Holds(l.qty)) {
      l.price = b.price;
      return;
    }
  }
}

void PricingFacts::OrderPriceFallback(PricedLine& l) const {
  if (l.price.value_or(0) != 0) return;
  if (auto it = items_.find(l.item_id); it != items_.end())
    l.price = it->second.order_price.value_or(0);
}

void PricingFacts::ConvertToPurchaseUnit(PricedLine& l) const {
  if (!l.aux_unit_id) return;
  auto u = purchase_unit_coefficient_.find(*l.aux_unit_id);
  if (u == purchase_unit_coefficient_.end()) return;
  const OptNum coef = u->second;
  if (coef && *coef == 0) {
    throw Error(ErrorCategory::kInvalidInput,
                "division by zero: the coefficient of purchase unit " +
                    std::to_string(*l.aux_unit_id) + " is 0");
  }
  l.aux_price = l.price && coef ? Dec(*l.price * *coef) : std::nullopt;
  l.aux_qty = coef ? Dec(l.qty / *coef) : std::nullopt;
  l.coefficient = coef;
}

void PricingFacts::TaxRate(PricedLine& l) const {
  if (l.supply_id) {
    if (auto t = supplier_tax_.find(*l.supply_id); t != supplier_tax_.end()) l.tax_rate = t->second;
  }
  if (l.tax_rate.value_or(0) != 0) return;
  if (auto it = items_.find(l.item_id); it != items_.end()) l.tax_rate = it->second.tax_rate;
}

void PricingFacts::Decimals(PricedLine& l) const {
  if (auto it = items_.find(l.item_id); it != items_.end()) {
    l.qty_decimal = it->second.qty_decimal;
    l.price_decimal = it->second.price_decimal;
  }
}

OptNum PricingFacts::LastPrice(db::Connection& c, LastPriceSource source, const PricedLine& l) {
  const auto made = last_.try_emplace(source);
  const auto cache = made.first;  // a plain name: lambdas below capture it
  if (made.second) {
    const DocumentQuery q = QueryOf(source);
    db::QueryIn(c, item_ids_,
                std::string("select u1.FItemID, v1.FSupplyID, ") + q.price +
                    ", tu1.FCoefficient, v1.FDate, u1.FInterID, u1.FEntryID from " + q.header +
                    " v1 inner join " + q.lines + " u1 on v1.FInterID = u1.FInterID" +
                    (source == LastPriceSource::kInvoice
                         ? " left join t_MeasureUnit tu1 on 1 = 0"
                         : " inner join t_MeasureUnit tu1 on tu1.FMeasureUnitID = u1.FUnitID") +
                    " where u1.FItemID in (%IDS%)",
                [&](Row& r) {
                  if (r[1].IsNull()) return;
                  Document d{Num(r[2]), Num(r[3]),
                             r[4].IsNull() ? std::nullopt : std::optional(r[4].ToDate()),
                             r[5].ToLong(), r[6].ToLong()};
                  auto [it, added] = cache->second.try_emplace({r[0].ToLong(), r[1].ToLong()}, d);
                  if (!added && d.Newer(it->second)) it->second = d;
                });
  }
  if (!l.supply_id) return std::nullopt;
  auto it = cache->second.find({l.item_id, *l.supply_id});
  if (it == cache->second.end()) return std::nullopt;
  const Document& d = it->second;
  if (source == LastPriceSource::kInvoice) return d.price;
  // The line's own unit must be known too; converted sources go from the
  // document's unit to the line's.
  auto unit = unit_coefficient_.find(l.unit_id);
  if (unit == unit_coefficient_.end()) return std::nullopt;
  if (source == LastPriceSource::kOrder || !d.price) return d.price;
  const double to = unit->second.value_or(1), from = d.unit_coefficient.value_or(1);
  if (from == 0) {
    throw Error(ErrorCategory::kInvalidInput,
                "division by zero: a unit of the last purchase document of item " +
                    std::to_string(l.item_id) + " has coefficient 0");
  }
  return RoundDecimal(*d.price * to / from);
}

PurchaseOrderWriter::PurchaseOrderWriter(db::Connection& c, Numbering& numbering)
    : connection_(c), numbering_(numbering) {}

int32_t PurchaseOrderWriter::Header(const OrderHeader& h) {
  auto& insert = insert_[h.settle_zero ? 1 : 0];
  if (!insert) {
    const char* settle = h.settle_zero ? " FSettleID," : "";
    insert = connection_.Prepare(
        std::string("insert into POOrder (FBrNo, FTranType, FInterID, FBillNo, FSupplyID, FDate,"
                    " FCurrencyID, FExchangeRate, FBillerID, FCancellation, FPOStyle,") +
        settle +
        " FAreaPs, FSettleDate, FEmpID, FDeptID, FMangerID, FRelateBrID, FBrID, FPOOrdBillNo)"
        " values ('0', ?, ?, ?, ?, ?, ?, 1, ?, 0, ?," +
        (h.settle_zero ? " 0," : "") + " ?, ?, ?, ?, 0, 0, 0, '')");
  }
  // Number first, then interior id.
  const std::string bill_no =
      numbering_.NewBillNumber(connection_, std::to_string(kTranPurchaseOrder), Date::Now());
  const int32_t id = numbering_.NextInteriorId(connection_, "POOrder");
  insert->Execute({kTranPurchaseOrder, id, bill_no, h.supplier, h.date, h.currency, h.biller,
                   h.style, kPurchaseAreaPs, h.date, h.employee, h.department});
  made_.push_back(id);
  return id;
}

OrderLineWriter::OrderLineWriter(db::Connection& c)
    : insert_(c.Prepare(
          "insert into POOrderEntry (FBrNo, FInterID, FEntryID, FItemID, FDate, FAuxPropID,"
          " FUnitID, FStockQty, FAuxStockQty, FQty, FAuxQty, FAuxTaxPrice, FTaxPrice, FCess,"
          " FTaxRate, FPrice, FAuxPrice, FAmount, FPriceDiscount, FAuxPriceDiscount, FDescount,"
          " FAllAmount, FNote, FPurchasePlanBillNo, FPurchasePlanKey, FTaxAmount)"
          " values ('0', ?, ?, ?, ?, ?, ?, 0, 0, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
          "?)")) {}

void OrderLineWriter::Write(int32_t order_id, int32_t entry_id, const OrderLineValues& l,
                            std::optional<int> scale) {
  const double keep = 1 - l.discount_rate / 100, gross = 1 + l.tax_rate / 100;
  if (gross == 0) ThrowInvalid("a tax rate of -100 % divides by zero");
  // Amounts: to the currency's decimals where rounded, then as the column keeps them.
  auto money = [&](double v) { return RoundDecimal(scale ? RoundDecimal(v, *scale) : v, 4); };
  const double amount = money(l.price * l.qty * keep / gross);
  const double all_amount = money(l.price * keep * l.qty);
  insert_->Execute({order_id,
                    entry_id,
                    l.item_id,
                    l.date,
                    l.aux_prop_id,
                    l.unit_id,
                    l.qty,
                    l.aux_qty,
                    l.aux_price,
                    l.price,
                    l.tax_rate,
                    l.discount_rate,
                    RoundDecimal(l.price / gross),
                    RoundDecimal(l.aux_price / gross),
                    amount,
                    RoundDecimal(l.price * keep),
                    RoundDecimal(l.aux_price * keep),
                    money(l.price * l.discount_rate * l.qty / 100),
                    all_amount,
                    l.note,
                    l.plan_numbers,
                    l.plan_key,
                    RoundDecimal(all_amount - amount, 4)});
}

}  // namespace mrpcalc
