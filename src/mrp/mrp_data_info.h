// ZUVMMrpCalculate.MrpDataInfo: the MRP calculation report and BOM expansion.
#pragma once

#include "frame/component.h"

namespace mrpcalc {

inline constexpr const char* kMrpDataInfoProgId = "ZUVMMrpCalculate.MrpDataInfo";

class MrpDataInfo : public ComponentObject {
 public:
  using ComponentObject::ComponentObject;
};

ClassSpec MrpDataInfoClass();

}  // namespace mrpcalc
