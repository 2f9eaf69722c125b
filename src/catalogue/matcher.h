#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/date_time.h"
#include "catalogue/field_text.h"

namespace skyreel {

/// Finds the slot in texts of a server's list. Of the pattern only times and {*} are open.
class TMatcher {
 public:
  /// The pattern with the chosen values of the variables, and the zone of its times. With `percent_decoded`
  /// the pattern is a piece of an address, and the texts are decoded.
  TMatcher(const TFieldText& pattern, const TFieldValues& values, bool percent_decoded);

  /// The slot of a text that matches as a whole, letter case included, and whose times agree with one
  /// another; day zero when the pattern holds no time. The work grows no faster than the text.
  std::optional<TDateTime> SlotOf(std::string_view text) const;

  /// The time of the pattern that tells the slot: 0 for the slot itself, n for the n-th of
  /// TDescription::Times. Nothing when no time holds a date.
  static std::optional<std::size_t> DatedTime(const TFieldText& pattern);

 private:
  struct TCapture {
    const TFieldText::TPart* Part;
    std::string_view Text;
  };
  struct TSearch;

  bool Step(TSearch& search, std::size_t part, std::string_view rest) const;
  std::optional<TDateTime> SlotFrom(const std::vector<TCapture>& captures) const;

  const TDescription& source_;
  const TDateTime::TSpan zone_;
  std::optional<std::size_t> dated_;
  /// The aliases of the pattern have one value from each of these times on, and each gives one pattern.
  std::vector<TDateTime> epochs_;
  std::vector<TFieldText> patterns_;
};

/// The times from which on the aliases of a text have other values, after a time before all of these.
std::vector<TDateTime> AliasEpochs(const TDescription& source, const TFieldText& text);

}  // namespace skyreel
