// Call answers.
#include "frame/answer.h"

#include "record/text.h"

namespace mrpcalc {

void WriteCallAnswer(const CallResult& r, const TextSink& sink, int indent) {
  auto by_ref = Dictionary::Create();
  for (const auto& [name, value] : r.by_ref) by_ref->Set(name, value);
  CheckJsonText(r.result);
  CheckJsonText(Variant(by_ref));
  for (const auto& m : r.messages) CheckJsonString(m);
  const std::string pad(static_cast<size_t>(indent), ' ');
  JsonWriter out(sink, 1 << 20);
  out.Raw("{\n" + pad + "  \"result\": ");
  out.Value(r.result, indent + 2);
  out.Raw(",\n" + pad + "  \"resultType\": ");
  out.String(VariantTypeName(r.result.type()));
  out.Raw(",\n" + pad + "  \"byref\": ");
  out.Value(Variant(by_ref), indent + 2);
  out.Raw(",\n" + pad + "  \"messages\": ");
  out.Strings(r.messages, indent + 2);
  out.Raw("\n" + pad + "}");
  out.Flush();
}

std::string CallAnswerText(const CallResult& r, int indent) {
  std::string text;
  WriteCallAnswer(
      r, [&](std::string_view chunk) { text.append(chunk); }, indent);
  return text;
}

std::string ErrorAnswerText(long number, const std::string& description, int indent) {
  Json err = {{"error", {{"number", number}, {"description", description}}}};
  // A description may quote a caller's bad bytes: they show as U+FFFD
  // rather than fail the answer.
  std::string text = err.dump(2, ' ', false, Json::error_handler_t::replace);
  if (indent > 0)
    text = ReplaceAll(text, "\n", "\n" + std::string(static_cast<size_t>(indent), ' '));
  return text;
}

std::string RunCallScript(CallSession& session, const Json& script, const std::string& dsn,
                          bool& failed,
                          const std::function<std::string(const Error&, int)>& error_answer) {
  if (!script.is_array()) ThrowInvalid("the script must be a JSON array of calls");
  failed = false;
  std::string out = "[";
  for (size_t i = 0; i < script.size(); ++i) {
    const Json& step = script[i];
    std::string answer;
    try {
      const std::string where = "call " + std::to_string(i + 1) + " of the script";
      if (!step.is_object() || !step.contains("progid") || !step["progid"].is_string() ||
          !step.contains("method") || !step["method"].is_string()) {
        ThrowInvalid(where + " must be an object with the texts \"progid\" and \"method\"");
      }
      std::vector<Variant> args;
      if (step.contains("args")) {
        if (!step["args"].is_array()) ThrowInvalid(where + ": \"args\" must be an array");
        for (const auto& a : step["args"]) args.push_back(FromJson(a));
      }
      answer = CallAnswerText(session.Call(step["progid"].get<std::string>(),
                                           step["method"].get<std::string>(), args, dsn),
                              2);
    } catch (const Error& e) {
      answer = error_answer ? error_answer(e, 2) : ErrorAnswerText(e.number(), e.what(), 2);
      failed = true;
    } catch (const std::exception& e) {
      answer = ErrorAnswerText(-1, e.what(), 2);
      failed = true;
    }
    out += (i ? ",\n  " : "\n  ") + answer;
  }
  out += script.empty() ? "]\n" : "\n]\n";
  return out;
}

}  // namespace mrpcalc
