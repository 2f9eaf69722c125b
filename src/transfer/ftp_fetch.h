#pragma once

#include <array>
#include <chrono>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "net/nm_ftp.h"
#include "transfer/fetch_plan.h"
#include "transfer/file_result.h"
#include "transfer/transfer_context.h"
#include "transfer/transfer_ledger.h"
#include "transfer/wininet.h"

namespace skyreel {

/// One file of an FTP source.
struct TFtpFile {
  std::string Name;
  std::string RemotePath;
  std::filesystem::path Folder;  ///< local; made when it is missing
  std::string Product;
  TDateTime Time;  ///< the slot

  std::filesystem::path LocalPath() const { return Folder / Name; }
};

/// What FtpFetchFile did.
struct TFtpFetch {
  TFileResult Result;
  /// No failure is known and the file exists. kept: it need not be whole; after a failed transfer through
  /// NMFTP an old or a cut file counts, too.
  bool Received = false;
  /// The file is whole and still noted in the ledger: the caller ends the note.
  bool StillNoted = false;
};

/// How to reach a source's server.
struct TFtpLogin {
  std::string Server;  ///< "host" or "host:port"
  std::string UserID;
  std::string Password;
  bool Passive = false;
  bool UseWinInet = false;  ///< through the operating system's library, where there is one
};

/// One source's session, through NMFTP or the operating system's library.
class TFtpSession {
 public:
  TFtpSession(TTransferContext& context, TFtpLogin login);
  ~TFtpSession();
  TFtpSession(const TFtpSession&) = delete;
  TFtpSession& operator=(const TFtpSession&) = delete;

  /// Connects, logs in and selects the binary type. False, after a status line with the reason, when that
  /// fails. Throws nothing.
  bool Open();
  /// Reports that the last Open failed, as a problem of the server.
  void ReportRefusal();
  /// Says goodbye and closes. Throws nothing.
  void Close();

  bool UsesWinInet() const { return use_wininet_; }
  /// A file of the session's server.
  TWantedFile Wanted(const TFtpFile& file) const;
  /// Several new connections in a row brought no file, and a status line said so. No further file will come,
  /// so the job should end.
  bool IsLost() const { return breaks_ > kMaxBreaks; }

 private:
  friend std::optional<TFtpFetch> FtpFetchFile(TTransferContext&, TFtpSession&, const TFtpFile&);
  /// The pauses before new connections in a row.
  static constexpr std::array<std::chrono::seconds, 3> kReconnectWaits{
      {std::chrono::seconds(1), std::chrono::seconds(5), std::chrono::seconds(30)}};
  static constexpr int kMaxBreaks = kReconnectWaits.size();

  /// How a download ended.
  struct TEnd {
    TTransferEnd Ledger = TTransferEnd::Untouched;
    TFileOutcome Outcome = TFileOutcome::Saved;
    std::string Reason;
    TFileState State = TFileState::Failed;  ///< see TFileResult
  };

  void OpenConnection();
  void Drop();
  bool EnsureOpen();
  bool Wait(std::chrono::milliseconds span);
  std::string Masked(const std::string& text) const;
  void Fetch(const TFtpFile& file, TFtpFetch& fetch);
  bool Download(const std::string& remote_path, const std::filesystem::path& local_path);
  TEnd WinInetEnd(const std::filesystem::path& local_path) const;
  TEnd ClientEnd(std::exception_ptr failure) const;

  TTransferContext& context_;
  TFtpLogin login_;
  bool use_wininet_;
  std::unique_ptr<TWinInetTransfer::TConnection> connection_;
  int breaks_ = 0;       ///< how many connections in a row were opened again and brought no file
  std::string refusal_;  ///< why the last Open failed; empty when it did not
};

/// Opens a session, runs `work` in it, and always closes it. When it cannot be opened, a status line says
/// why, `work` is not called, and the result is false. For a plan `work` is called without a connection.
bool RunFtpSession(TTransferContext& context, const TFtpLogin& login,
                   const std::function<void(TFtpSession&)>& work);

/// Downloads one file straight to its local path: "Get: " + name as a status line, pauses of 300 ms after the
/// transfer and after the result. The ledger notes the transfer until it has ended whole, and a whole file
/// beyond that. Opens a session whose connection is gone again first, after a pause. Refuses a name that is
/// not a plain file name. Nothing when the session is lost or a stop was requested during that pause. The
/// caller ends the file at the display. For a plan, only notes the file, and gives nothing. kept: after a
/// transfer that threw, the watchdog stays armed. Throws nothing.
std::optional<TFtpFetch> FtpFetchFile(TTransferContext& context, TFtpSession& session, const TFtpFile& file);

/// The status line of a file fetched by FTP: the name and the reason when it failed, otherwise empty.
std::string FtpLine(const TFileResult& result);

/// The names that a listing job has collected.
class TFtpListing {
 public:
  void Clear() { names_.clear(); }
  const std::vector<std::string>& Names() const { return names_; }
  /// Moves the progress bar (120 names fill it) and keeps the line's name, unless it is shorter than 14
  /// characters.
  void Add(TStatusDisplay& display, std::string_view line);

 private:
  std::vector<std::string> names_;
};

/// Only the characters "-", ".", "_", letters and digits of a listing line.
std::string FilterListItem(std::string_view line);

// The form's handlers of the client's events.

/// Status text as a status line, without control characters.
void NMFTPStatus(TStatusDisplay& display, const std::string& status);
void NMFTPConnectionFailed(TStatusDisplay& display, const std::string& host);
/// kept: acts on command type 8 only, which no command of the client has.
void NMFTPFailure(TStatusDisplay& display, bool& handled, TCmdType type);
void NMFTPSuccess(TStatusDisplay& display, TCmdType type);

/// Binds all events of the client that the program looks at. `display` and `listing` outlive the client.
void BindFtpEvents(TNMFTP& client, TStatusDisplay& display, TFtpListing& listing);

}  // namespace skyreel
