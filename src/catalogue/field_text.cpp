#include "catalogue/field_text.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "base/text.h"
#include "catalogue/description.h"

namespace skyreel {

namespace {

using TKind = TFieldText::TKind;
using TLetters = TFieldText::TLetters;

constexpr std::string_view kTimeWords = "YmdHMSjybs";
constexpr std::size_t kMostAny = 4;

/// The index of the item of that name, or nothing.
template <typename TItems>
std::optional<std::size_t> IndexOf(const TItems& items, std::string_view name) {
  const auto found = std::ranges::find(items, name, [](const auto& item) { return item.Name; });
  if (found == items.end()) return std::nullopt;
  return static_cast<std::size_t>(found - items.begin());
}

using TTakeProblem = std::function<void(std::size_t, const std::string&)>;

/// Reads one text from its beginning to its end.
class TParser {
 public:
  TParser(std::string_view text, const TFieldNames& names, const TTakeProblem& problem)
      : text_(text), names_(names), problem_(problem) {}

  TFieldText Parse() {
    while (at_ < text_.size()) {
      const char c = text_[at_];
      if (c != '{' && c != '}') {
        Plain(text_.substr(at_, text_.find_first_of("{}", at_) - at_));
      } else if (text_.substr(at_ + 1, 1) == text_.substr(at_, 1)) {
        Plain(text_.substr(at_, 1));
        ++at_;
      } else if (c == '}') {
        problem_(at_++, "'}' without '{'; write '}}' for a brace");
      } else if (!Braces()) {
        break;
      }
    }
    CheckAny();
    return std::move(result_);
  }

 private:
  /// Adds text outside fields, joined with such text before it.
  void Plain(std::string_view text) {
    at_ += text.size();
    if (result_.Parts.empty() || result_.Parts.back().Field != 0) result_.Parts.emplace_back();
    result_.Parts.back().Text += text;
  }

  /// Reads "{...}". False when it is never closed.
  bool Braces() {
    const std::size_t close = text_.find_first_of("{}", at_ + 1);
    if (close == std::string_view::npos || text_[close] == '{') {
      problem_(at_, "'{' without '}'; write '{{' for a brace");
      return false;
    }
    const std::string_view field = text_.substr(at_ + 1, close - at_ - 1);
    ++field_;
    Field(field);
    at_ = close + 1;
    return true;
  }

  void Field(std::string_view field) {
    const std::size_t bar = field.rfind('|');
    const std::string_view body = field.substr(0, bar);
    TLetters letters = TLetters::AsTheyAre;
    if (bar != std::string_view::npos) {
      const std::string_view word = field.substr(bar + 1);
      if (word != "upper" && word != "lower") {
        return Problem("'|" + std::string(word) + "' is neither '|upper' nor '|lower'");
      }
      letters = word == "upper" ? TLetters::Upper : TLetters::Lower;
    }
    if (body.starts_with('%')) return Time(0, body, letters);
    if (const std::size_t colon = body.find(':'); colon != std::string_view::npos) {
      const auto index = IndexOf(names_.Source.Times, body.substr(0, colon));
      if (!index) return Problem("no time '" + std::string(body.substr(0, colon)) + "' in [time] times");
      return Time(*index + 1, body.substr(colon + 1), letters);
    }
    const auto part = Named(body);
    if (!part) return;
    if (letters != TLetters::AsTheyAre && part->Kind != TKind::Variable && part->Kind != TKind::Alias) {
      return Problem("only a variable or a time may end with '|upper' or '|lower'");
    }
    Add(*part, letters);
  }

  /// What a name stands for. Reports a name that nothing defines.
  std::optional<TFieldText::TPart> Named(std::string_view body) {
    TFieldText::TPart part;
    const std::string_view name = body.substr(0, body.find('.'));
    if (const auto variable = IndexOf(names_.Source.Variables, name)) {
      part.Kind = TKind::Variable;
      part.Index = *variable;
      if (name.size() == body.size()) return part;
      const auto& columns = names_.Source.Variables[*variable].Columns;
      const auto column = std::ranges::find(columns, body.substr(name.size() + 1));
      part.Column = static_cast<std::size_t>(column - columns.begin()) + 1;
      if (column != columns.end()) return part;
    } else if (const auto alias = IndexOf(names_.Source.Aliases, body)) {
      part.Kind = TKind::Alias;
      part.Index = *alias;
      return part;
    } else if (body == "*" && names_.Any) {
      part.Kind = TKind::Any;
      return part;
    } else if (body == "*") {
      Problem("'{*}' may stand in match alone");
      return std::nullopt;
    } else if (names_.Tiles && (body == "x" || body == "y")) {
      part.Kind = body == "x" ? TKind::TileX : TKind::TileY;
      return part;
    } else if (names_.Find && names_.Find->Kind != TFind::TKind::WmsTime && body == "found") {
      part.Kind = TKind::Found;
      return part;
    } else if (const auto read = names_.Find ? IndexOf(names_.Find->Read, body) : std::nullopt) {
      part.Kind = TKind::Read;
      part.Index = *read;
      return part;
    }
    Problem("nothing defines '{" + std::string(body) + "}' here");
    return std::nullopt;
  }

