#pragma once

#include <netinet/in.h>
#include <poll.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/descriptor.h"
#include "base/event.h"
#include "net/resolver.h"
#include "net/thread_timer.h"

namespace skyreel {

/// A failed socket operation.
class ESockError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// No connection could be made to the server or its proxy.
class EConnectError : public ESockError {
 public:
  EConnectError(const std::string& what, std::string explanation)
      : ESockError(what), Explanation(std::move(explanation)) {}
  /// What the server did, to follow its name in a sentence: "refused the connection".
  const std::string Explanation;
};

/// A reply that is larger than the receiver wants to keep.
class ETooLarge : public ESockError {
 public:
  using ESockError::ESockError;
};

/// An operation that Cancel, Abort or the time-out has ended.
class EAbortError : public ESockError {
 public:
  using ESockError::ESockError;
};

/// A port number that knows when somebody sets it, even to the number that it has.
class TPort {
 public:
  TPort() = default;
  TPort(const TPort&) = default;
  TPort& operator=(const TPort& other) { return *this = other.number_; }
  TPort& operator=(std::uint16_t number) {
    number_ = number;
    set_ = true;
    return *this;
  }
  operator std::uint16_t() const { return number_; }
  /// Whether it was set since the last call.
  bool TakeSet() { return std::exchange(set_, false); }

 private:
  std::uint16_t number_ = 0;
  bool set_ = false;
};

/// A TCP client socket (IPv4). Its operations block, but every wait inside them polls the socket for at most
/// 2 ms, calls the event hook given to the constructor, and checks the cancel and time-out flags. So the user
/// interface stays live, and the hook may call Cancel or Abort.
///
/// Inside a wait (the event hook, OnPacketRecvd, OnPacketSent, OnDataArrived) the component refuses another
/// operation with ESockError "Busy with another operation", and nobody may destroy it. Failures are
/// exceptions. After each of them the component is usable again.
class TPowersock {
 public:
  using TNotifyEvent = std::function<void(TPowersock& sender)>;
  using THandlerEvent = std::function<void(TPowersock& sender, bool& handled)>;
  using TOnErrorEvent =
      std::function<void(TPowersock& sender, std::uint16_t error_number, const std::string& message)>;
  using TOnStatus = std::function<void(TPowersock& sender, const std::string& status)>;
  using TOnHostResolved = TNotifyEvent;

  /// A line longer than this ends ReadLn with ESockError "Line too long".
  static constexpr std::size_t kMaxLine = 64 * 1024;
  /// More than this is not kept in memory: ETooLarge "Reply too large".
  static constexpr std::size_t kMaxKept = 64 * 1024 * 1024;

  /// `event_hook` lets the user interface process its events; it may be empty. Throws ESockError when the
  /// system gives no socket.
  explicit TPowersock(TEventHook event_hook = {});
  virtual ~TPowersock();
  TPowersock(const TPowersock&) = delete;
  TPowersock& operator=(const TPowersock&) = delete;

  // Where to.
  std::string Host;             ///< name or dotted IPv4 address
  TPort Port;                   ///< remote port, 0 at first; for Listen the local one
  std::string Proxy;            ///< when not empty, the component connects to it instead of Host
  std::uint16_t ProxyPort = 0;  ///< used when Proxy is not empty

  /// Limit of every wait in milliseconds; 0 or less: no limit. For a captured stream it limits the silence
  /// between two packets.
  std::int32_t TimeOut = 0;
  /// Highest level of the status texts for OnStatus: 1 reply lines and commands, 4 socket steps, 8 all.
  std::int32_t ReportLevel = 0;

  // Events.
  TNotifyEvent OnDataArrived;      ///< the socket became readable
  TNotifyEvent OnIncoming;         ///< a connection came in on a listening socket
  TNotifyEvent OnConnect;          ///< connected
  TNotifyEvent OnDisconnect;       ///< the socket was closed
  TOnErrorEvent OnError;           ///< a socket error, just before the exception
  THandlerEvent OnInvalidHost;     ///< the host has no address; the handler may correct Host and set handled
  TOnHostResolved OnHostResolved;  ///< a lookup found the address
  THandlerEvent OnConnectionRequired;  ///< a connection is needed; the handler may connect and set handled
  TOnStatus OnStatus;                  ///< status text, filtered by ReportLevel
  TNotifyEvent OnConnectionFailed;     ///< a connect attempt failed, timed out or was cancelled
  TNotifyEvent OnPacketRecvd;          ///< after each chunk received by a capture
  TNotifyEvent OnPacketSent;           ///< after each chunk sent by SendFile

