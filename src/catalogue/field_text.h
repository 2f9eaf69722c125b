#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/date_time.h"

namespace skyreel {

struct TDescription;
struct TFind;

/// The chosen row of each variable, in the order of the variables.
using TCombination = std::vector<std::size_t>;

/// What a server's list said of one slot.
struct TFound {
  std::string Text;               ///< that matched
  std::vector<std::string> Read;  ///< in the order of TFind::Read
  bool operator==(const TFound&) const = default;
};

/// A text of a description in which fields stand for variables and times: "{sheet}_{%Y%m%d}.gif". It is read
/// once and filled often.
struct TFieldText {
  enum class TKind {
    Plain,     ///< Text itself
    Variable,  ///< column Column (0 is the value) of the chosen row of variable Index
    Alias,     ///< alias Index at the slot
    Time,      ///< word Word of a time: Index 0 is the slot, n the n-th of TDescription::Times
    Found,     ///< the name that find matched
    Read,      ///< text Index of TFind::Read
    TileX,
    TileY,
    Any,  ///< {*}
  };
  enum class TLetters { AsTheyAre, Upper, Lower };
  struct TPart {
    TKind Kind = TKind::Plain;
    std::string Text;
    std::size_t Index = 0;
    std::size_t Column = 0;
    char Word = 0;  ///< one of "YmdHMSjybs"
    TLetters Letters = TLetters::AsTheyAre;
    int Field = 0;           ///< which "{...}" it comes from, counted from 1; 0 outside
    bool First = true;       ///< the first part of its field
    std::size_t Offset = 0;  ///< of that field in the text
  };

  std::vector<TPart> Parts;

  bool Empty() const { return Parts.empty(); }
  bool Has(TKind kind) const;
  /// Whether it holds a text that only the server knows.
  bool NeedsFound() const { return Has(TKind::Found) || Has(TKind::Read); }
  /// The words of its times, each as often as it occurs.
  std::string TimeWords() const;
};

/// The names that a text may use, and where it stands.
struct TFieldNames {
  const TDescription& Source;   ///< its variables, aliases and times
  const TFind* Find = nullptr;  ///< gives {found} and the names of what is read
  bool Times = true, Tiles = false, Any = false;
};

/// Reads a text. Calls `problem` for each error, with its offset in the text; an "x" replaces the faulty
/// field.
TFieldText ParseFieldText(std::string_view text, const TFieldNames& names,
                          const std::function<void(std::size_t offset, const std::string& problem)>& problem);

/// What replaces the fields.
struct TFieldValues {
  const TDescription& Source;
  const TCombination& Rows;
  std::optional<TDateTime> Slot = {};  ///< without: "?" for each time
  TDateTime::TSpan Zone{0};            ///< of the clock that the times show
  const TFound* Found = nullptr;       ///< without: "?" for what the server knows
  int TileX = 0, TileY = 0, TileDigits = 1;
};

/// The text with its fields replaced. {*} stays as it is.
std::string Fill(const TFieldText& text, const TFieldValues& values);

/// The text that replaces one part.
std::string FillPart(const TFieldText::TPart& part, const TFieldValues& values);

/// A word of a time, on a clock that is `zone` ahead of UTC. Seconds since 1970 know no zone.
std::string FormatTimeWord(char word, TDateTime time, TDateTime::TSpan zone);

/// The text in the letters that a field asks for.
std::string WithLetters(std::string text, TFieldText::TLetters letters);

/// Whether words of one time hold a date: year, month and day; year and day of the year; or seconds.
bool HoldsDate(std::string_view words);

}  // namespace skyreel
