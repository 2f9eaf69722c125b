#pragma once

#include <cstdint>

#include "net/powersock.h"

namespace skyreel {

/// A server that never ends must fill neither disk nor memory: so many bytes are enough.
inline constexpr std::int64_t kLargestDownload = std::int64_t{1} << 30;
/// For a status line.
inline constexpr char kTooLarge[] = "given up: more than 1 GiB came";

/// Gives a client's transfer up once it has brought more than `limit` bytes, for the time of a scope.
class TSizeLimitScope {
 public:
  explicit TSizeLimitScope(TPowersock& client, std::int64_t limit = kLargestDownload)
      : client_(client), handler_(client.OnPacketRecvd) {
    client_.OnPacketRecvd = [this, limit](TPowersock& sender) {
      Fire(handler_, sender);
      // The sender may be a data connection of the client.
      if (sender.ReceivedByteCount > limit) client_.Abort();
    };
  }
  ~TSizeLimitScope() { client_.OnPacketRecvd = std::move(handler_); }
  TSizeLimitScope(const TSizeLimitScope&) = delete;
  TSizeLimitScope& operator=(const TSizeLimitScope&) = delete;

 private:
  TPowersock& client_;
  TPowersock::TNotifyEvent handler_;
};

}  // namespace skyreel
