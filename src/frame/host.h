// The host's services as the public classes reach them. The ERP host
// supplied these as components; the stand-alone build supplies defaults that
// an administrator configures (see services/host_config.h), and tests supply
// their own to inject faults.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "db/connection.h"
#include "frame/context.h"
#include "record/date.h"

namespace mrpcalc {

// Texts the ERP shows its users in message boxes; they reach the caller with
// the result.
class MessageSink {
 public:
  void Show(const std::string& text, const std::string& caption = {}) {
    messages_.push_back(text);
    (void)caption;
  }
  const std::vector<std::string>& messages() const { return messages_; }
  void Clear() { messages_.clear(); }

 private:
  std::vector<std::string> messages_;
};

// The login's property string ("Name=value;Other={a;b};").
class LoginProperties {
 public:
  virtual ~LoginProperties() = default;
  // The value of a named property; nullopt when the property service has none.
  virtual std::optional<std::string> GetProperty(const std::string& name) = 0;
};

// Message texts by key and language.
class ResourceLoader {
 public:
  virtual ~ResourceLoader() = default;
  virtual std::string LoadString(const std::string& key, const std::string& language) = 0;
  // The language to use when the login names none.
  virtual std::string CurrentLanguage() = 0;
};

// Data rights of a user on an object type (2 suppliers, 4 warehouses).
class DataRights {
 public:
  virtual ~DataRights() = default;
  virtual bool Applies(int32_t user_id, int16_t object_type) = 0;
};

// New bill numbers and interior ids, reserved inside the caller's unit of work.
class Numbering {
 public:
  virtual ~Numbering() = default;
  virtual std::string NewBillNumber(db::Connection& connection, const std::string& bill_type,
                                    const Date& date) = 0;
  virtual int32_t NextInteriorId(db::Connection& connection, const std::string& table) = 0;
};

// The ERP's INI settings file.
class IniSettings {
 public:
  virtual ~IniSettings() = default;
  // Empty when the file or the key is missing.
  virtual std::string Get(const std::string& section, const std::string& key) = 0;
};

// Who calls, where a service acts for callers it signed in: the caller's
// user, and whether that user is an administrator (asked at most once, and
// only when an argument names another user). The command line has none: it
// acts with the rights of whoever runs it.
struct Caller {
  int32_t user = 0;
  std::function<bool()> is_administrator;
};

// Everything an instance of a public class takes from its host.
struct Host {
  std::function<std::unique_ptr<TransContext>()> make_context;
  std::shared_ptr<LoginProperties> login;
  std::shared_ptr<ResourceLoader> resources;
  std::shared_ptr<DataRights> data_rights;
  std::shared_ptr<Numbering> numbering;
  std::shared_ptr<IniSettings> ini;
  std::shared_ptr<MessageSink> messages;
  std::shared_ptr<Caller> caller;  // none: no caller to keep apart
};

}  // namespace mrpcalc
