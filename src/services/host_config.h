// The stand-alone host: default host services configured by the ERP
// administrator through environment variables, or a configuration file named
// by MRPCALC_CONFIG (INI format, section [host], same keys in lower case):
//
//   MRPCALC_PROPS        login property string, e.g. "UserID=16;Language=en;"
//   MRPCALC_LANGUAGE     language when the login names none ("zh" or "en");
//                        with neither, mrpcalc speaks Chinese
//   MRPCALC_INI          path of the ERP's JXCSystem.INI
//                        (default: ./JXCSystem.INI; missing file = empty settings)
//   MRPCALC_DATA_RIGHTS  users restricted by data rights, as user:objecttype
//                        pairs ("16:2,16:4"); default none (no restriction)
//   MRPCALC_LOGIN_TIMEOUT seconds for ODBC logins (default 5)
//
// Environment variables win over the file.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>

#include "frame/context.h"
#include "frame/host.h"

namespace mrpcalc {

struct HostConfig {
  std::string props;
  std::string language;
  std::string ini_path = "JXCSystem.INI";
  std::set<std::pair<int32_t, int16_t>> data_rights;
  int login_timeout_seconds = 5;

  // Reads MRPCALC_CONFIG (if set) and then the environment.
  static HostConfig FromEnvironment();
  // Parses "16:2,16:4"; throws invalid input when malformed.
  static std::set<std::pair<int32_t, int16_t>> ParseDataRights(const std::string& text);
};

// A Host with the stand-alone services: a StandaloneContext per instance,
// the message catalogs shipped with the program, data rights and INI
// settings from the configuration, and numbering in the ERP database.
// With a pool, the contexts take their sessions from it (and give them
// back); the pool should open them with OpenOptionsOf(config).
Host MakeStandaloneHost(const HostConfig& config, std::shared_ptr<ConnectionPool> pool = nullptr);
db::OpenOptions OpenOptionsOf(const HostConfig& config);

}  // namespace mrpcalc
