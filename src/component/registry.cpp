// Registry of the public classes.
#include "component/registry.h"

#include "mrp/mrp_data_info.h"
#include "mrpserver/mrp_data_server.h"
#include "purchaseplan/purchase_plan.h"

namespace mrpcalc {

const Registry& PublicClasses() {
  static const Registry registry = [] {
    Registry r;
    r.Add(MrpDataServerClass());
    r.Add(PurchasePlanUpdateClass());
    r.Add(PurchasePlanInfoClass());
    r.Add(MrpDataInfoClass());
    return r;
  }();
  return registry;
}

}  // namespace mrpcalc
