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
// How long a reply that is due may take when nothing depends on it any more.
constexpr std::chrono::milliseconds kLateReply{950};
// How long a listing's data connection may stay silent and open once the final reply has come.
constexpr std::chrono::milliseconds kListingGrace{1000};

void CheckCommand(const std::string& command) {
  // Not the command itself: it may be the one with the password.
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

/// The code is no size, whatever word follows it.
std::int64_t AnnouncedSize(const std::string& line) {
  return SizeFromReply(std::string_view(line).substr(HasReplyCode(line) ? 3 : 0));
}

}  // namespace

/// A plain socket that lets the client wait for its input.
class TNMFTP::TDataConnection : public TPowersock {
 public:
  using TPowersock::TPowersock;
  using TPowersock::WaitForInput;
  /// It has not ended in order.
  bool WasReset() const { return !success_; }
};

/// A transfer runs until the end of the scope that holds what this returns.
auto TNMFTP::TransferScope() {
  LastTransfer = {};
  data_ = std::make_unique<TDataConnection>(EventHook());
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

/// What every operation on an open connection begins with.
void TNMFTP::Start() {
  RefuseDuringTransfer();
  canceled_ = false;
  EnsureConnected();
}

void TNMFTP::Drain() {
  if (HasPendingData()) Read(0);
}

/// Runs an exchange that returns a line. One that fails, or brings none, leaves a conversation out of step:
/// the connection is closed then.
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

/// Reads the rest of a reply. A server that says that it closes the connection is taken at its word, or the
/// next command would be lost to a connection that is just going.
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

  std::string reply = " ";  // what goes on with the next line
  ReadReplyContinuation(reply);
  // kept: judged is the code of the last command of the connection before, not the greeting.
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
    // kept: these replies are not judged.
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
    // A server that hangs up at once has understood.
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

/// The test of a reply between the commands of a transfer. kept: in a name listing OnFailure is not asked.
bool TNMFTP::Refused(const std::string& reply, TCmdType type) {
  if (ReplyCode < 301 || ReplyCode > 599) return false;
  if (type == TCmdType::NameList) throw FTPException(std::string(Trim(reply)));
  Fail(reply, type);
  return true;
}

/// Makes the server's port known, or ours to the server. False after a refusal that was handled.
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
  if (!port) throw ESockError("No usable port in the reply: " + std::string(Trim(reply)));
  // The host in the reply could be anybody's: the data come from where the control connection goes.
  std::array<char, INET_ADDRSTRLEN> address{};
  ::inet_ntop(AF_INET, &RemoteAddress().sin_addr, address.data(), address.size());
  data_->Host = address.data();
  data_->Port = *port;
  const TScopedValue scope(data_waits_, true);
  data_->Connect();
  return true;
}

/// Sends the command that starts the data. False after a refusal that was handled.
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
  // kept: the size in the last line is the one that counts for the display, even if it has none.
  TransferSize = AnnouncedSize(reply);
  return true;
}

bool TNMFTP::Interrupted() const {
  return canceled_ || timed_out_ || data_->Canceled() || data_->TimedOut();
}

/// Receives the data, reads the final reply, and tells how it went.
void TNMFTP::Transfer(bool passive, TCmdType type, const std::function<void()>& receive) {
  bool interrupted = true;
  try {
    if (!passive) {
      const TScopedValue scope(data_waits_, true);
      data_->TimerOn();
      data_->AdoptSocket(data_->Accept());
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
    interrupted&& type == TCmdType::Download ? SendAbor() : ReadLateReply();
    throw;
  } catch (...) {
    // The local file, or a handler: the server is still sending.
    EndData();
    ReadLateReply();
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
      // The final reply may overtake the last names.
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

/// Waits for input on the control connection (0 milliseconds: for ever). False when none came.
bool TNMFTP::AwaitReply(std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (Connected && !canceled_ && !HasPendingData()) {
    if (limit.count() > 0 && std::chrono::steady_clock::now() >= end) return false;
    WaitForInput();
  }
  return Connected && !canceled_;
}

/// After data that failed, the server has something to say about it: said now, it is not taken for the reply
/// to the next command.
void TNMFTP::ReadLateReply() {
  canceled_ = false;
  try {
    if (AwaitReply(kLateReply)) ReadFinalReply();
  } catch (const ESockError&) {
    // What failed before is what the caller gets to know.
  }
}

void TNMFTP::SendAbor() {
  canceled_ = false;
  try {
    if (!Connected) return;
    Drain();
    ReportStatus(1, "ABOR");
    Writeln("ABOR");
    // A server that has gone silent must not hold up the run any longer than it did with its data.
    if (!AwaitReply(std::chrono::milliseconds(std::max(TimeOut, 0)))) {
      RequestCloseSocket();
      return;
    }
    // Usually two: one about the transfer, one about the command.
    ReadLateReply();
    if (LastTransfer.FinalReply.starts_with('4')) ReadLateReply();
  } catch (const ESockError&) {
    // What failed before is what the caller gets to know.
  }
}

}  // namespace skyreel
