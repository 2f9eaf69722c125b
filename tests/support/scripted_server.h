#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <condition_variable>
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
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ::bind(socket, reinterpret_cast<const sockaddr*>(&address), size);
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

/// A TCP server on 127.0.0.1 at a port that the system chooses. It serves each connection in a thread of its
/// own; destroying it ends whatever they do. It runs a function for each connection, or plays a text.
class TScriptedServer {
 public:
  /// A connection as the server sees it. Each operation throws, which ends the connection, when the client
  /// has closed or the server is being destroyed.
  struct TPeer {
    TScriptedServer& Server;
    demo::TConnection& Link;
    std::size_t Number;  ///< how many connections came before
    std::string Buffer = "";

    /// Receives some bytes into Buffer; false at the end of the stream.
    bool Fill() {
      const std::string more = Link.Receive();
      Buffer += more;
      const std::lock_guard lock(Server.mutex_);
      Server.received_[Number] += more;
      return !more.empty();
    }
    /// Without its line end.
    std::string ReadLine() {
      while (Buffer.find('\n') == std::string::npos) {
        if (!Fill()) throw std::runtime_error("the client has closed");
      }
      const std::size_t end = Buffer.find('\n');
      std::string line = Buffer.substr(0, end);
      if (line.ends_with('\r')) line.pop_back();
      Buffer.erase(0, end + 1);
      const std::lock_guard lock(Server.mutex_);
      Server.lines_.push_back(line);
      return line;
    }
    /// Reads a line. Another one than this ("*": any), or the end, is a failure of the test.
    std::string Expect(const std::string& line) {
      std::string got = "the end";
      const TAtScopeEnd judge([&] {
        const bool good = line == "*" || got == line || !Server.Strict;
        EXPECT_TRUE(good) << "A scripted server expected \"" << line << "\", got \"" << got << '"';
      });
      got = ReadLine();
      if (line != "*" && got != line) throw std::runtime_error("not as scripted");
      return got;
    }
    /// Reads an HTTP request with as many bytes of data as its Content-Length announces.
    std::string ReadRequest() {
      std::string request;
      std::size_t body = 0;
      do {
        const std::string line = ReadLine();
        request += line + "\r\n";
        if (StartsWithText(line, "Content-Length: ")) body = std::stoul(line.substr(16));
      } while (!request.ends_with("\r\n\r\n"));
      // LINK and UNLINK announce data that does not come.
      while (request.find("LINK ") > 2 && Buffer.size() < body && Fill()) {
      }
      return request + std::exchange(Buffer, "");
    }
    /// Sends a text as it stands, but obeys these marks:
    ///   <drip>  sends what follows byte by byte      <line>     reads a line
    ///   <later> sends what follows after a pause     <request>  reads an HTTP request
    ///   <go>    sends what follows at once again     <wait>     reads until the client closes
    ///   <stall> waits for Release, or until the client closes
    ///   <shut>  sends no more from here on
    ///   <reset> breaks the connection                <close>    closes it in order, as the end of a text
    ///   does
    void Play(std::string_view text) {
      if (!Play(text, Link)) throw std::runtime_error("the connection is over");
    }
    /// Of the FTP data connection; false when it is over.
    bool Play(std::string_view text, demo::TConnection& link) {
      constexpr std::string_view kMarks[] = {"<drip>", "<later>", "<go>",   "<line>",  "<request>",
                                             "<wait>", "<stall>", "<shut>", "<reset>", "<close>"};
      const sockaddr nobody{};
      pollfd gone{link.Socket(), POLLRDHUP, 0};
      for (std::string_view pace, mark; !text.empty(); text.remove_prefix(mark.size())) {
        std::size_t end = text.size();
        mark = "";
        for (const std::string_view known : kMarks) {
          const std::size_t found = text.substr(0, end).find(known);
          if (found != text.npos) end = found, mark = known;
        }
        for (std::size_t sent = 0, piece = pace == "<drip>" ? 1 : end; sent < end; sent += piece) {
          if (pace == "<drip>" || pace == "<later>") std::this_thread::sleep_for(piece == 1 ? 1ms : 300ms);
          if (!link.Write(text.substr(sent, std::min(piece, end - sent)))) return false;
        }
        text.remove_prefix(end);
        if (mark == "<drip>" || mark == "<later>" || mark == "<go>") pace = mark;
        if (mark == "<line>") ReadLine();
        if (mark == "<request>") ReadRequest();
        while (mark == "<wait>" && Fill()) {
        }
        if (mark == "<stall>") ++Server.Stalls;
        while (mark == "<stall>" && !Server.released_ && ::poll(&gone, 1, 2) == 0) {
        }
        if (mark == "<shut>") ::shutdown(link.Socket(), SHUT_WR);
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
  /// Plays the text on each of so many connections; one more is a failure of the test.
  explicit TScriptedServer(const std::string& text, std::size_t connections = 1)
      : TScriptedServer([text, connections](TPeer& peer) {
          EXPECT_LT(peer.Number, connections) << "connections to a scripted server";
          if (peer.Number < connections) peer.Play(text);
        }) {}
  virtual ~TScriptedServer() { Stop(); }

  std::uint16_t Port() const { return tcp_ ? static_cast<std::uint16_t>(tcp_->Port()) : ClosedPort(); }
  /// "127.0.0.1:port"
  std::string Address() const { return "127.0.0.1:" + std::to_string(Port()); }
  std::string Url(const std::string& path = "/") const { return "http://" + Address() + path; }
  /// Cleared: the client may do something else than is expected, or nothing.
  std::atomic<bool> Strict = true;
  /// How many <stall> marks were reached.
  std::atomic<int> Stalls = 0;
  /// Ends every <stall>, those to come too.
  void Release() { released_ = true; }
  /// All lines read so far, of all connections in order, without their ends.
  TWords Lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }
  /// The bytes read so far, one entry for each connection in the order in which they came. Waits until
  /// `count` connections have come and ended.
  TWords Received(std::size_t count = 0) const {
    std::unique_lock lock(mutex_);
    one_ended_.wait(lock, [&] { return ended_ >= count; });
    return received_;
  }

  /// Ends what goes on and refuses connections; Address is that of a closed port from now on. The destructor
  /// of a class whose members the session uses must call it.
  void Stop() {
    Strict = false;
    released_ = true;
    tcp_.reset();
  }

 private:
  void Serve(const TSession& session, demo::TConnection& link) {
    const int on = 1;
    ::setsockopt(link.Socket(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::unique_lock lock(mutex_);
    TPeer peer{*this, link, received_.size()};
    received_.emplace_back();
    lock.unlock();
    const TAtScopeEnd end([&] {
      link.Finish(60s);
      lock.lock();
      ++ended_;
      one_ended_.notify_all();
    });
    session(peer);
  }

  std::atomic<bool> released_ = false;
  mutable std::mutex mutex_;
  mutable std::condition_variable one_ended_;
  TWords lines_, received_;
  std::size_t ended_ = 0;
  std::unique_ptr<demo::TTcpServer> tcp_;
};

/// The whole of an HTTP/1.0 reply: status line, header lines, Content-Length, body.
inline std::string HttpReply(const std::string& body, const TWords& headers = {},
                             const std::string& status = "200 OK") {
  std::string reply = "HTTP/1.0 " + status + "\r\n";
  for (const std::string& line : headers) reply += line + "\r\n";
  return reply + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
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
      if (line.ends_with(" HTTP/1.0")) requests.push_back(line.substr(0, line.rfind(' ')));
    return requests;
  }
  /// The paths alone.
  TWords Paths() const {
    TWords paths = Requests();
    for (std::string& path : paths) path.erase(0, path.find(' ') + 1);
    return paths;
  }

 private:
  void Serve(TPeer& peer) {
    const std::string request = peer.ReadRequest(), asked = request.substr(0, request.find(" HTTP/1.0"));
    const std::string path = asked.substr(asked.find(' ') + 1);
    TAnswer answer = [](auto&...) { return HttpReply("not found", {}, "404 Not Found"); };
    bool head = asked.starts_with("HEAD ");
    std::unique_lock lock(answers_mutex_);
    for (const std::string& key : {std::string("*"), path, asked})
      if (answers_.contains(key)) answer = answers_[key];
    head = head && !answers_.contains(asked);
    lock.unlock();
    const std::string reply = answer(path, request), header = reply.substr(0, reply.find("\r\n\r\n"));
    peer.Play(head && header != reply ? header + "\r\n\r\n" : reply);
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
///   open, open>reply   expects PORT, or PASV in passive mode; the reply opens the data connection, or is
///   this data:text          is played on the data connection, which is then closed stall reset close  as in
///   TPeer::Play bye                says 421, sends no more, and calls `goodbye` next               closes;
///   what follows is the next session
///
/// The `words` are filled in once the steps are divided, so they may hold any byte.
class TFtpServer : public TScriptedServer {
 public:
  TFtpServer(bool passive, const std::string& steps, const TTexts& words = {},
             const std::function<void()>& goodbye = {})
      : TScriptedServer([=](TPeer& peer) {
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
              if (!data) throw std::runtime_error("no data connection");
              peer.Play(std::string_view(step).substr(5), *data);
              data->Finish(20s);
            } else if (step == "bye") {
              peer.Play("421 idle\r\n<shut>");
              goodbye();
            } else if (mark == step.npos) {
              peer.Play("<" + step + ">");
            } else {
              std::string command = step.substr(0, mark), reply = step.substr(mark + 1);
              if (command == "open") {
                if (passive) listener = std::make_unique<demo::TListener>(0);
                if (reply.empty()) reply = passive ? PasvReply(listener->Port()) : "200 ok";
                command = passive ? "PASV" : "*";
              }
              const std::string asked = command.empty() ? "" : peer.Expect(command);
              std::sscanf(asked.c_str(), "PORT %*d,%*d,%*d,%*d,%d,%d", &high, &low);
              if (!reply.empty()) peer.Play(reply + "\r\n");
            }
          }
          EXPECT_LE(peer.Number, session) << "sessions of a scripted server";
          if (session == peer.Number) peer.Play("<wait>");
        }) {}
};

}  // namespace skyreel::test
