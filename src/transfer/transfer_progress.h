#pragma once

#include <cstdint>
#include <string>

#include "transfer/transfer_context.h"

namespace skyreel {

/// Shows how far the current file has come; for OnPacketRecvd of every network client. `total` is the size
/// in bytes that the server announced; 0 (or a nonsensical negative one) when it is not known, and the
/// progress bar then stays as it is.
void ShowTransferProgress(TStatusDisplay& display, std::int64_t received, std::int64_t total);

/// Shows that a file is being fetched: bar at 0, "0 bytes" and `detail` in the second panel. When the
/// returned scope ends, bar, bytes label, title and panel are idle again.
[[nodiscard]] inline auto ShowTransfer(TStatusDisplay& display, const std::string& detail) {
  display.SetProgress(0);
  display.SetBytes("0 bytes", kApplicationTitle);
  display.SetPanel(1, detail);
  return TAtScopeEnd([&display] {
    display.SetPanel(1, "");
    display.SetProgress(0);
    display.SetBytes("", kApplicationTitle);
  });
}

}  // namespace skyreel
