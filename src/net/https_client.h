#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/descriptor.h"
#include "base/event.h"
#include "net/http_transport.h"
#include "net/powersock.h"

namespace skyreel {

/// A server whose certificate is not to be trusted. A second attempt will not help.
class ECertificateError : public EConnectError {
 public:
  using EConnectError::EConnectError;
};

/// A host that is reached at another address.
struct THostOverride {
  std::string Host;     ///< as it stands in URLs
  std::string Address;  ///< name or IP address, an IPv6 address in brackets
  std::uint16_t Port = 0;
};

/// What the user's settings say about secure servers.
struct THttpsSettings {
  std::string Certificates;  ///< PEM text, trusted besides the system's certificates
  std::vector<THostOverride> Overrides;
};

/// Reads the settings: the path of a PEM file, and comma text of host=address:port. What is wrong is left
/// out, and `problems` gets one sentence for it.
THttpsSettings ReadHttpsSettings(const std::string& ca_file, std::string_view host_overrides,
                                 std::vector<std::string>& problems);

/// The server that an address names: "host" or "host:port", lower case, the scheme's own port left out.
/// Throws std::runtime_error when it is not an http, https or ftp address.
std::string ServerOf(const std::string& url);

/// What a server answered over THttpsClient. An FTP server's answer reads like an HTTP server's: code 200,
/// 304, 401 or 404, and MDTM as a Last-Modified line.
struct THttpsReply : THttpReply {
  std::optional<std::int64_t> Length;  ///< bytes of the body by Content-Length
  std::int64_t Received = 0;           ///< bytes of the body that came
  std::string Url;                     ///< the address that answered, after redirects
  bool Http2 = false;                  ///< the server takes several requests over one connection
};

/// A request with what only THttpsClient understands.
struct THttpsRequest : THttpRequest {
  /// Further header lines, "If-None-Match: \"a\"". An FTP server gets only what If-Modified-Since says.
  std::vector<std::string> HeaderLines;
  /// Called once with the header of a reply that is not a redirect, before the first byte of its body. What
  /// it throws ends the request.
  std::function<void(const THttpsReply& reply)> OnHeader;
};

/// Fetches over https, http and ftp: TLS 1.2 or newer with a checked certificate, HTTP/2 where the server
/// offers it. Connections are kept for the next request, and HTTP/2 requests to a server share one. Follows
/// up to 20 redirects, none from https to http, and gives a password or cookie to no other server. Uses no
/// proxy but the request's.
///
/// The program must ignore SIGPIPE. Several requests may run at once. They move only inside Turn and Fetch,
/// on the caller's thread. Both call the event hook given to the constructor, which may start, cancel or
/// abort requests. Inside it Turn and Fetch throw ESockError "Busy with another operation", and nobody may
/// destroy the client.
class THttpsClient : public THttpTransport {
 public:
  using THandle = std::uint64_t;
  /// Gets the reply, or `failure`: ESockError for the network's fault (EAbortError: aborted), or what a sink
  /// or OnHeader threw. Must not throw.
  using TDone = std::function<void(const THttpsReply& reply, std::exception_ptr failure)>;

  explicit THttpsClient(TEventHook event_hook = {});
  ~THttpsClient() override;
  THttpsClient(const THttpsClient&) = delete;
  THttpsClient& operator=(const THttpsClient&) = delete;

  /// To be called before the first request. Throws std::system_error, and std::runtime_error when libcurl is
  /// not there.
  void SetSettings(const THttpsSettings& settings);

  /// Starts a request. `sink` and OnHeader must not use the client; `done` may. A reply shorter than
  /// announced is a reply, as in Fetch. Throws std::runtime_error for a request that cannot be sent.
  THandle Start(THttpsRequest request, TSink sink, TDone done);
  /// Ends a request at once; its `done` is not called. A request that is over is ignored.
  void Cancel(THandle handle);
  /// Ends all running requests with EAbortError in the running or next Turn.
  void Abort();
  bool IsIdle() const { return transfers_.empty(); }
  /// Moves all requests on. Waits up to 2 ms for data, but not after a request has ended.
  void Turn();

  THttpReply Fetch(const THttpRequest& request, const TSink& sink) override;

  /// Called in a turn in which bytes came: the bytes that all running requests have received, and the sum
  /// that their servers announced.
  std::function<void(std::int64_t received, std::int64_t announced)> OnReceived;

 private:
  struct TLibrary;
  struct TTransfer;

  void LoadLibrary();
  void Prepare(TTransfer& transfer);
  bool Restart(TTransfer& transfer);
  void Finish(TTransfer& transfer, int library_code);
  bool GoesOn(TTransfer& transfer, int library_code);
  void End(THandle handle, std::exception_ptr failure);
  void ReportSent();
  void ReportProgress();
  void LetEventsThrough();
  void EndOverdue();

  TEventHook event_hook_;
  std::unique_ptr<TLibrary> library_;  ///< made for the first request
  std::map<THandle, std::unique_ptr<TTransfer>> transfers_;
  THandle last_handle_ = 0;
  TDescriptor certificates_;  ///< an unnamed file of all trusted certificates, if there are extra ones
  std::vector<THostOverride> overrides_;
  std::set<std::string> http1_servers_;  ///< their HTTP/2 has failed
  std::int64_t reported_bytes_ = 0;
  std::chrono::steady_clock::time_point last_hook_{};
  bool in_turn_ = false;
};

}  // namespace skyreel
