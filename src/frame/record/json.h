// The one JSON form of variants:
//   Empty, Null     -> null (the call's "resultType" tells them apart)
//   Boolean         -> true / false
//   Long, Double    -> number
//   String          -> string
//   Date            -> "YYYY-MM-DD HH:MM:SS"
//   Dictionary      -> object, keys in insertion order
//   Vector          -> array of objects
//   Record set      -> array of objects, every row from the first
// Reading JSON: integral numbers within 32 bits become Long, other numbers
// Double; strings stay strings (the caller turns them into Dates where a
// parameter is declared Date); arrays must hold objects only.
#pragma once

#include <nlohmann/json.hpp>

#include "frame/record/variant.h"

namespace mrpcalc {

using Json = nlohmann::ordered_json;

Json ToJson(const Variant& value);
Variant FromJson(const Json& json);

}  // namespace mrpcalc
