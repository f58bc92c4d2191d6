// Purchase lines priced from MRP suggestions: the working rows that the
// confirmation of an MRP result and the saving of a purchase plan fill,
// and the price sources, units and tax rates they draw on. Each caller
// applies the steps in its own order; the facts are loaded once, set-based,
// for all lines.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "db/connection.h"
#include "frame/host.h"
#include "record/erp_codes.h"
#include "record/variant.h"

namespace mrpcalc {

using OptNum = std::optional<double>;
using OptInt = std::optional<int32_t>;

struct PricedLine {
  int32_t item_id = 0;
  std::string number, name, model;
  int32_t aux_prop_id = 0;
  std::string aux_prop_name;
  OptInt supply_id;
  std::string supply_number, supply_name;
  OptInt aux_unit_id;
  int32_t unit_id = 0;
  std::string unit_name;
  OptNum coefficient = 1.0, aux_qty = 0.0;
  double qty = 0;
  OptNum aux_price = 0.0, price = 0.0;
  double discount_rate = 0;
  OptNum tax_rate = 0.0;
  OptInt qty_decimal = 0, price_decimal = 0;
  std::string note;
  Date date;

  // The working row: FItemID ... FNote, Fdate.
  DictionaryPtr ToRow() const;
};

// How the working table takes a line's "FAuxPropID" and "FUnitID": as
// quoted texts (blanks read as 0) when an MRP result is confirmed, as bare
// numbers (a blank is refused) when a plan is saved.
enum class LineIds { kQuoted, kBare };

// Reads MRP result rows ("FBomItemID", "FItemNumber", "FItemName",
// "FItemModel", "FAuxPropID", "FAuxProp", "FSupplyNumber", "FSupplyName",
// "FUnitID", "FUnitName", "FQty", "FMemo", "FDate"). A row's "FMemo" has
// its apostrophes replaced by "｀", in the row too. A value the working
// table could not take throws invalid input naming the row and the key.
std::vector<PricedLine> ReadPricedLines(const VectorPtr& rows, LineIds ids);

// A price-list band (t_SupplyEntry) of an item.
struct PriceBand {
  int32_t supplier = 0;
  OptNum price, start, end;
  bool Holds(double qty) const { return start && end && qty >= *start && qty <= *end; }
};
// Where several bands hold a quantity the ERP leaves the choice to the
// database; ours is made from the price list's own columns: the lowest
// supplier id, then the band that starts and ends first, then the lower
// price (a missing value first).
void SortBands(std::vector<PriceBand>& bands);

// Where the last purchase price of an item from a supplier is read.
enum class LastPriceSource {
  kInvoice,             // ICPurchase, tax-included price as it stands
  kOrder,               // POOrder, tax-included price as it stands
  kStockBillConverted,  // ICStockBill, price without tax, in the line's unit
  kInvoiceConverted,    // ICPurchase, tax-included unit price, in the line's unit
};

class PricingFacts {
 public:
  static PricingFacts Load(db::Connection& connection, const std::vector<PricedLine>& lines);

  // Purchase unit (the item's order unit) and supplier id (by code).
  void ResolveUnitAndSupplier(PricedLine& line) const;
  // The first price-list band of any supplier holding the quantity.
  void PriceFromAnyBand(PricedLine& line) const;
  // The same, of the line's own supplier only.
  void PriceFromOwnBand(PricedLine& line) const;
  // The item's order price where the line has no price yet.
  void OrderPriceFallback(PricedLine& line) const;
  // Price and quantity in the purchase unit, where the unit is known.
  void ConvertToPurchaseUnit(PricedLine& line) const;
  // The supplier's tax rate, else the item's.
  void TaxRate(PricedLine& line) const;
  void Decimals(PricedLine& line) const;

  // The price of the newest document of the item from the line's supplier
  // (by date, interior id, line); nullopt when there is none. Loaded on
  // first use of the source.
  OptNum LastPrice(db::Connection& connection, LastPriceSource source, const PricedLine& line);

 private:
  struct Item {
    OptInt order_unit;
    OptNum order_price, tax_rate;
    OptInt qty_decimal, price_decimal;
  };
  struct Document {
    OptNum price;
    OptNum unit_coefficient;  // of the document line's unit
    std::optional<Date> date;
    int32_t inter_id, entry_id;
    bool Newer(const Document& other) const;
  };

  std::vector<int32_t> item_ids_;
  std::map<int32_t, Item> items_;
  std::map<std::string, int32_t> supplier_by_code_;  // by the code folded by FoldKey
  std::map<int32_t, OptNum> supplier_tax_;
  std::map<int32_t, std::vector<PriceBand>> bands_;           // by item, (supplier, line) order
  std::map<int32_t, OptNum> purchase_unit_coefficient_;  // by t_MeasureUnit.FItemID
  std::map<int32_t, OptNum> unit_coefficient_;           // by FMeasureUnitID
  std::map<LastPriceSource, std::map<std::pair<int32_t, int32_t>, Document>> last_;
};

// A purchase-order line as the two order writers (MRP confirmation and plan
// push) fill it: quantities in base and purchase units, tax-included
// prices, discount and tax rates in percent.
struct OrderLineValues {
  int32_t item_id = 0, aux_prop_id = 0, unit_id = 0;  // unit_id: the purchase unit
  Date date;
  double qty = 0, aux_qty = 0, price = 0, aux_price = 0, discount_rate = 0, tax_rate = 0;
  std::string note, plan_numbers, plan_key;
};

// The header of a new purchase order, one per supplier.
struct OrderHeader {
  int32_t supplier = 0;
  Date date;  // FDate and FSettleDate; the zero date when none was given
  int32_t currency = 1, biller = 0, style = kPurchaseStyle;
  int32_t employee = 0, department = 0;
  // The generation from MRP results writes settlement method 0; a push
  // leaves FSettleID to the table.
  bool settle_zero = true;
};

// Makes purchase orders: for each header a bill number of type 71, then an
// interior id of POOrder (the host's numbering, inside the caller's unit of
// work), the header with the ERP's defaults (branch 0, exchange rate 1,
// not cancelled, area 20302), and its lines.
class PurchaseOrderWriter {
 public:
  PurchaseOrderWriter(db::Connection& connection, Numbering& numbering);
  // Returns the new order's interior id.
  int32_t Header(const OrderHeader& header);
  // The orders made so far, in the order they were made.
  const std::vector<int32_t>& made() const { return made_; }

 private:
  db::Connection& connection_;
  Numbering& numbering_;
  std::unique_ptr<db::Statement> insert_[2];  // without and with FSettleID
  std::vector<int32_t> made_;
};

// Writes order lines: prices net of tax, the discounted amounts with and
// without tax and the discount, each amount first rounded to `scale`
// decimals where the writer rounds it (nullopt: only as the column keeps
// it), and the tax amount as their difference. FCess holds the tax rate
// and FTaxRate the discount rate, in the order table's naming.
class OrderLineWriter {
 public:
  explicit OrderLineWriter(db::Connection& connection);
  void Write(int32_t order_id, int32_t entry_id, const OrderLineValues& line,
             std::optional<int> scale);

 private:
  std::unique_ptr<db::Statement> insert_;
};

}  // namespace mrpcalc
