// Fuzz target of the doors a request comes in by: the argument list of
// `mrpcalc call`, the script of `mrpcalc calls` and the bodies of the HTTP
// service, each read and converted to the arguments of the method it names
// exactly as a real call would be, with a caller who is not an
// administrator, and answered. No database is opened: the methods never
// run. A crash, a hang or an answer that is not JSON is a finding (abort).
//
// The first byte of an input chooses the door, the second the method; the
// rest is the text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "component/registry.h"
#include "frame/answer.h"
#include "record/error.h"
#include "record/json.h"

namespace {

using namespace mrpcalc;

const MethodSpec* NthMethod(size_t n, const ClassSpec** cls) {
  size_t count = 0;
  for (const auto& c : PublicClasses().classes()) count += c.methods.size();
  n %= count;
  for (const auto& c : PublicClasses().classes()) {
    if (n < c.methods.size()) {
      *cls = &c;
      return &c.methods[n];
    }
    n -= c.methods.size();
  }
  return nullptr;
}

Host CallerHost() {
  Host host;
  auto caller = std::make_shared<Caller>();
  caller->user = 16;
  caller->is_administrator = [] { return false; };
  host.caller = std::move(caller);
  return host;
}

// The answer a door would give: the converted arguments, or the error.
std::string Answer(const ClassSpec& cls, const MethodSpec& m, const std::vector<Variant>& args) {
  try {
    CallResult r;
    const Args converted = ConvertArguments(cls, m, args, "sqlite::memory:", CallerHost());
    for (size_t i = 0; i < converted.size(); ++i) r.by_ref.emplace_back(m.params[i].name, converted[i]);
    return CallAnswerText(r);
  } catch (const Error& e) {
    return ErrorAnswerText(e.number(), e.what());
  } catch (const Json::exception& e) {
    return ErrorAnswerText(-1, e.what());  // an answer with text that is not UTF-8
  }
}

void MustBeJson(const std::string& answer) {
  if (!Json::accept(answer)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const int door = data[0] % 4;
  const ClassSpec* cls = nullptr;
  const MethodSpec* m = NthMethod(data[1], &cls);
  const std::string text(reinterpret_cast<const char*>(data) + 2, size - 2);
  try {
    switch (door) {
      case 0: {  // call --args: an argument list
        const JsonArguments parsed = ReadJsonArguments(text);
        if (parsed.is_array) MustBeJson(Answer(*cls, *m, parsed.values));
        break;
      }
      case 1: {  // calls --script and POST /api/calls: a script
        const Json script = ParseJsonText(text, "the script");
        if (!script.is_array()) break;
        for (const Json& step : script) {
          if (!step.is_object() || !step.contains("args") || !step["args"].is_array()) continue;
          std::vector<Variant> args;
          for (const auto& a : step["args"]) args.push_back(FromJson(a));
          MustBeJson(Answer(*cls, *m, args));
        }
        break;
      }
      case 2: {  // POST /api/call: {"args": [...]}
        const Json body = ParseJsonText(text, "the body");
        if (!body.is_object() || !body.contains("args") || !body["args"].is_array()) break;
        std::vector<Variant> args;
        for (const auto& a : body["args"]) args.push_back(FromJson(a));
        MustBeJson(Answer(*cls, *m, args));
        break;
      }
      case 3: {  // POST /api/report and the exports: a body of values
        const Json body = ParseJsonText(text, "the body");
        const Variant value = FromJson(body);
        MustBeJson(CallAnswerText(CallResult{value, {}, {}}));
        break;
      }
    }
  } catch (const Error& e) {
    MustBeJson(ErrorAnswerText(e.number(), e.what()));
  } catch (const Json::exception& e) {
    MustBeJson(ErrorAnswerText(-1, e.what()));
  }
  return 0;
}
