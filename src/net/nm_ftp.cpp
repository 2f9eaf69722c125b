#include "net/nm_ftp.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>

#include "base/scope.h"
#include "base/text.h"
#include "net/ftp_parse.h"

namespace skyreel {

namespace {

constexpr std::int32_t kVendor = 2411;
constexpr int kServiceClosing = 421;
constexpr int kConnectionReset = 10054;
// How long to wait for a reply that no longer decides anything.
constexpr std::chrono::milliseconds kLateReply{950};
// How long a listing's data connection may stay silent after the final reply.
constexpr std::chrono::milliseconds kListingGrace{1000};

void CheckCommand(const std::string& command) {
  // The message does not quote the command: it may hold the password.
  if (command.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos)
    throw ESockError("Line end or NUL in an FTP command");
}

TCmdType CommandType(const std::string& command) {
  if (command.starts_with("CWD ")) return TCmdType::ChangeDir;
  if (command.starts_with("DELE ")) return TCmdType::Delete;
  if (command.starts_with("MKD ")) return TCmdType::MakeDir;
  if (command.starts_with("RMD ")) return TCmdType::RemoveDir;
  return command == "PWD" ? TCmdType::PrintDir : TCmdType::Other;
}

int Code(const std::string& line) {
  return HasReplyCode(line) ? std::stoi(line.substr(0, 3)) : 0;
}

/// Skips the reply code: it is not a size.
std::int64_t AnnouncedSize(const std::string& line) {
  return SizeFromReply(std::string_view(line).substr(HasReplyCode(line) ? 3 : 0));
}

}  // namespace

/// A plain socket whose input the client can wait for.
class TNMFTP::TDataConnection : public TPowersock {
 public:
  using TPowersock::TPowersock;
  using TPowersock::WaitForInput;
  /// The connection ended with an error.
  bool WasReset() const { return !success_; }
};

/// Sets up a transfer. It ends with the scope that holds the returned object.
auto TNMFTP::TransferScope() {
  LastTransfer = {};
  data_ = std::make_unique<TDataConnection>([this] {
    Fire(EventHook());
    if (accepting_ && HasRefusal()) data_->Cancel();
  });
  data_->TimeOut = TimeOut;
  data_->OnPacketRecvd = OnPacketRecvd;
  transferring_ = true;
  return TAtScopeEnd([this] {
    data_.reset();
    transferring_ = false;
  });
}

TNMFTP::TNMFTP(TEventHook event_hook) : TPowersock(std::move(event_hook)) {
  Port = 21;
}

TNMFTP::~TNMFTP() = default;

// --- The control connection ------------------------------------------------------------------------------

void TNMFTP::RefuseDuringTransfer() const {
  RefuseInsideWait();
  if (transferring_) throw ESockError("Busy with another transfer");
}

/// Begins every operation on an open connection.
void TNMFTP::Start() {
  RefuseDuringTransfer();
  canceled_ = false;
  EnsureConnected();
}

void TNMFTP::Drain() {
  if (HasPendingData()) Read(0);
}

/// Runs an exchange that returns a line. When it fails or brings no line, the connection is closed, because
/// the next reply could belong to an earlier command.
std::string TNMFTP::Converse(const std::function<std::string()>& exchange) {
  RefuseInsideWait();
  std::string line;
  try {
    line = exchange();
  } catch (const ESockError&) {
    RequestCloseSocket();
    throw;
  }
  if (line.empty()) {
    RequestCloseSocket();
    throw ESockError("Connection closed by server");
  }
  return line;
}

std::string TNMFTP::FirstLine(const std::string& command) {
  CheckCommand(command);
  return Converse([&] { return TPowersock::Transaction(command); });
}

std::string TNMFTP::NextLine(std::size_t& reply_size) {
  const std::string line = Converse([&] {
    std::string next = ReadLn();
    reply_size += next.size();
    if (reply_size > kMaxReply) throw ESockError("Reply too large");
    return next;
  });
  ReportStatus(1, line);
  return line;
}

void TNMFTP::ReadReplyContinuation(std::string& reply) {
  std::size_t size = reply.size();
  TReplyEnd end;
  while (!end.IsAt(reply)) reply = NextLine(size);
}

/// Reads the rest of a reply. After 421 the connection is closed here too: the server is about to close it,
/// and the next command would be lost.
void TNMFTP::ReadRest(std::string& reply) {
  ReadReplyContinuation(reply);
  if (ReplyCode == kServiceClosing) RequestCloseSocket();
}

std::string TNMFTP::Transaction(const std::string& command) {
  std::string reply = FirstLine(command);
  ReadRest(reply);
  return reply;
}

void TNMFTP::Fail(const std::string& reply, TCmdType type) {
  bool handled = false;
  Fire(OnFailure, *this, handled, type);
  if (!handled) throw FTPException(std::string(Trim(reply)));
}

void TNMFTP::CheckLogin(const std::string& reply) {
  if (ReplyCode < 401 || ReplyCode > 599) return;
  Fire(OnConnectionFailed, *this);
  throw FTPException(std::string(Trim(reply)));
}

void TNMFTP::Connect() {
  RefuseDuringTransfer();
  canceled_ = false;
  ProcessNotifications();
  if (Connected) return;
  ClearInput();
  TPowersock::Connect();

  std::string reply = " ";  // a blank: another line follows
  ReadReplyContinuation(reply);
  // kept: this is the code of the previous connection's last command, not of the greeting.
  if (ReplyCode > 400) {
    Fire(OnConnectionFailed, *this);
    throw FTPException(std::string(Trim(reply)));
  }

  const auto user = [&](const std::string& name) {
    ReportStatus(1, "USER " + name);
    CheckLogin(Transaction("USER " + name));
  };
  const auto password = [&](const std::string& word) {
    ReportStatus(1, "PASS ");
    CheckLogin(Transaction("PASS " + word));
  };
  if (FWAuthenticate) {
    user(FWUserID);
    if (ReplyCode == 331) password(FWPassword);
  }
  if (UserID.empty() || Password.empty()) {
    bool handled = false;
    Fire(OnAuthenticationNeeded, *this, handled);
  }
  if (!Proxy.empty()) {
    // kept: nobody looks at these replies.
    switch (FirewallType) {
      case TFirewallType::FTUser:
        Transaction("USER " + UserID + "@" + Host);
        break;
      case TFirewallType::FtOpen:
        Transaction("OPEN " + Host);
        break;
      case TFirewallType::FtSite:
        Transaction("SITE " + Host);
        break;
    }
  }
  if (Proxy.empty() || FirewallType != TFirewallType::FTUser) user(UserID);
  if (ReplyCode == 331) password(Password);
  Fire(OnConnect, *this);
}

void TNMFTP::Disconnect() {
  RefuseDuringTransfer();
  canceled_ = false;
  ProcessNotifications();
  if (!Connected) return;
  ReportStatus(1, "QUIT");
  Vendor = kVendor;
  try {
    Drain();
    const std::string reply = Transaction("QUIT");
    if (ReplyCode >= 301 && ReplyCode <= 599) throw FTPException(std::string(Trim(reply)));
  } catch (const EAbortError&) {
    throw;
  } catch (const ESockError&) {
    // The server has closed the connection, as QUIT asks.
    if (Connected) throw;
    return;
  }
  TPowersock::Disconnect();
}

void TNMFTP::SendCommand(const std::string& command) {
  const TCmdType type = CommandType(command);
  Start();
  CheckCommand(command);
  ReportStatus(1, StartsWithText(command, "PASS ") ? "PASS " : command);
  Drain();
  const std::string reply = Transaction(command);
  if (ReplyCode < 400 || ReplyCode > 599) {
    Fire(OnSuccess, *this, type);
    return;
  }
  if (ReplyCode >= 500 && ReplyCode <= 502) Fire(OnUnSupportedFunction, *this, type);
  Fail(reply, type);
}

void TNMFTP::SetTransferType(int type) {
  constexpr std::array<const char*, 3> kCommands = {"TYPE A", "TYPE I", "TYPE L 8"};
  if (type >= 1 && type <= 3) SendCommand(kCommands[static_cast<std::size_t>(type - 1)]);
}

void TNMFTP::HandleTimeOut() {
  const TScopedValue scope(in_time_out_, true);
  TPowersock::HandleTimeOut();
}

void TNMFTP::Abort() {
  if (data_ && (data_waits_ || in_time_out_)) {
    data_->Abort();
  } else if (!in_time_out_) {
    TPowersock::Abort();
  }
}

// --- Transfers -------------------------------------------------------------------------------------------

void TNMFTP::RetrieveFile(const std::string& remote_name, const std::string& local_name) {
  constexpr TCmdType kType = TCmdType::Download;
  Start();
  CheckCommand(remote_name);
  const auto scope = TransferScope();
  const bool passive = Passive;
  Drain();
  if (!OpenDataConnection(passive, kType) || !StartTransfer("RETR " + remote_name, kType)) return;
  Transfer(passive, kType, [&] { data_->CaptureFile(local_name.empty() ? remote_name : local_name); });
}

void TNMFTP::NameList() {
  constexpr TCmdType kType = TCmdType::NameList;
  Start();
  const auto scope = TransferScope();
  Drain();
  // kept: always in active mode.
  if (OpenDataConnection(false, kType) && StartTransfer("NLST", kType))
    Transfer(false, kType, [&] { ReceiveListing(); });
}

/// Whether the server refuses a step of a transfer. kept: a name listing does not call OnFailure.
bool TNMFTP::Refused(const std::string& reply, TCmdType type) {
  if (ReplyCode < 301 || ReplyCode > 599) return false;
  if (type == TCmdType::NameList) throw FTPException(std::string(Trim(reply)));
  Fail(reply, type);
  return true;
}

/// Connects to the server's port, or tells the server ours. False after a refusal that was handled.
bool TNMFTP::OpenDataConnection(bool passive, TCmdType type) {
  if (!passive) {
    data_->Port = 0;
    data_->Listen(true);
    const std::string command = "PORT " + LocalAddressWithCommas() + data_->LocalPortPair();
    if (type == TCmdType::NameList) ReportStatus(1, command);
    return !Refused(Transaction(command), type);
  }
  const std::string reply = Transaction("PASV");
  if (ReplyCode >= 500) {
    Fail(reply, type);
    return false;
  }
  const std::optional<std::uint16_t> port = PasvPort(reply);
  if (!port) throw FTPException("No usable port in the reply: " + std::string(Trim(reply)));
  // The reply could name any host. Data come from the host of the control connection only.
  std::array<char, INET_ADDRSTRLEN> address{};
  ::inet_ntop(AF_INET, &RemoteAddress().sin_addr, address.data(), address.size());
  data_->Host = address.data();
  data_->Port = *port;
  const TScopedValue scope(data_waits_, true);
  data_->Connect();
  return true;
}

/// Sends the command that starts the transfer. False after a refusal that was handled.
bool TNMFTP::StartTransfer(const std::string& command, TCmdType type) {
  ReportStatus(1, command);
  TransferSize = 0;
  std::string reply = FirstLine(command);
  if (ReplyCode >= 301 && ReplyCode <= 599) {
    ReadRest(reply);
    return !Refused(reply, type);
  }
  std::size_t size = reply.size();
  std::int64_t announced = AnnouncedSize(reply);
  TReplyEnd end;
  while (!end.IsAt(reply)) {
    reply = NextLine(size);
    if (announced == 0) announced = AnnouncedSize(reply);
    const int code = Code(reply);
    if (code < 301 || code > 599) continue;
    if (type == TCmdType::NameList) throw FTPException(std::string(Trim(reply)));
    if (code <= 502 && code >= 500) Fire(OnUnSupportedFunction, *this, type);
    Fail(reply, type);
  }
  LastTransfer.Announced = announced;
  // kept: the display takes the size of the last line, 0 when it has none.
  TransferSize = AnnouncedSize(reply);
  return true;
}

/// Whether the server has refused the transfer after all, so that no data will come.
bool TNMFTP::HasRefusal() const {
  const char first = PendingByte();
  return first == '4' || first == '5';
}

bool TNMFTP::Interrupted() const {
  return canceled_ || timed_out_ || data_->Canceled() || data_->TimedOut();
}

/// Receives the data, reads the final reply and fills LastTransfer.
void TNMFTP::Transfer(bool passive, TCmdType type, const std::function<void()>& receive) {
  bool interrupted = true;
  try {
    if (!passive) {
      const TScopedValue scope(data_waits_, true), accepting(accepting_, true);
      data_->TimerOn();
      TDescriptor peer;
      // Anybody may connect to the port. The file comes from the server alone.
      do {
        peer = TDescriptor(data_->Accept());
      } while (data_->RemoteAddress().sin_addr.s_addr != RemoteAddress().sin_addr.s_addr);
      data_->AdoptSocket(peer.Release());
      data_->TimerOff();
    }
    data_->TransferSize = TransferSize;
    Fire(OnTransactionStart, *this);
    if (Interrupted()) throw EAbortError("Socket send aborted");
    const TScopedValue scope(data_waits_, true);
    LastTransfer.Started = true;
    receive();
    interrupted = false;
  } catch (const ESockError& error) {
    interrupted = dynamic_cast<const EAbortError*>(&error) || Interrupted();
    LastTransfer.TimedOut = timed_out_ || data_->TimedOut();
    EndData();
    interrupted&& type == TCmdType::Download ? SendAbor() : ReadLateReply(kLateReply);
    throw;
  } catch (...) {
    // The local file or a handler failed, while the server is still sending.
    EndData();
    ReadLateReply(kLateReply);
    throw;
  }
  Fire(OnTransactionStop, *this);
  EndData();
  ReportStatus(1, "Received " + std::to_string(TransferSize) + " Bytes");
  ReadFinalReply();
  if (type == TCmdType::Download) Fire(OnTransactionStop, *this);
  LastTransfer.Whole =
      LastTransfer.FinalReply.starts_with('2') && LastTransfer.Received >= LastTransfer.Announced;
  // kept: whatever the final reply says.
  Fire(OnSuccess, *this, type);
}

void TNMFTP::EndData() {
  TransferSize = LastTransfer.Received = data_->ReceivedByteCount;
  data_.reset();
}

void TNMFTP::ReceiveListing() {
  using TMonotonic = std::chrono::steady_clock;
  std::string text;
  TMonotonic::time_point last_data = TMonotonic::now();
  data_->ReceivedByteCount = 0;
  data_->TimerOn();
  while (true) {
    data_->WaitForInput();
    if (Interrupted()) throw EAbortError("Socket readln aborted");
    if (!data_->HasPendingData()) {
      if (!data_->Connected && data_->WasReset()) throw ESockError(GetErrorMessage(kConnectionReset));
      if (!data_->Connected) break;
      // The final reply may arrive before the last names.
      if (HasPendingData() && TMonotonic::now() - last_data > kListingGrace) break;
      continue;
    }
    text += data_->Read(0);
    last_data = TMonotonic::now();
    data_->TimerOn();
    std::size_t begin = 0;
    for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
      Fire(OnListItem, *this,
           std::string(ListingName(std::string_view(text).substr(begin, end + 1 - begin))));
      begin = end + 1;
    }
    data_->ReceivedByteCount += static_cast<std::int64_t>(begin);
    text.erase(0, begin);
    if (text.size() > kMaxLine) throw ESockError("Line too long");
    if (data_->ReceivedByteCount > static_cast<std::int64_t>(kMaxKept)) throw ESockError("Listing too large");
  }
  data_->ReceivedByteCount += static_cast<std::int64_t>(text.size());
  if (!text.empty()) Fire(OnListItem, *this, text);
}