  // What happened.
  bool Connected = false;
  std::string Status;                    ///< the last status text reported
  std::vector<std::string> NetworkInfo;  ///< six lines about the socket library, in the first component only
  std::int64_t SentByteCount = 0;        ///< bytes sent by SendFile
  std::int64_t ReceivedByteCount = 0;    ///< bytes received by the running or last capture
  std::int64_t TransferSize = 0;         ///< bytes that the server announced; 0: it did not say
  int LastSocketError = 0;               ///< number as in GetErrorMessage; lookups 11001 to 11004
  std::string LastReply;                 ///< last reply line read by Transaction
  std::int16_t ReplyCode = 0;            ///< the number at its start, 0 for none

  /// How host names are looked up.
  TLookupFunction LookUp = LookUpHost;

  /// Resolves the host and connects. Throws ESockError: "Already connected", "Null Remote Address" (no
  /// address, and OnInvalidHost did not help), "Connection Timed out", "Connection Canceled", "Connection
  /// Failed", and what ResolveHost throws. Clears the cancel flag.
  virtual void Connect();
  /// Closes the connection.
  virtual void Disconnect();
  /// Cancels the running wait, or else the next operation.
  void Cancel();
  /// Cancels this component and, in a descendant, whatever else it has running. The time-out calls it too.
  virtual void Abort();
  /// Throws std::runtime_error "Not Connected" unless connected. OnConnectionRequired gets one chance to
  /// connect.
  void EnsureConnected();

  /// Sends the text up to its first NUL. Throws ERangeError when that is more than 65,535 bytes.
  void Write(std::string_view text);
  /// Write of the text and CR LF.
  void Writeln(std::string_view text);
  /// Sends `length` bytes; 0 means up to the first NUL, at most 65,535 bytes (ERangeError beyond). Throws
  /// EAbortError "Socket send aborted".
  void SendBuffer(const char* data, std::uint16_t length);
  /// Waits for `count` bytes and returns them; "" when the peer closes first. 0: returns what is there now.
  /// Throws EAbortError "Socket send aborted".
  std::string Read(std::uint16_t count);
  /// Reads one line with its line end and nothing after it. "" when the peer closed, even inside a line.
  /// Throws EAbortError "Socket readln aborted", ESockError "Line too long".
  std::string ReadLn();
  /// Sends a command line, reads one reply line and sets LastReply and ReplyCode from it.
  virtual std::string Transaction(const std::string& command);
  /// Sends the whole file. Throws EAbortError "Socket send aborted", std::system_error for the file.
  void SendFile(const std::string& file_name);
  /// Creates the file and writes into it all that arrives until the peer closes. Throws EAbortError "Socket
  /// send aborted", std::system_error for the file, for example when the disk is full.
  void CaptureFile(const std::string& file_name);
  /// Puts into `text` all that arrives until the peer closes or `text` holds `maximum` bytes or more (-1: no
  /// limit). Throws EAbortError "Socket capture aborted", ETooLarge "Reply too large".
  void CaptureString(std::string& text, std::int64_t maximum = -1);

  /// Listens at Port (0: the system chooses one) on all local addresses. An incoming connection calls
  /// OnDisconnect when `use_lookup_channel` is set, else OnIncoming.
  void Listen(bool use_lookup_channel);
  /// Waits for an incoming connection; returns its descriptor, which the caller owns (AdoptSocket). Does not
  /// start the time-out: call TimerOn before and TimerOff after. Throws ESockError "Accepting Canceled",
  /// "Error creating Data Connection".
  virtual int Accept();
  /// Takes over a connected socket. The component's own socket is closed without an event.
  void AdoptSocket(int descriptor);

  /// Finds the address of the proxy, or of the host when there is no proxy. Throws ESockError "Host Lookup
  /// Timed Out", "Host Lookup Canceled", "Host Lookup Failed".
  void ResolveHost();
  /// At least one byte is waiting.
  bool HasPendingData();
  /// Drops the bytes that are waiting, at most 65,536.
  void ClearInput();
  /// Closes the socket and makes a new one for the next Connect. Inside a wait it only cancels the waiting
  /// operation.
  void RequestCloseSocket();
  /// "10061:Connection refused", "" for 0, "Unknown Error No. 12345".
  std::string GetErrorMessage(int error_number);
  /// Clears the timed-out flag and restarts the full TimeOut. It counts from the next wait on, so data that
  /// are there already need no timer.
  void TimerOn();
  void TimerOff();

