#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "catalogue/plan.h"

namespace skyreel {

/// So many pictures, and what they may weigh.
class TVolume {
 public:
  std::int64_t Pictures = 0;
  std::int64_t Bytes = 0;     ///< of those whose usual size the description tells
  bool AllSizesKnown = true;  ///< it tells the size of each

  TVolume& operator+=(const TVolume& other);

  /// "3 pictures"; with known sizes "3 pictures, about 2 MB", with only some "3 pictures, more than 2 MB".
  std::string Text() const { return TextWith(""); }
  /// The same of a day: "144 pictures a day, about 130 MB".
  std::string DailyText() const { return TextWith(" a day"); }

 private:
  std::string TextWith(const char* period) const;
};

/// Bytes of one picture as the description tells; nothing when it does not.
std::optional<std::int64_t> TypicalSize(const TDescription& source, const TCombination& combination);

/// What the ticked pictures of a source come to in a day; nothing when only the server knows that.
std::optional<TVolume> DailyVolume(const TDescription& source, const TChoices& choices);

/// What a run of this plan may fetch, without what the lists may still add. `days` as the plan was made with.
TVolume VolumeOf(const TDescription& source, const TPlan& plan, std::optional<int> days);

/// "every 10 minutes", "every 3 hours", "once a day"; "at irregular times" for a source that has no `every`.
std::string CadenceText(const TTimeRules& time);

/// "850 B", "60 KB", "130 MB", "1.2 GB"; a KB has 1,000 bytes.
std::string SizeText(std::int64_t bytes);

}  // namespace skyreel
