#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/date_time.h"
#include "catalogue/description.h"

namespace skyreel {

// The small values of a description. Each gives nothing for a text that is not one.

/// "1d6h", "90m", "0s": whole numbers with d, h, m, s, the largest unit first, each once; at most 100 years.
std::optional<TDateTime::TSpan> ParseDuration(std::string_view text);
/// A duration after an optional "+" or "-": "-1m".
std::optional<TDateTime::TSpan> ParseSignedDuration(std::string_view text);
/// "UTC", or "-12:00" to "+14:00": how far the clock is ahead of UTC.
std::optional<TDateTime::TSpan> ParseZone(std::string_view text);
/// "0300": a time of the day.
std::optional<TDateTime::TSpan> ParseTimeOfDay(std::string_view text);
/// "2867B", "60KB", "40MB", "1GB", in bytes; a KB has 1,000 bytes.
std::optional<std::int64_t> ParseSize(std::string_view text);
/// "image/jpeg" and the other types of a description.
std::optional<TFileType> ParseFileType(std::string_view text);
std::optional<TLicence::TUse> ParseUse(std::string_view text);
std::optional<TFind::TKind> ParseFindKind(std::string_view text);

/// The span in the same form as ParseDuration reads: "1d6h", "0s".
std::string DurationText(TDateTime::TSpan span);

/// Letters, digits and "_", beginning with a letter.
bool IsFieldName(std::string_view text);
/// Letters, digits and hyphens in two or more parts with dots between them; at most 100 bytes.
bool IsSourceId(std::string_view text);

}  // namespace skyreel
