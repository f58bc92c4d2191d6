// Dispatcher.
#include "frame/component.h"

#include <limits>

namespace mrpcalc {

const char* ParamTypeName(ParamType type) {
  switch (type) {
    case ParamType::kString: return "String";
    case ParamType::kLong: return "Long";
    case ParamType::kInteger: return "Integer";
    case ParamType::kDouble: return "Double";
    case ParamType::kBoolean: return "Boolean";
    case ParamType::kDate: return "Date";
    case ParamType::kVector: return "Vector";
    case ParamType::kDictionary: return "Dictionary";
    case ParamType::kVariant: return "Variant";
    case ParamType::kConnection: return "Connection";
  }
  return "Variant";
}

std::string MethodSpec::Signature() const {
  std::string out = name + "(";
  for (size_t i = 0; i < params.size(); ++i) {
    const auto& p = params[i];
    if (i) out += ", ";
    std::string one = p.name + " As " + ParamTypeName(p.type);
    if (p.by_ref) one += " [in,out]";
    out += p.optional ? "[" + one + "]" : one;
  }
  out += ")";
  if (!result.empty()) out += " -> " + result;
  return out;
}

bool MethodSpec::TakesDsn() const {
  return !params.empty() &&
         (params[0].type == ParamType::kConnection || FoldKey(params[0].name) == "sdsn");
}

const MethodSpec* ClassSpec::FindMethod(const std::string& name) const {
  for (const auto& m : methods) {
    if (FoldKey(m.name) == FoldKey(name)) return &m;
  }
  return nullptr;
}

const ClassSpec* Registry::Find(const std::string& prog_id) const {
  for (const auto& c : classes_) {
    if (FoldKey(c.prog_id) == FoldKey(prog_id)) return &c;
  }
  return nullptr;
}

MethodSpec TransModeMethod() {
  return {"TransMode", {}, "Long",
          [](ComponentObject& o, Args&) { return Variant(o.TransMode()); }};
}

namespace {

Variant Convert(const Variant& value, const ParamSpec& p) {
  if (value.IsEmpty()) return value;
  const bool nullable = p.type == ParamType::kString || p.type == ParamType::kVariant ||
                        p.type == ParamType::kVector || p.type == ParamType::kDictionary;
  if (value.IsNull() && nullable) return value;  // Null, or Nothing for an object
  try {
    switch (p.type) {
      case ParamType::kString: return Variant(value.ToText());
      case ParamType::kLong: return Variant(value.ToLong());
      case ParamType::kInteger: {
        const int32_t v = value.ToLong();
        if (v < std::numeric_limits<int16_t>::min() || v > std::numeric_limits<int16_t>::max()) {
          ThrowInvalid(std::to_string(v) + " is outside the 16-bit range");
        }
        return Variant(v);
      }
      case ParamType::kDouble: return Variant(value.ToDouble());
      case ParamType::kBoolean: return Variant(value.ToBoolean());
      case ParamType::kDate: return Variant(value.ToDate());
      case ParamType::kVector:
        if (!value.AsVector()) ThrowInvalid("a Vector (JSON array of objects) is expected");
        return value;
      case ParamType::kDictionary:
        if (!value.AsDictionary()) ThrowInvalid("a Dictionary (JSON object) is expected");
        return value;
      case ParamType::kVariant:
      case ParamType::kConnection: return value;
    }
  } catch (Error& e) {
    throw Error(ErrorCategory::kInvalidInput,
                "argument " + p.name + " (" + ParamTypeName(p.type) + "): " + e.what());
  }
  return value;
}

}  // namespace

Args ConvertArguments(const ClassSpec& cls, const MethodSpec& method,
                      const std::vector<Variant>& args, const std::string& dsn, const Host& host) {
  const MethodSpec* m = &method;
  const size_t first = m->TakesDsn() ? 1 : 0;
  if (first == 1 && dsn.empty()) {
    ThrowInvalid(cls.prog_id + "." + m->name + " needs a database: give --dsn");
  }
  const size_t declared = m->params.size() - first;
  if (args.size() > declared) {
    ThrowInvalid(m->name + " takes " + std::to_string(declared) + " argument(s) after sDsn, " +
                 std::to_string(args.size()) + " given");
  }
  Args call(m->params.size());
  if (first == 1) call[0] = Variant(dsn);
  for (size_t i = first; i < m->params.size(); ++i) {
    const ParamSpec& p = m->params[i];
    const size_t k = i - first;
    const bool user = host.caller && NamesUser(p.name);
    if (k < args.size() && !args[k].IsEmpty()) {
      call[i] = Convert(args[k], p);
    } else if (user) {
      call[i] = Convert(Variant(host.caller->user), p);  // the caller himself
    } else if (p.optional) {
      call[i] = p.default_value;
    } else {
      ThrowInvalid(m->name + ": argument " + p.name + " is required");
    }
    // Checked on the value the method will see, whatever form it came in.
    if (user) EnsureMayActFor(host, p.name, call[i].IsNull() ? 0 : call[i].ToLong());
  }
  return call;
}

CallResult CallSession::Call(const std::string& prog_id, const std::string& method,
                             const std::vector<Variant>& args, const std::string& dsn) {
  const ClassSpec* cls = registry_.Find(prog_id);
  if (!cls) throw Error(ErrorCategory::kNotFound, "no class with ProgID " + prog_id);
  const MethodSpec* m = cls->FindMethod(method);
  if (!m) throw Error(ErrorCategory::kNotFound, cls->prog_id + " has no method " + method);

  Args call = ConvertArguments(*cls, *m, args, dsn, host_);
  const size_t first = m->TakesDsn() ? 1 : 0;

  ComponentObject* object = nullptr;
  for (auto& [made_for, o] : objects_) {
    if (made_for == cls) object = o.get();
  }
  if (!object) {
    objects_.emplace_back(cls, cls->create(host_));
    object = objects_.back().second.get();
  }
  CallResult out;
  if (host_.messages) host_.messages->Clear();
  out.result = m->invoke(*object, call);
  for (size_t i = first; i < m->params.size(); ++i) {
    if (m->params[i].by_ref) out.by_ref.emplace_back(m->params[i].name, call[i]);
  }
  if (host_.messages) out.messages = host_.messages->messages();
  return out;
}

bool NamesUser(const std::string& parameter) {
  const std::string name = FoldKey(parameter);
  return name == "userid" || name == "billerid";
}

void EnsureMayActFor(const Host& host, const std::string& argument, int32_t user) {
  if (!host.caller || user == host.caller->user) return;
  if (host.caller->is_administrator && host.caller->is_administrator()) return;
  throw Error(ErrorCategory::kRefused,
              argument + " names user " + std::to_string(user) + ", not you (user " +
                  std::to_string(host.caller->user) + "); only an administrator may act for another user");
}

CallResult Invoke(const Registry& registry, const Host& host, const std::string& prog_id,
                  const std::string& method, const std::vector<Variant>& args,
                  const std::string& dsn) {
  CallSession session(registry, host);
  return session.Call(prog_id, method, args, dsn);
}

}  // namespace mrpcalc
