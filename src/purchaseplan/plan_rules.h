// Rules of purchase plans that need no database: numbering and the
// write-back of order quantities into plan lines.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace mrpcalc::plan {

// The last three digits of 1001 plus the day's largest serial: the last
// three characters of the numbers that start with `prefix`, compared as
// text, letter case aside. After 999 every further plan of the day gets
// "000". A serial that is not a number is refused.
std::string DailySerial(const std::vector<std::string>& numbers, const std::string& prefix);

}  // namespace mrpcalc::plan
