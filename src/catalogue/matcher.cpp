#include "catalogue/matcher.h"

#include <algorithm>
#include <array>

#include "base/exceptions.h"
#include "base/text.h"
#include "catalogue/address.h"
#include "catalogue/description.h"
#include "transfer/http_header.h"

namespace skyreel {

namespace {

using TKind = TFieldText::TKind;

/// How many characters a word has at most; 0 for the end of the digits.
std::size_t WidthOf(char word) {
  switch (word) {
    case 'Y':
      return 4;
    case 'b':
    case 'j':
      return 3;
    case 's':
      return 0;
    default:
      return 2;
  }
}

/// The beginning of a text that can be this word of a time; empty when no such word stands there.
std::string_view WordAt(std::string_view text, char word) {
  constexpr std::size_t kMostSeconds = 11;
  const std::size_t width = WidthOf(word);
  const std::string_view taken = text.substr(0, width == 0 ? kMostSeconds : width);
  if (word == 'b') return taken.size() == width ? taken : "";
  const auto end = std::ranges::find_if_not(taken, IsDigit);
  const std::string_view digits = taken.substr(0, static_cast<std::size_t>(end - taken.begin()));
  return width == 0 || digits.size() == width ? digits : "";
}

}  // namespace

/// One text on its way through the pattern.
struct TMatcher::TSearch {
  const TFieldText& Pattern;
  std::size_t StepsLeft;
  std::vector<TCapture> Captures = {};
  std::optional<TDateTime> Slot = {};
};

TMatcher::TMatcher(const TFieldText& pattern, const TFieldValues& values, bool percent_decoded)
    : source_(values.Source),
      zone_(values.Zone),
      dated_(DatedTime(pattern)),
      epochs_(AliasEpochs(values.Source, pattern)) {
  TFieldValues at_epoch = values;
  for (const TDateTime epoch : epochs_) {
    at_epoch.Slot = epoch;
    TFieldText filled;
    for (TFieldText::TPart part : pattern.Parts) {
      if (part.Kind != TKind::Time && part.Kind != TKind::Any) {
        std::string text = FillPart(part, at_epoch);
        part.Text = percent_decoded ? PercentDecode(text) : std::move(text);
        part.Kind = TKind::Plain;
      }
      filled.Parts.push_back(std::move(part));
    }
    patterns_.push_back(std::move(filled));
  }
}

std::optional<TDateTime> TMatcher::SlotOf(std::string_view text) const {
  for (std::size_t i = 0; i < patterns_.size(); ++i) {
    // A name that fits at all is found in few steps; the limit stops names made to take long.
    TSearch search{patterns_[i], 1000 + 16 * text.size()};
    if (!Step(search, 0, text)) continue;
    if ((i == 0 || *search.Slot >= epochs_[i]) &&
        (i + 1 == epochs_.size() || *search.Slot < epochs_[i + 1])) {
      return search.Slot;
    }
  }
  return std::nullopt;
}

bool TMatcher::Step(TSearch& search, std::size_t at, std::string_view rest) const {
  if (search.StepsLeft == 0) return false;
  --search.StepsLeft;
  if (at == search.Pattern.Parts.size()) {
    if (rest.empty()) search.Slot = SlotFrom(search.Captures);
    return search.Slot.has_value();
  }
  const TFieldText::TPart& part = search.Pattern.Parts[at];
  if (part.Kind == TKind::Plain) {
    return rest.starts_with(part.Text) && Step(search, at + 1, rest.substr(part.Text.size()));
  }
  if (part.Kind == TKind::Time) {
    const std::string_view word = WordAt(rest, part.Word);
    if (word.empty()) return false;
    search.Captures.push_back({&part, word});
    if (Step(search, at + 1, rest.substr(word.size()))) return true;
    search.Captures.pop_back();
    return false;
  }
  const std::size_t most = std::min(rest.find('/'), rest.size());
  if (at + 1 == search.Pattern.Parts.size()) return most == rest.size() && Step(search, at + 1, "");
  for (std::size_t taken = 0; taken <= most; ++taken) {
    if (Step(search, at + 1, rest.substr(taken))) return true;
  }
  return false;
}

std::optional<TDateTime> TMatcher::SlotFrom(const std::vector<TCapture>& captures) const {
  if (!dated_) return TDateTime();
  const auto later_of = [this](std::size_t index) {
    return index == 0 ? TDateTime::TSpan(0) : source_.Times[index - 1].Later;
  };
  std::array<std::optional<int>, 128> number;
  std::optional<std::int64_t> seconds;
  TDateTime slot;
  try {
    for (const TCapture& capture : captures) {
      if (capture.Part->Index != *dated_) continue;
      const char word = capture.Part->Word;
      if (word == 's') {
        seconds = ParseNumber<std::int64_t>(capture.Text);
      } else {
        number[static_cast<unsigned char>(word)] =
            word == 'b' ? MonthNumber(capture.Text) : ToInteger(capture.Text);
      }
    }
    const auto of = [&number](char word, int otherwise) {
      return number[static_cast<unsigned char>(word)].value_or(otherwise);
    };
    if (seconds) {
      slot = TDateTime::FromUnixTime(*seconds);
    } else {
      // Two digits of a year mean 1970 to 2069.
      const int short_year = of('y', 0);
      const int year = of('Y', short_year + (short_year < 70 ? 2000 : 1900));
      const bool by_month = number['d'].has_value();
      slot = TDateTime::FromDate(year, by_month ? of('m', of('b', 1)) : 1, of('d', 1), of('H', 0), of('M', 0),
                                 of('S', 0)) +
             std::chrono::days(by_month ? 0 : of('j', 1) - 1) - zone_;
    }
  } catch (const EConvertError&) {
    return std::nullopt;
  } catch (const ERangeError&) {
    return std::nullopt;
  }
  slot = slot - later_of(*dated_);
  // Each word, those of the other times too, must say what the slot says.
  for (const TCapture& capture : captures) {
    const TDateTime time = slot + later_of(capture.Part->Index);
    if (WithLetters(FormatTimeWord(capture.Part->Word, time, zone_), capture.Part->Letters) != capture.Text) {
      return std::nullopt;
    }
  }
  return slot;
}

std::optional<std::size_t> TMatcher::DatedTime(const TFieldText& pattern) {
  std::vector<std::string> words;  // of each time
  for (const TFieldText::TPart& part : pattern.Parts) {
    if (part.Kind != TKind::Time) continue;
    words.resize(std::max(words.size(), part.Index + 1));
    words[part.Index] += part.Word;
  }
  const auto dated = std::ranges::find_if(words, HoldsDate);
  if (dated == words.end()) return std::nullopt;
  return static_cast<std::size_t>(dated - words.begin());
}

std::vector<TDateTime> AliasEpochs(const TDescription& source, const TFieldText& text) {
  std::vector<TDateTime> epochs;
  for (const TFieldText::TPart& part : text.Parts) {
    if (part.Kind != TKind::Alias) continue;
    for (const TAliasRow& row : source.Aliases[part.Index].Rows) {
      if (row.From) epochs.push_back(*row.From);
    }
  }
  std::ranges::sort(epochs);
  const TDateTime early = TDateTime::FromDate(2000, 1, 1);
  epochs.insert(epochs.begin(),
                epochs.empty() ? early : std::min(early, epochs.front() - std::chrono::days(1)));
  epochs.erase(std::unique(epochs.begin(), epochs.end()), epochs.end());
  return epochs;
}

}  // namespace skyreel
