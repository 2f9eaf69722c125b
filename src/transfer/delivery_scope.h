#pragma once

#include <string>

#include "net/nm_http.h"

namespace skyreel {

/// Lets an HTTP client deliver reply bodies into a file, or into its Body string, for the time of a scope.
class TDeliveryScope {
 public:
  /// Into the file of that name.
  TDeliveryScope(TNMHTTP& client, std::string file_name)
      : TDeliveryScope(client, true, std::move(file_name)) {}
  /// Into `client.Body`, which is emptied.
  explicit TDeliveryScope(TNMHTTP& client) : TDeliveryScope(client, false, "") {}
  ~TDeliveryScope() {
    client_.InputFileMode = mode_before_;
    client_.Body = std::move(body_before_);
  }
  TDeliveryScope(const TDeliveryScope&) = delete;
  TDeliveryScope& operator=(const TDeliveryScope&) = delete;

 private:
  TDeliveryScope(TNMHTTP& client, bool into_file, std::string body)
      : client_(client), mode_before_(client.InputFileMode), body_before_(std::move(client.Body)) {
    client_.InputFileMode = into_file;
    client_.Body = std::move(body);
  }

  TNMHTTP& client_;
  const bool mode_before_;
  std::string body_before_;
};

}  // namespace skyreel
