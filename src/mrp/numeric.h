// Arithmetic of the MRP working tables: decimal(23,10) quantities, NULLs that
// propagate, SQL sums that skip them. Private to the calculation core.
#pragma once

#include <charconv>
#include <cmath>
#include <string>

#include "record/error.h"
#include "record/variant.h"
#include "mrp/model.h"

namespace mrpcalc::mrp {

// Every stored quantity keeps ten decimals, as decimal(23,10) does.
inline double Dec(double v) { return std::fabs(v) >= 1e8 ? v : std::round(v * 1e10) / 1e10; }
inline OptNum Dec(OptNum v) { return v ? OptNum(Dec(*v)) : std::nullopt; }

// Numbers handed from one statement to the next travel as text, 15
// significant digits.
inline double AsText(double v) {
  char buf[40];
  const auto printed = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, 15);
  double back = 0;
  std::from_chars(buf, printed.ptr, back);
  return back;
}

inline OptNum Mul(OptNum a, OptNum b) { return (a && b) ? OptNum(*a * *b) : std::nullopt; }
inline OptNum Add(OptNum a, OptNum b) { return (a && b) ? OptNum(*a + *b) : std::nullopt; }
inline OptNum Sub(OptNum a, OptNum b) { return (a && b) ? OptNum(*a - *b) : std::nullopt; }
inline bool Equal(const OptInt& a, const OptInt& b) { return a && b && *a == *b; }

// SUM over a group: NULLs are skipped; a group of NULLs sums to NULL.
inline void SumInto(OptNum& total, const OptNum& v) {
  if (!v) return;
  total = total ? OptNum(*total + *v) : v;
}

[[noreturn]] inline void DivideByZero(const std::string& where) {
  throw Error(ErrorCategory::kInvalidInput, "division by zero: " + where);
}

}  // namespace mrpcalc::mrp
