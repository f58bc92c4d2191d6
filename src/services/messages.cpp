// Message catalogs and the lookup.
#include "services/messages.h"

#include <unordered_map>

#include "frame/props.h"
#include "record/text.h"
#include "record/variant.h"

namespace mrpcalc {
namespace {

struct Entry {
  const char* zh;
  const char* en;
};

// Keys are the Chinese texts, as in the ERP's resource files.
const std::unordered_map<std::string, Entry>& Catalog() {
  static const std::unordered_map<std::string, Entry> catalog = [] {
    const Entry entries[] = {
        {"以下产品的Bom子件存在死循环,请修改！",
         "The BOM children of the following products lead back to the product; please correct "
         "them!"},
        {"Zorvik提示", "Zorvik message"},
        {"第", "Line"},
        {"行，物料【", ": the auxiliary property of material ["},
        {"】的辅助属性不能为空！", "] must not be empty!"},
        {"该记录已经关闭，不能再次关闭！", "This record is already closed and cannot be closed again!"},
        {"该采购计划单中存在已关闭记录！", "This purchase plan has closed lines!"},
        {"该采购计划单已与采购订单", "This purchase plan is linked to the purchase orders"},
        {"关联！", "!"},
        {"外购", "Purchased"},
        {"组装", "Assembled"},
        {"自制", "Self-made"},
        {"其他", "Other"},
        {"生产任务单", "Production task"},
        {"委外加工单", "Outsourcing task"},
        {"现金", "Cash"},
    };
    std::unordered_map<std::string, Entry> map;
    for (const auto& e : entries) map.emplace(e.zh, e);
    return map;
  }();
  return catalog;
}

}  // namespace

bool IsEnglish(const std::string& language) {
  const std::string l = FoldKey(language);
  return l == "en" || l.rfind("en-", 0) == 0 || l.rfind("en_", 0) == 0;
}

std::string CatalogResourceLoader::LoadString(const std::string& key, const std::string& language) {
  auto it = Catalog().find(key);
  if (it == Catalog().end()) return key;
  return IsEnglish(language) ? it->second.en : it->second.zh;
}

const std::string& Messages::Language() {
  if (language_.empty()) {
    if (login_) {
      try {
        language_ = GetPropValue(PropsString(*login_), "Language");
      } catch (...) {
        language_.clear();
      }
    }
    if (language_.empty() && loader_) language_ = loader_->CurrentLanguage();
    if (language_.empty()) language_ = "zh";
  }
  return language_;
}

std::string Messages::ComposeMessage(const std::string& text) noexcept {
  try {
    return mrpcalc::ComposeMessage(
        text, [this](const std::string& key) { return LoadResText(key, kSpacingNone); });
  } catch (...) {
    return text;
  }
}

std::string Messages::LoadResText(const std::string& text, int16_t spacing_mode) noexcept {
  try {
    if (text.find("^|^") != std::string::npos) return ComposeMessage(text);
    const std::string key = Trim(text);
    const size_t at = key.empty() ? 0 : text.find(key);
    std::string prefix = text.substr(0, at);
    std::string suffix = text.substr(at + key.size());
    const std::string& language = Language();
    if (IsEnglish(language)) {
      if ((spacing_mode == kSpacingBefore || spacing_mode == kSpacingBoth) && prefix.empty()) {
        prefix = " ";
      }
      if ((spacing_mode == kSpacingAfter || spacing_mode == kSpacingBoth) && suffix.empty()) {
        suffix = " ";
      }
    }
    const std::string loaded = loader_ ? loader_->LoadString(key, language) : key;
    return prefix + loaded + suffix;
  } catch (...) {
    return text;
  }
}

}  // namespace mrpcalc
