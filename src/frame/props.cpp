// Login property string.
#include "frame/props.h"

#include "record/error.h"
#include "record/text.h"
#include "record/variant.h"

namespace mrpcalc {

std::string GetConnectionProperty(LoginProperties& login, const std::string& name) {
  try {
    return login.GetProperty(name).value_or("");
  } catch (Error& e) {
    e.AddContext("ZUVShopRpt.MMTS.GetConnectionProperty\r\n");
    throw;
  }
}

std::string PropsString(LoginProperties& login) {
  return GetConnectionProperty(login, "PropsString");
}

std::string GetPropValue(const std::string& props, const std::string& name) {
  std::string rest = props;
  const std::string wanted = FoldKey(name);
  std::string value;
  while (true) {
    const std::string key = ParseName(rest);
    value = ParseValue(rest);
    if (key.empty() || FoldKey(key) == wanted) break;
  }
  return value;
}

}  // namespace mrpcalc
