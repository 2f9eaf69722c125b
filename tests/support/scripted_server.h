#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdio>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>

#include "base/scope.h"
#include "base/text.h"
#include "demo/tcp_server.h"

namespace skyreel::test {

using namespace std::chrono_literals;
using TWords = std::vector<std::string>;

/// A port of this computer where nobody listens, and nobody will as long as the process lives.
inline std::uint16_t ClosedPort() {
  static const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{AF_INET, 0, {}, {}};
  socklen_t size = sizeof address;
  ::bind(socket, reinterpret_cast<const sockaddr*>(&address), size);
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

/// A TCP server on 127.0.0.1 at a port that the system chooses. It serves each connection in a thread of its
/// own: it runs a function or plays a text. Destroying it ends whatever they do.
class TScriptedServer {
 public:
  /// A connection as the server sees it. Reading throws, which ends the connection, when the client has
  /// closed or the server is being destroyed.
  struct TPeer {
    TScriptedServer& Server;
    demo::TConnection& Link;
    std::size_t Number;  ///< how many connections came before
    std::string Buffer = "";

    /// Receives some bytes into Buffer.
    void Fill() {
      const std::string more = Link.Receive();
      if (more.empty()) throw std::runtime_error("the client has closed");
      Buffer += more;
      const std::lock_guard lock(Server.mutex_);
      Server.received_[Number] += more;
    }
    /// Without its line end.
    std::string ReadLine() {
      while (Buffer.find('\n') == std::string::npos) Fill();
      const std::size_t end = Buffer.find('\n');
      std::string line = Buffer.substr(0, end);
      if (line.ends_with('\r')) line.pop_back();
      Buffer.erase(0, end + 1);
      const std::lock_guard lock(Server.mutex_);
      Server.lines_.push_back(line);
      return line;
    }
    /// Sends a text as it stands, but obeys these marks. False once the connection is over.
    ///   <drip>  sends what follows, up to the next mark, byte by byte
    ///   <later> sends what follows after a pause
    ///   <line>  reads a line
    ///   <stall> sends and reads nothing more until the client closes
    ///   <reset> breaks the connection
    ///   <close> closes it in order, as the end of a text does
    bool Play(std::string_view text) { return Play(text, Link); }
    bool Play(std::string_view text, demo::TConnection& link) {
      const sockaddr nobody{};
      pollfd gone{link.Socket(), POLLRDHUP, 0};
      for (std::string_view mark; !text.empty(); text.remove_prefix(mark.size())) {
        const std::string_view pace = std::exchange(mark, "");
        std::size_t end = text.size();
        for (const std::string_view known :
             {"<drip>", "<later>", "<line>", "<stall>", "<reset>", "<close>"}) {
          const std::size_t found = text.substr(0, end).find(known);
          if (found != text.npos) end = found, mark = known;
        }
        for (std::size_t sent = 0, piece = pace == "<drip>" ? 1 : end; sent < end; sent += piece) {
          std::this_thread::sleep_for(pace == "<drip>" ? 1ms : pace == "<later>" ? 300ms : 0ms);
          if (!link.Write(text.substr(sent, piece))) return false;
        }
        text.remove_prefix(end);
        if (mark == "<line>") ReadLine();
        if (mark == "<stall>") ++Server.Stalls, ::poll(&gone, 1, 60'000);
        if (mark == "<reset>") ::connect(link.Socket(), &nobody, sizeof nobody);
        if (mark == "<reset>" || mark == "<close>") return false;
      }
      return true;
    }
  };
  using TSession = std::function<void(TPeer& peer)>;

  explicit TScriptedServer(TSession session)
      : tcp_(std::make_unique<demo::TTcpServer>(
            0, [this, session](demo::TConnection& link) { Serve(session, link); })) {}
  /// Plays the text on each connection.
  explicit TScriptedServer(const std::string& text)
      : TScriptedServer([text](TPeer& peer) { peer.Play(text); }) {}
  virtual ~TScriptedServer() { Stop(); }

  std::uint16_t Port() const { return tcp_ ? static_cast<std::uint16_t>(tcp_->Port()) : ClosedPort(); }
  /// "127.0.0.1:port"
  std::string Address() const { return "127.0.0.1:" + std::to_string(Port()); }
  std::string Url(const std::string& path = "/") const { return "http://" + Address() + path; }
  /// How many <stall> marks were reached.
  std::atomic<int> Stalls = 0;
  /// How many connections get no more data.
  std::atomic<int> Ends = 0;
  /// All lines read so far, of all connections in order, without their ends.
  TWords Lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }
  /// The bytes read so far, one entry for each connection in the order in which they came.
  TWords Received() const {
    const std::lock_guard lock(mutex_);
    return received_;
  }

  /// Ends what goes on and refuses connections; Address is that of a closed port from now on. The destructor
  /// of a class whose members the session uses must call it.
  void Stop() { tcp_.reset(); }

 private:
  void Serve(const TSession& session, demo::TConnection& link) {
    const int on = 1;
    ::setsockopt(link.Socket(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::unique_lock lock(mutex_);
    TPeer peer{*this, link, received_.size()};
    received_.emplace_back();
    lock.unlock();
    const TAtScopeEnd finish([&] { link.Finish(0ms), ++Ends, link.Finish(60s); });
    session(peer);
  }

  mutable std::mutex mutex_;
  TWords lines_, received_;
  std::unique_ptr<demo::TTcpServer> tcp_;
};

/// The whole of an HTTP/1.0 reply: status line, header lines, Content-Length, body.
inline std::string HttpReply(const std::string& body, const TWords& headers = {},
                             const std::string& status = "200 OK") {
  std::string reply = "HTTP/1.0 " + status + "\r\n";
  for (const std::string& line : headers) reply += line + "\r\n";
  return reply + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

/// The paths of requests, "/a.gif" of "GET /a.gif".
inline TWords PathsOf(TWords requests) {
  for (std::string& request : requests) request.erase(0, request.find(' ') + 1);
  return requests;
}

/// Answers one HTTP request for each connection with a text for TPeer::Play. HEAD gets its header alone.
class THttpServer : public TScriptedServer {
 public:
  /// Runs in the server's thread.
  using TAnswer = std::function<std::string(const std::string& path, const std::string& request)>;

  THttpServer() : TScriptedServer([this](TPeer& peer) { Serve(peer); }) {}
  ~THttpServer() override { Stop(); }

  /// Sets the answer for a path, or for one method and path: "HEAD /a.gif"; that one gets all of the text.
  /// "*" stands for every path that has no answer of its own, which gets a 404 otherwise.
  void Handle(const std::string& path, TAnswer answer) {
    const std::lock_guard lock(answers_mutex_);
    answers_[path] = std::move(answer);
  }
  void Script(const std::string& path, const std::string& text) {
    Handle(path, [text](auto&...) { return text; });
  }
  void Answer(const std::string& path, const std::string& body, const TWords& headers = {},
              const std::string& status = "200 OK") {
    Script(path, HttpReply(body, headers, status));
  }
  /// What was asked for so far: "GET /a.gif", in order.
  TWords Requests() const {
    TWords requests;
    for (const std::string& line : Lines())
      if (line.substr(0, line.size() - 1).ends_with(" HTTP/1."))
        requests.push_back(line.substr(0, line.rfind(' ')));
    return requests;
  }
  TWords Paths() const { return PathsOf(Requests()); }

 private:
  void Serve(TPeer& peer) {
    std::string request, line;
    std::size_t size = 0;
    do {
      line = peer.ReadLine();
      request += line + "\r\n";
      std::sscanf(line.c_str(), "Content-Length: %zu", &size);
    } while (!line.empty());
    // LINK and UNLINK announce data that does not come.
    while (peer.Buffer.size() < size && request.find("LINK ") > 2) peer.Fill();
    const std::string asked = request.substr(0, request.find(" HTTP/1."));
    const std::string path = PathsOf({asked})[0];
    std::unique_lock lock(answers_mutex_);
    TAnswer answer = [](auto&...) { return HttpReply("not found", {}, "404 Not Found"); };
    for (const std::string& key : {std::string("*"), path, asked})
      if (answers_.contains(key)) answer = answers_[key];
    const bool header_only = asked.starts_with("HEAD ") && !answers_.contains(asked);
    lock.unlock();
    const std::string reply = answer(path, request + peer.Buffer), end = "\r\n\r\n";
    peer.Play(header_only ? reply.substr(0, reply.find(end)) + end : reply);
  }

  std::mutex answers_mutex_;
  std::map<std::string, TAnswer> answers_;
};

/// A text in which each "<word>" is replaced by the word's text.
using TTexts = std::map<std::string, std::string>;
inline std::string Filled(std::string text, const TTexts& words) {
  for (const auto& [word, value] : words) text = ReplaceAll(text, "<" + word + ">", value);
  return text;
}

/// The reply to PASV for a port of this computer. The host named in it is a stranger's.
inline std::string PasvReply(int port) {
  return "227 Passive (10,9,8,7," + std::to_string(port / 256) + "," + std::to_string(port % 256) + ")";
}

/// An FTP server that follows steps, divided by '|'. The last session stays open until the client closes it.
///
///   login              greeting, user name and password, whatever they are
///   command>reply      expects the command ('*': any) and sends the reply; no reply if it is empty
///   >reply             sends a reply that nobody asked for
///   open, open>reply   expects PORT, or PASV in passive mode; the reply, if any, replaces the usual one
///   stranger           connects to the client's port from another address and sends a byte
///   data:text          is played on the data connection, which is then closed
///   stall reset close  as in TPeer::Play
///   next               closes; what follows is the next session
///
/// The `words` are filled in once the steps are divided, so they may hold any byte.
class TFtpServer : public TScriptedServer {
 public:
  TFtpServer(bool passive, const std::string& steps, const TTexts& words = {})
      : TScriptedServer([=, this](TPeer& peer) {
          std::istringstream in(
              ReplaceAll(ReplaceAll(steps, "login", ">220 hi|*>331 pw|*>230 in"), "open|", "open>|"));
          std::unique_ptr<demo::TListener> listener;
          int high = 0, low = 0;  // of the client's port
          std::size_t session = 0;
          for (std::string step; std::getline(in, step, '|');) {
            if (step == "next") ++session;
            if (step == "next" || step.empty() || session != peer.Number) continue;
            step = Filled(step, words);
            const std::size_t mark = step.find('>');
            if (step.starts_with("data:")) {
              const auto data = passive ? listener->Accept(20s) : demo::ConnectLocally(high * 256 + low);
              if (!data) return;
              peer.Play(std::string_view(step).substr(5), *data);
              data->Finish(20s);
            } else if (step == "stranger") {
              demo::ConnectLocally(high * 256 + low, "127.0.0.2")->Write("x");
            } else if (mark == step.npos) {
              if (!peer.Play("<" + step + ">")) return;
            } else {
              std::string command = step.substr(0, mark), reply = step.substr(mark + 1);
              if (command == "open") {
                if (passive) listener = std::make_unique<demo::TListener>(0);
                if (reply.empty()) reply = passive ? PasvReply(listener->Port()) : "200 ok";
                command = passive ? "PASV" : "*";
              }
              const std::string asked = command.empty() ? "" : peer.ReadLine();
              if (command != "*" && asked != command) {
                EXPECT_FALSE(Strict) << "expected \"" << command << "\", got \"" << asked << '"';
                return;
              }
              std::sscanf(asked.c_str(), "PORT %*d,%*d,%*d,%*d,%d,%d", &high, &low);
              if (!reply.empty()) peer.Play(reply + "\r\n");
            }
          }
          if (session == peer.Number) peer.Play("<stall>");
        }) {}
  ~TFtpServer() override { Stop(); }

  /// Cleared: the client may send something else than is expected.
  std::atomic<bool> Strict = true;
};

}  // namespace skyreel::test
