// Variant <-> JSON.
#include "frame/record/json.h"

#include <cmath>
#include <limits>

#include "frame/record/error.h"
#include "frame/record/recordset.h"

namespace mrpcalc {

Json ToJson(const Variant& value) {
  switch (value.type()) {
    case VariantType::kEmpty:
    case VariantType::kNull: return nullptr;
    case VariantType::kBoolean: return *value.AsBoolean();
    case VariantType::kLong: return *value.AsLong();
    case VariantType::kDouble: {
      const double d = *value.AsDouble();
      if (!std::isfinite(d)) return nullptr;
      return d;
    }
    case VariantType::kString: return *value.AsString();
    case VariantType::kDate: return value.AsDate()->ToString();
    case VariantType::kDictionary: {
      Json out = Json::object();
      const auto& d = *value.AsDictionary();
      for (size_t i = 0; i < d.size(); ++i) out[d.key(i)] = ToJson(d.value(i));
      return out;
    }
    case VariantType::kVector: {
      Json out = Json::array();
      for (const auto& row : value.AsVector()->rows()) out.push_back(ToJson(Variant(row)));
      return out;
    }
    case VariantType::kObject: {
      Json out = Json::array();
      if (auto rs = std::dynamic_pointer_cast<RecordSet>(value.AsObject())) {
        for (const auto& row : rs->rows()) {
          Json obj = Json::object();
          for (size_t i = 0; i < rs->columns().size(); ++i) obj[rs->columns()[i]] = ToJson(row[i]);
          out.push_back(std::move(obj));
        }
      }
      return out;
    }
  }
  return nullptr;
}

Variant FromJson(const Json& json) {
  switch (json.type()) {
    case Json::value_t::null: return Variant::Null();
    case Json::value_t::boolean: return Variant(json.get<bool>());
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned: {
      if (json.is_number_unsigned() &&
          json.get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
        return Variant(json.get<double>());
      }
      return Variant::FromInt64(json.get<int64_t>());
    }
    case Json::value_t::number_float: {
      const double d = json.get<double>();
      if (std::trunc(d) == d && d >= std::numeric_limits<int32_t>::min() &&
          d <= std::numeric_limits<int32_t>::max()) {
        return Variant(static_cast<int32_t>(d));
      }
      return Variant(d);
    }
    case Json::value_t::string: return Variant(json.get<std::string>());
    case Json::value_t::object: {
      auto dict = Dictionary::Create();
      for (auto it = json.begin(); it != json.end(); ++it) dict->Set(it.key(), FromJson(it.value()));
      return Variant(dict);
    }
    case Json::value_t::array: {
      auto vec = Vector::Create();
      for (const auto& element : json) {
        if (!element.is_object()) {
          ThrowInvalid("a JSON array stands for a Vector of rows and may hold objects only");
        }
        vec->Add(FromJson(element).AsDictionary());
      }
      return Variant(vec);
    }
    default: ThrowInvalid("unsupported JSON value");
  }
}

}  // namespace mrpcalc
