// Reading values into typed columns.
#include "record/column_value.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "record/error.h"
#include "record/text.h"

namespace mrpcalc {
namespace {

std::string Shown(const Variant& value) {
  if (value.IsNull()) return "Null";
  if (value.IsEmpty()) return "Empty";
  return "\"" + value.ToText() + "\"";
}

[[noreturn]] void Refuse(const Variant& value, std::string_view what, std::string_view expected) {
  ThrowInvalid(std::string(what) + " is " + Shown(value) + ", not " + std::string(expected));
}

bool ParseNumber(std::string_view text, double& out) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  if (text.empty()) return false;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), out);
  return ec == std::errc() && end == text.data() + text.size() && std::isfinite(out);
}

int32_t ToInt32(double v, const Variant& value, std::string_view what) {
  const double t = std::trunc(v);
  if (t < std::numeric_limits<int32_t>::min() || t > std::numeric_limits<int32_t>::max()) {
    Refuse(value, what, "a 32-bit integer");
  }
  return static_cast<int32_t>(t);
}

}  // namespace

double NumberValue(const Variant& value, std::string_view what) {
  if (value.AsBoolean()) Refuse(value, what, "a number");
  if (value.IsNull() || value.IsEmpty()) Refuse(value, what, "a number");
  double out = 0;
  if (!ParseNumber(Trim(value.ToText()), out)) Refuse(value, what, "a number");
  return out;
}

int32_t IntValue(const Variant& value, std::string_view what) {
  return ToInt32(NumberValue(value, what), value, what);
}

int32_t QuotedIntValue(const Variant& value, std::string_view what) {
  if (value.IsNull() || value.IsEmpty()) return 0;
  if (const int32_t* l = value.AsLong()) return *l;
  const std::string text = Trim(value.ToText());
  if (text.empty()) return 0;
  int64_t v = 0;
  std::string_view digits = text;
  if (digits.front() == '+') digits.remove_prefix(1);
  const auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), v);
  if (ec != std::errc() || end != digits.data() + digits.size() ||
      v < std::numeric_limits<int32_t>::min() || v > std::numeric_limits<int32_t>::max()) {
    Refuse(value, what, "a whole number");
  }
  return static_cast<int32_t>(v);
}

Date QuotedDateValue(const Variant& value, std::string_view what) {
  const Date base = Date::FromParts(1900, 1, 1);
  Date d;
  if (value.IsNull() || value.IsEmpty()) return base;
  if (const Date* given = value.AsDate()) {
    d = *given;
  } else {
    const std::string text = Trim(value.ToText());
    if (text.empty()) return base;
    const auto parsed = Date::Parse(text);
    if (!parsed) Refuse(value, what, "a date");
    d = *parsed;
  }
  if (d.serial_seconds() >= 0 && d.serial_seconds() < 86400) {
    return Date::FromParts(1900, 1, 1, d.hour(), d.minute(), d.second());
  }
  return d;
}

std::string TextValue(const Variant& value) {
  if (value.IsNull() || value.IsEmpty()) return {};
  return value.ToText();
}

std::string RoundedText(double value, int decimals) {
  if (!std::isfinite(value)) ThrowInvalid("cannot round a number that is not finite");
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.14e", value);
  const bool negative = buf[0] == '-';
  const char* p = buf + (negative ? 1 : 0);
  std::string digits(1, p[0]);
  digits.append(p + 2, 14);
  const int exponent = std::atoi(std::strchr(p, 'e') + 1);
  const int int_len = exponent + 1;
  std::string whole, fraction;
  if (int_len <= 0) {
    whole = "0";
    fraction = std::string(static_cast<size_t>(-int_len), '0') + digits;
  } else if (int_len >= 15) {
    whole = digits + std::string(static_cast<size_t>(int_len - 15), '0');
  } else {
    whole = digits.substr(0, static_cast<size_t>(int_len));
    fraction = digits.substr(static_cast<size_t>(int_len));
  }
  const size_t places = static_cast<size_t>(decimals);
  const bool up = fraction.size() > places && fraction[places] >= '5';
  fraction.resize(places, '0');
  std::string all = whole + fraction;
  if (up) {
    size_t k = all.size();
    while (k > 0 && all[k - 1] == '9') all[--k] = '0';
    if (k == 0) {
      all.insert(all.begin(), '1');
    } else {
      ++all[k - 1];
    }
  }
  std::string int_part = all.substr(0, all.size() - places);
  const size_t first = int_part.find_first_not_of('0');
  int_part = first == std::string::npos ? "0" : int_part.substr(first);
  std::string out = int_part;
  if (places) out += "." + all.substr(all.size() - places);
  if (negative && out.find_first_not_of("0.") != std::string::npos) out.insert(out.begin(), '-');
  return out;
}

double RoundDecimal(double value, int scale) {
  const std::string text = RoundedText(value, scale);
  double out = 0;
  std::from_chars(text.data(), text.data() + text.size(), out);
  return out;
}

}  // namespace mrpcalc
