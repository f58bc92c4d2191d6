// The three rights checks that decide what an ERP user may see.
#pragma once

#include <cstdint>
#include <string>

#include "db/connection.h"
#include "frame/host.h"
#include "record/text.h"

namespace mrpcalc {

// Object types of data rights.
inline constexpr int16_t kDataRightSuppliers = 2;
inline constexpr int16_t kDataRightWarehouses = 4;
inline constexpr int32_t kAdministratorsGroup = 1;   // t_Group.FGroupID
inline constexpr int32_t kRightsGroupOne = 1;         // t_GroupAccess.FGroupID

// True when the user is a member of user group 1, the administrators.
bool IsAdministrator(db::Connection& connection, int32_t user_id);

// True when the user holds a right of rights group 1 (FType other than 0),
// himself or through a user group he belongs to, and rights group 1 is
// declared in t_GroupAccessType.
bool HoldsRightsGroupOneRight(db::Connection& connection, int32_t user_id);

// The three answers together, as callers combine them.
struct UserRights {
  bool administrator = false;
  bool group_right = false;
  bool data_rights = false;  // data rights restrict the user for the object type

  // Neither administrator nor holder of a rights-group-1 right.
  bool SeesNothing() const { return !administrator && !group_right; }
  // Rows are filtered by the user's id in FRightUserID.
  bool Filtered() const { return !administrator && data_rights; }
};

// The user's name where t_User keeps one (the ERP's columns that mrpcalc
// relies on name none); "" otherwise.
std::string UserName(db::Connection& connection, int32_t user_id);

UserRights CheckUserRights(db::Connection& connection, DataRights& data_rights, int32_t user_id,
                           int16_t object_type);


}  // namespace mrpcalc
