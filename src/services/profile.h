// System profile (t_SystemProfile) and the base currency's amount scale.
#pragma once

#include <cstdint>
#include <string>

#include "db/connection.h"

namespace mrpcalc {

// FValue of (category, key), letter case aside: Empty when there is no
// row, Null when the value is NULL.
Variant SystemProfileValue(db::Connection& connection, const std::string& category,
                           const std::string& key);

// FValue of (category, key) as text; fallback when there is no row or the
// value is NULL.
std::string GetSystemProfile(db::Connection& connection, const std::string& category,
                             const std::string& key, const std::string& fallback);

inline constexpr int kDefaultAmountScale = 2;

// The currency of new purchase orders: the base currency's id (profile key
// FBWB in any category, its text read as a number), 1 without a profile row.
int32_t OrderCurrencyId(db::Connection& connection);

// Decimals of the base currency (system profile GL/FBWB); 2 when the
// profile or the currency row is missing.
int BaseCurrencyScale(db::Connection& connection);

}  // namespace mrpcalc
