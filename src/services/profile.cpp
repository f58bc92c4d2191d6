// System profile lookups.
#include "services/profile.h"

#include "record/column_value.h"

namespace mrpcalc {

Variant SystemProfileValue(db::Connection& connection, const std::string& category,
                           const std::string& key) {
  const db::Dialect& d = connection.dialect();
  return connection.QueryValue("select FValue from t_SystemProfile where " +
                                   d.TextIs("FCategory") + " and " + d.TextIs("FKey"),
                               {FoldKey(category), FoldKey(key)});
}

std::string GetSystemProfile(db::Connection& connection, const std::string& category,
                             const std::string& key, const std::string& fallback) {
  const Variant v = SystemProfileValue(connection, category, key);
  return (v.IsEmpty() || v.IsNull()) ? fallback : v.ToText();
}

namespace {

// The base currency's id (profile key FBWB), in the category GL or, as the
// order writers read it, in any category.
std::string BaseCurrencyQuery(db::Connection& connection, bool in_category) {
  const db::Dialect& d = connection.dialect();
  return "select FValue from t_SystemProfile where " +
         (in_category ? d.CaseFolded("FCategory") + " = 'gl' and " : std::string()) +
         d.CaseFolded("FKey") + " = 'fbwb'";
}

}  // namespace

int32_t OrderCurrencyId(db::Connection& connection) {
  const Variant base = connection.QueryValue(BaseCurrencyQuery(connection, false));
  return base.IsEmpty() ? 1 : static_cast<int32_t>(Variant(TextValue(base)).ToValue());
}

int BaseCurrencyScale(db::Connection& connection) {
  // The profile holds the currency id as text; it is read as a number the way
  // the ERP reads it (leading digits), so "1" and " 1" both name currency 1.
  const Variant currency = connection.QueryValue(BaseCurrencyQuery(connection, true));
  if (currency.IsEmpty() || currency.IsNull()) return kDefaultAmountScale;
  const Variant scale = connection.QueryValue(
      "select FScale from t_Currency where FCurrencyID = ?",
      {static_cast<int32_t>(currency.ToValue())});
  if (scale.IsEmpty() || scale.IsNull()) return kDefaultAmountScale;
  return scale.ToLong();
}

}  // namespace mrpcalc
