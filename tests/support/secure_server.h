#pragma once

#include <csignal>
#include <mutex>

#include "base/files.h"
#include "demo/http_service.h"
#include "demo/stand_in.h"
#include "demo/tls.h"
#include "support/helpers.h"

namespace skyreel::test {

/// Serves what `find` has over HTTPS, under these host names. Each reply comes over a connection of its own.
class TSecureServer {
 public:
  TSecureServer(const std::vector<std::string>& hosts, demo::TFindFile find)
      : identity_(hosts), server_(0, [this, find = std::move(find)](demo::TConnection& client) {
          TSession session(*this, client);
          ServeHttp(find, session);
        }) {
    std::signal(SIGPIPE, SIG_IGN);
    for (const std::string& host : hosts)
      HostOverrides += (HostOverrides.empty() ? "" : ",") + host + "=" + Address();
    CaFile = folder_.Write("ca.pem", identity_.Authority()).string();
  }
  std::string Address() const { return "127.0.0.1:" + std::to_string(server_.Port()); }
  /// The requests so far, with their header lines.
  std::string Received() {
    const std::lock_guard lock(mutex_);
    return received_;
  }

  std::string CaFile, HostOverrides;  ///< for the settings of these names

 private:
  struct TSession : demo::TTlsConnection {
    TSession(TSecureServer& server, demo::TConnection& client)
        : TTlsConnection(server.identity_, client), Server(server) {}
    std::string Receive() override {
      const std::string piece = TTlsConnection::Receive();
      const std::lock_guard lock(Server.mutex_);
      Server.received_ += piece;
      return piece;
    }
    TSecureServer& Server;
  };

  TTempFolder folder_;
  std::mutex mutex_;
  std::string received_;
  demo::TTlsIdentity identity_;
  demo::TTcpServer server_;
};

/// A picture of the type and the size that a description demands.
inline std::optional<demo::TServedFile> SmallPicture(const demo::TStandInFile& file) {
  const char* const name = file.Way.Type == TFileType::Jpeg   ? "inks.jpg"
                           : file.Way.Type == TFileType::Tiff ? "colour_plain.tif"
                           : file.Way.Type == TFileType::Png  ? "colour.png"
                                                              : "colour.gif";
  std::string picture = ReadWholeFile(std::string(SKYREEL_TESTS "/image/pictures/") + name);
  picture.insert(picture.size() / 2, static_cast<std::size_t>(file.Way.MinSize), 'x');
  return demo::TServedFile{std::make_shared<std::string>(picture), "image", {}};
}

}  // namespace skyreel::test
