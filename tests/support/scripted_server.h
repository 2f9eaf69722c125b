#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/descriptor.h"

namespace skyreel::test {

class TConnection;

/// What a server does on one connection, step by step. A script that comes to its end closes the connection
/// in order. Texts are sent as they stand: line ends are written out.
class TScript {
 public:
  /// Reads one line; it must be this one (without its CR LF), or the server notes an error and closes.
  TScript& Expect(std::string line);
  /// Reads one line, whatever it is.
  TScript& ReadLine();
  /// Reads a whole HTTP request: the header and as many bytes as its Content-Length announces.
  TScript& ReadRequest();
  TScript& Reply(std::string bytes);
  /// Expect and Reply of `reply` with CR LF added: one exchange of a command protocol.
  TScript& Exchange(std::string line, std::string reply);
  /// Sends `bytes` in pieces of `piece` bytes, each after a pause.
  TScript& Drip(std::string bytes, std::chrono::milliseconds interval, std::size_t piece = 1);
  /// Does nothing until Release, until the client closes, or until the server is destroyed.
  TScript& Stall();
  /// Reads until the client closes.
  TScript& WaitForClose();
  /// Runs in the connection's thread.
  TScript& Call(std::function<void()> action);
  /// Connects to the address of the last "PORT h,h,h,h,p,p" line read and runs `script` there, to its end.
  TScript& ConnectBack(TScript script);
  /// Ends with a reset in place of an orderly close.
  TScript& Reset();
  /// Sends no more, but goes on reading.
  TScript& HalfClose();
  TScript& Close();

 private:
  friend class TConnection;
  using TStep = std::function<bool(TConnection&)>;  // false ends the script
  TScript& Add(TStep step);
  std::vector<TStep> steps_;
};

/// A script written as what it sends, with marks: it may end with "<stall>" or "<reset>"; what stands behind
/// "<drip>" goes out byte by byte, behind "<later>" after a pause, behind "<go>" at once again.
TScript Script(const std::string& text);

/// A TCP server on 127.0.0.1 at a port that the system chooses, in threads of its own. Destroying it ends
/// whatever its connections are doing.
class TServer {
 public:
  virtual ~TServer();
  TServer(const TServer&) = delete;
  TServer& operator=(const TServer&) = delete;

  std::uint16_t Port() const { return port_; }
  /// "127.0.0.1:port"
  std::string Address() const { return "127.0.0.1:" + std::to_string(port_); }
  std::string Url(const std::string& path = "/") const { return "http://" + Address() + path; }
  /// Lets every Stall, running or to come, end.
  void Release();
  int ConnectionCount() const { return static_cast<int>(Received().size()); }
  /// All lines read by Expect, ReadLine and ReadRequest, without their ends, of all connections in order.
  std::vector<std::string> Lines() const { return Copy(lines_); }
  /// All bytes read, one entry per connection in the order of their coming.
  std::vector<std::string> Received() const { return Copy(received_); }
  /// What went otherwise than scripted; a test expects it to be empty.
  std::vector<std::string> Errors() const { return Copy(errors_); }
  /// Refuses connections from now on.
  void StopListening();
  /// Waits until `count` connections have come and ended.
  void WaitForConnections(int count);

 protected:
  TServer();
  /// What to do on the connection of that number (from 0).
  virtual void Serve(TConnection& connection, int number) = 0;
  /// To be called at the end of the descendant's constructor, and Stop in its destructor.
  void Start();
  void Stop();

 private:
  friend class TConnection;
  void Listen();
  std::vector<std::string> Copy(const std::vector<std::string>& texts) const {
    const std::lock_guard lock(mutex_);
    return texts;
  }

  struct TServed {
    std::thread Thread;
    bool Ended = false;
  };

  TDescriptor listener_;
  TDescriptor stop_;
  TDescriptor release_;
  std::uint16_t port_ = 0;
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
  std::vector<std::string> received_;
  std::vector<std::string> errors_;
  std::condition_variable connection_ended_;
  int ended_ = 0;
  std::list<TServed> connections_;  ///< those that have ended go when the next one comes
  std::thread thread_;
};

/// Runs one script per connection, in the order in which they come; a connection beyond the last script is
/// closed and noted as an error.
class TScriptedServer : public TServer {
 public:
  /// Takes no connection before Play.
  TScriptedServer() = default;
  explicit TScriptedServer(std::vector<TScript> scripts) { Play(std::move(scripts)); }
  explicit TScriptedServer(TScript script) : TScriptedServer(std::vector<TScript>{std::move(script)}) {}
  void Play(std::vector<TScript> scripts);
  ~TScriptedServer() override { Stop(); }

 protected:
  void Serve(TConnection& connection, int number) override;

 private:
  std::vector<TScript> scripts_;
};

/// An HTTP server with fixed answers: for each path (the request line's second word), or for one method and
/// path ("HEAD /a.gif"), a script that runs once the request has been read. Any other path gets a 404. HEAD
/// gets the header alone, unless there is an answer for it. Closes after each reply.
class THttpServer : public TServer {
 public:
  /// A reply's header lines, without line ends.
  using TLines = std::vector<std::string>;

  THttpServer();
  ~THttpServer() override { Stop(); }

  /// Content-Length is added. The last answer set for a path holds.
  void Answer(const std::string& path, const std::string& body, const TLines& headers = {},
              const std::string& status = "200 OK");
  void AnswerScript(const std::string& path, TScript script);
  /// Asked first for each request (path, whole request); an empty result falls back to the fixed answers,
  /// anything else is sent as it is.
  void SetHandler(std::function<std::string(const std::string& path, const std::string& request)> handler);

  /// The request lines so far ("GET /a.gif HTTP/1.0"), in order.
  std::vector<std::string> RequestLines() const;
  /// Their second words.
  std::vector<std::string> Paths() const;

 protected:
  void Serve(TConnection& connection, int number) override;

 private:
  mutable std::mutex answers_mutex_;
  std::map<std::string, TScript> answers_;
  std::function<std::string(const std::string&, const std::string&)> handler_;
};

/// A port of this computer that nobody listens at.
std::uint16_t ClosedPort();

/// The whole of an HTTP/1.0 reply: status line, header lines, Content-Length, body.
std::string HttpReply(const std::string& body, const std::vector<std::string>& headers = {},
                      const std::string& status = "200 OK");

}  // namespace skyreel::test
