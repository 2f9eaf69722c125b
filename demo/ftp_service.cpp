#include "demo/ftp_service.h"

#include <algorithm>
#include <memory>

#include "base/exceptions.h"
#include "base/text.h"
#include "demo/http_service.h"

namespace skyreel::demo {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kBlock = 64 * 1024;
constexpr auto kStall = 3600s;

/// The port of "127,0,0,1,p1,p2"; 0 for any other text. The address is not followed: only this machine is
/// connected to.
int PortOf(std::string_view numbers) {
  int port = 0;
  int count = 0;
  try {
    while (count < 6) {
      const auto comma = numbers.find(',');
      const int number = ToInteger(numbers.substr(0, comma));
      if (number < 0 || number > 255) return 0;
      if (++count > 4) port = port * 256 + number;
      if (comma == std::string_view::npos) break;
      numbers.remove_prefix(comma + 1);
    }
  } catch (const EConvertError&) {
    return 0;
  }
  return count == 6 ? port : 0;
}

class TFtpSession {
 public:
  TFtpSession(TDemoArchive& archive, TConnection& client) : archive_(archive), client_(client) {}

  void Run() {
    Reply("220 Demo archive");
    while (const auto line = NextCommand()) {
      const auto blank = line->find(' ');
      const std::string command = UpperCase(line->substr(0, blank));
      const std::string argument = blank == std::string::npos ? "" : line->substr(blank + 1);
      if (command == "QUIT") return void(Reply("221 Goodbye"));
      if (command == "USER") {
        user_ = argument;
        logged_in_ = false;
        Reply("331 Password please");
      } else if (command == "PASS") {
        logged_in_ = user_ == "anonymous" || (user_ == kDemoUser && argument == kDemoPassword);
        Reply(logged_in_ ? "230 Logged in" : "530 Login incorrect");
      } else if (!logged_in_) {
        Reply("530 Please log in");
      } else {
        Execute(command, argument);
      }
    }
  }

 private:
  bool Reply(const std::string& text) { return client_.Write(text + "\r\n"); }

  /// The next command, without the Telnet codes that may precede ABOR.
  std::optional<std::string> NextCommand() {
    auto line = client_.ReadLine();
    if (line) line->erase(0, std::min(line->find_first_not_of("\xFF\xF4\xF2"), line->size()));
    return line;
  }

  std::string Resolved(const std::string& name) const {
    if (name.starts_with('/')) return name;
    return folder_ == "/" ? "/" + name : folder_ + "/" + name;
  }

  void Execute(const std::string& command, const std::string& argument) {
    if (command == "TYPE" || command == "NOOP") {
      Reply("200 OK");
    } else if (command == "PWD") {
      Reply("257 \"" + folder_ + "\"");
    } else if (command == "CWD") {
      std::string folder = Resolved(argument);
      if (folder.size() > 1 && folder.ends_with('/')) folder.pop_back();
      const bool exists = archive_.FolderNames(folder).has_value();
      if (exists) folder_ = folder;
      Reply(exists ? "250 OK" : "550 No such folder");
    } else if (command == "PASV") {
      active_port_ = 0;
      passive_ = std::make_unique<TListener>(0);
      Reply("227 Entering Passive Mode (127,0,0,1," + std::to_string(passive_->Port() / 256) + "," +
            std::to_string(passive_->Port() % 256) + ")");
    } else if (command == "PORT") {
      passive_.reset();
      active_port_ = PortOf(argument);
      Reply(active_port_ == 0 ? "501 Bad address" : "200 OK");
    } else if (command == "SIZE") {
      const auto file = archive_.Find(Resolved(argument));
      Reply(file ? "213 " + std::to_string(file->Content->size()) : "550 No such file");
    } else if (command == "RETR") {
      const auto file = archive_.Find(Resolved(argument));
      if (!file) return void(Reply("550 " + argument + ": No such file"));
      Send(argument, *file->Content, file->Fault);
    } else if (command == "NLST") {
      const auto names = archive_.FolderNames(argument.empty() ? folder_ : Resolved(argument));
      if (!names) return void(Reply("550 No such folder"));
      std::string listing;
      for (const std::string& name : *names) listing += name + "\r\n";
      Send("names", listing, TFault::None);
    } else if (command == "ABOR") {
      Reply("226 Nothing to abort");
    } else {
      Reply("502 Not implemented");
    }
  }

  void Send(const std::string& name, std::string_view data, TFault fault) {
    if (!passive_ && active_port_ == 0) return void(Reply("425 Use PASV or PORT first"));
    Reply("150 Opening BINARY mode data connection for " + name + " (" + std::to_string(data.size()) +
          " bytes).");
    const auto connection = passive_ ? passive_->Accept(10s) : ConnectLocally(active_port_);
    passive_.reset();
    active_port_ = 0;
    if (!connection) return void(Reply("425 Cannot open the data connection"));
    if (fault == TFault::Stall) return client_.Finish(kStall);
    const std::size_t end = fault == TFault::Cut ? data.size() / 2 : data.size();
    bool sent = true;
    for (std::size_t at = 0; sent && at < end; at += kBlock) {
      sent = connection->Write(data.substr(at, std::min(kBlock, end - at)));
      if (client_.HasInput()) {
        // Only ABOR can come here. (The loop ends on a closed control connection too.)
        NextCommand();
        Reply("426 Transfer aborted");
        return void(Reply("226 Abort done"));
      }
    }
    if (sent) connection->Finish(5s);
    Reply(sent && fault == TFault::None ? "226 Transfer complete"
                                        : "426 Connection closed; transfer aborted");
  }

  TDemoArchive& archive_;
  TConnection& client_;
  std::string user_;
  bool logged_in_ = false;
  std::string folder_ = "/";
  std::unique_ptr<TListener> passive_;
  int active_port_ = 0;
};

}  // namespace

void ServeFtp(TDemoArchive& archive, TConnection& client) {
  TFtpSession(archive, client).Run();
}

}  // namespace skyreel::demo
