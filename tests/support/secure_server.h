#pragma once

#include <csignal>

#include "demo/http_service.h"
#include "demo/tls.h"
#include "net/https_client.h"
#include "support/helpers.h"

namespace skyreel::test {

/// Serves what `find` has over HTTPS, under these host names. Each reply comes over a connection of its own.
class TSecureServer {
 public:
  TSecureServer(const std::vector<std::string>& hosts, demo::TFindFile find)
      : identity_(hosts), server_(0, [this, find = std::move(find)](demo::TConnection& client) {
          demo::TTlsConnection secure(identity_, client);
          ServeHttp(find, secure);
        }) {
    std::signal(SIGPIPE, SIG_IGN);
    for (const std::string& host : hosts) HostOverrides += host + "=" + Address() + ",";
    CaFile = folder_.Write("ca.pem", identity_.Authority()).string();
  }
  std::string Address() const { return "127.0.0.1:" + std::to_string(server_.Port()); }

  std::string CaFile, HostOverrides;  ///< for the settings of these names

 private:
  TTempFolder folder_;
  demo::TTlsIdentity identity_;
  demo::TTcpServer server_;
};

}  // namespace skyreel::test
