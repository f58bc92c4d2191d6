// The supplier each report row suggests, when the form asks for one.
#include <map>

#include "mrp/report_steps.h"

namespace mrpcalc::mrp {

void FillSuppliers(const Input& in, const BomIndex& boms, int32_t user_id, ReportRows& rows) {
  std::set<int32_t> materials;
  for (const auto& r : rows) {
    if (r.bom_item_id) materials.insert(*r.bom_item_id);
  }
  struct Doc {
    OptInt supply_id;
    std::optional<Date> date;
  };
  std::map<int32_t, std::vector<Doc>> docs;
  for (const auto& h : in.history) {
    if (materials.count(h.item_id)) docs[h.item_id].push_back({h.supply_id, h.date});
  }
  const auto& rights = in.rights;
  for (auto& [item, list] : docs) {
    for (auto& d : list) {
      if (!rights.administrator && !rights.group_right) d.supply_id.reset();
      if (!rights.administrator && rights.supplier_data_rights && d.supply_id) {
        auto s = in.suppliers.find(*d.supply_id);
        const bool listed = s != in.suppliers.end() && s->second.right_user_ids &&
                            RightsTextNamesUser(*s->second.right_user_ids, user_id);
        if (!listed) d.supply_id.reset();
      }
      if (d.supply_id) {
        auto s = in.suppliers.find(*d.supply_id);
        if (s != in.suppliers.end() && Equal(s->second.deleted, 1)) d.supply_id.reset();
      }
    }
  }
  for (auto& r : rows) {
    if (!r.bom_item_id || *r.bom_item_id <= 0) continue;
    r.supply_number = std::string();
    auto it = docs.find(*r.bom_item_id);
    if (it == docs.end()) continue;
    std::optional<Date> latest;
    for (const auto& d : it->second) {
      if (d.date && (!latest || *d.date > *latest)) latest = d.date;
    }
    // Several documents on the latest date: the first one found, in the
    // order orders, receipts, invoices.
    for (const auto& d : it->second) {
      if (!latest || !d.date || *d.date != *latest) continue;
      if (d.supply_id) {
        auto s = in.suppliers.find(*d.supply_id);
        if (s != in.suppliers.end() && s->second.number) r.supply_number = *s->second.number;
      }
      break;
    }
  }
  for (auto& r : rows) {
    if (!r.bom_item_id || *r.bom_item_id <= 0) continue;
    if (r.supply_number && !r.supply_number->empty()) continue;
    const Item* item = boms.FindItem(*r.bom_item_id);
    if (!item || !item->source) continue;
    auto s = in.suppliers.find(*item->source);
    if (s != in.suppliers.end() && s->second.number) r.supply_number = s->second.number;
  }
  // Name by code, letter case aside; should two suppliers share a code,
  // the lower id answers.
  std::map<std::string, std::pair<int32_t, OptText>> names;
  for (const auto& [id, s] : in.suppliers) {
    if (!s.number) continue;
    auto [it, inserted] = names.try_emplace(FoldKey(*s.number), id, s.name);
    if (!inserted && id < it->second.first) it->second = {id, s.name};
  }
  for (auto& r : rows) {
    if (!r.supply_number) continue;
    auto it = names.find(FoldKey(*r.supply_number));
    if (it != names.end()) r.supply_name = it->second.second;
  }
}


}  // namespace mrpcalc::mrp
