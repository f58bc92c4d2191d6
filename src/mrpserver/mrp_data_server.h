// ZUVMMrpCalculate.MrpDataServer: source selection, lookups, purchase-order
// generation, stock scope, virtual stock and validation for the MRP forms.
#pragma once

#include "frame/component.h"

namespace mrpcalc {

inline constexpr const char* kMrpDataServerProgId = "ZUVMMrpCalculate.MrpDataServer";

class MrpDataServer : public ComponentObject {
 public:
  using ComponentObject::ComponentObject;

  // The server's date and time.
  Date GetSysDate() const { return Date::Now(); }
  // The date a new bill takes: today, at midnight. The argument is kept for
  // the forms that pass it; both answers come from this machine's clock.
  Date GetNewBillDate(bool get_system_date) const { return Date::Now().StartOfDay(); }
};

ClassSpec MrpDataServerClass();

}  // namespace mrpcalc
