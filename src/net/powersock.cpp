#include "net/powersock.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>

#include "base/exceptions.h"
#include "base/file_sink.h"
#include "base/files.h"
#include "base/scope.h"
#include "base/text.h"
#include "net/socket_errors.h"

namespace skyreel {

namespace {

constexpr int kWaitMilliseconds = 2;
// The longest time that events wait while data keep coming.
constexpr std::chrono::milliseconds kEventPeriod{10};

/// The number of components that this process has started.
std::atomic<int> started_components{0};

}  // namespace

auto TPowersock::TimerScope() {
  TimerOn();
  return TAtScopeEnd([this] {
    try {
      TimerOff();
    } catch (...) {
      // A handler of OnStatus has thrown. The timer is off by then.
    }
  });
}

TPowersock::TPowersock(TEventHook event_hook)
    : event_hook_(std::move(event_hook)), buffer_(kBufferSize + 1, '\0') {
  timer_.SetEnabled(false);
  timer_.SetOnTimer([this](TThreadTimer&) { HandleTimeOut(); });
  StartNetwork();
}

// Calls no event: the handler's owner may be gone already.
TPowersock::~TPowersock() = default;

void TPowersock::StartNetwork() {
  // kept: only the first component of the process fills the list.
  if (++started_components == 1) {
    rlimit files{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    NetworkInfo = {"Version= 1.1",
                   "High Version= 1.1",
                   "Description= Berkeley sockets, IPv4",
                   "System= Running",
                   "Max Sockets= " + std::to_string(files.rlim_cur),
                   "Max Udp pack size= 65507"};
  }
  OpenSocket();
  // kept: closing the first socket resets the connection; later sockets close in order.
  const linger reset{1, 0};
  ::setsockopt(socket_.Get(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
}

void TPowersock::OpenSocket() {
  socket_ = TDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
  if (!socket_.IsOpen()) CheckError(errno);
  // Without this the second part of a request waits until the server has acknowledged the first.
  const int on = 1;
  ::setsockopt(socket_.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  listening_ = false;
  arrival_reported_ = false;
}

void TPowersock::ReplaceSocket() {
  Connected = false;
  socket_.Close();
  OpenSocket();
}

// --- Status, errors, flags -------------------------------------------------------------------------------

void TPowersock::ReportStatus(int level, std::string_view text) {
  if (level > ReportLevel) return;
  Status = text;
  Fire(OnStatus, *this, Status);
}

std::string TPowersock::GetErrorMessage(int error_number) {
  ReportStatus(8, "Looking Up Error Message" + last_error_message_);
  last_error_message_ = SocketErrorMessage(error_number);
  return last_error_message_;
}

void TPowersock::CheckError(int error) {
  LastSocketError = SocketErrorFromErrno(error);
  if (LastSocketError == kErrorWouldBlock || LastSocketError <= 10000) return;
  const std::string message = GetErrorMessage(LastSocketError);
  Fire(OnError, *this, static_cast<std::uint16_t>(LastSocketError), message);
  throw ESockError(message);
}

void TPowersock::ThrowAborted(const char* text) {
  canceled_ = false;
  throw EAbortError(text);
}

void TPowersock::RefuseInsideWait() const {
  if (waiting_ > 0) throw ESockError("Busy with another operation");
}

void TPowersock::Cancel() {
  ReportStatus(8, "Canceling");
  canceled_ = true;
}

void TPowersock::Abort() {
  ReportStatus(8, "Abort");
  Cancel();
}

void TPowersock::HandleTimeOut() {
  ReportStatus(8, "Timer Triggered");
  TimerOff();
  timed_out_ = true;
  notified_ = true;
  Abort();
}

void TPowersock::TimerOn() {
  ReportStatus(8, "Timer On");
  timed_out_ = false;
  timer_.SetEnabled(false);
  timer_due_ = true;
}

void TPowersock::StartDueTimer() {
  if (!timer_due_) return;
  timer_due_ = false;
  timer_.SetInterval(static_cast<std::uint32_t>(std::max(TimeOut, 0)));
  timer_.SetEnabled(true);
}

void TPowersock::TimerOff() {
  timer_due_ = false;
  timer_.SetEnabled(false);
  ReportStatus(8, "Timer Off");
}

// --- Waiting ---------------------------------------------------------------------------------------------

void TPowersock::RunEventHook() {
  {
    const TScopedValue scope(waiting_, waiting_ + 1);
    Fire(event_hook_);
  }
  last_hook_ = std::chrono::steady_clock::now();
}

void TPowersock::Notify(const TNotifyEvent& event) {
  const TScopedValue scope(waiting_, waiting_ + 1);
  Fire(event, *this);
}

void TPowersock::LetEventsThrough() {
  if (std::chrono::steady_clock::now() - last_hook_ < kEventPeriod) return;
  StartDueTimer();
  RunEventHook();
  timer_.FireIfExpired();
}

short TPowersock::WaitTurn(int descriptor, short events) {
  std::array<pollfd, 2> wanted{{{descriptor, events, 0}, {timer_.Descriptor(), POLLIN, 0}}};
  const bool ready = ::poll(wanted.data(), wanted.size(), kWaitMilliseconds) > 0;
  // Most waits end at once. Only a longer one needs the timer.
  if (!ready) StartDueTimer();
  // Data come first. Events run after them once they have waited for kEventPeriod.
  if (!ready || wanted[1].revents != 0) {
    RunEventHook();
    timer_.FireIfExpired();
  } else {
    LetEventsThrough();
  }
  if (descriptor == socket_.Get() && Connected && (wanted[0].revents & POLLIN) && !arrival_reported_) {
    arrival_reported_ = true;
    Notify(OnDataArrived);
  }
  return wanted[0].revents;
}

void TPowersock::WaitForInput() {
  WaitTurn(Connected ? socket_.Get() : -1, POLLIN);
  ProcessNotifications();
}

void TPowersock::ProcessNotifications() {
  if (!Connected || listening_) return;
  pollfd state{socket_.Get(), POLLIN | POLLRDHUP, 0};
  if (::poll(&state, 1, 0) <= 0) return;
  success_ = !(state.revents & POLLERR);
  if ((state.revents & POLLIN) && !arrival_reported_) {
    arrival_reported_ = true;
    Notify(OnDataArrived);
  }
  if ((state.revents & (POLLRDHUP | POLLHUP | POLLERR)) && Connected && !HasPendingData())
    RequestCloseSocket();
}

// --- Connecting ------------------------------------------------------------------------------------------

void TPowersock::ResolveHost() {
  RefuseInsideWait();
  ReportStatus(8, "Resolve Host");
  const std::string name = Proxy.empty() ? Host : Proxy;
  remote_.sin_addr.s_addr = 0;
  // The resolver would cut the name at a NUL and look up another host.
  const std::string unknown = "is not a known host";
  if (HasControlCharacter(name)) throw EConnectError("Host Lookup Failed", unknown);
  const in_addr_t dotted = ::inet_addr(name.c_str());
  if (dotted != INADDR_NONE) {
    remote_.sin_addr.s_addr = dotted;
    return;
  }

  std::optional<THostLookup> lookup;
  {
    const auto timer = TimerScope();
    notified_ = false;
    try {
      lookup.emplace(name, LookUp);
    } catch (const std::system_error& error) {
      throw EConnectError("Host Lookup Failed", "cannot be looked up: " + error.code().message());
    }
    while (!notified_ && !timed_out_ && !canceled_) {
      WaitTurn(lookup->Descriptor(), POLLIN);
      if (lookup->IsDone()) {
        notified_ = true;
        success_ = lookup->Error() == 0;
      }
    }
  }
  if (timed_out_) throw EConnectError("Host Lookup Timed Out", "cannot be looked up: no answer in time");
  if (canceled_) throw ESockError("Host Lookup Canceled");
  // Abort may set notified_ before the lookup is done.
  if (!lookup->IsDone() || !success_) {
    if (lookup->IsDone()) LastSocketError = SocketErrorFromLookup(lookup->Error());
    throw EConnectError("Host Lookup Failed", unknown);
  }
  remote_.sin_addr = lookup->Address();
  Fire(OnHostResolved, *this);
}

void TPowersock::Connect() {
  RefuseInsideWait();
  ReportStatus(8, "Connecting");
  canceled_ = false;
  ProcessNotifications();
  if (Connected) throw ESockError("Already connected");

  remote_.sin_addr.s_addr = 0;
  for (int attempts = 0;; ++attempts) {
    ResolveHost();
    if (remote_.sin_addr.s_addr != 0) break;
    bool handled = false;
    if (attempts == 0) Fire(OnInvalidHost, *this, handled);
    if (!handled) throw EConnectError("Null Remote Address", "has no address");
  }
  remote_.sin_family = AF_INET;
  remote_.sin_port = htons(Proxy.empty() ? Port : ProxyPort);

  try {
    StartConnect();
  } catch (...) {
    // The next attempt cannot use a socket that has started to connect.
    ReplaceSocket();
    throw;
  }
  if (!timed_out_ && !canceled_ && success_) {
    Connected = true;
    Fire(OnConnect, *this);
    return;
  }
  const bool timed_out = timed_out_, canceled = canceled_;
  ReplaceSocket();
  Fire(OnConnectionFailed, *this);
  if (timed_out) throw EConnectError("Connection Timed out", "did not answer in time");
  if (canceled) throw ESockError("Connection Canceled");
  throw EConnectError("Connection Failed", LastSocketError == SocketErrorFromErrno(ECONNREFUSED)
                                               ? "refused the connection"
                                               : "cannot be reached: " + GetErrorMessage(LastSocketError));
}

void TPowersock::StartConnect() {
  if (!socket_.IsOpen() || listening_) ReplaceSocket();
  notified_ = false;
  success_ = true;
  const auto timer = TimerScope();
  int error = 0;
  if (::connect(socket_.Get(), reinterpret_cast<const sockaddr*>(&remote_), sizeof remote_) != 0)
    error = errno;
  while ((error == EINPROGRESS || error == EINTR) && !timed_out_ && !canceled_) {
    const short events = WaitTurn(socket_.Get(), POLLOUT);
    if (events == 0) continue;
    error = 0;
    socklen_t size = sizeof error;
    // A socket that is only writable is connected.
    if (events != POLLOUT && ::getsockopt(socket_.Get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0)
      error = errno;
  }
  if (timed_out_ || canceled_) return;
  switch (error) {
    case 0:
      break;
    // These mean that the attempt failed, whether they come at once or later.
    case ECONNREFUSED:
    case ECONNRESET:
    case ENETUNREACH:
    case EHOSTUNREACH:
    case ETIMEDOUT:
      LastSocketError = SocketErrorFromErrno(error);
      success_ = false;
      break;
    default:
      CheckError(error);
  }
}

void TPowersock::Disconnect() {
  ReportStatus(8, "Disconnecting");
  RequestCloseSocket();
}

void TPowersock::EnsureConnected() {
  ReportStatus(8, "Checking Connection");
  ProcessNotifications();
  for (bool first = true; !Connected; first = false) {
    bool handled = false;
    if (first) Fire(OnConnectionRequired, *this, handled);
    if (!handled) throw std::runtime_error("Not Connected");
  }
}

void TPowersock::RequestCloseSocket() {
  ReportStatus(4, "Request Close Socket");
  if (waiting_ > 0) {
    // The waiting operation still uses the socket, so it has to end first.
    canceled_ = true;
    return;
  }
  Connected = false;
  if (!socket_.IsOpen()) return;
  if (!socket_.Close()) CheckError(errno);
  Fire(OnDisconnect, *this);
  // A handler may have connected again.
  if (!keep_closed_ && !socket_.IsOpen()) OpenSocket();
}

// --- Sending ---------------------------------------------------------------------------------------------

void TPowersock::Write(std::string_view text) {
  RefuseInsideWait();
  ReportStatus(8, "Write");
  // kept: a NUL ends the text.
  const std::size_t length = text.copy(buffer_.data(), kBufferSize);
  buffer_[length] = '\0';
  SendBuffer(buffer_.data(), 0);
}

void TPowersock::Writeln(std::string_view text) {
  ReportStatus(8, "Writeln");
  Write(std::string(text) + "\r\n");
}

void TPowersock::SendBuffer(const char* data, std::uint16_t length) {
  ReportStatus(4, "Sending Buffer");
  std::size_t size = length;
  if (size == 0) {
    size = ::strnlen(data, UINT16_MAX + std::size_t{1});
    if (size > UINT16_MAX) throw ERangeError("More than 65,535 bytes to send at once");
  }
  SendAll({data, size});
}

void TPowersock::SendAll(std::string_view data) {
  RefuseInsideWait();
  const auto timer = TimerScope();
  while (!data.empty() && !canceled_) {
    const ssize_t sent = ::send(socket_.Get(), data.data(), data.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent == 0) break;
    if (sent > 0) {
      data.remove_prefix(static_cast<std::size_t>(sent));
      LetEventsThrough();
    } else if (errno != EINTR) {
      CheckError(errno);
      WaitTurn(socket_.Get(), POLLOUT);
    }
  }
  if (canceled_) ThrowAborted("Socket send aborted");
}

void TPowersock::SendFile(const std::string& file_name) {
  RefuseInsideWait();
  ReportStatus(8, "SendFile");
  SentByteCount = 0;
  const TDescriptor file(::open(file_name.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.IsOpen()) ThrowErrno(file_name);
  while (!canceled_) {
    const ssize_t got = ::read(file.Get(), buffer_.data(), kBufferSize);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) ThrowErrno(file_name);
    if (got == 0) break;
    SendAll({buffer_.data(), static_cast<std::size_t>(got)});
    SentByteCount += got;
    Notify(OnPacketSent);
    LetEventsThrough();
  }
  if (canceled_) ThrowAborted("Socket send aborted");
}

// --- Receiving -------------------------------------------------------------------------------------------

bool TPowersock::ReceiveFailed(int error) {
  LastSocketError = SocketErrorFromErrno(error);
  if (LastSocketError == kErrorNotConnected) return true;
  if (error != EINTR) CheckError(error);
  return false;
}

std::string TPowersock::Read(std::uint16_t count) {
  RefuseInsideWait();
  ReportStatus(8, "Read( " + std::to_string(count) + " )");
  std::size_t wanted = count;
  {
    const auto timer = TimerScope();
    bool peer_closed = false;
    while (!canceled_) {
      const ssize_t waiting = ::recv(socket_.Get(), buffer_.data(), kBufferSize, MSG_PEEK | MSG_DONTWAIT);
      if (waiting == 0) return "";
      if (waiting < 0 && ReceiveFailed(errno)) return "";
      if (count == 0) {
        wanted = static_cast<std::size_t>(std::max<ssize_t>(waiting, 0));
        break;
      }
      if (waiting >= static_cast<ssize_t>(wanted)) break;
      // The peer has closed, so the rest will not come.
      if (peer_closed) return "";
      pollfd state{socket_.Get(), POLLRDHUP, 0};
      peer_closed = ::poll(&state, 1, 0) > 0;
      // With some bytes there POLLIN would return at once, over and over.
      if (!peer_closed) WaitTurn(socket_.Get(), waiting > 0 ? POLLRDHUP : POLLIN);
    }
  }
  if (canceled_) ThrowAborted("Socket send aborted");
  std::string data(wanted, '\0');
  if (wanted > 0) {
    const ssize_t got = ::recv(socket_.Get(), data.data(), wanted, MSG_DONTWAIT);
    data.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    arrival_reported_ = false;
  }
  return data;
}

std::string TPowersock::ReadLn() {
  std::string text;
  ReadLines([&text](const std::string& line) {
    text = line;
    return false;
  });
  return text;
}

void TPowersock::ReadLines(const std::function<bool(const std::string& line)>& take) {
  RefuseInsideWait();
  ReportStatus(8, "ReadLn");
  // Lines are short. A longer peek would copy the body behind them many times.
  constexpr std::size_t kPeek = 4096;
  const auto timer = TimerScope();
  std::string line;
  while (!canceled_) {
    const ssize_t waiting = ::recv(socket_.Get(), buffer_.data(), kPeek, MSG_PEEK | MSG_DONTWAIT);
    if (waiting < 0 && !ReceiveFailed(errno)) {
      WaitTurn(socket_.Get(), POLLIN);
      continue;
    }
    if (waiting <= 0) {
      take(waiting == 0 ? "" : line);
      return;
    }
    const char* const end = buffer_.data() + waiting;
    const char* next = buffer_.data();
    bool more = true;
    while (more && next != end) {
      const char* const line_feed = std::find(next, end, '\n');
      const bool complete = line_feed != end;
      line.append(next, complete ? line_feed + 1 : end);
      next = complete ? line_feed + 1 : end;
      if (line.size() > kMaxLine) throw ESockError("Line too long");
      if (!complete) break;
      more = take(line);
      line.clear();
      if (!more) break;
      ReportStatus(8, "ReadLn");
      TimerOn();
    }
    // Removes from the socket what was used; the rest stays there.
    ::recv(socket_.Get(), buffer_.data(), static_cast<std::size_t>(next - buffer_.data()), MSG_DONTWAIT);
    arrival_reported_ = false;
    if (!more) return;
    LetEventsThrough();
  }
  ThrowAborted("Socket readln aborted");
}

std::string TPowersock::Transaction(const std::string& command) {
  ReportStatus(8, "Transaction");
  ReplyCode = 0;
  Writeln(command);
  LastReply = ReadLn();
  if (LastReply.empty()) return LastReply;
  ReportStatus(1, LastReply);
  std::int64_t code = 0;
  for (std::size_t i = 0; i < LastReply.size() && i < 10 && IsDigit(LastReply[i]); ++i) {
    code = code * 10 + (LastReply[i] - '0');
  }
  ReplyCode = static_cast<std::int16_t>(std::min<std::int64_t>(code, INT16_MAX));
  return LastReply;
}

bool TPowersock::Receive(const TRoom& room, const TTake& take, const char* abort_text) {
  RefuseInsideWait();
  const auto timer = TimerScope();
  while (!canceled_) {
    const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(room(), kBufferSize));
    if (wanted == 0) return true;
    const ssize_t got = ::recv(socket_.Get(), buffer_.data(), wanted, MSG_DONTWAIT);
    if (got == 0) return false;
    if (got < 0) {
      if (ReceiveFailed(errno)) return false;
      WaitTurn(socket_.Get(), POLLIN);
      continue;
    }
    arrival_reported_ = false;
    ReceivedByteCount += static_cast<std::int64_t>(take({buffer_.data(), static_cast<std::size_t>(got)}));
    Notify(OnPacketRecvd);
    TimerOn();
    LetEventsThrough();
  }
  ThrowAborted(abort_text);
}

void TPowersock::CaptureFile(const std::string& file_name) {
  RefuseInsideWait();
  ReportStatus(8, "CaptureFile");
  ReceivedByteCount = 0;
  TFileSink file(file_name);
  Receive([] { return kNoLimit; }, [&](std::string_view chunk) { return file.Write(chunk); },
          "Socket send aborted");
  file.Close();
}

void TPowersock::CaptureString(std::string& text, std::int64_t maximum) {
  RefuseInsideWait();
  ReportStatus(8, "Capture String");
  ReceivedByteCount = 0;
  text.clear();
  // The last receive may pass the maximum.
  const auto room = [&]() -> std::int64_t {
    return maximum != -1 && static_cast<std::int64_t>(text.size()) >= maximum ? 0 : kNoLimit;
  };
  const auto take = [&](std::string_view chunk) -> std::size_t {
    // kept: a single byte is dropped.
    return chunk.size() < 2 ? 0 : KeepInMemory(text, chunk);
  };
  Receive(room, take, "Socket capture aborted");
}

std::size_t TPowersock::KeepInMemory(std::string& text, std::string_view chunk) {
  if (text.size() + chunk.size() > kMaxKept) throw ETooLarge("Reply too large");
  text.append(chunk);
  return chunk.size();
}

char TPowersock::PendingByte() const {
  char byte = 0;
  ::recv(socket_.Get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return byte;
}

bool TPowersock::HasPendingData() {
  ReportStatus(8, "Data Available");
  char byte = 0;
  return ::recv(socket_.Get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
}

void TPowersock::ClearInput() {
  ReportStatus(8, "Clearing Input");
  RefuseInsideWait();
  ::recv(socket_.Get(), buffer_.data(), kBufferSize, MSG_DONTWAIT);
  arrival_reported_ = false;
}

// --- Listening -------------------------------------------------------------------------------------------

void TPowersock::Listen(bool use_lookup_channel) {
  RefuseInsideWait();
  ReportStatus(8, "Listening");
  if (!socket_.IsOpen()) OpenSocket();
  notified_ = false;
  success_ = true;
  sockaddr_in any{};
  any.sin_family = AF_INET;
  any.sin_port = htons(Port);
  if (::bind(socket_.Get(), reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0) CheckError(errno);
  if (::listen(socket_.Get(), 1) != 0) CheckError(errno);
  listening_ = true;
  listens_on_lookup_channel_ = use_lookup_channel;
}

int TPowersock::Accept() {
  RefuseInsideWait();
  ReportStatus(4, "Accepting");
  timed_out_ = false;
  while (true) {
    while (!notified_ && !canceled_) {
      if (const short events = WaitTurn(socket_.Get(), POLLIN); events != 0) {
        notified_ = true;
        success_ = (events & POLLIN) != 0;
        Connected = success_;
        // kept: the lookup channel reports an incoming connection through OnDisconnect.
        Notify(listens_on_lookup_channel_ ? OnDisconnect : OnIncoming);
      }
    }
    if (canceled_ || timed_out_) throw ESockError("Accepting Canceled");
    if (!success_) throw ESockError("Error creating Data Connection");
    socklen_t size = sizeof remote_;
    const int accepted =
        ::accept4(socket_.Get(), reinterpret_cast<sockaddr*>(&remote_), &size, SOCK_NONBLOCK | SOCK_CLOEXEC);
    notified_ = false;
    if (accepted >= 0) return accepted;
    // The peer has gone before it was accepted. Wait for the next one.
    if (errno != ECONNABORTED && errno != EINTR) CheckError(errno);
  }
}

void TPowersock::AdoptSocket(int descriptor) {
  TDescriptor adopted(descriptor);
  RefuseInsideWait();
  socket_ = std::move(adopted);
  listening_ = false;
  arrival_reported_ = false;
  Connected = true;
}

sockaddr_in TPowersock::LocalAddress() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  ::getsockname(socket_.Get(), reinterpret_cast<sockaddr*>(&address), &size);
  return address;
}

std::string TPowersock::LocalAddressWithCommas() const {
  std::array<char, INET_ADDRSTRLEN> dotted{};
  const in_addr address = LocalAddress().sin_addr;
  ::inet_ntop(AF_INET, &address, dotted.data(), dotted.size());
  return ReplaceAll(dotted.data(), ".", ",");
}

std::string TPowersock::LocalPortPair() const {
  const unsigned port = ntohs(LocalAddress().sin_port);
  return "," + std::to_string(port >> 8) + "," + std::to_string(port & 0xFF);
}

// --- Text ------------------------------------------------------------------------------------------------

std::string TPowersock::FieldAt(std::string_view text, char delimiter, int n) {
  for (; n > 1; --n) {
    const std::size_t end = text.find(delimiter);
    if (end == std::string_view::npos) return "";
    text.remove_prefix(end + 1);
  }
  return n < 1 ? "" : std::string(text.substr(0, text.find(delimiter)));
}

std::size_t TPowersock::NthCharPosition(std::string_view text, char character, int n) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == character && --n == 0) return i + 1;
  }
  return text.size() + 1;
}

}  // namespace skyreel
