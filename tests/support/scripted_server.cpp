#include "support/scripted_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "base/text.h"

namespace skyreel::test {

namespace {

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

void Raise(const TDescriptor& event) {
  const std::uint64_t one = 1;
  if (::write(event.Get(), &one, sizeof one) != sizeof one) throw std::runtime_error("eventfd");
}

}  // namespace

/// One connection as its script sees it. Every operation gives up, and returns false, when the server is
/// being destroyed.
class TConnection {
 public:
  TConnection(TServer& server, TDescriptor socket, std::size_t number)
      : server_(server), socket_(std::move(socket)), number_(number) {
    const int on = 1;
    ::setsockopt(socket_.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }

  void Run(const TScript& script) {
    for (const TScript::TStep& step : script.steps_) {
      if (!step(*this)) return;
    }
  }

  /// Waits until one of `events` is there; false when the server stops or `limit` passes.
  bool Wait(short events, int limit = -1, bool until_released = false) {
    std::array<pollfd, 3> wanted{{{socket_.Get(), events, 0},
                                  {server_.stop_.Get(), POLLIN, 0},
                                  {until_released ? server_.release_.Get() : -1, POLLIN, 0}}};
    return ::poll(wanted.data(), wanted.size(), limit) > 0 && wanted[1].revents == 0 &&
           wanted[0].revents != 0;
  }

  /// Receives some bytes into the buffer; false at the end of the stream.
  bool Fill() {
    std::array<char, 65536> chunk{};
    if (!Wait(POLLIN)) return false;
    const ssize_t got = ::recv(socket_.Get(), chunk.data(), chunk.size(), 0);
    if (got <= 0) return false;
    buffer_.append(chunk.data(), static_cast<std::size_t>(got));
    const std::lock_guard lock(server_.mutex_);
    server_.received_[number_].append(chunk.data(), static_cast<std::size_t>(got));
    return true;
  }

  bool ReadLine(std::string& line) {
    std::size_t end = 0;
    while ((end = buffer_.find('\n')) == std::string::npos) {
      if (!Fill()) return false;
    }
    line = buffer_.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    buffer_.erase(0, end + 1);
    if (StartsWithText(line, "PORT ")) port_command_ = line;
    const std::lock_guard lock(server_.mutex_);
    server_.lines_.push_back(line);
    return true;
  }

  bool ReadRequest(std::string& first, std::string& request) {
    std::size_t body = 0;
    std::string line;
    if (!ReadLine(first)) return false;
    request = first + "\r\n";
    do {
      if (!ReadLine(line)) return false;
      request += line + "\r\n";
      if (StartsWithText(line, "Content-Length:")) body = std::strtoul(line.c_str() + 15, nullptr, 10);
    } while (!line.empty());
    // LINK and UNLINK announce data that does not come.
    if (first.find("LINK ") < 3) body = 0;
    while (buffer_.size() < body) {
      if (!Fill()) return false;
    }
    request += buffer_.substr(0, body);
    buffer_.erase(0, body);
    return true;
  }

  bool Send(std::string_view bytes) {
    if (HeaderOnly) bytes = bytes.substr(0, bytes.find("\r\n\r\n") + 4);
    while (!bytes.empty()) {
      if (!Wait(POLLOUT)) return false;
      const ssize_t sent = ::send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      if (sent < 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
  }

  bool Pause(std::chrono::milliseconds span) {
    pollfd stop{server_.stop_.Get(), POLLIN, 0};
    return ::poll(&stop, 1, static_cast<int>(span.count())) == 0;
  }

  /// True when released.
  bool Stall() { return !Wait(POLLRDHUP, -1, true) && Pause(std::chrono::milliseconds(0)); }

  bool ReadAll() {
    while (Fill()) {
    }
    return true;
  }

  bool Reset() {
    const linger reset{1, 0};
    ::setsockopt(socket_.Get(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    socket_.Close();
    return false;
  }

  bool HalfClose() { return ::shutdown(socket_.Get(), SHUT_WR) == 0; }

  void Error(const std::string& text) {
    const std::lock_guard lock(server_.mutex_);
    server_.errors_.push_back(text);
  }

  bool ConnectBack(const TScript& script) {
    unsigned a = 0, b = 0, c = 0, d = 0, high = 0, low = 0;
    if (std::sscanf(port_command_.c_str(), "PORT %u,%u,%u,%u,%u,%u", &a, &b, &c, &d, &high, &low) != 6) {
      Error("no PORT command to connect back to");
      return false;
    }
    TDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = Loopback(static_cast<std::uint16_t>(high << 8 | low));
    if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      Error("connecting back failed");
      return false;
    }
    TConnection(server_, std::move(socket), number_).Run(script);
    return true;
  }

  /// Closes in order: what the client still sends is read, or the close would become a reset that discards
  /// what the client has not read yet.
  void Finish() {
    if (!socket_.IsOpen()) return;
    HalfClose();
    ReadAll();
  }

  bool HeaderOnly = false;  ///< of a reply that is sent

 private:
  TServer& server_;
  TDescriptor socket_;
  std::size_t number_;
  std::string buffer_;
  std::string port_command_;
};

// --- TScript ---------------------------------------------------------------------------------------------

TScript& TScript::Add(TStep step) {
  steps_.push_back(std::move(step));
  return *this;
}

TScript& TScript::Expect(std::string line) {
  return Add([line = std::move(line)](TConnection& c) {
    std::string got;
    const bool read = c.ReadLine(got);
    if (read && got == line) return true;
    c.Error("expected \"" + line + "\", got " + (read ? '"' + got + '"' : "the end"));
    return false;
  });
}

TScript& TScript::ReadLine() {
  return Add([line = std::string()](TConnection& c) mutable { return c.ReadLine(line); });
}

TScript& TScript::ReadRequest() {
  return Add([](TConnection& c) {
    std::string first, request;
    return c.ReadRequest(first, request);
  });
}

TScript& TScript::Reply(std::string bytes) {
  return Add([bytes = std::move(bytes)](TConnection& c) { return c.Send(bytes); });
}

TScript& TScript::Exchange(std::string line, std::string reply) {
  return Expect(std::move(line)).Reply(std::move(reply) + "\r\n");
}

TScript& TScript::Drip(std::string bytes, std::chrono::milliseconds interval, std::size_t piece) {
  return Add([bytes = std::move(bytes), interval, piece](TConnection& c) {
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
      if (!c.Pause(interval) || !c.Send(std::string_view(bytes).substr(at, piece))) return false;
    }
    return true;
  });
}

TScript& TScript::Stall() {
  return Add([](TConnection& c) { return c.Stall(); });
}
TScript& TScript::WaitForClose() {
  return Add([](TConnection& c) { return c.ReadAll(); });
}
TScript& TScript::Call(std::function<void()> action) {
  return Add([action = std::move(action)](TConnection&) { return action(), true; });
}
TScript& TScript::ConnectBack(TScript script) {
  return Add([script = std::move(script)](TConnection& c) { return c.ConnectBack(script); });
}
TScript& TScript::Reset() {
  return Add([](TConnection& c) { return c.Reset(); });
}
TScript& TScript::HalfClose() {
  return Add([](TConnection& c) { return c.HalfClose(); });
}
TScript& TScript::Close() {
  return Add([](TConnection&) { return false; });
}

TScript Script(const std::string& text) {
  TScript script;
  std::string pace = "<go>";
  for (std::size_t at = 0; at <= text.size();) {
    std::size_t end = text.size();
    std::string mark;
    for (const char* const known : {"<drip>", "<later>", "<go>", "<stall>", "<reset>"}) {
      if (const std::size_t found = text.find(known, at); found < end) end = found, mark = known;
    }
    const std::string piece = text.substr(at, end - at);
    if (!piece.empty() && pace == "<drip>") script.Drip(piece, std::chrono::milliseconds(1));
    if (!piece.empty() && pace == "<later>") script.Drip(piece, std::chrono::milliseconds(300), piece.size());
    if (pace == "<go>") script.Reply(piece);
    if (mark == "<stall>") script.Stall();
    if (mark == "<reset>") script.Reset();
    pace = mark;
    at = end + std::max<std::size_t>(mark.size(), 1);
  }
  return script;
}

// --- TServer ---------------------------------------------------------------------------------------------

TServer::TServer()
    : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
      stop_(::eventfd(0, EFD_CLOEXEC)),
      release_(::eventfd(0, EFD_CLOEXEC)) {
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof address;
  if (::bind(listener_.Get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      ::listen(listener_.Get(), 64) != 0 ||
      ::getsockname(listener_.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("no test server");
  }
  port_ = ntohs(address.sin_port);
}

TServer::~TServer() = default;

void TServer::Start() {
  thread_ = std::thread([this] { Listen(); });
}

void TServer::Stop() {
  Raise(stop_);
  if (thread_.joinable()) thread_.join();
  for (TServed& connection : connections_) connection.Thread.join();
}

void TServer::StopListening() {
  ::shutdown(listener_.Get(), SHUT_RDWR);
  if (thread_.joinable()) thread_.join();
  listener_.Close();
}

void TServer::WaitForConnections(int count) {
  std::unique_lock lock(mutex_);
  connection_ended_.wait(lock, [&] { return ended_ >= count; });
}

void TServer::Listen() {
  while (true) {
    std::array<pollfd, 2> wanted{{{listener_.Get(), POLLIN, 0}, {stop_.Get(), POLLIN, 0}}};
    if (::poll(wanted.data(), wanted.size(), -1) < 0) continue;
    if (wanted[1].revents != 0) return;
    TDescriptor socket(::accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!socket.IsOpen()) return;
    const std::lock_guard lock(mutex_);
    const std::size_t number = received_.size();
    received_.emplace_back();
    connections_.remove_if([](TServed& served) {
      if (served.Ended) served.Thread.join();
      return served.Ended;
    });
    TServed& served = connections_.emplace_back();
    served.Thread = std::thread([this, number, &served, connected = std::move(socket)]() mutable {
      TConnection connection(*this, std::move(connected), number);
      Serve(connection, static_cast<int>(number));
      connection.Finish();
      const std::lock_guard ended(mutex_);
      served.Ended = true;
      ++ended_;
      connection_ended_.notify_all();
    });
  }
}

void TServer::Release() {
  Raise(release_);
}

// --- TScriptedServer -------------------------------------------------------------------------------------

void TScriptedServer::Play(std::vector<TScript> scripts) {
  scripts_ = std::move(scripts);
  Start();
}

void TScriptedServer::Serve(TConnection& connection, int number) {
  if (static_cast<std::size_t>(number) < scripts_.size()) {
    connection.Run(scripts_[static_cast<std::size_t>(number)]);
  } else {
    connection.Error("unexpected connection number " + std::to_string(number));
  }
}

// --- THttpServer -----------------------------------------------------------------------------------------

std::uint16_t ClosedPort() {
  return TScriptedServer(TScript()).Port();
}

std::string HttpReply(const std::string& body, const std::vector<std::string>& headers,
                      const std::string& status) {
  std::string reply = "HTTP/1.0 " + status + "\r\n";
  for (const std::string& line : headers) reply += line + "\r\n";
  return reply + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

THttpServer::THttpServer() {
  Start();
}

void THttpServer::Answer(const std::string& path, const std::string& body, const TLines& headers,
                         const std::string& status) {
  AnswerScript(path, TScript().Reply(HttpReply(body, headers, status)));
}

void THttpServer::AnswerScript(const std::string& path, TScript script) {
  const std::lock_guard lock(answers_mutex_);
  answers_[path] = std::move(script);
}

void THttpServer::SetHandler(std::function<std::string(const std::string&, const std::string&)> handler) {
  const std::lock_guard lock(answers_mutex_);
  handler_ = std::move(handler);
}

std::vector<std::string> THttpServer::RequestLines() const {
  std::vector<std::string> lines = Lines();
  std::erase_if(lines, [](const std::string& line) { return !line.ends_with(" HTTP/1.0"); });
  return lines;
}

std::vector<std::string> THttpServer::Paths() const {
  std::vector<std::string> paths;
  for (const std::string& line : RequestLines()) {
    const std::size_t begin = line.find(' ') + 1;
    paths.push_back(line.substr(begin, line.find(' ', begin) - begin));
  }
  return paths;
}

void THttpServer::Serve(TConnection& connection, int) {
  std::string first, request;
  if (!connection.ReadRequest(first, request)) return;
  const std::string asked = first.substr(0, first.rfind(' ')), path = asked.substr(asked.find(' ') + 1);
  std::function<std::string(const std::string&, const std::string&)> handler;
  TScript answer = TScript().Reply(HttpReply("not found", {"Content-Type: text/html"}, "404 Not Found"));
  {
    const std::lock_guard lock(answers_mutex_);
    handler = handler_;
    connection.HeaderOnly = first.starts_with("HEAD ") && !answers_.contains(asked);
    for (const std::string& key : {asked, path}) {
      if (!answers_.contains(key)) continue;
      answer = answers_.at(key);
      break;
    }
  }
  const std::string bytes = handler ? handler(path, request) : "";
  connection.Run(bytes.empty() ? answer : TScript().Reply(bytes));
}

}  // namespace skyreel::test
