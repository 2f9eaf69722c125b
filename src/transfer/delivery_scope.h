#pragma once

#include <string>

#include "net/nm_http.h"

namespace skyreel {

/// Lets an HTTP client deliver reply bodies into a file, or into its Body string, for the time of a scope.
class TDeliveryScope {
 public:
  /// Into the file of that name. `make_file`, if given, is called when the request has been sent.
  TDeliveryScope(TNMHTTP& client, std::string file_name, TNMHTTP::TNotifyHttpEvent make_file = {})
      : TDeliveryScope(client, true, std::move(file_name), std::move(make_file)) {}
  /// Into `client.Body`, which is emptied.
  explicit TDeliveryScope(TNMHTTP& client) : TDeliveryScope(client, false, "", {}) {}
  ~TDeliveryScope() {
    client_.InputFileMode = mode_before_;
    client_.Body = std::move(body_before_);
    client_.OnRequestSent = std::move(request_sent_before_);
  }
  TDeliveryScope(const TDeliveryScope&) = delete;
  TDeliveryScope& operator=(const TDeliveryScope&) = delete;

 private:
  TDeliveryScope(TNMHTTP& client, bool into_file, std::string body, TNMHTTP::TNotifyHttpEvent request_sent)
      : client_(client),
        mode_before_(client.InputFileMode),
        body_before_(std::move(client.Body)),
        request_sent_before_(std::move(client.OnRequestSent)) {
    client_.InputFileMode = into_file;
    client_.Body = std::move(body);
    client_.OnRequestSent = std::move(request_sent);
  }

  TNMHTTP& client_;
  const bool mode_before_;
  std::string body_before_;
  TNMHTTP::TNotifyHttpEvent request_sent_before_;
};

}  // namespace skyreel
