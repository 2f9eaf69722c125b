#pragma once

#include <cstdint>

#include "net/nm_http.h"

namespace skyreel {

/// A server that never ends must fill neither disk nor memory: so many bytes are enough.
inline constexpr std::int64_t kLargestDownload = std::int64_t{1} << 30;

/// Gives a client's transfer up once it has brought more than kLargestDownload, for the time of a scope.
class TSizeLimitScope {
 public:
  explicit TSizeLimitScope(TNMHTTP& client) : client_(client), handler_(client.OnPacketRecvd) {
    client_.OnPacketRecvd = [&inner = handler_](TPowersock& sender) {
      Fire(inner, sender);
      if (sender.ReceivedByteCount > kLargestDownload) sender.Abort();
    };
  }
  ~TSizeLimitScope() { client_.OnPacketRecvd = std::move(handler_); }
  TSizeLimitScope(const TSizeLimitScope&) = delete;
  TSizeLimitScope& operator=(const TSizeLimitScope&) = delete;

 private:
  TNMHTTP& client_;
  TPowersock::TNotifyEvent handler_;
};

}  // namespace skyreel
