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
  if (received == total) {
    display.SetBytesLabel("100%");
    display.SetTitle(kApplicationTitle);
  } else {
    const std::string bytes = std::to_string(received) + " bytes";
    display.SetBytesLabel(bytes);
    display.SetTitle(bytes);
  }
}

TProgressScope::TProgressScope(TStatusDisplay& display, const std::string& detail) : display_(display) {
  display_.SetProgress(0);
  display_.SetBytesLabel("0 bytes");
  display_.SetPanel(1, detail);
}

TProgressScope::~TProgressScope() {
  display_.SetPanel(1, "");
  display_.SetProgress(0);
  display_.SetBytesLabel("");
  display_.SetTitle(kApplicationTitle);
}

}  // namespace skyreel
