#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "base/date_time.h"
#include "demo/tcp_server.h"

namespace skyreel::test {

using namespace std::chrono_literals;

/// Some bytes, the same for the same seed, that compress well, but not to nothing.
inline std::string SomeBytes(std::size_t size, unsigned seed) {
  std::minstd_rand random(seed + 1);
  std::string bytes(size, '.');
  for (std::size_t i = 0; i < size; i += 4) bytes[i] = static_cast<char>(random());
  return bytes;
}

/// The header of an HTTP reply; `more`: further lines with their ends.
inline std::string HttpHeader(const std::string& status, std::size_t size, const std::string& more = "") {
  return "HTTP/1.0 " + status + "\r\nContent-Length: " + std::to_string(size) + "\r\n" + more + "\r\n";
}

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
  using TClient = demo::TConnection;

  void ServeHttp(TClient& client) {
    const auto request = client.ReadLine();
    for (auto line = request; line && !line->empty();) line = client.ReadLine();
    ++events_;
    std::string method, path;
    std::istringstream(request.value_or("")) >> method >> path;
    const bool listing = path.find("listImages") != std::string::npos;
    if (StallsAt(listing ? TStall::Listing : TStall::Header, client)) return;
    if (const auto file = files_.find(path); file == files_.end()) {
      client.Write(HttpHeader("404 Not Found", 6) + "<html>");
    } else {
      const auto& [content, time] = file->second;
      client.Write(
          HttpHeader("200 OK", content.size(),
                     FormatDateTime("'Last-Modified: Thu, 'dd mmm yyyy hh:nn:ss' GMT'", time) + "\r\n"));
      if (method == "GET") Send(client, content);
    }
    client.Finish(5s);
  }

  void ServeFtp(TClient& client) {
    ++events_;
    if (StallsAt(TStall::Greeting, client)) return;
    client.Write("220 Ready\r\n");
    std::unique_ptr<demo::TListener> passive;
    while (const auto line = client.ReadLine()) {
      const std::string command = line->substr(0, 4);
      const auto file = files_.find(line->substr(std::min<std::size_t>(5, line->size())));
      if (command == "USER" && StallsAt(TStall::Login, client)) return;
      if (command == "PASV") {
        passive = std::make_unique<demo::TListener>(0);
        client.Write("227 Passive (127,0,0,1," + std::to_string(passive->Port() / 256) + "," +
                     std::to_string(passive->Port() % 256) + ")\r\n");
      } else if (command == "RETR" && passive && file != files_.end()) {
        const std::string& content = file->second.Content;
        client.Write("150 Opening (" + std::to_string(content.size()) + " bytes)\r\n");
        const auto data = passive->Accept(5s);
        if (!data || StallsAt(TStall::Data, client)) return;
        Send(*data, content);
        data->Finish(5s);
        client.Write("226 Done\r\n");
      } else {
        client.Write(command == "RETR"   ? "550 No\r\n"
                     : command == "USER" ? "331 Password\r\n"
                                         : "200 Well\r\n");
      }
    }
  }

  void Send(TClient& client, const std::string& content) {
    constexpr std::size_t kPiece = 64 << 10;
    for (std::size_t at = 0; at < content.size(); at += kPiece) {
      if (at > content.size() / 2 && StallsAt(TStall::Body, client)) return;
      if (!client.Write(std::string_view(content).substr(at, kPiece))) return;
      std::this_thread::sleep_for(10ms);
    }
  }

  /// Waits until the client has gone, if this is the place. True when it was.
  bool StallsAt(TStall place, TClient& client) {
    if (stall_ != place) return false;
    ++events_;
    client.ReadLine();
    return true;
  }

  const TFiles files_;
  const TStall stall_;
  std::atomic<int> events_ = 0;
  demo::TTcpServer http_{0, [this](TClient& client) { ServeHttp(client); }};
  demo::TTcpServer ftp_{0, [this](TClient& client) { ServeFtp(client); }};
};

}  // namespace skyreel::test
