#include "transfer/ftp_fetch.h"

#include <algorithm>
#include <iterator>
#include <system_error>

#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"
#include "net/ftp_parse.h"
#include "transfer/size_limit_scope.h"
#include "transfer/transfer_progress.h"
#include "transfer/watchdog_scope.h"

namespace skyreel {

namespace {

constexpr int kBinaryType = 2;
constexpr std::chrono::milliseconds kPause{300};
/// No command has it; see NMFTPFailure.
constexpr auto kUpload = TCmdType{8};

/// `count` characters from the 1-based position, or as many of them as there are.
std::string Characters(const std::string& text, std::size_t position, std::size_t count) {
  return position > text.size() ? "" : text.substr(position - 1, count);
}

std::string SomeOf(std::int64_t received, std::int64_t announced) {
  return std::to_string(received) + " of " + std::to_string(announced) + " bytes received";
}

}  // namespace

std::string FtpRemotePath(TFtpVariant variant, const std::string& name) {
  switch (variant) {
    case TFtpVariant::EuData:
      return "/" + Characters(name, 21, 2) + "/" + name;
    case TFtpVariant::Msfc:
      return "/Weather/METEOSAT-7/McIDAS_areas/" + Characters(name, 18, 3) + "/5km/" + name;
    case TFtpVariant::CurrentFolder:
      break;
  }
  return name;
}

// --- Session ---------------------------------------------------------------------------------------------

TFtpSession::TFtpSession(TTransferContext& context, TFtpLogin login)
    : context_(context),
      login_(std::move(login)),
      use_wininet_(login_.UseWinInet && context.WinInet != nullptr) {}

TFtpSession::~TFtpSession() {
  Close();
}

/// A status line made of what a server or the system said, which may repeat the password.
void TFtpSession::Report(const std::string& text) {
  const std::string plain = WithoutControls(text);
  context_.Display.AddStatusLine(login_.Password.empty() ? plain : ReplaceAll(plain, login_.Password, "***"));
}

bool TFtpSession::Open() {
  TNMFTP& client = context_.NMFTP;
  // The form says in its own words that a connection failed; nothing need be added to that but a refusal.
  const auto handler = client.OnConnectionFailed;
  bool told = false;
  client.OnConnectionFailed = [&](TPowersock& sender) {
    told = handler != nullptr;
    Fire(handler, sender);
  };
  std::string problem;
  try {
    const TWatchdogScope watchdog(context_.Run);
    OpenConnection();
    client.OnConnectionFailed = handler;
    return true;
  } catch (const FTPException& error) {
    problem = told ? error.what() : "Connection failed to: " + client.Host + " - " + error.what();
  } catch (const EConvertError& error) {
    problem = error.what();
  } catch (const std::exception& error) {
    if (!told) problem = "Connection failed to: " + client.Host + " - " + error.what();
  }
  client.OnConnectionFailed = handler;
  if (!problem.empty()) Report(problem);
  // Without a goodbye: there is no telling what such a server does with it.
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
  // What an earlier session ended with is no business of this one.
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
    const TWatchdogScope watchdog(context_.Run);
    client.Disconnect();
  } catch (const std::exception&) {
    // There is nothing left to do with the server but to leave it.
  }
  Drop();
}

/// Closes what is still open, whatever the server thinks of it.
void TFtpSession::Drop() {
  try {
    if (context_.NMFTP.Connected) context_.NMFTP.TPowersock::Disconnect();
  } catch (const std::exception&) {
    // A socket that cannot be closed in order is closed all the same.
  }
}

/// Opens the session again if the server has closed it.
bool TFtpSession::EnsureOpen() {
  if (use_wininet_) return connection_ != nullptr;
  try {
    // Nothing is due between two files: what came is a goodbye, behind which the close stands.
    context_.NMFTP.ClearInput();
    context_.NMFTP.EnsureConnected();
    breaks_ = 0;
    return true;
  } catch (const std::exception&) {
    // Not connected any more.
  }
  if (++breaks_ <= kMaxBreaks) return Open();
  context_.Display.AddStatusLine("FTP session given up: the connection broke " + std::to_string(breaks_) +
                                 " times in a row");
  return false;
}

bool TFtpSession::Download(const std::string& remote_path, const std::filesystem::path& local_path) {
  if (use_wininet_)
    return context_.WinInet->WinInetFtpGet(context_, connection_->Handle(), remote_path, local_path);
  context_.NMFTP.LastTransfer = {};
  const TSizeLimitScope limit(context_.NMFTP);
  context_.NMFTP.RetrieveFile(remote_path, local_path.string());
  return true;
}

