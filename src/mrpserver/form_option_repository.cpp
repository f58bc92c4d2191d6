// The stock-status option on the ERP database.
#include "mrpserver/form_option_repository.h"

#include "record/column_value.h"

namespace mrpcalc::repo {
namespace {

std::string HideColumnsEntry(db::Connection& c) {
  return c.dialect().CaseFolded("FKey") + " = 'hidecolumns'";
}

int32_t LongOr0(const Variant& v) { return v.IsEmpty() || v.IsNull() ? 0 : v.ToLong(); }

}  // namespace

int32_t ActiveScheme(db::Connection& c, int32_t tran_type, int32_t user) {
  return LongOr0(c.QueryValue(
      "select FSchemeID from ICSchemeProfile where FStatus = 2 and FTranType = ? and FUserID = ?",
      {tran_type, user}));
}

int32_t CaptionVisible(db::Connection& c, const std::string& caption, int32_t type) {
  return LongOr0(
      c.QueryValue("select FVisible from ICChatBillTitle where FColCaption = ? and FTypeID = ?",
                   {caption, type}));
}

void SetCaptionVisible(db::Connection& c, const std::string& caption, int32_t type,
                       int32_t visible) {
  c.Execute("update ICChatBillTitle set FVisible = ? where FColCaption = ? and FTypeID = ?",
            {visible, caption, type});
}

std::optional<std::string> HiddenColumns(db::Connection& c, int32_t scheme) {
  auto rs = c.Query("select FValue from ICSchemeProfileEntry where " + HideColumnsEntry(c) +
                        " and FSchemeID = ?",
                    {scheme});
  if (rs->Eof()) return std::nullopt;
  return TextValue(rs->Field("FValue"));
}

void SetHiddenColumns(db::Connection& c, int32_t scheme, const std::string& value) {
  c.Execute("update ICSchemeProfileEntry set FValue = ? where " + HideColumnsEntry(c) +
                " and FSchemeID = ?",
            {value, scheme});
}

void ShowColumn(db::Connection& c, int32_t scheme, const std::string& entry) {
  c.Execute("update ICSchemeProfileEntry set FValue = replace(FValue, ?, '') where " +
                HideColumnsEntry(c) + " and FSchemeID = ?",
            {entry, scheme});
}

}  // namespace mrpcalc::repo
