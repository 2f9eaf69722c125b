#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace skyreel {

/// Comma text: a list of strings in one line. Items are separated by commas; an item that is empty or holds
/// a blank, a control character, a comma or a double quote stands in double quotes, inside which a double
/// quote is written twice.
std::string ToCommaText(const std::vector<std::string>& items);

/// The items of a comma text. Outside quotes, blanks and control characters separate items like commas do
/// (blanks around a comma count as part of it), and a quote that is never closed ends with the text.
/// Empty text gives no items. Never fails.
std::vector<std::string> FromCommaText(std::string_view text);

}  // namespace skyreel
