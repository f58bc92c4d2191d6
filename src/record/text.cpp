// Text cutters.
#include "record/text.h"

namespace mrpcalc {

std::string Trim(std::string_view text) {
  size_t b = 0, e = text.size();
  while (b < e && text[b] == ' ') ++b;
  while (e > b && text[e - 1] == ' ') --e;
  return std::string(text.substr(b, e - b));
}

namespace {

// The letters A-Z as a-z; the length stays, so places in it are places in
// the text.
std::string Folded(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

// Replaces each place where `from` is found in `searched` (the text, or a
// form of it of the same length) by `to`.
std::string ReplaceFound(std::string_view text, std::string_view searched, std::string_view from,
                         std::string_view wanted, std::string_view to) {
  if (from.empty()) return std::string(text);
  std::string out;
  size_t pos = 0;
  while (true) {
    const size_t hit = searched.find(wanted, pos);
    if (hit == std::string_view::npos) break;
    out.append(text.substr(pos, hit - pos));
    out.append(to);
    pos = hit + from.size();
  }
  out.append(text.substr(pos));
  return out;
}

}  // namespace

std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to) {
  return ReplaceFound(text, text, from, from, to);
}

bool RightsTextNamesUser(std::string_view right_user_ids, int32_t user_id) {
  return right_user_ids.find(std::to_string(user_id)) != std::string_view::npos;
}

size_t FindIgnoringCase(std::string_view text, std::string_view what) {
  return Folded(text).find(Folded(what));
}

std::string ReplaceAllIgnoringCase(std::string_view text, std::string_view from,
                                   std::string_view to) {
  return ReplaceFound(text, Folded(text), from, Folded(from), to);
}

std::string SplitFirst(std::string& text, std::string_view delimiter) {
  if (text.empty()) return {};
  const size_t hit = delimiter.empty() ? std::string::npos : text.find(delimiter);
  if (hit == std::string::npos) {
    std::string all = std::move(text);
    text.clear();
    return all;
  }
  std::string head = text.substr(0, hit);
  text.erase(0, hit + delimiter.size());
  return head;
}

std::string ParseName(std::string& text) { return Trim(SplitFirst(text, "=")); }

std::string ParseValue(std::string& text) {
  text = Trim(text);
  std::string value;
  if (!text.empty() && text.front() == '{') {
    text.erase(0, 1);
    value = SplitFirst(text, "}");
    SplitFirst(text, ";");
  } else {
    value = SplitFirst(text, ";");
  }
  return Trim(value);
}

std::string ComposeMessage(std::string_view text,
                           const std::function<std::string(const std::string&)>& load_key) {
  static constexpr std::string_view kSeparator = "^|^";
  static constexpr std::string_view kKeyMark = "~$~";
  std::string out;
  size_t pos = 0;
  while (pos <= text.size()) {
    size_t hit = text.find(kSeparator, pos);
    if (hit == std::string_view::npos) hit = text.size();
    const std::string_view piece = text.substr(pos, hit - pos);
    if (piece.substr(0, kKeyMark.size()) == kKeyMark) {
      out += load_key(std::string(piece.substr(kKeyMark.size())));
    } else {
      out += piece;
    }
    pos = hit + kSeparator.size();
  }
  return out;
}

}  // namespace mrpcalc