  /// The socket's own address as "192,168,1,2".
  std::string LocalAddressWithCommas() const;
  /// The socket's own port as ",4,1": high byte, low byte.
  std::string LocalPortPair() const;
  /// The peer of the last Connect or Accept; address 0 while not resolved.
  const sockaddr_in& RemoteAddress() const { return remote_; }

  /// The n-th field (from 1). Every delimiter ends a field, so fields may be empty. "" when there are fewer.
  static std::string FieldAt(std::string_view text, char delimiter, int n);
  /// The position (from 1) of the n-th occurrence; length + 1 when there are fewer.
  static std::size_t NthCharPosition(std::string_view text, char character, int n);

  bool Canceled() const { return canceled_; }
  bool TimedOut() const { return timed_out_; }

 protected:
  /// How many bytes may be received next; 0: enough.
  using TRoom = std::function<std::int64_t()>;
  /// Takes a received chunk and returns how many of its bytes count as received.
  using TTake = std::function<std::size_t(std::string_view chunk)>;

  /// Called at the time-out. Sets the flags and calls Abort.
  virtual void HandleTimeOut();
  /// Stores the text in Status and calls OnStatus, unless `level` is above ReportLevel.
  void ReportStatus(int level, std::string_view text);
  /// The first byte that is waiting; NUL when no byte is.
  char PendingByte() const;
  /// Throws ESockError "Busy with another operation" inside one of this component's waits.
  void RefuseInsideWait() const;
  /// One turn of a wait for input: at most 2 ms, then the event hook, the time-out and the notifications
  /// (data, close).
  void WaitForInput();
  /// Calls OnDataArrived for new data. Closes the socket when the peer has closed and nothing is left to
  /// read.
  void ProcessNotifications();
  /// Receives until the peer closes (returns false) or `room` returns 0 (returns true). Adds what `take`
  /// returns to ReceivedByteCount. After each chunk it calls OnPacketRecvd and restarts the time-out. Throws
  /// EAbortError with `abort_text`.
  bool Receive(const TRoom& room, const TTake& take, const char* abort_text);
  /// Reads lines as ReadLn does until `take` returns false. When the connection ends, `take` gets "" as the
  /// last line. Each line may take the full TimeOut.
  void ReadLines(const std::function<bool(const std::string& line)>& take);
  /// Appends and returns the chunk's size. Throws ETooLarge "Reply too large" beyond kMaxKept.
  static std::size_t KeepInMemory(std::string& text, std::string_view chunk);
  /// Sends all bytes, NUL bytes too.
  void SendAll(std::string_view data);
  /// Clears the cancel flag and throws EAbortError.
  [[noreturn]] void ThrowAborted(const char* text);
  /// The event hook, for components that this one owns.
  const TEventHook& EventHook() const { return event_hook_; }

  static constexpr std::int64_t kNoLimit = INT64_MAX;

  bool canceled_ = false;     ///< set by Cancel; cleared by Connect and with each EAbortError
  bool timed_out_ = false;    ///< set by the time-out; cleared by TimerOn
  bool notified_ = false;     ///< the lookup, the connection or the time-out has come
  bool success_ = true;       ///< false when the last notification carried an error
  bool keep_closed_ = false;  ///< RequestCloseSocket makes no new socket

 private:
  static constexpr std::size_t kBufferSize = 65'536;

  void StartNetwork();
  void OpenSocket();
  void ReplaceSocket();
  void CheckError(int error);
  void StartConnect();
  /// Polls for at most 2 ms, lets events through and checks the time-out. Returns the poll's events.
  short WaitTurn(int descriptor, short events);
  /// Starts the time-out. It stops with the scope that holds the returned object.
  auto TimerScope();
  void StartDueTimer();
  void LetEventsThrough();
  void RunEventHook();
  void Notify(const TNotifyEvent& event);
  bool ReceiveFailed(int error);
  sockaddr_in LocalAddress() const;

  TEventHook event_hook_;
  TThreadTimer timer_;
  bool timer_due_ = false;  ///< TimerOn was called; the timer starts with the next longer wait
  TDescriptor socket_;
  sockaddr_in remote_{};
  std::vector<char> buffer_;
  std::string last_error_message_;
  std::chrono::steady_clock::time_point last_hook_{};
  int waiting_ = 0;  ///< above 0: a handler or the hook runs inside a wait
  bool listening_ = false;
  bool listens_on_lookup_channel_ = false;
  bool arrival_reported_ = false;
};

}  // namespace skyreel