/// Downloads with watchdog and ledger around it. False when something spoke against the file; `problem` is
/// then, and whenever it is not known to be whole, what to tell the user, unless that has been told. A whole
/// file stays noted where `still_noted` is given, which says so.
bool TFtpSession::Fetch(const std::string& remote_path, const std::filesystem::path& local_path,
                        std::string& problem, bool* still_noted) {
  context_.Run.RestartWatchdog();
  if (!context_.Ledger.Begin(local_path)) {
    context_.Run.StopWatchdog();
    problem = "another copy of the program is fetching it";
    return false;
  }
  bool ok = true;
  std::exception_ptr failure;
  try {
    ok = Download(remote_path, local_path);
    context_.Run.StopWatchdog();
    context_.Display.SetBytesLabel("");
  } catch (const std::exception&) {
    // kept: the watchdog stays armed, as for a transfer that hangs.
    failure = std::current_exception();
  }
  TTransferEnd end;
  if (use_wininet_) {
    end = WinInetOutcome(local_path, problem);
  } else {
    end = ClientOutcome(failure, problem);
    // Kept, one of them for each file of the archive would fill the disk all the same.
    std::error_code ignored;
    if (problem == kTooLarge) std::filesystem::remove(local_path, ignored);
  }
  if (end == TTransferEnd::Whole && still_noted != nullptr) {
    *still_noted = true;
  } else {
    context_.Ledger.End(local_path, end);
  }
  if (end == TTransferEnd::Whole) breaks_ = 0;
  return ok;
}

TTransferEnd TFtpSession::WinInetOutcome(const std::filesystem::path& local_path,
                                         std::string& problem) const {
  switch (context_.WinInet->LastState()) {
    case TWinInetTransferState::wtsNoFile:
      return TTransferEnd::Untouched;
    case TWinInetTransferState::wtsDone: {
      const std::int64_t size = FileSizeOf(local_path), announced = context_.WinInet->LastRemoteFile().Size;
      if (size >= announced) return TTransferEnd::Whole;
      problem = SomeOf(size, announced);
      return TTransferEnd::Cut;
    }
    default:
      return TTransferEnd::Cut;
  }
}

TTransferEnd TFtpSession::ClientOutcome(std::exception_ptr failure, std::string& problem) const {
  const TNMFTP::TTransfer& transfer = context_.NMFTP.LastTransfer;
  if (!failure && transfer.Whole) return TTransferEnd::Whole;
  const bool refused = transfer.FinalReply.starts_with('4') || transfer.FinalReply.starts_with('5');
  try {
    if (failure) std::rethrow_exception(failure);
    problem = refused                                  ? transfer.FinalReply
              : transfer.Received < transfer.Announced ? SomeOf(transfer.Received, transfer.Announced)
                                                       : "ended with: " + transfer.FinalReply;
  } catch (const std::system_error& error) {
    problem = "not saved: " + error.code().message();
  } catch (const std::exception& error) {
    problem = transfer.Received > kLargestDownload ? kTooLarge
              : transfer.TimedOut                  ? "timed out"
              : refused                            ? transfer.FinalReply
                                                   : error.what();
  }
  return transfer.Started ? TTransferEnd::Cut : TTransferEnd::Untouched;
}

bool RunFtpSession(TTransferContext& context, const TFtpLogin& login,
                   const std::function<void(TFtpSession&)>& work) {
  TFtpSession session(context, login);
  if (!session.Open()) return false;
  work(session);
  return true;
}

// --- One file --------------------------------------------------------------------------------------------

bool FtpFetchFile(TTransferContext& context, TFtpSession& session, TFtpVariant variant,
                  const std::string& name, const std::filesystem::path& local_folder, bool* still_noted) {
  if (session.IsLost() || !session.EnsureOpen()) return false;
  const std::string shown = WithoutControls(name);
  context.Display.AddStatusLine("Get: " + shown);
  const std::filesystem::path local_path = local_folder / name;
  const std::string remote_path = FtpRemotePath(variant, name);
  bool ok = IsSafeFileName(name);
  std::string problem = ok ? "" : "no usable file name";
  if (ok && variant == TFtpVariant::Msfc) {
    try {
      ForceDirectories(local_folder);
    } catch (const std::system_error& error) {
      ok = false;
      problem = "the local folder cannot be made: " + error.code().message();
    }
  }
  context.Display.SetPanel(1, "FTP get:  " + WithoutControls(remote_path));
  ok = ok && session.Fetch(remote_path, local_path, problem, still_noted);
  if (!problem.empty()) session.Report(shown + " - " + problem);
  context.Clock.Sleep(kPause);
  const bool received = ok && FileSizeOf(local_path) >= 0;
  if (received) context.Display.SetPanel(1, "Received:  " + name);
  context.Clock.Sleep(kPause);
  return received;
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
