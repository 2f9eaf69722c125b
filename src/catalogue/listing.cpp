#include "catalogue/listing.h"

#include <algorithm>
#include <array>
#include <vector>

#include "base/text.h"
#include "catalogue/address.h"
#include "transfer/http_header.h"

namespace skyreel {

namespace {

/// Dates and sizes are shorter; this bounds what a hostile row takes.
constexpr std::size_t kLongestStamp = 200;

bool IsFileName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && !HasControlCharacter(name) &&
         name.find_first_of("/\\") == std::string_view::npos;
}

bool IsNumber(std::string_view text, std::size_t shortest, std::size_t longest) {
  return text.size() >= shortest && text.size() <= longest && std::all_of(text.begin(), text.end(), IsDigit);
}

bool IsMonth(std::string_view text) {
  constexpr std::string_view kMonths = "JANFEBMARAPRMAYJUNJULAUGSEPOCTNOVDEC";
  const std::size_t at = text.size() == 3 ? kMonths.find(UpperCase(text)) : std::string_view::npos;
  return at != std::string_view::npos && at % 3 == 0;
}

/// The words of a text, separated by blanks.
std::vector<std::string_view> Words(std::string_view text) {
  std::vector<std::string_view> words;
  for (std::size_t at = 0; at < text.size();) {
    const auto end = static_cast<std::size_t>(
        std::find_if(text.begin() + static_cast<std::ptrdiff_t>(at), text.end(), IsBlank) - text.begin());
    if (end > at) words.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

/// "26-Nov-2026", "2026-11-26", "11/26/2026"; "T05:20" may follow.
bool IsDate(std::string_view word) {
  const std::size_t first = word.find_first_of("-/.");
  if (first == std::string_view::npos) return false;
  const std::size_t second = word.find(word[first], first + 1);
  if (second == std::string_view::npos) return false;
  const std::string_view start = word.substr(0, first), middle = word.substr(first + 1, second - first - 1);
  std::string_view end = word.substr(second + 1);
  end = end.substr(0, end.find('T'));
  return (IsNumber(middle, 1, 2) || IsMonth(middle)) &&
         ((IsNumber(start, 4, 4) && IsNumber(end, 1, 2)) || (IsNumber(start, 1, 2) && IsNumber(end, 4, 4)));
}

bool HasTimeOfDay(std::string_view word) {
  const std::size_t colon = word.find(':');
  return colon != std::string_view::npos && colon > 0 && IsDigit(word[colon - 1]) &&
         IsNumber(word.substr(colon + 1, 2), 2, 2);
}

/// The HTML text with its commonest character references replaced.
std::string Unescaped(std::string_view text) {
  constexpr std::array<std::pair<std::string_view, char>, 7> kNames = {
      {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}, {"#39", '\''}, {"nbsp", ' '}}};
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const auto* const name = std::find_if(kNames.begin(), kNames.end(), [&](const auto& candidate) {
      return text[at] == '&' && text.substr(at + 1).starts_with(candidate.first) &&
             text.substr(at + 1 + candidate.first.size()).starts_with(';');
    });
    result += name != kNames.end() ? name->second : text[at];
    at += name != kNames.end() ? name->first.size() + 2 : 1;
  }
  return result;
}

struct TTag {
  std::string Name;  ///< lower case, "/tr" for an end; "" for a comment and the like
  std::string_view Link;
  bool HasLink = false;
};

/// Reads the tag at `at`, where a '<' stands, and moves `at` past it.
TTag TakeTag(std::string_view page, std::size_t& at) {
  TTag tag;
  const auto until = [&](std::string_view marks) {
    const std::size_t start = at;
    at = std::min(page.find_first_of(marks, at), page.size());
    return page.substr(start, at - start);
  };
  const auto skip = [&](std::string_view marks) {
    at = std::min(page.find_first_not_of(marks, at), page.size());
  };
  constexpr std::string_view kBlanks = " \t\r\n\f";
  if (page.substr(at).starts_with("<!--")) {
    const std::size_t end = page.find("-->", at + 4);
    at = end == std::string_view::npos ? page.size() : end + 3;
    return tag;
  }
  ++at;
  tag.Name = LowerCase(until(" \t\r\n\f>").substr(0, 20));
  for (;;) {
    skip(" \t\r\n\f/");
    if (at == page.size()) return tag;
    if (page[at] == '>') {
      ++at;
      return tag;
    }
    const std::size_t start = at++;  // an attribute has at least one character
    until("= \t\r\n\f/>");
    const std::string_view attribute = page.substr(start, at - start);
    skip(kBlanks);
    if (at == page.size() || page[at] != '=') continue;
    ++at;
    skip(kBlanks);
    std::string_view value;
    if (at < page.size() && (page[at] == '"' || page[at] == '\'')) {
      const char quote = page[at++];
      value = until({&quote, 1});
      at = std::min(at + 1, page.size());
    } else {
      value = until(" \t\r\n\f>");
    }
    if (SameText(attribute, "href")) {
      tag.Link = value;
      tag.HasLink = true;
    }
  }
}

/// The row of a listing that is being read: one link and the text around it.
class TRow {
 public:
  explicit TRow(const TTakeListed& take) : take_(take) {}

