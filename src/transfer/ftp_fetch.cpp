#include "transfer/ftp_fetch.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <system_error>

#include "base/exceptions.h"
#include "base/files.h"
#include "base/scope.h"
#include "base/text.h"
#include "net/ftp_parse.h"
#include "transfer/run_record.h"
#include "transfer/transfer_progress.h"

namespace skyreel {

namespace {

constexpr int kBinaryType = 2;
constexpr std::string_view kNoSuchFile = "550";
constexpr std::string_view kNotLoggedIn = "530";
constexpr std::chrono::milliseconds kPause{300};
/// No command has it; see NMFTPFailure.
constexpr auto kUpload = TCmdType{8};

std::string SomeOf(std::int64_t received, std::int64_t announced) {
  return "received " + std::to_string(received) + " of " + std::to_string(announced) + " bytes";
}

}  // namespace

// --- Session ---------------------------------------------------------------------------------------------

TFtpSession::TFtpSession(TTransferContext& context, TFtpLogin login)
    : context_(context),
      login_(std::move(login)),
      use_wininet_(login_.UseWinInet && context.WinInet != nullptr) {}

TFtpSession::~TFtpSession() {
  Close();
}

/// What the server said, which may repeat the password, fit for a status line.
std::string TFtpSession::Masked(const std::string& text) const {
  return WithoutSecrets(WithoutControls(text), login_.UserID, login_.Password);
}

bool TFtpSession::Open() {
  TNMFTP& client = context_.NMFTP;
  // The form reports a failed connection in its own words; only a refusal needs another line.
  const TPowersock::TNotifyEvent handler = client.OnConnectionFailed;
  bool told = false;
  const TScopedValue failed(client.OnConnectionFailed, [&](TPowersock& sender) {
    told = handler != nullptr;
    Fire(handler, sender);
  });
  std::string problem;
  refusal_.clear();
  try {
    const auto watchdog = Guard(context_.Run);
    OpenConnection();
    return true;
  } catch (const EConnectError& error) {
    if (!told) problem = "Connection failed to: " + client.Host + " - " + error.what();
    refusal_ = error.Explanation;
  } catch (const FTPException& error) {
    const std::string reply = Masked(error.what());
    refusal_ = (reply.starts_with(kNotLoggedIn) ? "refused the login: " : "refused the session: ") + reply;
    problem = told ? reply : "Connection failed to: " + client.Host + " - " + reply;
  } catch (const EConvertError& error) {
    problem = error.what();
    refusal_ = "cannot be asked: " + problem;
  } catch (const std::exception& error) {
    if (!told) problem = "Connection failed to: " + client.Host + " - " + error.what();
    refusal_ = std::string("cannot be asked: ") + error.what();
  }
  if (!problem.empty()) context_.Display.AddStatusLine(problem);
  // Without a goodbye: such a server may do anything with it.
  Drop();
  return false;
}

void TFtpSession::OpenConnection() {
  const TFtpAddress address = ParseFtpAddress(login_.Server);
  TNMFTP& client = context_.NMFTP;
  client.Host = address.Host;
  if (use_wininet_) {
    connection_ =
        context_.WinInet->Connect(address.Host, address.Port, login_.UserID, login_.Password, login_.Passive);
    if (!connection_) throw ESockError("no connection from the Internet library");
    return;
  }
  client.Port = address.Port;
  client.UserID = login_.UserID;
  client.Password = login_.Password;
  client.Passive = login_.Passive;
  client.TimeOut = context_.Shared.TimeoutSeconds * 1000;
  // An earlier session may have left its connection behind.
  Drop();
  client.ReplyCode = 0;
  client.Connect();
  client.SetTransferType(kBinaryType);
}

void TFtpSession::Close() {
  connection_.reset();
  TNMFTP& client = context_.NMFTP;
  if (use_wininet_ || !client.Connected) return;
  try {
    const auto watchdog = Guard(context_.Run);
    client.Disconnect();
  } catch (const std::exception&) {
    // A server that refuses the goodbye is left without one.
  }
  Drop();
}

/// Closes what is still open without a goodbye.
void TFtpSession::Drop() {
  try {
    if (context_.NMFTP.Connected) context_.NMFTP.TPowersock::Disconnect();
  } catch (const std::exception&) {
    // The socket is closed nevertheless.
  }
}

/// Opens the session again if the server has closed it.
bool TFtpSession::EnsureOpen() {
  if (use_wininet_) return connection_ != nullptr;
  try {
    // Nothing is due between two files: any input is a goodbye, and the close follows it.
    context_.NMFTP.ClearInput();
    context_.NMFTP.EnsureConnected();
    breaks_ = 0;
    return true;
  } catch (const std::exception&) {
    // Not connected any more.
  }
  while (breaks_ < kMaxBreaks) {
    const std::chrono::seconds wait = kReconnectWaits[static_cast<std::size_t>(breaks_++)];
    context_.Display.SetPanel(1, "Connecting again in " + std::to_string(wait.count()) + " s");
    if (!Wait(wait)) return false;
    if (Open()) return true;
  }
  ++breaks_;
  context_.Display.AddStatusLine("FTP session given up: " + std::to_string(kMaxBreaks) +
                                 " new connections in a row brought no file");
  ReportRefusal();
  return false;
}

void TFtpSession::ReportRefusal() {
  if (!refusal_.empty()) ReportServerProblem(context_, "ftp://" + login_.Server, refusal_);
}

TWantedFile TFtpSession::Wanted(const TFtpFile& file) const {
  return {file.Product, file.Time, file.LocalPath(),
          "ftp://" + login_.Server + WithoutControls(file.RemotePath)};
}

/// False when a stop request ended the wait.
bool TFtpSession::Wait(std::chrono::milliseconds span) {
  constexpr std::chrono::milliseconds kStep{100};
  for (; span.count() > 0 && !context_.Run.StopRequested(); span -= kStep) context_.Clock.Sleep(kStep);
  return !context_.Run.StopRequested();
}

bool TFtpSession::Download(const std::string& remote_path, const std::filesystem::path& local_path) {
  if (use_wininet_)
    return context_.WinInet->WinInetFtpGet(context_, connection_->Handle(), remote_path, local_path);
  TNMFTP& client = context_.NMFTP;
  client.LastTransfer = {};
  const TPowersock::TNotifyEvent handler = client.OnPacketRecvd;
  const TScopedValue limit(client.OnPacketRecvd, [&](TPowersock& sender) {
    Fire(handler, sender);
    // The sender may be the client's data connection.
    if (sender.ReceivedByteCount > context_.LargestDownload) client.Abort();
  });
  client.RetrieveFile(remote_path, local_path.string());
  return true;
}

/// Downloads with watchdog and ledger around it.
void TFtpSession::Fetch(const TFtpFile& file, TFtpFetch& fetch) {
  const std::filesystem::path path = file.LocalPath();
  context_.Run.RestartWatchdog();
  if (!context_.Ledger.Begin(path)) {
    context_.Run.StopWatchdog();
    fetch.Result.Outcome = TFileOutcome::NotSaved;
    fetch.Result.Reason = "another copy of the program is fetching it";
    fetch.Result.State = TFileState::NotYet;
    return;
  }
  bool ok = true;
  std::exception_ptr failure;
  try {
    ok = Download(file.RemotePath, path);
    context_.Run.StopWatchdog();
    context_.Display.SetBytes("", kApplicationTitle);
  } catch (const std::exception&) {
    // kept: the watchdog stays armed, as for a transfer that hangs.
    failure = std::current_exception();
  }
  const TEnd end = use_wininet_ ? WinInetEnd(path) : ClientEnd(failure);
  const bool whole = end.Ledger == TTransferEnd::Whole;
  if (!use_wininet_ && !whole && context_.NMFTP.LastTransfer.Received > context_.LargestDownload) {
    // A thousand endless files would fill the disk.
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
  fetch.StillNoted = whole;
  if (whole) {
    breaks_ = 0;
  } else {
    context_.Ledger.End(path, end.Ledger);
  }
  fetch.Received = ok && FileSizeOf(path) >= 0;
  fetch.Result.Bytes =
      use_wininet_ ? std::max<std::int64_t>(FileSizeOf(path), 0) : context_.NMFTP.LastTransfer.Received;
  fetch.Result.Outcome = end.Outcome;
  fetch.Result.Reason = end.Reason;
  fetch.Result.State = end.State;
  // A firewall often keeps the server's data connection out.
  if (!use_wininet_ && !login_.Passive && !context_.NMFTP.LastTransfer.Started &&
      (context_.NMFTP.LastTransfer.TimedOut || end.Reason.starts_with("425")))
    fetch.Result.Reason += " (passive mode may help)";
}

/// WinInetFtpGet has already reported a failure.
TFtpSession::TEnd TFtpSession::WinInetEnd(const std::filesystem::path& local_path) const {
  switch (context_.WinInet->LastState()) {
    case TWinInetTransferState::wtsNoFile:
      return {TTransferEnd::Untouched, TFileOutcome::Refused, "", TFileState::Missing};
    case TWinInetTransferState::wtsDone: {
      const std::int64_t size = FileSizeOf(local_path), announced = context_.WinInet->LastRemoteFile().Size;
      if (size >= announced) return {TTransferEnd::Whole, TFileOutcome::Saved, ""};
      return {TTransferEnd::Cut, TFileOutcome::Incomplete, SomeOf(size, announced)};
    }
    default:
      return {TTransferEnd::Cut, TFileOutcome::TimedOut, ""};
  }
}

TFtpSession::TEnd TFtpSession::ClientEnd(std::exception_ptr failure) const {
  const TNMFTP::TTransfer& transfer = context_.NMFTP.LastTransfer;
  if (!failure && transfer.Whole) return {TTransferEnd::Whole, TFileOutcome::Saved, ""};
  TEnd end;
  end.Ledger = transfer.Started ? TTransferEnd::Cut : TTransferEnd::Untouched;
  const auto because = [&](TFileOutcome outcome, std::string reason) {
    end.Outcome = outcome;
    end.Reason = std::move(reason);
    if (end.Reason.starts_with(kNoSuchFile)) end.State = TFileState::Missing;
    return end;
  };
  const std::string final_reply = Masked(transfer.FinalReply);
  const bool refused = transfer.FinalReply.starts_with('4') || transfer.FinalReply.starts_with('5');
  try {
    if (failure) std::rethrow_exception(failure);
    if (refused) return because(TFileOutcome::Refused, final_reply);
    if (transfer.Received < transfer.Announced)
      return because(TFileOutcome::Incomplete, SomeOf(transfer.Received, transfer.Announced));
    return because(TFileOutcome::Incomplete, "ended with: " + final_reply);
  } catch (const std::system_error& error) {
    return because(TFileOutcome::NotSaved, "not saved: " + error.code().message());
  } catch (const std::exception& error) {
    if (transfer.Received > context_.LargestDownload)
      return because(TFileOutcome::NotSaved, TooLargeReason(context_.LargestDownload));
    if (transfer.TimedOut) return because(TFileOutcome::TimedOut, "timed out");
    if (refused) return because(TFileOutcome::Refused, final_reply);
    const bool from_server = dynamic_cast<const FTPException*>(&error) != nullptr;
    return because(TFileOutcome::TimedOut, from_server ? Masked(error.what()) : error.what());
  }
}

bool RunFtpSession(TTransferContext& context, const TFtpLogin& login,
                   const std::function<void(TFtpSession&)>& work) {
  TFtpSession session(context, login);
  if (!context.Plan && !session.Open()) {
    session.ReportRefusal();
    return false;
  }
  work(session);
  return true;
}

// --- One file --------------------------------------------------------------------------------------------

std::optional<TFtpFetch> FtpFetchFile(TTransferContext& context, TFtpSession& session, const TFtpFile& file) {
  const TWantedFile wanted = session.Wanted(file);
  if (context.Plan) {
    context.Plan->Files.push_back({wanted, TFetchPlan::TState::Wanted});
    return std::nullopt;
  }
  if (session.IsLost() || !session.EnsureOpen()) return std::nullopt;
  TFtpFetch fetch;
  TFileResult& result = fetch.Result;
  result.Source = context.Source;
  result.Product = wanted.Product;
  result.SlotTime = wanted.SlotTime;
  result.Name = WithoutControls(file.Name);
  result.Address = wanted.Address;
  result.Path = wanted.Path;

  context.Display.AddStatusLine("Get: " + result.Name);
  context.Display.SetPanel(1, "FTP get:  " + WithoutControls(file.RemotePath));
  const auto start = std::chrono::steady_clock::now();
  try {
    ForceDirectories(file.Folder);
    if (IsSafeFileName(file.Name)) {
      session.Fetch(file, fetch);
    } else {
      result.Outcome = TFileOutcome::NotAsked;
      result.Reason = "not a usable file name";
    }
  } catch (const std::system_error& error) {
    result.Outcome = TFileOutcome::NotSaved;
    result.Reason = "the local folder cannot be made: " + error.code().message();
  }
  result.Seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  context.Clock.Sleep(kPause);
  if (fetch.Received) context.Display.SetPanel(1, "Received:  " + file.Name);
  context.Clock.Sleep(kPause);
  return fetch;
}

std::string FtpLine(const TFileResult& result) {
  return result.Reason.empty() ? "" : result.Name + " - " + result.Reason;
}

// --- Listing and events ----------------------------------------------------------------------------------

std::string FilterListItem(std::string_view line) {
  std::string name;
  std::copy_if(line.begin(), line.end(), std::back_inserter(name),
               [](char c) { return IsLetterOrDigit(c) || c == '-' || c == '.' || c == '_'; });
  return name;
}

void TFtpListing::Add(TStatusDisplay& display, std::string_view line) {
  constexpr std::size_t kShortestName = 14;
  display.SetProgress(static_cast<int>(std::min<std::size_t>(names_.size() * 100 / 120, 100)));
  std::string name = FilterListItem(line);
  if (name.size() >= kShortestName) names_.push_back(std::move(name));
}

void NMFTPStatus(TStatusDisplay& display, const std::string& status) {
  display.AddStatusLine(WithoutControls(status));
}

void NMFTPConnectionFailed(TStatusDisplay& display, const std::string& host) {
  display.AddStatusLine("Connection failed to: " + host);
}

void NMFTPFailure(TStatusDisplay& display, bool& handled, TCmdType type) {
  if (type != kUpload) return;
  display.SetPanel(1, "Transfer failed");
  handled = true;
}

void NMFTPSuccess(TStatusDisplay& display, TCmdType type) {
  if (type == kUpload) display.SetPanel(1, "");
}

void BindFtpEvents(TNMFTP& client, TStatusDisplay& display, TFtpListing& listing) {
  client.OnStatus = [&](TPowersock&, const std::string& status) { NMFTPStatus(display, status); };
  client.OnConnectionFailed = [&](TPowersock& sender) { NMFTPConnectionFailed(display, sender.Host); };
  client.OnPacketRecvd = [&](TPowersock& sender) {
    ShowTransferProgress(display, sender.ReceivedByteCount, sender.TransferSize);
  };
  client.OnFailure = [&](TNMFTP&, bool& handled, TCmdType type) { NMFTPFailure(display, handled, type); };
  client.OnSuccess = [&](TNMFTP&, TCmdType type) { NMFTPSuccess(display, type); };
  client.OnListItem = [&](TNMFTP&, const std::string& line) { listing.Add(display, line); };
}

}  // namespace skyreel
