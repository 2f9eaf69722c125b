#pragma once

#include <cstdint>

#include "transfer/transfer_context.h"

namespace skyreel {

/// Shows how far the current file has come; for OnPacketRecvd of every network client. `total` is the size
/// in bytes that the server announced; 0 (or a nonsensical negative one) when it is not known, and the
/// progress bar then stays as it is.
void ShowTransferProgress(TStatusDisplay& display, std::int64_t received, std::int64_t total);

/// Puts bar, bytes label and title back to how they stand while nothing is transferred.
void ClearTransferProgress(TStatusDisplay& display);

}  // namespace skyreel
