#include "support/ftp_server.h"

#include <sstream>

namespace skyreel::test {

std::string PasvReply(std::uint16_t port) {
  return "227 Entering Passive Mode (10,9,8,7," + std::to_string(port >> 8) + "," +
         std::to_string(port & 0xFF) + ")";
}

TFtpServer::TFtpServer(bool passive, const std::string& steps, const std::function<void()>& goodbye) {
  std::vector<TScript> sessions(1), data;
  std::istringstream in(steps);
  for (std::string step; std::getline(in, step, '|');) {
    TScript& control = sessions.back();
    const std::size_t mark = step.find('>');
    const std::string command = step.substr(0, mark);
    std::string reply = mark == std::string::npos ? "" : step.substr(mark + 1);
    if (step.starts_with("data:")) {
      const TScript script = Script(step.substr(5));
      passive ? void(data.back() = script) : void(control.ConnectBack(script));
    } else if (command == "open" || mark != std::string::npos) {
      if (command == "open" && reply.empty()) {
        reply = passive ? PasvReply(data_.Port()) : "200 ok";
        // In passive mode the client connects before it asks for anything.
        if (passive) data.emplace_back();
      }
      if (command == "*" || (command == "open" && !passive)) {
        control.ReadLine();
      } else if (!command.empty()) {
        control.Expect(command == "open" ? "PASV" : command);
      }
      if (!reply.empty()) control.Reply(reply + "\r\n");
    } else if (step == "login") {
      control.Reply("220 ready\r\n").ReadLine().Reply("331 pw\r\n").ReadLine().Reply("230 in\r\n");
    } else if (step == "stall") {
      control.Stall();
    } else if (step == "reset") {
      control.Reset();
    } else if (step == "close") {
      control.Close();
    } else if (step == "bye") {
      control.Reply("421 idle\r\n").HalfClose().Call(goodbye);
    } else if (step == "next") {
      sessions.emplace_back();
    }
  }
  sessions.back().WaitForClose();
  data_.Play(std::move(data));
  Play(std::move(sessions));
}

}  // namespace skyreel::test
