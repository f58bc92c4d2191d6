// System profile lookups.
#include "services/profile.h"

namespace mrpcalc {

std::string GetSystemProfile(db::Connection& connection, const std::string& category,
                             const std::string& key, const std::string& fallback) {
  const Variant v = connection.QueryValue(
      "select FValue from t_SystemProfile where FCategory = ? and FKey = ?", {category, key});
  return (v.IsEmpty() || v.IsNull()) ? fallback : v.ToText();
}

int BaseCurrencyScale(db::Connection& connection) {
  // The profile holds the currency id as text; it is read as a number the way
  // the ERP reads it (leading digits), so "1" and " 1" both name currency 1.
  const Variant currency = connection.QueryValue(
      "select FValue from t_SystemProfile where FCategory = 'GL' and FKey = 'FBWB'");
  if (currency.IsEmpty() || currency.IsNull()) return kDefaultAmountScale;
  const Variant scale = connection.QueryValue(
      "select FScale from t_Currency where FCurrencyID = ?",
      {static_cast<int32_t>(currency.ToValue())});
  if (scale.IsEmpty() || scale.IsNull()) return kDefaultAmountScale;
  return scale.ToLong();
}

}  // namespace mrpcalc
