// Base data both order writers and the MRP forms read: the SQL of
// t_ICItem, t_Supplier, ICBOM, t_MeasureUnit, t_SubMessage and the bill
// template's must-input fields.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "db/connection.h"

namespace mrpcalc::repo {

// --- Items ------------------------------------------------------------------

// The order unit (FOrderUnitID, 0 when NULL) of each listed item found.
std::map<int32_t, int32_t> OrderUnits(db::Connection& connection,
                                      const std::vector<int32_t>& items);
// Whether the item has an auxiliary property class.
bool HasAuxClass(db::Connection& connection, int32_t item);
// The first non-zero coefficient of each listed unit (t_MeasureUnit.FItemID).
std::map<int32_t, double> NonZeroCoefficients(db::Connection& connection,
                                              const std::vector<int32_t>& units);
// FOrderPrice of the item; Empty when there is no item.
Variant ItemOrderPrice(db::Connection& connection, int32_t item);

// --- Bills of material ------------------------------------------------------

// The number of bills in use of the listed items (an item with two counts twice).
double BillsInUse(db::Connection& connection, const std::vector<int32_t>& items);
bool HasBillInUse(db::Connection& connection, int32_t item);

// --- Suppliers --------------------------------------------------------------

// The first live (not deleted) supplier with the code, letter case aside.
struct SupplierByCode {
  int32_t id = 0;
  std::string name;
  Variant value_add_rate;
};
std::optional<SupplierByCode> LiveSupplier(db::Connection& connection, const std::string& code);
// The rights texts (FRightUserID) of every supplier with the code, deleted or not.
std::vector<std::string> SupplierRightsTexts(db::Connection& connection, const std::string& code);

struct SupplierCredit {
  Variant credit;  // FCreditDegree
  std::string number, name;
};
std::map<int32_t, SupplierCredit> SupplierCredits(db::Connection& connection,
                                                  const std::vector<int32_t>& suppliers);
// The purchasing employee and department of each listed supplier.
std::map<int32_t, std::pair<int32_t, int32_t>> SupplierStaff(db::Connection& connection,
                                                             const std::vector<int32_t>& suppliers);

// --- Forms ------------------------------------------------------------------

// Whether the purchase order template makes the auxiliary property a
// must-input field.
bool AuxPropertyMustBeInput(db::Connection& connection);
// The purchase style of new orders named in the ERP's settings (FID of
// t_SubMessage, letter case aside); nullopt when none has that name.
std::optional<int32_t> PurchaseStyleNamed(db::Connection& connection, const std::string& name);

// --- Prices -----------------------------------------------------------------

// The price-list bands (FSupID, FPrice, FStartQty, FEndQty) of the item
// that hold the quantity, as the table gives them.
std::vector<std::vector<Variant>> BandsHolding(db::Connection& connection, int32_t item,
                                               double qty);
// The tax-included price of the first invoice line (by interior id and
// line) of the item from the supplier; Empty when there is none.
Variant FirstInvoicePrice(db::Connection& connection, int32_t item, int32_t supplier);

}  // namespace mrpcalc::repo
