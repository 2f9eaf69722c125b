#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <string>

#include "base/date_time.h"
#include "demo/tcp_server.h"

namespace skyreel::test {

struct TFile {
  std::string Content;
  TDateTime Time;  ///< UTC, whole seconds
};
/// By server path.
using TFiles = std::map<std::string, TFile>;

/// Where a server falls silent for good.
enum class TStall { Nowhere, Greeting, Login, Listing, Header, Body, Data };

/// Serves the same files over HTTP and passive FTP on 127.0.0.1, at a pace that leaves time to interrupt it.
class TFileServer {
 public:
  explicit TFileServer(TFiles files, TStall stall = TStall::Nowhere)
      : files_(std::move(files)), stall_(stall) {}

  std::string HttpRoot() const { return "http://127.0.0.1:" + std::to_string(http_.Port()); }
  std::string FtpRoot() const { return "127.0.0.1:" + std::to_string(ftp_.Port()); }
  /// Requests (HTTP), connections (FTP) and silences so far.
  int Events() const { return events_; }

 private:
  void ServeHttp(demo::TConnection& client);
  void ServeFtp(demo::TConnection& client);
  void Send(demo::TConnection& client, const std::string& content);
  /// Waits until the client has gone, if this is the place. True when it was.
  bool StallsAt(TStall place, demo::TConnection& client);

  const TFiles files_;
  const TStall stall_;
  std::atomic<int> events_ = 0;
  demo::TTcpServer http_{0, [this](demo::TConnection& client) { ServeHttp(client); }};
  demo::TTcpServer ftp_{0, [this](demo::TConnection& client) { ServeFtp(client); }};
};

/// Some bytes, the same for the same seed, that compress to about a quarter.
std::string SomeBytes(std::size_t size, unsigned seed);

/// The header of an HTTP reply.
std::string HttpHeader(const std::string& status, std::size_t size, const std::string& more = "");

}  // namespace skyreel::test
