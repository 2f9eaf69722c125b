#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace skyreel {

struct THttpProxy {
  std::string Host;
  std::uint16_t Port = 0;
};

/// One HTTP request.
struct THttpRequest {
  std::string Url;
  bool HeaderOnly = false;          ///< HEAD, otherwise GET
  std::int32_t TimeOut = 0;         ///< longest silence in milliseconds; 0 or less: no limit
  std::optional<THttpProxy> Proxy;  ///< unset: the transport keeps the proxy of the request before
  std::string UserId, Password;     ///< empty: the transport keeps the ones that it has
  std::function<void()> OnSent;     ///< called when the request is sent, while the server works on it
};

/// What a server answered.
struct THttpReply {
  int Code = 0;        ///< HTTP status; 0 when the reply has none
  std::string Status;  ///< the status line without protocol, control characters and secrets: "404 Not Found"
  std::string Header;  ///< all header lines, as they came
};

/// Sends one request and streams the reply's body to a sink.
class THttpTransport {
 public:
  /// Gets each piece of the body. What it throws ends the request and reaches the caller of Fetch.
  using TSink = std::function<void(std::string_view piece)>;

  virtual ~THttpTransport() = default;
  /// Returns when the whole reply came or the server closed the connection; a body may be shorter than
  /// announced. An error reply (404) is a reply, too. The sink gets no body of a redirect. Throws ESockError
  /// for a failed transfer, std::runtime_error for a request that cannot be sent.
  virtual THttpReply Fetch(const THttpRequest& request, const TSink& sink) = 0;
};

}  // namespace skyreel
