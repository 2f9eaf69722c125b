#include "app/run_progress.h"

#include <algorithm>

#include "catalogue/volume.h"

namespace skyreel {

int TRunProgress::Percent() const {
  return KnowsTotal() ? static_cast<int>(std::min(files_, expected_) * 100 / expected_) : 0;
}

std::string TRunProgress::Text(TTime now) const {
  // A few files say little about the others.
  constexpr std::int64_t kEnough = 3;
  constexpr std::int64_t kMinute = 60, kHour = 3'600;
  const std::string size = SizeText(bytes_);
  if (!KnowsTotal()) return std::to_string(files_) + (files_ == 1 ? " file, " : " files, ") + size;
  std::string text = std::to_string(files_) + " of " + std::to_string(expected_) + ", " + size;
  const std::int64_t open = expected_ - files_;
  const double past = std::chrono::duration<double>(now - begin_).count();
  if (files_ < kEnough || open <= 0 || past < static_cast<double>(kEnough)) return text;
  const auto left = static_cast<std::int64_t>(past * static_cast<double>(open) / static_cast<double>(files_));
  if (left < kMinute) return text + ", " + std::to_string(left) + " s left";
  if (left < 2 * kHour) return text + ", " + std::to_string(left / kMinute) + " min left";
  return text + ", " + std::to_string(left / kHour) + " h left";
}

}  // namespace skyreel
