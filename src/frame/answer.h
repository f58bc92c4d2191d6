// The JSON answer of a call, as the command line and the HTTP service give
// it: {"result", "resultType", "byref", "messages"} printed with two blanks
// a level, or {"error": {"number", "description"}}.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "frame/component.h"
#include "record/json.h"

namespace mrpcalc {

using TextSink = std::function<void(std::string_view)>;

// Streams the answer; lines after the first are indented by `indent` more.
// Every string is checked first, so that an answer is written whole or not
// at all (a bad text throws before anything is written).
void WriteCallAnswer(const CallResult& result, const TextSink& sink, int indent = 0);
std::string CallAnswerText(const CallResult& result, int indent = 0);
std::string ErrorAnswerText(long number, const std::string& description, int indent = 0);

// Runs a script, a JSON array of {"progid", "method", "args"}, in order on
// the session's objects; every call runs whatever came before. Returns the
// array of answers; `failed` tells whether any call failed. Throws invalid
// input when the script is not an array.
// `error_answer` lays out a failed call's answer (by default the error's
// number and description).
std::string RunCallScript(
    CallSession& session, const Json& script, const std::string& dsn, bool& failed,
    const std::function<std::string(const Error&, int indent)>& error_answer = {});

}  // namespace mrpcalc
