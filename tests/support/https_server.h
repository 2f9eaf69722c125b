#pragma once

#include <csignal>
#include <cstdio>

#include "base/files.h"
#include "net/https_client.h"
#include "support/helpers.h"
#include "support/scripted_server.h"

namespace skyreel::test {

/// nginx with HTTP/2 and a certificate authority of its own (https-server.sh). The hosts good.test,
/// other.test, expired.test and self.test; wrong.test shows good.test's certificate, old.test speaks TLS 1.0
/// alone. What is below /cut/ of good.test is answered by Upstream.
class THttpsServer {
 public:
  THttpsServer() {
    std::signal(SIGPIPE, SIG_IGN);
    const std::string command = "bash '" SKYREEL_TESTS "/support/https-server.sh' " + Folder.Path().string() +
                                " " + Upstream.Address();
    server_ = ::popen(command.c_str(), "w");
    for (int i = 0; i < 3000 && !std::filesystem::exists(Folder / "ports"); ++i)
      std::this_thread::sleep_for(10ms);
    unsigned ports[2] = {1, 1};
    std::ifstream(Folder / "ports") >> ports[0] >> ports[1];
    Settings.Certificates = ReadWholeFile(Folder / "ca.pem");
    for (const char* host :
         {"good.test", "other.test", "expired.test", "self.test", "wrong.test", "old.test"})
      Settings.Overrides.push_back(
          {host, "127.0.0.1", static_cast<std::uint16_t>(ports[host == std::string("old.test")])});
  }
  ~THttpsServer() { ::pclose(server_); }
  THttpsServer(const THttpsServer&) = delete;

  THttpServer Upstream;
  TTempFolder Folder;
  THttpsSettings Settings;

 private:
  std::FILE* server_;
};

}  // namespace skyreel::test
