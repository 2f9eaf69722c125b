#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "base/date_time.h"
#include "catalogue/description.h"

namespace skyreel {

/// What the server said about one file.
struct TFileFacts {
  std::optional<std::int64_t> Length;  ///< the announced one, in bytes
  TDateTime Modified;                  ///< Last-Modified; zero: not said
  TDateTime Slot;                      ///< of the picture that was asked for
};

enum class TVerdictKind {
  Whole,
  NoPicture,  ///< a blank picture, or one of another slot: the server does not have this one
  Refused,    ///< smaller or larger than the way allows
  Damaged,    ///< cut off, of another type, or a page
};

struct TVerdict {
  TVerdictKind Kind = TVerdictKind::Whole;
  std::string Reason;  ///< why it is not whole, for a status line
};

/// The extension that the type's files have, with the dot: ".jpg", ".h5".
const char* ExtensionOf(TFileType type);

/// Judges what arrived in one way of a source: its length, its type by the first bytes, its end (for JPEG,
/// PNG, GIF and PDF the end mark; for TIFF that all directories and picture data lie inside the file), its
/// size, its date. Reads little of a large file. Throws std::system_error when it cannot be read.
TVerdict JudgeFile(const std::filesystem::path& path, const TWay& way, const TFileFacts& facts);
/// The same for a file in memory.
TVerdict JudgeBytes(std::string_view bytes, const TWay& way, const TFileFacts& facts);

}  // namespace skyreel
