#include "transfer/transfer_progress.h"

#include <algorithm>
#include <limits>

namespace skyreel {

namespace {

int Percent(std::int64_t received, std::int64_t total) {
  if (received >= total) return 100;
  if (received <= std::numeric_limits<std::int64_t>::max() / 100) {
    return static_cast<int>(std::max<std::int64_t>(received, 0) * 100 / total);
  }
  return static_cast<int>(std::min<std::int64_t>(received / (total / 100), 99));
}

}  // namespace

void ShowTransferProgress(TStatusDisplay& display, std::int64_t received, std::int64_t total) {
  if (total > 0) display.SetProgress(Percent(received, total));
  const std::string bytes = std::to_string(received) + " bytes";
  if (received == total) {
    display.SetBytes("100%", kApplicationTitle);
  } else {
    display.SetBytes(bytes, bytes);
  }
}

}  // namespace skyreel
