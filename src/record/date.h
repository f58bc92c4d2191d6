// Calendar date and time to the second, as the ERP stores it.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace mrpcalc {

// Seconds since the automation epoch 1899-12-30 00:00:00, so the default
// value is the "zero date" that the ERP's forms treat as no date.
class Date {
 public:
  constexpr Date() = default;
  static Date FromParts(int year, int month, int day, int hour = 0, int minute = 0,
                        int second = 0);
  // Accepts "YYYY-MM-DD", "YYYY-MM-DD HH:MM[:SS[.fff]]" and the same with "T" or "/"
  // separators; nullopt when the text is not a valid date.
  static std::optional<Date> Parse(std::string_view text);
  static Date Now();  // local wall-clock time

  int year() const;
  int month() const;
  int day() const;
  int hour() const;
  int minute() const;
  int second() const;

  int64_t serial_seconds() const { return seconds_; }
  Date StartOfDay() const;

  // "YYYY-MM-DD HH:MM:SS": the one text form used in SQL parameters and JSON.
  std::string ToString() const;
  std::string ToDateString() const;  // "YYYY-MM-DD"

  auto operator<=>(const Date&) const = default;

 private:
  explicit constexpr Date(int64_t seconds) : seconds_(seconds) {}
  int64_t seconds_ = 0;
};

}  // namespace mrpcalc
