#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "net/powersock.h"

namespace skyreel {

/// A server's reply that refuses or cannot be used. The message holds its line without the line end.
class FTPException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// How the client tells a proxy the target host.
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

/// An FTP client (RFC 959). The component itself is the control connection. Each transfer opens its own data
/// connection: downloads in active or passive mode, name listings in active mode. Its other end must have the
/// address of the control connection's other end; in active mode other callers are turned away.
///
/// A refusal calls OnFailure and throws FTPException unless the handler sets `handled`. Other failures throw
/// ESockError, EAbortError when cancelled, std::runtime_error "Not Connected", and std::system_error for the
/// local file. When the server closes the control connection, the message is "Connection closed by server".
/// After a reply of 421 the client closes it at once. A command with CR, LF or NUL is refused with ESockError
/// before anything is sent. After each failure the component is usable again.
///
/// TimeOut limits the lookup, the connecting and each silence of a data connection. kept: it does not end the
/// wait for a reply on the control connection; Abort does.
class TNMFTP : public TPowersock {
 public:
  using TFailureEvent = std::function<void(TNMFTP& sender, bool& handled, TCmdType type)>;
  using TSuccessEvent = std::function<void(TNMFTP& sender, TCmdType type)>;
  using TUnsupportedEvent = std::function<void(TNMFTP& sender, TCmdType type)>;
  using TNMListItem = std::function<void(TNMFTP& sender, const std::string& listing)>;

  /// Most bytes in all lines of one reply. A longer one closes the connection: ESockError "Reply too large".
  static constexpr std::size_t kMaxReply = 1024 * 1024;

  explicit TNMFTP(TEventHook event_hook = {});
  ~TNMFTP() override;

  std::string UserID;
  std::string Password;
  bool Passive = false;  ///< in a download the client opens the data connection
  TFirewallType FirewallType = TFirewallType::FTUser;
  std::string FWUserID;
  std::string FWPassword;
  bool FWAuthenticate = false;  ///< log in to the firewall first
  std::int32_t Vendor = 2411;   ///< Disconnect sets it back to 2411
  bool ParseList = false;       ///< for configuration only
  // TransferSize (inherited): the announced size, and after the transfer the bytes received.

  TNotifyEvent OnConnect;  ///< logged in
  TNotifyEvent OnTransactionStart;
  TNotifyEvent OnTransactionStop;  ///< kept: a download calls it twice, after the data and after the reply
  TSuccessEvent OnSuccess;
  TFailureEvent OnFailure;
  TUnsupportedEvent OnUnSupportedFunction;  ///< the server answered 500 to 502
  THandlerEvent OnAuthenticationNeeded;     ///< UserID or Password is empty; the handler may set them
  THandlerEvent OnAuthenticationFailed;     ///< kept: never called
  TNMListItem OnListItem;                   ///< one line of a name listing

  /// How the last RetrieveFile or NameList ended.
  struct TTransfer {
    bool Started = false;        ///< the data connection was open, so the local file may have changed
    bool Whole = false;          ///< data and reply ended well, and no announced byte is missing
    std::int64_t Announced = 0;  ///< bytes; 0: the server did not say
    std::int64_t Received = 0;   ///< bytes
    bool TimedOut = false;       ///< the data connection did not come or fell silent
    std::string FinalReply;      ///< the reply after the data without its line end; empty: none came
  };
  TTransfer LastTransfer;

  /// Connects and logs in; does nothing when connected. kept: Connect fails when the last command before it
  /// was refused (a code above 400), whatever the greeting says.
  void Connect() override;
  /// Sends QUIT and closes. When the server refuses QUIT, the connection stays open.
  void Disconnect() override;
  /// Sends one command line. A reply of 400 to 599 is a failure.
  void SendCommand(const std::string& command);
  void ChangeDirectory(const std::string& directory) { SendCommand("CWD " + directory); }
  /// 1 "TYPE A", 2 "TYPE I", 3 "TYPE L 8"; any other number sends nothing.
  void SetTransferType(int type);
  /// Downloads `remote_name` to `local_name` (empty: the same name). The local file is created or emptied
  /// when the data connection is open, so a refusal leaves it alone. kept: a refusal after the data does not
  /// throw; see LastTransfer.
  void RetrieveFile(const std::string& remote_name, const std::string& local_name = "");
  /// Lists the names in the current directory and calls OnListItem for each. At most 64 MiB.
  void NameList();
  /// Cancels the running transfer; a download also sends ABOR. Closes the connection when a reply is still
  /// due after that, or when the client waits for a reply: a late one would look like the next command's.
  void Abort() override;
  /// Sends a command and reads the whole reply. Returns the last line and sets LastReply and ReplyCode from
  /// the first.
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
  bool HasRefusal() const;
  bool Interrupted() const;
  void ReceiveListing();
  void EndData();
  void ReadFinalReply();
  bool AwaitReply(std::chrono::milliseconds limit);
  void ReadLateReply(std::chrono::milliseconds limit);
  void SendAbor();

  std::unique_ptr<TDataConnection> data_;  ///< exists during a transfer
  bool transferring_ = false;
  bool data_waits_ = false;  ///< the transfer waits on the data connection
  bool accepting_ = false;   ///< the transfer waits for the server's data connection
  bool in_time_out_ = false;
};

}  // namespace skyreel
