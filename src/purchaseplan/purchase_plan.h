// ZUVMMrpCalculate.PurchasePlanUpdate (plan maintenance) and
// ZUVMMrpCalculate.PurchasePlanInfo (plan queries).
#pragma once

#include "frame/component.h"

namespace mrpcalc {

inline constexpr const char* kPurchasePlanUpdateProgId = "ZUVMMrpCalculate.PurchasePlanUpdate";
inline constexpr const char* kPurchasePlanInfoProgId = "ZUVMMrpCalculate.PurchasePlanInfo";

class PurchasePlanUpdate : public ComponentObject {
 public:
  using ComponentObject::ComponentObject;
};

class PurchasePlanInfo : public ComponentObject {
 public:
  using ComponentObject::ComponentObject;
};

ClassSpec PurchasePlanUpdateClass();
ClassSpec PurchasePlanInfoClass();

}  // namespace mrpcalc
