// Arithmetic of the MRP working tables: decimal(23,10) quantities, NULLs that
// propagate, SQL sums that skip them. Private to the calculation core.
#pragma once

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "mrp/model.h"
#include "record/error.h"
#include "record/variant.h"

namespace mrpcalc::mrp {

// Every stored quantity keeps ten decimals, as decimal(23,10) does.
inline double Dec(double v) {
  if (!(std::fabs(v) < 1e8)) return v;
  // std::round (half away from zero) without the library call: |x| < 1e18
  // fits a 64-bit integer, and the fraction x - trunc(x) is exact.
  const double x = v * 1e10;
  double r = std::copysign(static_cast<double>(static_cast<int64_t>(x)), x);  // keeps -0
  if (std::fabs(x - r) >= 0.5) r += x > 0 ? 1 : -1;
  return r / 1e10;
}
inline OptNum Dec(OptNum v) { return v ? OptNum(Dec(*v)) : std::nullopt; }

// Numbers handed from one statement to the next travel as text, 15
// significant digits: printed as "%.15g" prints them, then read back.
inline double AsTextByPrinting(double v) {
  char buf[40];
  const auto printed = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, 15);
  double back = 0;
  std::from_chars(buf, printed.ptr, back);
  return back;
}

// The same, faster: the explosion passes every made part's quantity this
// way, and fixed-precision printing is several times slower than the
// shortest form. From the shortest exact digits of v: at most 15 of them
// come back as v itself; 17, or 16 not ending in 5, round to 15 the way the
// exact value does (the shortest form lies within half a unit of v, and no
// decimal of at most 16 digits lies between them, so the cut falls on the
// same side); 16 ending in 5 may be the halfway point itself, left to the
// printing.
inline double AsTextComputed(double v) {
  // Most quantities are n / 10^k with n below 10^15 (whole numbers, a few
  // decimals): such a value is the double nearest a decimal of at most 15
  // digits, which 15-digit printing gives back, so it comes back unchanged.
  // n / 10^k is rounded once (both exact), so equality proves the form.
  static constexpr double kTens[] = {1, 10, 100, 1e3, 1e4, 1e5, 1e6};
  for (const double ten : kTens) {
    const double n = v * ten;
    if (!(std::fabs(n) < 1e15)) break;
    if (n == std::trunc(n) && n / ten == v) return v;
  }
  char buf[48];
  const char* end = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::scientific).ptr;
  const char* p = buf;
  const bool negative = *p == '-';
  if (negative) ++p;
  char digits[20];
  int n = 0;
  for (; p != end && *p != 'e'; ++p) {
    if (*p != '.') digits[n++] = *p;
  }
  if (n <= 15) return v;
  if (n == 16 && digits[15] == '5') return AsTextByPrinting(v);
  int exponent = 0;
  std::from_chars(p + 1 + (p[1] == '+'), end, exponent);
  if (digits[15] >= '5') {  // round the 15 digits up
    int k = 14;
    while (k >= 0 && digits[k] == '9') digits[k--] = '0';
    if (k >= 0) {
      ++digits[k];
    } else {
      digits[0] = '1';
      ++exponent;
    }
  }
  char text[40];
  char* out = text;
  if (negative) *out++ = '-';
  *out++ = digits[0];
  *out++ = '.';
  for (int k = 1; k < 15; ++k) *out++ = digits[k];
  *out++ = 'e';
  out = std::to_chars(out, text + sizeof text, exponent).ptr;
  double back = 0;
  std::from_chars(text, out, back);
  return back;
}

// AsText with the answers kept: a factory's quantities repeat (the same
// parts in the same quantities under many orders), and a kept answer costs
// a few instructions where working it out costs some hundreds. One table a
// thread, a slot per bit pattern's hash; a zeroed slot holds +0's answer.
inline double AsText(double v) {
  struct Slot {
    uint64_t bits;
    double text;
  };
  static thread_local Slot kept[4096];
  uint64_t bits;
  std::memcpy(&bits, &v, sizeof bits);
  Slot& slot = kept[(bits * 0x9E3779B97F4A7C15ull) >> 52];
  if (slot.bits != bits) slot = {bits, AsTextComputed(v)};
  return slot.text;
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
