// Method table of MrpDataInfo.
#include "mrp/mrp_data_info.h"

namespace mrpcalc {

ClassSpec MrpDataInfoClass() {
  const std::string id = kMrpDataInfoProgId;
  using T = ParamType;
  return {id,
          [](const Host& host) { return std::make_unique<MrpDataInfo>(host); },
          {
              TransModeMethod(),
              Unbuilt(id, "GetMrpReportData",
                      {In("sDsn", T::kString), In("vctListData", T::kVector),
                       OptRef("dctFilter", T::kDictionary), OptRef("strGroupBy", T::kString, ""),
                       Opt("sStockKey", T::kString, ""), Opt("UserID", T::kLong, int32_t{0}),
                       OptRef("FrmType", T::kInteger, int32_t{0})},
                      "Vector"),
              Unbuilt(id, "GetBomAllChildRs",
                      {In("sDsn", T::kString), In("BomInterID", T::kLong), In("PItemID", T::kLong),
                       In("SuggestQty", T::kDouble), In("Qty", T::kDouble),
                       Opt("strDate", T::kString, "")}),
          }};
}

}  // namespace mrpcalc