void TNMFTP::ReadFinalReply() {
  std::size_t size = 0;
  std::string reply = NextLine(size);
  ReadReplyContinuation(reply);
  LastTransfer.FinalReply = Trim(reply);
}

/// Waits for input on the control connection (0 milliseconds: without limit). False when none came.
bool TNMFTP::AwaitReply(std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (Connected && !canceled_ && !HasPendingData()) {
    if (limit.count() > 0 && std::chrono::steady_clock::now() >= end) return false;
    WaitForInput();
  }
  return Connected && !canceled_;
}

/// Reads a reply to a failed transfer. One that came later would look like the reply to the next command, so
/// the connection is closed when it does not come in time.
void TNMFTP::ReadLateReply(std::chrono::milliseconds limit) {
  canceled_ = false;
  try {
    if (AwaitReply(limit)) {
      ReadFinalReply();
    } else if (Connected) {
      RequestCloseSocket();
    }
  } catch (const ESockError&) {
    // The caller gets the first failure.
  }
}

void TNMFTP::SendAbor() {
  canceled_ = false;
  try {
    if (!Connected) return;
    // The server may have ended the transfer itself.
    if (HasPendingData()) ReadFinalReply();
    const std::string ended_with = LastTransfer.FinalReply;
    ReportStatus(1, "ABOR");
    Writeln("ABOR");
    // A silent server may delay the run by one more time-out, not longer.
    ReadLateReply(std::chrono::milliseconds(std::max(TimeOut, 0)));
    if (ended_with.empty()) {
      // Two replies were due: one about the transfer, one about the command.
      ReadLateReply(kLateReply);
    } else {
      LastTransfer.FinalReply = ended_with;
    }
  } catch (const ESockError&) {
    // The caller gets the first failure.
  }
}

}  // namespace skyreel
