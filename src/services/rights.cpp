// Rights checks.
#include "services/rights.h"

namespace mrpcalc {

bool IsAdministrator(db::Connection& connection, int32_t user_id) {
  return !connection
              .Query("select t_User.FUserID from t_Group, t_User"
                     " where t_Group.FUserID = t_User.FUserID and t_User.FUserID = ?"
                     " and t_Group.FGroupID = ?",
                     {user_id, kAdministratorsGroup})
              ->Eof();
}

bool HoldsRightsGroupOneRight(db::Connection& connection, int32_t user_id) {
  // t_GroupAccess.FUserID holds a user id or a user-group id: a right held
  // by the user himself, or by a user group he is a member of, counts.
  return !connection
              .Query("select 1 from t_GroupAccessType a where a.FGroupID = ? and ("
                     " exists (select 1 from t_GroupAccess r"
                     "  where r.FGroupID = a.FGroupID and r.FUserID = ? and r.FType <> 0)"
                     " or exists (select 1 from t_Group g"
                     "  inner join t_GroupAccess r on g.FGroupID = r.FUserID"
                     "  where g.FUserID = ? and r.FGroupID = a.FGroupID and r.FType <> 0))",
                     {kRightsGroupOne, user_id, user_id})
              ->Eof();
}

std::string UserName(db::Connection& connection, int32_t user_id) {
  auto user = connection.Query("select * from t_User where FUserID = ?", {user_id});
  if (user->Eof() || user->ColumnIndex("FName") < 0) return {};
  const Variant& v = user->Field("FName");
  return v.IsNull() || v.IsEmpty() ? std::string() : v.ToText();
}

UserRights CheckUserRights(db::Connection& connection, DataRights& data_rights, int32_t user_id,
                           int16_t object_type) {
  UserRights r;
  r.administrator = IsAdministrator(connection, user_id);
  r.group_right = HoldsRightsGroupOneRight(connection, user_id);
  r.data_rights = data_rights.Applies(user_id, object_type);
  return r;
}


}  // namespace mrpcalc
