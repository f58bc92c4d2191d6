// Stock scope rules.
#include "mrpserver/stock_scope_rules.h"

#include <algorithm>
#include <map>

#include "record/text.h"

namespace mrpcalc::scope {

std::string DropLastComma(std::string text) {
  if (!text.empty() && text.back() == ',') text.pop_back();
  return text;
}

Scope WholeScope(const std::vector<repo::Warehouse>& all, const UserRights& rights, int32_t user) {
  Scope s;
  for (const auto& w : all) {
    if (w.is_virtual) continue;
    if (rights.Filtered() && !RightsTextNamesUser(w.right_users, user)) continue;
    if (w.level == 1) s.str += w.Entry() + ",";
    if (w.detail == 1) s.key += std::to_string(w.id) + ",";
    s.info += std::to_string(w.id) + ",";
  }
  return {DropLastComma(s.str), DropLastComma(s.key), DropLastComma(s.info)};
}

// Keeps the elements of a comma list that equal an element of `allowed`,
// each followed by ",".
std::string KeepAllowed(const std::string& list, const std::string& allowed) {
  std::vector<std::string> ok;
  std::string rest = allowed;
  while (!rest.empty()) ok.push_back(SplitFirst(rest, ","));
  std::string out;
  rest = list;
  while (!rest.empty()) {
    const std::string element = SplitFirst(rest, ",");
    if (!element.empty() && std::find(ok.begin(), ok.end(), element) != ok.end())
      out += element + ",";
  }
  return out;
}

// The display text of a scope: a group whose real warehouses are all
// chosen stands for them; an entry already in the text is not repeated.
std::string ScopeText(const std::vector<repo::Warehouse>& all, const std::vector<int32_t>& chosen) {
  std::map<int32_t, const repo::Warehouse*> by_id;
  std::map<int32_t, int> under;  // real warehouses per t_Stock parent
  for (const auto& w : all) {
    by_id[w.id] = &w;
    if (!w.is_virtual && w.stock_parent > 0) ++under[w.stock_parent];
  }
  std::vector<const repo::Warehouse*> picked;
  std::map<int32_t, int> picked_under;
  for (const auto& w : all) {
    if (w.is_virtual || std::find(chosen.begin(), chosen.end(), w.id) == chosen.end()) continue;
    picked.push_back(&w);
    ++picked_under[w.stock_parent];
  }
  std::string text;
  for (const repo::Warehouse* w : picked) {
    int32_t shown = w->id;
    if (w->stock_parent > 0 && picked_under[w->stock_parent] == under[w->stock_parent]) {
      shown = w->stock_parent;
    }
    auto it = by_id.find(shown);
    if (it == by_id.end()) continue;
    const std::string entry = it->second->Entry();
    if (text.find(entry) == std::string::npos) text += entry + ",";
  }
  return DropLastComma(text);
}

// Takes `text`, then ",text" and "text" out of a list, as the forms' stored
// strings are cleaned of one warehouse.
std::string Without(std::string list, const std::string& text) {
  list = ReplaceAll(list, text + ",", "");
  list = ReplaceAll(list, "," + text, "");
  return ReplaceAll(list, text, "");
}

}  // namespace mrpcalc::scope
