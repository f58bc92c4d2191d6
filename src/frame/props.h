// Reading the login property string.
#pragma once

#include <string>

#include "frame/host.h"

namespace mrpcalc {

// The property "PropsString" of the login, or "" when there is none.
std::string PropsString(LoginProperties& login);

// Asks the property service for one property. Errors are raised again with
// the same number and description and the source
// "ZUVShopRpt.MMTS.GetConnectionProperty\r\n" + the source they carried.
std::string GetConnectionProperty(LoginProperties& login, const std::string& name);

// One property of a property string: names are cut up to "=" and compared
// ignoring case; values may be braced to hold ";". The first match wins; an
// unknown name or an empty string gives "".
std::string GetPropValue(const std::string& props, const std::string& name);

}  // namespace mrpcalc
