#pragma once

#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "net/nm_ftp.h"
#include "transfer/transfer_context.h"
#include "transfer/transfer_ledger.h"
#include "transfer/wininet.h"

namespace skyreel {

/// What the FTP sources differ in when they fetch a file.
enum class TFtpVariant {
  EuData,  ///< "/" + characters 21-22 of the name + "/" + name
  Msfc,  ///< "/Weather/METEOSAT-7/McIDAS_areas/" + characters 18-20 + "/5km/" + name; makes the local folder
  CurrentFolder,  ///< the name itself, in the session's current folder
};

/// Where a file of that name is on the server. kept: a name that is too short gives a shorter or empty
/// folder.
std::string FtpRemotePath(TFtpVariant variant, const std::string& name);

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
  /// Says goodbye and closes. Throws nothing.
  void Close();

  bool UsesWinInet() const { return use_wininet_; }
  /// The connection broke several times in a row, as a status line has said: no further file will come, so
  /// the job should end. FtpFetchFile does nothing then.
  bool IsLost() const { return breaks_ > kMaxBreaks; }

 private:
  friend bool FtpFetchFile(TTransferContext&, TFtpSession&, TFtpVariant, const std::string&,
                           const std::filesystem::path&, bool*);
  static constexpr int kMaxBreaks = 3;

  void OpenConnection();
  void Drop();
  bool EnsureOpen();
  void Report(const std::string& text);
  bool Fetch(const std::string& remote_path, const std::filesystem::path& local_path, std::string& problem,
             bool* still_noted);
  bool Download(const std::string& remote_path, const std::filesystem::path& local_path);
  TTransferEnd WinInetOutcome(const std::filesystem::path& local_path, std::string& problem) const;
  TTransferEnd ClientOutcome(std::exception_ptr failure, std::string& problem) const;

  TTransferContext& context_;
  TFtpLogin login_;
  bool use_wininet_;
  std::unique_ptr<TWinInetTransfer::TConnection> connection_;
  int breaks_ = 0;  ///< how often in a row the connection was gone before a file
};

/// Opens a session, runs `work` in it, and closes it whatever happens. False when it could not be opened: a
/// status line has said why, and `work` is not called.
bool RunFtpSession(TTransferContext& context, const TFtpLogin& login,
                   const std::function<void(TFtpSession&)>& work);

/// Downloads one file straight to `local_folder` + `name`: "Get: " + name as a status line, another line with
/// the reason when it failed, pauses of 300 ms after the transfer and after the result. The transfer is noted
/// in the ledger until it has ended whole; with `still_noted` beyond that, for a caller that has more to do
/// with the file: where it has become true, the caller ends the note. A session whose connection is gone is
/// opened again first. A name that is no plain file name is refused.
///
/// True when nothing spoke against it and the file is there afterwards. kept: that a file is there says
/// nothing about its being whole, and after a failed transfer through NMFTP an old or a cut one still counts;
/// Ledger.IsNoted tells a cut one. kept: after a transfer that threw, the watchdog stays armed. Throws
/// nothing.
bool FtpFetchFile(TTransferContext& context, TFtpSession& session, TFtpVariant variant,
                  const std::string& name, const std::filesystem::path& local_folder,
                  bool* still_noted = nullptr);

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

/// A listing line without all characters but "-", ".", "_", letters and digits.
std::string FilterListItem(std::string_view line);

// What the form does on the client's events.

/// Status text as a status line, without control characters.
void NMFTPStatus(TStatusDisplay& display, const std::string& status);
void NMFTPConnectionFailed(TStatusDisplay& display, const std::string& host);
/// kept: acts on command type 8 only, which no command of the client has.
void NMFTPFailure(TStatusDisplay& display, bool& handled, TCmdType type);
void NMFTPSuccess(TStatusDisplay& display, TCmdType type);

/// Binds all events of the client that the program looks at. `display` and `listing` outlive the client.
void BindFtpEvents(TNMFTP& client, TStatusDisplay& display, TFtpListing& listing);

}  // namespace skyreel
