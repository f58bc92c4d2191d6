// Base data on the ERP database.
#include "services/base_data_repository.h"

#include "record/column_value.h"
#include "record/erp_codes.h"

namespace mrpcalc::repo {
namespace {

using Row = std::vector<Variant>;

}  // namespace

std::map<int32_t, int32_t> OrderUnits(db::Connection& c, const std::vector<int32_t>& items) {
  std::map<int32_t, int32_t> out;
  db::QueryIn(c, items, "select FItemID, FOrderUnitID from t_ICItem where FItemID in (%IDS%)",
              [&](Row& r) { out.emplace(r[0].ToLong(), r[1].IsNull() ? 0 : r[1].ToLong()); });
  return out;
}

bool HasAuxClass(db::Connection& c, int32_t item) {
  return !c.Query("select FAuxClassID from t_ICItem where FAuxClassID > 0 and FItemID = ?", {item})
              ->Eof();
}

std::map<int32_t, double> NonZeroCoefficients(db::Connection& c,
                                              const std::vector<int32_t>& units) {
  std::map<int32_t, double> out;
  db::QueryIn(c, units,
              "select FItemID, FCoefficient from t_MeasureUnit where FItemID in (%IDS%)"
              " and FCoefficient <> 0 order by FMeasureUnitID",
              [&](Row& r) { out.emplace(r[0].ToLong(), r[1].ToDouble()); });
  return out;
}

Variant ItemOrderPrice(db::Connection& c, int32_t item) {
  return c.QueryValue("select FOrderPrice from t_ICItem where FItemID = ?", {item});
}

double BillsInUse(db::Connection& c, const std::vector<int32_t>& items) {
  double bills = 0;
  db::QueryIn(c, items, "select count(*) from ICBOM where FUseStatus = ? and FItemID in (%IDS%)",
              [&](Row& r) { bills += r[0].ToDouble(); }, {kBomInUse});
  return bills;
}

bool HasBillInUse(db::Connection& c, int32_t item) {
  return !c.Query("select 1 from ICBOM where FUseStatus = ? and FItemID = ?", {kBomInUse, item})
              ->Eof();
}

std::optional<SupplierByCode> LiveSupplier(db::Connection& c, const std::string& code) {
  auto rs = c.Query("select FItemID, FName, FValueAddRate from t_Supplier where " +
                        c.dialect().TextIs("FNumber") + " and FDeleted = 0 order by FItemID",
                    {FoldKey(code)});
  if (rs->Eof()) return std::nullopt;
  return SupplierByCode{rs->Field("FItemID").ToLong(), TextValue(rs->Field("FName")),
                        rs->Field("FValueAddRate")};
}

std::vector<std::string> SupplierRightsTexts(db::Connection& c, const std::string& code) {
  std::vector<std::string> out;
  c.QueryRows("select FRightUserID from t_Supplier where " + c.dialect().TextIs("FNumber"),
              {FoldKey(code)}, [&](Row& r) { out.push_back(TextValue(r[0])); });
  return out;
}

std::map<int32_t, SupplierCredit> SupplierCredits(db::Connection& c,
                                                  const std::vector<int32_t>& suppliers) {
  std::map<int32_t, SupplierCredit> out;
  db::QueryIn(c, suppliers,
              "select FItemID, FCreditDegree, FNumber, FName from t_Supplier"
              " where FItemID in (%IDS%) order by FItemID",
              [&](Row& r) {
                out.emplace(r[0].ToLong(),
                            SupplierCredit{std::move(r[1]), TextValue(r[2]), TextValue(r[3])});
              });
  return out;
}

std::map<int32_t, std::pair<int32_t, int32_t>> SupplierStaff(
    db::Connection& c, const std::vector<int32_t>& suppliers) {
  std::map<int32_t, std::pair<int32_t, int32_t>> out;
  db::QueryIn(c, suppliers,
              "select FItemID, FEmployee, FDepartment from t_Supplier where FItemID in (%IDS%)",
              [&](Row& r) {
                out.try_emplace(r[0].ToLong(), static_cast<int32_t>(r[1].ToValue()),
                                static_cast<int32_t>(r[2].ToValue()));
              });
  return out;
}

bool AuxPropertyMustBeInput(db::Connection& c) {
  const db::Dialect& d = c.dialect();
  return !c.Query("select FMustInput from ICTemplateEntry where " + d.CaseFolded("FID") +
                  " = 'p02' and " + d.CaseFolded("FFieldName") +
                  " = 'fauxpropid' and FMustInput = 1")
              ->Eof();
}

std::optional<int32_t> PurchaseStyleNamed(db::Connection& c, const std::string& name) {
  const Variant found = c.QueryValue(
      "select FInterID from t_SubMessage where FTypeID = ? and " + c.dialect().TextIs("FID"),
      {kPurchaseStyleType, FoldKey(name)});
  if (found.IsEmpty() || found.IsNull()) return std::nullopt;
  return found.ToLong();
}

std::vector<Row> BandsHolding(db::Connection& c, int32_t item, double qty) {
  std::vector<Row> out;
  c.QueryRows(
      "select FSupID, FPrice, FStartQty, FEndQty from t_SupplyEntry where FItemID = ?"
      " and ? between FStartQty and FEndQty",
      {item, qty}, [&](Row& r) { out.push_back(std::move(r)); });
  return out;
}

Variant FirstInvoicePrice(db::Connection& c, int32_t item, int32_t supplier) {
  return c.QueryValue(
      c.dialect().SelectTop(1, "u1.FTaxPrice",
                            "from ICPurchase v1 inner join ICPurchaseEntry u1"
                            " on v1.FInterID = u1.FInterID where u1.FItemID = ?"
                            " and v1.FSupplyID = ? order by u1.FInterID, u1.FEntryID"),
      {item, supplier});
}

}  // namespace mrpcalc::repo
