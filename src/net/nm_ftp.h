#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "net/powersock.h"

namespace skyreel {

/// A server's refusal; carries its reply line, without the line end.
class FTPException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// How the target host is named to a proxy.
enum class TFirewallType : std::uint8_t {
  FTUser,  ///< "USER user@host"
  FtOpen,  ///< "OPEN host"
  FtSite,  ///< "SITE host"
};

/// Which command an event is about.
enum class TCmdType : std::uint8_t {
  ChangeDir = 0,
  MakeDir = 1,
  Delete = 2,
  RemoveDir = 3,
  Download = 9,
  NameList = 13,
  Other = 14,  ///< whatever else goes through SendCommand, the TYPE commands included
  PrintDir = 15,
};

/// An FTP client (RFC 959): the component itself is the control connection, and each transfer opens a data
/// connection of its own. Downloads go through active or passive mode, name listings through active mode.
///
/// Failures: a refusal calls OnFailure and throws FTPException unless the handler sets `handled`; what goes
/// wrong below that is ESockError, EAbortError for cancellations, std::runtime_error "Not Connected", and
/// std::system_error for the local file. A control connection that the server closes is ESockError
/// "Connection closed by server"; a reply of 421 to a command closes it here at once. A command with CR, LF
/// or NUL in it is refused with ESockError before anything is sent. After each failure the component is
/// usable again.
///
/// TimeOut bounds lookup, connecting and each silence of a data connection. kept: it does not end the wait
/// for a reply on the control connection; Abort does.
class TNMFTP : public TPowersock {
 public:
  using TFailureEvent = std::function<void(TNMFTP& sender, bool& handled, TCmdType type)>;
  using TSuccessEvent = std::function<void(TNMFTP& sender, TCmdType type)>;
  using TUnsupportedEvent = std::function<void(TNMFTP& sender, TCmdType type)>;
  using TNMListItem = std::function<void(TNMFTP& sender, const std::string& listing)>;

  /// All lines of one reply may hold so many bytes; past it the connection is closed, ESockError "Reply too
  /// large".
  static constexpr std::size_t kMaxReply = 1024 * 1024;

  explicit TNMFTP(TEventHook event_hook = {});
  ~TNMFTP() override;

  std::string UserID;
  std::string Password;
  bool Passive = false;  ///< downloads open the data connection to the server, not the other way round
  TFirewallType FirewallType = TFirewallType::FTUser;
  std::string FWUserID;
  std::string FWPassword;
  bool FWAuthenticate = false;  ///< log in to the firewall first
  std::int32_t Vendor = 2411;   ///< Disconnect sets it back to 2411
  bool ParseList = false;       ///< for configuration only
  // TransferSize (inherited): the size that the server announced, and after the transfer the bytes received.

  TNotifyEvent OnConnect;  ///< logged in
  TNotifyEvent OnTransactionStart;
  TNotifyEvent OnTransactionStop;  ///< kept: called twice in a download, after the data and after the reply
  TSuccessEvent OnSuccess;
  TFailureEvent OnFailure;
  TUnsupportedEvent OnUnSupportedFunction;  ///< the server answered 500 to 502
  THandlerEvent OnAuthenticationNeeded;     ///< UserID or Password is empty; the handler may set them
  THandlerEvent OnAuthenticationFailed;     ///< kept: never called
  TNMListItem OnListItem;                   ///< one line of a name listing

  /// What became of the last RetrieveFile or NameList, however it ended.
  struct TTransfer {
    bool Started = false;  ///< the data connection was there, so the local file may have been changed
    bool Whole = false;    ///< clean end of the data and of the reply, and no byte of those announced missing
    std::int64_t Announced = 0;  ///< bytes; 0 when the server did not say
    std::int64_t Received = 0;   ///< bytes
    bool TimedOut = false;       ///< the data connection did not come or fell silent
    std::string FinalReply;      ///< the reply after the data, without its line end; empty when none came
  };
  TTransfer LastTransfer;

  /// Connects and logs in; nothing when connected already. kept: the greeting is not judged; the code left
  /// from the command before it is, so that after a refusal (above 400) Connect fails.
  void Connect() override;
  /// QUIT, and closes. A refusal of the QUIT leaves the connection open.
  void Disconnect() override;
  /// Sends one command line and judges the reply: 400 to 599 is a failure.
  void SendCommand(const std::string& command);
  void ChangeDirectory(const std::string& directory) { SendCommand("CWD " + directory); }
  /// 1 "TYPE A", 2 "TYPE I", 3 "TYPE L 8"; any other number sends nothing.
  void SetTransferType(int type);
  /// Downloads `remote_name` to `local_name` (empty: the same name). The local file is created or emptied
  /// once the data connection is there: a refusal leaves it alone. kept: a refusal after the data is no
  /// failure here; LastTransfer tells.
  void RetrieveFile(const std::string& remote_name, const std::string& local_name = "");
  /// Lists the names in the current directory; each goes to OnListItem. At most 64 MiB.
  void NameList();
  /// Ends the running transfer as cancelled; after a download the server is sent ABOR. While it is the
  /// control connection that waits, for a reply, that wait ends instead, and the connection is closed, since
  /// the reply may still come and would be taken for the next command's.
  void Abort() override;
  /// Sends a command and reads the whole reply. Returns its last line; LastReply and ReplyCode are from the
  /// first.
  std::string Transaction(const std::string& command) override;

 protected:
  void HandleTimeOut() override;

 private:
  class TDataConnection;

  auto TransferScope();

  void RefuseDuringTransfer() const;
  void Start();
  void Drain();
  void Fail(const std::string& reply, TCmdType type);
  bool Refused(const std::string& reply, TCmdType type);
  void CheckLogin(const std::string& reply);
  std::string Converse(const std::function<std::string()>& exchange);
  std::string FirstLine(const std::string& command);
  std::string NextLine(std::size_t& reply_size);
  void ReadReplyContinuation(std::string& reply);
  void ReadRest(std::string& reply);

  bool OpenDataConnection(bool passive, TCmdType type);
  bool StartTransfer(const std::string& command, TCmdType type);
  void Transfer(bool passive, TCmdType type, const std::function<void()>& receive);
  bool Interrupted() const;
  void ReceiveListing();
  void EndData();
  void ReadFinalReply();
  bool AwaitReply(std::chrono::milliseconds limit);
  void ReadLateReply();
  void SendAbor();

  std::unique_ptr<TDataConnection> data_;  ///< exists while a transfer opens and uses it
  bool transferring_ = false;
  bool data_waits_ = false;  ///< it is the data connection that the transfer waits on, not the control one
  bool in_time_out_ = false;
};

}  // namespace skyreel
