#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

namespace skyreel::demo {

/// A connected socket, closed at the end. Nothing throws: a connection that fails is simply over.
class TConnection {
 public:
  explicit TConnection(int socket) : socket_(socket) {}
  virtual ~TConnection();
  TConnection(const TConnection&) = delete;
  TConnection& operator=(const TConnection&) = delete;

  /// Waits up to a minute for the next line and returns it without its CR LF. Returns nullopt when the
  /// connection is over or the line is longer than 8192 bytes.
  std::optional<std::string> ReadLine();
  /// A line has come, or the other side has closed.
  bool HasInput();
  /// Waits up to a minute for the next bytes. Returns "" when the connection is over.
  virtual std::string Receive();
  virtual bool Write(std::string_view data);
  /// Ends the sending, then waits at most `limit` until the other side has closed too: data on their way are
  /// not lost.
  virtual void Finish(std::chrono::milliseconds limit);
  /// Ends all waits; for another thread.
  void Interrupt();
  int Socket() const { return socket_; }

 private:
  int socket_;
  std::string buffer_;
};

/// A socket listening on 127.0.0.1.
class TListener {
 public:
  /// `port` 0: any free one. Throws std::system_error.
  explicit TListener(int port);
  ~TListener();
  TListener(const TListener&) = delete;
  TListener& operator=(const TListener&) = delete;

  int Port() const { return port_; }
  /// Waits up to `limit` (-1 ms: for ever) for the next connection. Returns null when no client connects.
  std::unique_ptr<TConnection> Accept(std::chrono::milliseconds limit);
  /// Accepts no more and ends the wait of Accept; for another thread.
  void Interrupt();

 private:
  int socket_;
  int port_ = 0;
};

/// Connects to a port of this machine, from 127.0.0.1 or another address of it; null when that fails.
std::unique_ptr<TConnection> ConnectLocally(int port, const char* from = "127.0.0.1");

/// Serves each connection in a thread of its own, 64 at most at a time.
class TTcpServer {
 public:
  using THandler = std::function<void(TConnection&)>;
  /// Throws std::system_error when the port is not free.
  TTcpServer(int port, THandler handler);
  /// Interrupts all connections and waits for their threads.
  ~TTcpServer();

  int Port() const { return listener_.Port(); }

 private:
  struct TSession {
    std::unique_ptr<TConnection> Connection;
    std::atomic<bool> Done = false;
    std::jthread Thread;
  };
  void Serve(const std::stop_token& stop);

  TListener listener_;
  THandler handler_;
  std::jthread acceptor_;
};

}  // namespace skyreel::demo