  void AddLink(std::string name) {
    // An icon and the name may be two links to one file.
    if (!name_.empty() && name != name_) End();
    name_ = std::move(name);
  }
  void AddText(std::string_view text) {
    if (text_.size() > kLongestStamp) return;
    const std::string plain = Unescaped(text.substr(0, kLongestStamp));
    for (const std::string_view word : Words(plain)) {
      if (!text_.empty()) text_ += ' ';
      text_ += word;
      has_date_ = has_date_ || IsDate(word);
      has_time_ = has_time_ || HasTimeOfDay(word);
    }
  }
  void End() {
    const bool dated = has_date_ && has_time_;
    if (!name_.empty()) take_({name_, dated ? std::string_view(text_) : std::string_view()});
    name_.clear();
    text_.clear();
    has_date_ = has_time_ = false;
  }

 private:
  const TTakeListed& take_;
  std::string name_;
  std::string text_;
  bool has_date_ = false;
  bool has_time_ = false;
};

}  // namespace

std::string LastPart(std::string_view path) {
  std::string name = PercentDecode(path.substr(path.rfind('/') + 1));
  return IsFileName(name) ? name : "";
}

void ReadHtmlListing(std::string_view page, const TTakeListed& take) {
  constexpr std::array<std::string_view, 8> kRowEnds = {"br", "tr", "/tr", "li", "/li", "hr", "pre", "/pre"};
  TRow row(take);
  bool any_link = false;
  bool in_link = false;       // its text is the name once more
  bool in_table_row = false;  // a line break ends no row there
  bool in_script = false;
  for (std::size_t at = 0; at < page.size();) {
    const std::string_view rest = page.substr(at);
    if (in_script && !(StartsWithText(rest, "</script") || StartsWithText(rest, "</style"))) {
      at = std::min(page.find('<', at + 1), page.size());
    } else if (page[at] == '<' && rest.size() > 1 && !IsBlank(rest[1])) {
      const TTag tag = TakeTag(page, at);
      in_script = tag.Name == "script" || tag.Name == "style";
      if (tag.Name == "a" && tag.HasLink) {
        any_link = in_link = true;
        const std::string link = Unescaped(tag.Link);
        std::string name = LastPart(std::string_view(link).substr(0, link.find_first_of("?#")));
        if (!name.empty()) row.AddLink(std::move(name));
      } else if (tag.Name == "/a") {
        in_link = false;
      } else if (std::find(kRowEnds.begin(), kRowEnds.end(), tag.Name) != kRowEnds.end()) {
        row.End();
        in_link = false;
        in_table_row = tag.Name == "tr";
      }
    } else if (page[at] == '\n' || page[at] == '\r') {
      if (!in_table_row) {
        row.End();
        in_link = false;
      }
      ++at;
    } else {
      const std::size_t end = std::min(page.find_first_of("<\r\n", at + 1), page.size());
      if (!in_link) row.AddText(page.substr(at, end - at));
      at = end;
    }
  }
  row.End();
  if (!any_link) throw EListError("the page is not a listing: it holds no link");
}

void ReadFtpListing(std::string_view text, const TTakeListed& take) {
  ForEachLine(text, [&](std::string_view line) {
    const std::vector<std::string_view> words = Words(line.substr(0, 4096));
    if (words.empty()) return;
    const auto end_of = [&](std::size_t word) {
      return static_cast<std::size_t>(words[word].data() - line.data()) + words[word].size();
    };
    // The stamp reaches from one word to another, and the name begins one blank later. The date of a link is
    // not that of its file.
    const auto give = [&](std::size_t first, std::size_t last, bool is_link) {
      std::string_view name = line.substr(std::min(end_of(last) + 1, line.size()));
      if (is_link) name = name.substr(0, name.find(" -> "));
      const auto start = static_cast<std::size_t>(words[first].data() - line.data());
      const std::string_view stamp = line.substr(start, end_of(last) - start);
      if (IsFileName(name)) take({name, is_link ? "" : stamp});
    };
    // -rw-r--r-- 1 ftp ftp 12345 Nov 26 05:21 name; the year may stand for the time, the group may be
    // missing.
    if (words[0].size() >= 10 && words[0].find_first_not_of("-dlbcpsrwxStTx+.") == std::string_view::npos) {
      for (std::size_t i = 2; i + 2 < words.size() && words[0][0] != 'd'; ++i) {
        if (IsMonth(words[i]) && IsNumber(words[i - 1], 1, 20) && IsNumber(words[i + 1], 1, 2) &&
            (HasTimeOfDay(words[i + 2]) || IsNumber(words[i + 2], 4, 4)))
          return give(i - 1, i + 2, words[0][0] == 'l');
      }
      return;
    }
    // 11-26-26  05:21AM       12345 name
    if (words.size() > 3 && IsDigit(words[0][0]) && HasTimeOfDay(words[1])) {
      if (IsNumber(words[2], 1, 20)) give(0, 2, false);
      return;
    }
    const std::string_view name = line.substr(line.rfind('/') + 1);
    if (IsFileName(name)) take({name, {}});
  });
}

void RefuseHtmlPage(std::string_view document, const char* wanted) {
  if (IsHtmlPage(document.substr(0, 1024)))
    throw EListError(std::string("the server sent an HTML page instead of ") + wanted);
}

}  // namespace skyreel
