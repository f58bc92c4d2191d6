// Date arithmetic on a day count (proleptic Gregorian calendar).
#include "record/date.h"

#include <chrono>
#include <cstdio>
#include <ctime>

namespace mrpcalc {
namespace {

constexpr int64_t kSecondsPerDay = 86400;

// Days from 1970-01-01 to y-m-d (H. Hinnant's algorithm).
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

struct Civil {
  int year;
  int month;
  int day;
};

Civil CivilFromDays(int64_t z) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t y = static_cast<int64_t>(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  const unsigned d = doy - (153 * mp + 2) / 5 + 1;
  const unsigned m = mp < 10 ? mp + 3 : mp - 9;
  return {static_cast<int>(y + (m <= 2)), static_cast<int>(m), static_cast<int>(d)};
}

const int64_t kEpochOffsetDays = DaysFromCivil(1899, 12, 30);

int64_t FloorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

bool ValidDay(int y, int m, int d) {
  if (m < 1 || m > 12 || d < 1) return false;
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  int limit = kDays[m - 1];
  if (m == 2 && ((y % 4 == 0 && y % 100 != 0) || y % 400 == 0)) limit = 29;
  return d <= limit;
}

}  // namespace

Date Date::FromParts(int year, int month, int day, int hour, int minute, int second) {
  const int64_t days =
      DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) -
      kEpochOffsetDays;
  return Date(days * kSecondsPerDay + hour * 3600 + minute * 60 + second);
}

std::optional<Date> Date::Parse(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0;
  size_t pos = 0;
  auto number = [&](int digits_min, int digits_max, int& out) {
    int n = 0;
    int value = 0;
    while (pos < text.size() && n < digits_max && text[pos] >= '0' && text[pos] <= '9') {
      value = value * 10 + (text[pos] - '0');
      ++pos;
      ++n;
    }
    out = value;
    return n >= digits_min;
  };
  auto sep = [&](std::string_view allowed) {
    if (pos < text.size() && allowed.find(text[pos]) != std::string_view::npos) {
      ++pos;
      return true;
    }
    return false;
  };
  if (!number(4, 4, y) || !sep("-/") || !number(1, 2, mo) || !sep("-/") || !number(1, 2, d)) {
    return std::nullopt;
  }
  if (pos < text.size()) {
    if (!sep(" T") || !number(1, 2, h) || !sep(":") || !number(1, 2, mi)) return std::nullopt;
    if (sep(":") && !number(1, 2, s)) return std::nullopt;
    if (sep(".")) {
      int frac = 0;
      if (!number(1, 9, frac)) return std::nullopt;
    }
    if (pos != text.size()) return std::nullopt;
  }
  if (!ValidDay(y, mo, d) || h > 23 || mi > 59 || s > 59) return std::nullopt;
  return FromParts(y, mo, d, h, mi, s);
}

Date Date::Now() {
  const std::time_t t = std::time(nullptr);
  std::tm local{};
  localtime_r(&t, &local);
  return FromParts(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                   local.tm_min, local.tm_sec);
}

int Date::year() const {
  return CivilFromDays(FloorDiv(seconds_, kSecondsPerDay) + kEpochOffsetDays).year;
}
int Date::month() const {
  return CivilFromDays(FloorDiv(seconds_, kSecondsPerDay) + kEpochOffsetDays).month;
}
int Date::day() const {
  return CivilFromDays(FloorDiv(seconds_, kSecondsPerDay) + kEpochOffsetDays).day;
}
int Date::hour() const {
  return static_cast<int>((seconds_ - FloorDiv(seconds_, kSecondsPerDay) * kSecondsPerDay) / 3600);
}
int Date::minute() const {
  return static_cast<int>((seconds_ - FloorDiv(seconds_, kSecondsPerDay) * kSecondsPerDay) % 3600 /
                          60);
}
int Date::second() const {
  return static_cast<int>((seconds_ - FloorDiv(seconds_, kSecondsPerDay) * kSecondsPerDay) % 60);
}

Date Date::StartOfDay() const { return Date(FloorDiv(seconds_, kSecondsPerDay) * kSecondsPerDay); }

std::string Date::ToString() const {
  const Civil c = CivilFromDays(FloorDiv(seconds_, kSecondsPerDay) + kEpochOffsetDays);
  if (c.year < 0 || c.year > 9999) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", c.year, c.month, c.day, hour(),
                  minute(), second());
    return buf;
  }
  // Reports print a date per row: digits by hand, not through printf.
  std::string out = "0000-00-00 00:00:00";
  auto two = [&out](size_t at, int v) {
    out[at] = static_cast<char>('0' + v / 10);
    out[at + 1] = static_cast<char>('0' + v % 10);
  };
  two(0, c.year / 100);
  two(2, c.year % 100);
  two(5, c.month);
  two(8, c.day);
  two(11, hour());
  two(14, minute());
  two(17, second());
  return out;
}

std::string Date::ToDateString() const { return ToString().substr(0, 10); }

}  // namespace mrpcalc
