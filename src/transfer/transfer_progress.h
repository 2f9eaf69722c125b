#pragma once

#include <cstdint>
#include <string>

#include "transfer/transfer_context.h"

namespace skyreel {

/// Shows how far the current file has come; for OnPacketRecvd of every network client. `total` is the size
/// in bytes that the server announced; 0 (or a nonsensical negative one) when it is not known, and the
/// progress bar then stays as it is.
void ShowTransferProgress(TStatusDisplay& display, std::int64_t received, std::int64_t total);

/// Shows that a file is being fetched, for the time of a scope: bar at 0, "0 bytes" and `detail` in the
/// second panel. At its end bar, bytes label, title and panel stand again as while nothing is transferred.
class TProgressScope {
 public:
  TProgressScope(TStatusDisplay& display, const std::string& detail);
  ~TProgressScope();
  TProgressScope(const TProgressScope&) = delete;
  TProgressScope& operator=(const TProgressScope&) = delete;

 private:
  TStatusDisplay& display_;
};

}  // namespace skyreel
