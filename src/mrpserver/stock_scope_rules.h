// The rules of a user's stock scope that need no database: which
// warehouses it holds and how its stored texts read. A scope is three
// comma lists: the display text ("01 - Main,02 - Parts"), the leaf
// warehouses whose stock counts ("11,12"), and the ids of every level.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mrpserver/stock_repository.h"
#include "services/rights.h"

namespace mrpcalc::scope {

struct Scope {
  std::string str, key, info;
};

// The text without one trailing comma.
std::string DropLastComma(std::string text);
// The scope standing for every real warehouse the user may see: the
// top-level entries, the leaf ids and the ids of every level.
Scope WholeScope(const std::vector<repo::Warehouse>& all, const UserRights& rights, int32_t user);
// Keeps the elements of a comma list that equal an element of `allowed`,
// each followed by ",".
std::string KeepAllowed(const std::string& list, const std::string& allowed);
// The display text of a scope: a group whose real warehouses are all
// chosen stands for them; an entry already in the text is not repeated.
std::string ScopeText(const std::vector<repo::Warehouse>& all, const std::vector<int32_t>& chosen);
// Takes `text`, then ",text" and "text" out of a list, as the forms' stored
// strings are cleaned of one warehouse: a cut of text, not of elements, so
// that taking "1" out of "11,12" leaves "2".
std::string Without(std::string list, const std::string& text);

}  // namespace mrpcalc::scope
