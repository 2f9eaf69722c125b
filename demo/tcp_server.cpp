#include "demo/tcp_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <list>
#include <system_error>

namespace skyreel::demo {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kLongestLine = 8192;
constexpr std::size_t kMostSessions = 64;
constexpr auto kIdleLimit = 60s;

bool WaitFor(int socket, short events, std::chrono::milliseconds limit) {
  pollfd waited{socket, events, 0};
  return ::poll(&waited, 1, static_cast<int>(limit.count())) > 0;
}

sockaddr_in LocalAddress(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

TConnection::~TConnection() {
  ::close(socket_);
}

std::optional<std::string> TConnection::ReadLine() {
  for (;;) {
    if (const auto end = buffer_.find('\n'); end != std::string::npos) {
      std::string line = buffer_.substr(0, end);
      buffer_.erase(0, end + 1);
      if (line.ends_with('\r')) line.pop_back();
      return line;
    }
    const std::string more = buffer_.size() > kLongestLine ? "" : Receive();
    if (more.empty()) return std::nullopt;
    buffer_ += more;
  }
}

std::string TConnection::Receive() {
  char data[65536];
  const ssize_t size = WaitFor(socket_, POLLIN, kIdleLimit) ? ::recv(socket_, data, sizeof data, 0) : 0;
  return {data, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

bool TConnection::HasInput() {
  return !buffer_.empty() || WaitFor(socket_, POLLIN, 0ms);
}

bool TConnection::Write(std::string_view data) {
  while (!data.empty()) {
    if (!WaitFor(socket_, POLLOUT, kIdleLimit)) return false;
    const ssize_t size = ::send(socket_, data.data(), data.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (size <= 0) return false;
    data.remove_prefix(static_cast<std::size_t>(size));
  }
  return true;
}

void TConnection::Finish(std::chrono::milliseconds limit) {
  ::shutdown(socket_, SHUT_WR);
  const auto end = std::chrono::steady_clock::now() + limit;
  char data[4096];
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left <= 0ms || !WaitFor(socket_, POLLIN, left) || ::recv(socket_, data, sizeof data, 0) <= 0) return;
  }
}

void TConnection::Interrupt() {
  ::shutdown(socket_, SHUT_RDWR);
}

TListener::TListener(int port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  const int on = 1;
  ::setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address = LocalAddress(port);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (socket_ < 0 || ::bind(socket_, generic, size) != 0 || ::listen(socket_, 64) != 0 ||
      ::getsockname(socket_, generic, &size) != 0) {
    const int error = errno;
    if (socket_ >= 0) ::close(socket_);
    throw std::system_error(error, std::generic_category(), "cannot listen on port " + std::to_string(port));
  }
  port_ = ntohs(address.sin_port);
}

TListener::~TListener() {
  ::close(socket_);
}

std::unique_ptr<TConnection> TListener::Accept(std::chrono::milliseconds limit) {
  if (!WaitFor(socket_, POLLIN, limit)) return nullptr;
  const int socket = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
  return socket < 0 ? nullptr : std::make_unique<TConnection>(socket);
}

void TListener::Interrupt() {
  ::shutdown(socket_, SHUT_RDWR);
}

std::unique_ptr<TConnection> ConnectLocally(int port, const char* from) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket < 0) return nullptr;
  auto connection = std::make_unique<TConnection>(socket);
  sockaddr_in own = LocalAddress(0);
  own.sin_addr.s_addr = ::inet_addr(from);
  const sockaddr_in address = LocalAddress(port);
  if (::bind(socket, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
      ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return nullptr;
  return connection;
}

TTcpServer::TTcpServer(int port, THandler handler)
    : listener_(port),
      handler_(std::move(handler)),
      acceptor_([this](const std::stop_token& stop) { Serve(stop); }) {}

TTcpServer::~TTcpServer() {
  acceptor_.request_stop();
  listener_.Interrupt();
  acceptor_.join();
}

void TTcpServer::Serve(const std::stop_token& stop) {
  std::list<TSession> sessions;
  while (!stop.stop_requested()) {
    auto connection = listener_.Accept(-1ms);
    sessions.remove_if([](const TSession& session) { return session.Done.load(); });
    if (!connection || sessions.size() >= kMostSessions) continue;
    TSession& session = sessions.emplace_back();
    session.Connection = std::move(connection);
    session.Thread = std::jthread([this, &session] {
      try {
        handler_(*session.Connection);
      } catch (const std::exception&) {
        // A file that cannot be made costs its connection, never the server.
      }
      session.Connection->Interrupt();
      session.Done = true;
    });
  }
  for (TSession& session : sessions) session.Connection->Interrupt();
}

}  // namespace skyreel::demo
