// The one error root of mrpcalc: every failure that ends an operation is an Error.
#pragma once

#include <stdexcept>
#include <string>

namespace mrpcalc {

enum class ErrorCategory {
  kInvalidInput,    // the caller's arguments are malformed or out of range
  kNotFound,        // a named thing (class, method, table, key) does not exist
  kRefused,         // the caller may not do this (another user's data, without the right)
  kDatabase,        // the database refused a statement or the connection failed
  kNotImplemented,  // a published method whose behaviour is not built yet
  kInternal,        // a broken invariant inside mrpcalc
};

const char* CategoryName(ErrorCategory category);

// Error numbers follow the automation convention of the ERP host: negative
// numbers are ours, database errors keep the engine's native code in
// native_code() and carry the engine's text unchanged in what().
class Error : public std::runtime_error {
 public:
  Error(ErrorCategory category, const std::string& description, long number = -1,
        std::string native_state = {}, long native_code = 0);

  ErrorCategory category() const { return category_; }
  long number() const { return number_; }
  // SQLSTATE for ODBC errors, the extended result code name for SQLite.
  const std::string& native_state() const { return native_state_; }
  long native_code() const { return native_code_; }
  // Where the error passed through, outermost last ("while creating t_ICItem").
  const std::string& context() const { return context_; }

  // Adds a line of context; what() stays the original description so that
  // database texts reach the caller unchanged.
  Error& AddContext(const std::string& where);

 private:
  ErrorCategory category_;
  long number_;
  std::string native_state_;
  long native_code_;
  std::string context_;
};

[[noreturn]] void ThrowInvalid(const std::string& description);

}  // namespace mrpcalc