  void Time(std::size_t index, std::string_view pattern, TLetters letters) {
    if (!names_.Times) return Problem("a time cannot stand here");
    if (pattern.find('%') == std::string_view::npos) return Problem("this time has no word such as %Y");
    TFieldText::TPart plain;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
      if (pattern[i] != '%') {
        plain.Text += pattern[i];
        continue;
      }
      const char word = ++i < pattern.size() ? pattern[i] : '\0';
      if (kTimeWords.find(word) == std::string_view::npos) {
        return Problem("'%" + std::string(pattern.substr(i, 1)) +
                       "' is not a word of a time; those are %Y %m %d %H %M %S %j " + "%y %b %s");
      }
      if (!plain.Text.empty()) Add(std::exchange(plain, {}), letters);
      TFieldText::TPart part;
      part.Kind = TKind::Time;
      part.Index = index;
      part.Word = word;
      Add(std::move(part), letters);
    }
    if (!plain.Text.empty()) Add(std::move(plain), letters);
  }

  void Add(TFieldText::TPart part, TLetters letters) {
    part.Text = WithLetters(std::move(part.Text), letters);
    part.Letters = letters;
    part.Field = field_;
    part.First = result_.Parts.empty() || result_.Parts.back().Field != field_;
    part.Offset = at_;
    result_.Parts.push_back(std::move(part));
  }

  void Problem(const std::string& text) {
    problem_(at_, text);
    // Something stands there, so that the rest of the text makes the sense that it was meant to.
    TFieldText::TPart part;
    part.Text = "x";
    Add(std::move(part), TLetters::AsTheyAre);
  }

  void CheckAny() {
    const auto& parts = result_.Parts;
    std::size_t count = 0;
    for (std::size_t i = 0; i < parts.size(); ++i) {
      if (parts[i].Kind != TKind::Any) continue;
      if (++count == kMostAny + 1) problem_(parts[i].Offset, "more than four '{*}'");
      if (i + 1 == parts.size()) continue;
      if (parts[i + 1].Kind == TKind::Any || parts[i + 1].Kind == TKind::Time) {
        problem_(parts[i].Offset, "'{*}' just before a time or another '{*}'");
      }
    }
  }

  const std::string_view text_;
  const TFieldNames& names_;
  const TTakeProblem& problem_;
  TFieldText result_;
  std::size_t at_ = 0;
  int field_ = 0;
};

int DayOfYear(TDateTime time) {
  const auto days = (time.Midnight() - TDateTime::FromDate(time.Parts().Year, 1, 1)) / std::chrono::days(1);
  return static_cast<int>(days) + 1;
}

}  // namespace

bool TFieldText::Has(TKind kind) const {
  return std::ranges::any_of(Parts, [kind](const TPart& part) { return part.Kind == kind; });
}

std::string TFieldText::TimeWords() const {
  std::string words;
  for (const TPart& part : Parts) {
    if (part.Kind == TKind::Time) words += part.Word;
  }
  return words;
}

std::string WithLetters(std::string text, TLetters letters) {
  if (letters == TLetters::Upper) return UpperCase(text);
  if (letters == TLetters::Lower) return LowerCase(text);
  return text;
}

TFieldText ParseFieldText(std::string_view text, const TFieldNames& names, const TTakeProblem& problem) {
  return TParser(text, names, problem).Parse();
}

std::string FormatTimeWord(char word, TDateTime time, TDateTime::TSpan zone) {
  const TDateTime::TParts parts = (time + zone).Parts();
  switch (word) {
    case 'Y':
      return Digits(parts.Year, 4);
    case 'y':
      return Digits(parts.Year % 100, 2);
    case 'm':
      return Digits(parts.Month, 2);
    case 'b':
      return FormatDateTime("mmm", time + zone);
    case 'd':
      return Digits(parts.Day, 2);
    case 'j':
      return Digits(DayOfYear(time + zone), 3);
    case 'H':
      return Digits(parts.Hour, 2);
    case 'M':
      return Digits(parts.Minute, 2);
    case 'S':
      return Digits(parts.Second, 2);
    default:
      return std::to_string(time.UnixTime());
  }
}

std::string FillPart(const TFieldText::TPart& part, const TFieldValues& values) {
  // A time that is not known becomes one "?", however many words it has.
  const bool in_time = part.Kind == TKind::Time || (part.Kind == TKind::Plain && part.Field != 0);
  if (in_time && !values.Slot) return part.First ? "?" : "";
  const auto& source = values.Source;
  const auto digits = static_cast<std::size_t>(values.TileDigits);
  switch (part.Kind) {
    case TKind::Plain:
      return part.Text;
    case TKind::Variable: {
      const TRow& row = source.Variables[part.Index].Rows[values.Rows[part.Index]];
      return WithLetters(part.Column == 0 ? row.Value : row.Columns[part.Column - 1], part.Letters);
    }
    case TKind::Alias:
      return values.Slot ? WithLetters(source.Aliases[part.Index].At(*values.Slot), part.Letters) : "?";
    case TKind::Time: {
      const auto later = part.Index == 0 ? TDateTime::TSpan(0) : source.Times[part.Index - 1].Later;
      return WithLetters(FormatTimeWord(part.Word, *values.Slot + later, values.Zone), part.Letters);
    }
    case TKind::Found:
      return values.Found ? values.Found->Text : "?";
    case TKind::Read:
      return values.Found ? values.Found->Read[part.Index] : "?";
    case TKind::TileX:
      return Digits(values.TileX, digits);
    case TKind::TileY:
      return Digits(values.TileY, digits);
    case TKind::Any:
      return "{*}";
  }
  return "";
}

std::string Fill(const TFieldText& text, const TFieldValues& values) {
  std::string filled;
  for (const TFieldText::TPart& part : text.Parts) filled += FillPart(part, values);
  return filled;
}

bool HoldsDate(std::string_view words) {
  const auto has = [words](std::string_view any) { return words.find_first_of(any) != words.npos; };
  return has("s") || (has("Yy") && (has("j") || (has("mb") && has("d"))));
}

}  // namespace skyreel
