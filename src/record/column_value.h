// Values that reach typed columns as text. The ERP's forms hand over rows of
// variants and the bills store them in int, decimal(23,10) and datetime
// columns; these functions read a value the way the ERP's database reads the
// text of it, so that what mrpcalc stores and computes is what the bills
// always held: a double travels with 15 significant digits, a quoted empty
// text is 0 in an int column and 1900-01-01 in a date column, a decimal
// keeps ten places rounded half away from zero.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "record/date.h"
#include "record/variant.h"

namespace mrpcalc {

// The value as a bare number: its text must be a number (Empty, Null, ""
// and words are refused with an error naming `what`).
double NumberValue(const Variant& value, std::string_view what);
// A bare number stored in an int column: the fraction is cut off.
int32_t IntValue(const Variant& value, std::string_view what);
// A quoted text stored in an int column: blanks only read as 0; anything
// but a whole number is refused.
int32_t QuotedIntValue(const Variant& value, std::string_view what);
// A quoted text stored in a datetime column: "" reads as 1900-01-01, as
// does the zero date (whose text is a bare time of day).
Date QuotedDateValue(const Variant& value, std::string_view what);
// A quoted text: Null and Empty give "".
std::string TextValue(const Variant& value);

// The number rounded to `decimals` places, half away from zero, computed on
// its 15-digit decimal form: "140.40" for 140.39999999999998 and 2.
std::string RoundedText(double value, int decimals);
// The same as a number: decimal(p, scale) storage.
double RoundDecimal(double value, int scale = 10);

}  // namespace mrpcalc
