// The public classes' common frame and the late-bound dispatcher that the
// command line and the HTTP service call them through.
//
// Every public method keeps one calling order: bind the context to sDsn,
// take its session, do the work, SetComplete; on any error SetAbort and raise
// the error with its description unchanged (a database error keeps the
// engine's own text).
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "frame/host.h"
#include "record/error.h"
#include "record/variant.h"

namespace mrpcalc {

// TransMode of every public class: the calls must run inside a transaction.
inline constexpr int32_t kTransModeRequiresTransaction = 2;

class ComponentObject {
 public:
  explicit ComponentObject(Host host) : host_(std::move(host)), context_(host_.make_context()) {}
  virtual ~ComponentObject() = default;

  int32_t TransMode() const { return kTransModeRequiresTransaction; }
  Host& host() { return host_; }

 protected:
  // Runs body(connection) in the calling order above.
  template <class Body>
  auto Run(const std::string& dsn, Body&& body) -> decltype(body(std::declval<db::Connection&>())) {
    try {
      context_->Bind(dsn);
      if constexpr (std::is_void_v<decltype(body(context_->connection()))>) {
        body(context_->connection());
        context_->SetComplete();
      } else {
        auto result = body(context_->connection());
        context_->SetComplete();
        return result;
      }
    } catch (...) {
      context_->SetAbort();
      throw;
    }
  }

  Host host_;
  std::unique_ptr<TransContext> context_;
};

enum class ParamType {
  kString,
  kLong,      // 32-bit
  kInteger,   // 16-bit
  kDouble,
  kBoolean,
  kDate,
  kVector,
  kDictionary,
  kVariant,
  kConnection,  // an open session: given by --dsn, like sDsn
};

const char* ParamTypeName(ParamType type);

struct ParamSpec {
  std::string name;
  ParamType type = ParamType::kVariant;
  bool optional = false;
  bool by_ref = false;
  Variant default_value;  // for optional parameters; Empty when none
};

// Arguments as the invoker sees them: one Variant per declared parameter,
// converted to the declared type; by-reference ones are read back after the call.
using Args = std::vector<Variant>;

struct MethodSpec {
  std::string name;
  std::vector<ParamSpec> params;
  std::string result;  // the published result type; empty for none
  std::function<Variant(ComponentObject&, Args&)> invoke;

  std::string Signature() const;
  // True when the first parameter is sDsn or a connection (given by --dsn).
  bool TakesDsn() const;
};

struct ClassSpec {
  std::string prog_id;
  std::function<std::unique_ptr<ComponentObject>(const Host&)> create;
  std::vector<MethodSpec> methods;
  const MethodSpec* FindMethod(const std::string& name) const;  // ignores case
};

class Registry {
 public:
  void Add(ClassSpec cls) { classes_.push_back(std::move(cls)); }
  const ClassSpec* Find(const std::string& prog_id) const;  // ignores case
  const std::vector<ClassSpec>& classes() const { return classes_; }

 private:
  std::vector<ClassSpec> classes_;
};

struct CallResult {
  Variant result;
  std::vector<std::pair<std::string, Variant>> by_ref;
  std::vector<std::string> messages;
};

// Calls made on one object per ProgID, created at its first call and kept
// for the session's life, so that what an object remembers between calls
// (the stock-status option of MrpDataServer) carries over to the next.
class CallSession {
 public:
  CallSession(const Registry& registry, Host host) : registry_(registry), host_(std::move(host)) {}
  // As Invoke, on the session's object of prog_id.
  CallResult Call(const std::string& prog_id, const std::string& method,
                  const std::vector<Variant>& args, const std::string& dsn);

 private:
  const Registry& registry_;
  Host host_;
  std::vector<std::pair<const ClassSpec*, std::unique_ptr<ComponentObject>>> objects_;
};

// The arguments of one call as the method receives them: sDsn first where
// the method takes it, the rest converted to the declared types, omitted
// optionals at their defaults; with a caller, user arguments filled and
// checked as Invoke says. Throws invalid input (or a refusal) as Invoke does.
Args ConvertArguments(const ClassSpec& cls, const MethodSpec& method,
                      const std::vector<Variant>& args, const std::string& dsn, const Host& host);

// Arguments that name a user: "UserID", "BillerID" (letter case aside).
bool NamesUser(const std::string& parameter);
// The one rights rule for callers a service signed in: a caller who is not
// an administrator may name only himself. Throws a refusal naming the
// argument otherwise; does nothing without a caller.
void EnsureMayActFor(const Host& host, const std::string& argument, int32_t user);

// Creates an instance of prog_id and calls method. `args` are the arguments
// after sDsn in published order; omitted trailing optionals take their
// defaults. Arguments are converted to the declared types (strings to Dates
// where a parameter is a Date); a missing required argument, one too many,
// or one that does not convert is refused as invalid input. Where the host
// has a caller, an omitted argument that names a user is the caller, and
// every one, once converted, must pass EnsureMayActFor.
CallResult Invoke(const Registry& registry, const Host& host, const std::string& prog_id,
                  const std::string& method, const std::vector<Variant>& args,
                  const std::string& dsn);

// Parameter declarations for the method tables.
inline ParamSpec In(std::string name, ParamType type) { return {std::move(name), type}; }
inline ParamSpec Opt(std::string name, ParamType type, Variant fallback = {}) {
  return {std::move(name), type, true, false, std::move(fallback)};
}
inline ParamSpec Ref(std::string name, ParamType type) { return {std::move(name), type, false, true}; }
inline ParamSpec OptRef(std::string name, ParamType type, Variant fallback = {}) {
  return {std::move(name), type, true, true, std::move(fallback)};
}

// The TransMode property of every class, as a method of the table.
MethodSpec TransModeMethod();

}  // namespace mrpcalc
