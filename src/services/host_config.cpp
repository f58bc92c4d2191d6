// The stand-alone host's configuration and services.
#include "services/host_config.h"

#include <ini.h>

#include <cstdlib>
#include <map>

#include "db/connection.h"
#include "record/error.h"
#include "record/text.h"
#include "record/variant.h"
#include "services/messages.h"
#include "services/numbering.h"

namespace mrpcalc {
namespace {

using IniMap = std::map<std::pair<std::string, std::string>, std::string>;

// Sections and keys are matched ignoring case, as Windows profile files are.
IniMap ReadIni(const std::string& path) {
  IniMap values;
  ini_parse(
      path.c_str(),
      [](void* user, const char* section, const char* name, const char* value) -> int {
        auto* map = static_cast<IniMap*>(user);
        map->emplace(std::make_pair(FoldKey(section), FoldKey(name)), value);
        return 1;
      },
      &values);
  return values;
}

class IniFileSettings : public IniSettings {
 public:
  explicit IniFileSettings(std::string path) : path_(std::move(path)) {}
  std::string Get(const std::string& section, const std::string& key) override {
    const IniMap values = ReadIni(path_);  // read at each call: the file may change
    auto it = values.find({FoldKey(section), FoldKey(key)});
    return it == values.end() ? "" : it->second;
  }

 private:
  std::string path_;
};

class FixedLogin : public LoginProperties {
 public:
  explicit FixedLogin(std::string props) : props_(std::move(props)) {}
  std::optional<std::string> GetProperty(const std::string& name) override {
    if (FoldKey(name) == "propsstring") return props_;
    return std::nullopt;
  }

 private:
  std::string props_;
};

class ConfiguredDataRights : public DataRights {
 public:
  explicit ConfiguredDataRights(std::set<std::pair<int32_t, int16_t>> restricted)
      : restricted_(std::move(restricted)) {}
  bool Applies(int32_t user_id, int16_t object_type) override {
    return restricted_.count({user_id, object_type}) > 0;
  }

 private:
  std::set<std::pair<int32_t, int16_t>> restricted_;
};

std::string Env(const char* name) {
  const char* v = std::getenv(name);
  return v ? v : "";
}

}  // namespace

std::set<std::pair<int32_t, int16_t>> HostConfig::ParseDataRights(const std::string& text) {
  std::set<std::pair<int32_t, int16_t>> out;
  std::string rest = text;
  while (!Trim(rest).empty()) {
    const std::string pair = Trim(SplitFirst(rest, ","));
    const size_t colon = pair.find(':');
    if (colon == std::string::npos) {
      ThrowInvalid("data rights entry \"" + pair + "\" is not user:objecttype");
    }
    const auto user = db::ParseIdList(pair.substr(0, colon), "data rights user");
    const auto type = db::ParseIdList(pair.substr(colon + 1), "data rights object type");
    if (user.size() != 1 || type.size() != 1) {
      ThrowInvalid("data rights entry \"" + pair + "\" is not user:objecttype");
    }
    out.emplace(user[0], static_cast<int16_t>(type[0]));
  }
  return out;
}

HostConfig HostConfig::FromEnvironment() {
  HostConfig config;
  if (const std::string file = Env("MRPCALC_CONFIG"); !file.empty()) {
    const IniMap values = ReadIni(file);
    auto get = [&](const char* key) -> std::string {
      auto it = values.find({"host", key});
      return it == values.end() ? "" : it->second;
    };
    config.props = get("props");
    config.language = get("language");
    if (!get("ini").empty()) config.ini_path = get("ini");
    if (!get("data_rights").empty()) config.data_rights = ParseDataRights(get("data_rights"));
    if (!get("login_timeout").empty()) config.login_timeout_seconds = Variant(get("login_timeout")).ToLong();
  }
  if (!Env("MRPCALC_PROPS").empty()) config.props = Env("MRPCALC_PROPS");
  if (!Env("MRPCALC_LANGUAGE").empty()) config.language = Env("MRPCALC_LANGUAGE");
  if (!Env("MRPCALC_INI").empty()) config.ini_path = Env("MRPCALC_INI");
  if (!Env("MRPCALC_DATA_RIGHTS").empty()) config.data_rights = ParseDataRights(Env("MRPCALC_DATA_RIGHTS"));
  if (!Env("MRPCALC_LOGIN_TIMEOUT").empty()) {
    config.login_timeout_seconds = Variant(Env("MRPCALC_LOGIN_TIMEOUT")).ToLong();
  }
  return config;
}

db::OpenOptions OpenOptionsOf(const HostConfig& config) {
  db::OpenOptions options;
  options.login_timeout_seconds = config.login_timeout_seconds;
  return options;
}

Host MakeStandaloneHost(const HostConfig& config, std::shared_ptr<ConnectionPool> pool) {
  Host host;
  host.make_context = [options = OpenOptionsOf(config), pool = std::move(pool)] {
    return std::make_unique<StandaloneContext>(options, pool);
  };
  host.login = std::make_shared<FixedLogin>(config.props);
  host.resources = std::make_shared<CatalogResourceLoader>(config.language);
  host.data_rights = std::make_shared<ConfiguredDataRights>(config.data_rights);
  host.numbering = std::make_shared<DatabaseNumbering>();
  host.ini = std::make_shared<IniFileSettings>(config.ini_path);
  host.messages = std::make_shared<MessageSink>();
  return host;
}

}  // namespace mrpcalc
