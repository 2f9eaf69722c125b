#pragma once

#include <functional>
#include <string>

#include "support/scripted_server.h"

namespace skyreel::test {

/// The reply to PASV for a port of this computer. The host named in it is a stranger's.
std::string PasvReply(std::uint16_t port);

/// An FTP server that follows a text of steps, divided by '|'. The last session stays open until the client
/// closes it.
///
///   login              greeting, user name and password, whatever they are
///   command>reply      expects the command ('*': any) and sends the reply; no reply if it is empty
///   >reply             sends a reply that nobody asked for
///   open, open>reply   expects PORT, or PASV in passive mode; the reply opens the data connection, or is
///   this data:script        what Script makes of it runs on the data connection stall, reset, close bye says
///   421, sends no more, and calls `goodbye` next               closes; what follows is the next session
class TFtpServer : public TScriptedServer {
 public:
  TFtpServer(bool passive, const std::string& steps, const std::function<void()>& goodbye = {});

 private:
  TScriptedServer data_;
};

}  // namespace skyreel::test
