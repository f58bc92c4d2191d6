// Error root implementation.
#include "record/error.h"

namespace mrpcalc {

const char* CategoryName(ErrorCategory category) {
  switch (category) {
    case ErrorCategory::kInvalidInput: return "invalid input";
    case ErrorCategory::kNotFound: return "not found";
    case ErrorCategory::kRefused: return "refused";
    case ErrorCategory::kDatabase: return "database";
    case ErrorCategory::kNotImplemented: return "not implemented";
    case ErrorCategory::kInternal: return "internal";
  }
  return "internal";
}

namespace {

// A description is read as a C string (what()): a NUL in it, from a
// caller's text, would cut it short, so it shows as "\0".
std::string Readable(const std::string& description) {
  if (description.find('\0') == std::string::npos) return description;
  std::string out;
  for (char c : description) {
    if (c == '\0') {
      out += "\\0";
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

Error::Error(ErrorCategory category, const std::string& description, long number,
             std::string native_state, long native_code)
    : std::runtime_error(Readable(description)),
      category_(category),
      number_(number),
      native_state_(std::move(native_state)),
      native_code_(native_code) {}

Error& Error::AddContext(const std::string& where) {
  if (!context_.empty()) context_ += "\n";
  context_ += where;
  return *this;
}

void ThrowInvalid(const std::string& description) {
  throw Error(ErrorCategory::kInvalidInput, description);
}

}  // namespace mrpcalc
