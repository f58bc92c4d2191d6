// The registry of the four public classes, as the host created them by ProgID.
#pragma once

#include "frame/component.h"

namespace mrpcalc {

const Registry& PublicClasses();

}  // namespace mrpcalc
