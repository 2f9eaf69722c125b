#pragma once

#include <cstdint>
#include <string>

#include "support/scripted_server.h"

namespace skyreel::test {

/// The reply to PASV for a port of this computer. The host named in it is a stranger's.
inline std::string PasvReply(std::uint16_t port) {
  return "227 Entering Passive Mode (10,9,8,7," + std::to_string(port >> 8) + "," +
         std::to_string(port & 0xFF) + ")";
}

/// The server's side of a login as "user" with the password "secret".
inline TScript FtpLogin() {
  return TScript()
      .Reply("220 ready\r\n")
      .Exchange("USER user", "331 password")
      .Exchange("PASS secret", "230 in");
}

}  // namespace skyreel::test
