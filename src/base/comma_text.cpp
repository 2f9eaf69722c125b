#include "base/comma_text.h"

#include <algorithm>

#include "base/text.h"

namespace skyreel {

namespace {

bool NeedsQuotes(const std::string& item) {
  return item.empty() ||
         std::any_of(item.begin(), item.end(), [](char c) { return IsBlank(c) || c == ',' || c == '"'; });
}

}  // namespace

std::string ToCommaText(const std::vector<std::string>& items) {
  std::string text;
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i > 0) text += ',';
    if (!NeedsQuotes(items[i])) {
      text += items[i];
      continue;
    }
    text += '"';
    for (const char c : items[i]) {
      if (c == '"') text += '"';
      text += c;
    }
    text += '"';
  }
  return text;
}

std::vector<std::string> FromCommaText(std::string_view text) {
  std::vector<std::string> items;
  std::size_t i = 0;
  const auto skip_blanks = [&] {
    while (i < text.size() && IsBlank(text[i])) ++i;
  };
  skip_blanks();
  while (i < text.size()) {
    std::string item;
    if (text[i] == '"') {
      for (++i; i < text.size(); ++i) {
        if (text[i] != '"') {
          item += text[i];
        } else if (i + 1 < text.size() && text[i + 1] == '"') {
          item += text[i++];
        } else {
          ++i;
          break;
        }
      }
    } else {
      while (i < text.size() && !IsBlank(text[i]) && text[i] != ',') item += text[i++];
    }
    items.push_back(std::move(item));
    skip_blanks();
    if (i < text.size() && text[i] == ',') {
      ++i;
      skip_blanks();
      if (i == text.size()) items.emplace_back();
    }
  }
  return items;
}

}  // namespace skyreel
