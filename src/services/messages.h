// Localised message texts: LoadResText and ComposeMessage over the message
// catalogs shipped with the program (Chinese and English).
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "frame/host.h"

namespace mrpcalc {

// Spacing modes of LoadResText; they act in English only, where words loaded
// into Chinese-built sentences need blanks around them.
enum SpacingMode : int16_t {
  kSpacingNone = 0,
  kSpacingBefore = 1,
  kSpacingAfter = 2,
  kSpacingBoth = 3,
};

// The shipped catalogs: every message key the component uses, in Chinese
// (the key itself) and English. Unknown keys come back unchanged.
class CatalogResourceLoader : public ResourceLoader {
 public:
  explicit CatalogResourceLoader(std::string current_language)
      : current_language_(std::move(current_language)) {}
  std::string LoadString(const std::string& key, const std::string& language) override;
  std::string CurrentLanguage() override { return current_language_; }

 private:
  std::string current_language_;
};

bool IsEnglish(const std::string& language);

// The message (its catalog key) that lists the products whose bills lead
// back into themselves.
inline constexpr const char* kBomLoopMessage = "以下产品的Bom子件存在死循环,请修改！";

class Messages {
 public:
  Messages(std::shared_ptr<LoginProperties> login, std::shared_ptr<ResourceLoader> loader)
      : login_(std::move(login)), loader_(std::move(loader)) {}

  // The text for a key, with the blanks around the key kept: the key is the
  // trimmed text, prefix and suffix are what surrounds it. A text holding
  // "^|^" is composed piece by piece. Never throws: a failing lookup gives
  // the key itself, and an exception in flight is left as it is.
  std::string LoadResText(const std::string& text, int16_t spacing_mode) noexcept;
  std::string ComposeMessage(const std::string& text) noexcept;

  // The language: the login's "Language" property, else the loader's
  // current language, else Chinese ("zh"). Cached after the first use.
  const std::string& Language();

 private:
  std::shared_ptr<LoginProperties> login_;
  std::shared_ptr<ResourceLoader> loader_;
  std::string language_;
};

}  // namespace mrpcalc
