#pragma once

#include <cstdint>
#include <sstream>
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

/// Adds steps written in one line, divided by '|': "command>reply", with "*" for a command that is not
/// looked at, ">reply" for a reply that nobody asked for and "command>" for none at all; "data" connects back
/// and runs `data` there; "stall", "reset", "close". At the end the server waits until the client closes.
inline TScript FtpTalk(TScript script, const std::string& steps, const TScript& data = {}) {
  std::istringstream in(steps);
  for (std::string step; std::getline(in, step, '|');) {
    const std::size_t mark = step.find('>');
    const std::string command = step.substr(0, mark);
    if (step.empty()) continue;
    if (mark != std::string::npos) {
      if (command == "*") script.ReadLine();
      if (command != "*" && mark > 0) script.Expect(command);
      if (mark + 1 < step.size()) script.Reply(step.substr(mark + 1) + "\r\n");
    } else if (step == "data") {
      script.ConnectBack(data);
    } else {
      step == "stall" ? script.Stall() : step == "reset" ? script.Reset() : script.Close();
    }
  }
  return script.WaitForClose();
}

}  // namespace skyreel::test
