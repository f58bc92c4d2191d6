// The bill forms' stock-status option: the SQL of ICSchemeProfile,
// ICSchemeProfileEntry and ICChatBillTitle.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "db/connection.h"

namespace mrpcalc::repo {

// The user's active display scheme of a bill type; 0 when none.
int32_t ActiveScheme(db::Connection& connection, int32_t tran_type, int32_t user);
// FVisible of a column caption of a bill form; 0 when none.
int32_t CaptionVisible(db::Connection& connection, const std::string& caption, int32_t type);
void SetCaptionVisible(db::Connection& connection, const std::string& caption, int32_t type,
                       int32_t visible);
// The scheme's list of hidden columns; nullopt when it has none.
std::optional<std::string> HiddenColumns(db::Connection& connection, int32_t scheme);
void SetHiddenColumns(db::Connection& connection, int32_t scheme, const std::string& value);
// Takes an entry out of the scheme's hidden columns.
void ShowColumn(db::Connection& connection, int32_t scheme, const std::string& entry);

}  // namespace mrpcalc::repo
