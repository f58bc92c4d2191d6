// Demand selection rules.
#include "mrpserver/selection_rules.h"

#include "record/column_value.h"

namespace mrpcalc {

void NetAgainstStock(Vector& lines, repo::OnHandStock on_hand) {
  for (const auto& r : lines.rows()) {
    const Variant& item = r->Get("FItemID");
    const Variant& prop = r->Get("FAuxPropID");
    if (item.IsNull() || item.IsEmpty() || prop.IsNull() || prop.IsEmpty()) continue;
    auto it = on_hand.find({item.ToLong(), prop.ToLong()});
    if (it == on_hand.end() || it->second == 0) continue;
    const double qty = NumberValue(r->Get("FQty"), "FQty of a selected line");
    if (it->second >= qty) {
      it->second -= qty;
      r->Set("FQty", 0.0);
    } else {
      r->Set("FQty", qty - it->second);
      it->second = 0;
    }
  }
}

}  // namespace mrpcalc
