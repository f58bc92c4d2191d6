// Small text cutters for login property strings and composed message texts.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace mrpcalc {

// Cuts text at the first delimiter: returns the part before it and leaves the
// rest (further delimiters included) in text. Without the delimiter the whole
// text is returned and text becomes empty.
std::string SplitFirst(std::string& text, std::string_view delimiter);

// Name of the next "name=value;" pair, trimmed of blanks.
std::string ParseName(std::string& text);

// Value of the next pair: a value wrapped in "{...}" may hold ";"; the rest up
// to and including the next ";" is discarded. Trimmed of blanks.
std::string ParseValue(std::string& text);

// Splits text at every "^|^" and joins the pieces without separator; a piece
// starting "~$~" is replaced by the message loaded for the key after it.
std::string ComposeMessage(std::string_view text,
                           const std::function<std::string(const std::string&)>& load_key);

std::string Trim(std::string_view text);
// Replaces every occurrence of from (non-empty) by to.
std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to);

// The ERP's own test of a FRightUserID text: a plain substring search for
// the user id, so user 1 also matches a list holding 11.
bool RightsTextNamesUser(std::string_view right_user_ids, int32_t user_id);

// Find and replace as the ERP's server does them on text: the letters A-Z
// match a-z. Returns npos when `what` is not in `text`.
size_t FindIgnoringCase(std::string_view text, std::string_view what);
std::string ReplaceAllIgnoringCase(std::string_view text, std::string_view from,
                                   std::string_view to);

}  // namespace mrpcalc
