#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace skyreel {

/// Comma text: a list of strings in one line, separated by commas. An item that is empty or holds a blank, a
/// control character, a comma or a double quote is put in double quotes, and its double quotes are doubled.
std::string ToCommaText(const std::vector<std::string>& items);

/// The items of a comma text. Outside quotes, blanks and control characters separate items too (blanks around
/// a comma count as part of it). A quote that is never closed ends with the text. Empty text gives no items.
/// Never fails.
std::vector<std::string> FromCommaText(std::string_view text);

}  // namespace skyreel
