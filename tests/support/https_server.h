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
struct THttpsServer {
  explicit THttpsServer(THttpsClient& client) {
    std::signal(SIGPIPE, SIG_IGN);
    const std::string script = "bash '" SKYREEL_TESTS "/support/https-server.sh' ";
    Script = ::popen((script + Folder.Path().string() + " " + Upstream.Address()).c_str(), "w");
    while (!std::filesystem::exists(Folder / "hosts")) std::this_thread::sleep_for(10ms);
    std::vector<std::string> problems;
    client.SetSettings(ReadHttpsSettings(Folder / "ca.pem", ReadWholeFile(Folder / "hosts"), problems));
  }
  ~THttpsServer() { ::pclose(Script); }
  THttpsServer(const THttpsServer&) = delete;

  THttpServer Upstream;
  TTempFolder Folder;
  std::FILE* Script;
};

}  // namespace skyreel::test
