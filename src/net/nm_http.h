#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "net/http_parse.h"
#include "net/http_transport.h"
#include "net/powersock.h"

namespace skyreel {

/// What every request says about its sender. Only UserId and Password may hold control characters.
struct THeaderInfo {
  std::string LocalMailAddress;
  std::string LocalProgram;
  /// The owner's cookie goes to the server that is asked; the cookie of a redirect's reply to that server
  /// alone.
  std::string Cookie;
  std::string Referer;
  std::string UserId;  ///< sent with Password when both are set
  std::string Password;
};

/// A list of header lines.
class TExStringList {
 public:
  void Clear() { lines_.clear(); }
  void Add(std::string line) { lines_.push_back(std::move(line)); }
  /// Sets the line of that name to "name: value"; an empty value deletes it.
  void SetValue(std::string_view name, std::string_view value);
  const std::vector<std::string>& Lines() const { return lines_; }

 private:
  std::vector<std::string> lines_;
};

/// The methods, as the result events name them.
enum class CmdType : std::uint8_t {
  Get = 0,
  Options,
  Head,
  Post,
  Put,
  Patch,
  Copy,
  Move,
  Delete,
  Link,
  Unlink,
  Trace
};

/// An HTTP/1.0 client: one request per connection, proxy, Basic authentication, cookies, redirects.
///
/// Each method returns when the whole reply came or the server closed the connection. It throws
/// - ESockError and EAbortError as the socket does, and ESockError "Too many redirects" (20 repeats), "Header
///   too long" (1 MiB), "Line too long" (64 KiB), "Reply too large" (64 MiB kept in memory), "Not an HTTP
///   reply", "Connection closed before the reply", "Connection closed inside the reply" and "Damaged chunk in
///   the reply" (chunked), "Transfer encoding not supported",
/// - std::runtime_error "Empty URL", "HTTP Secure Socket is not supported", "Bad port in URL", "Control
///   character in URL", "Control character in the request",
/// - std::system_error for files.
///
/// An error reply (404) does not throw: see ReplyCode and OnFailure. Nor does a body shorter than announced:
/// then ReceivedByteCount is below TransferSize (0 when nothing was announced).
class TNMHTTP : public TPowersock, public THttpTransport {
 public:
  using TNotifyHttpEvent = std::function<void(TNMHTTP& sender)>;
  using TResultEvent = std::function<void(TNMHTTP& sender, CmdType command)>;
  using TRedirectEvent = std::function<void(TNMHTTP& sender, bool& handled)>;

  explicit TNMHTTP(TEventHook event_hook = {}) : TPowersock(std::move(event_hook)) {}

  // Port: the port for URLs that name neither scheme nor port; 0: 80. A request leaves the port that it used
  // there. The next request does not take it for the owner's.

  THeaderInfo HeaderInfo;
  /// The reply's body, or the name of its file (InputFileMode). The file is opened when the first byte of a
  /// body arrives, so a refused request leaves an older file alone.
  std::string Body = "Default.htm";
  /// The reply's header, or the name of its file (OutputFileMode).
  std::string Header = "Head.txt";
  bool InputFileMode = false;   ///< the body goes to the file named by Body
  bool OutputFileMode = false;  ///< the header goes to a file, and request data names the file to send
  bool EncodePostData = true;   ///< Post encodes string data (UrlEncode)

  TNotifyHttpEvent OnAboutToSend;           ///< the request is built, the connection not made
  TNotifyHttpEvent OnRequestSent;           ///< the request is sent, the server works on it
  TResultEvent OnSuccess;                   ///< a reply below 299
  TResultEvent OnFailure;                   ///< a reply of 400 or above
  TRedirectEvent OnRedirect;                ///< a redirect; handled stops following it
  TNotifyHttpEvent OnAuthenticationNeeded;  ///< a 401 reply

  void Get(const std::string& url);
  void Options(const std::string& url);
  void Head(const std::string& url);
  void Post(const std::string& url, const std::string& data);
  void Put(const std::string& url, const std::string& data);
  void Patch(const std::string& url, const std::string& data);
  void Copy(const std::string& url, const std::string& destination);
  void Move(const std::string& url, const std::string& destination);
  void Delete(const std::string& url);
  void Link(const std::string& url, const std::string& link);
  void Unlink(const std::string& url, const std::string& link);
  void Trace(const std::string& url, const std::string& data);
  void Abort() override;

  /// Get or Head whose body goes to `sink`, whatever InputFileMode says. OutputFileMode must be off.
  THttpReply Fetch(const THttpRequest& request, const TSink& sink) override;

  /// The URL of the last request, after a redirect the one that it led to.
  const std::string& URL() const { return url_; }
  /// The value of the last reply's Set-Cookie and Location lines.
  const std::string& ReceivedCookie() const { return reply_.Cookie; }
  const std::string& Location() const { return reply_.Location; }
  /// The request's lines; OnAboutToSend may still change them.
  TExStringList& RequestHeaders() { return request_; }

 private:
  /// The server that credentials and cookies belong to.
  struct TOrigin {
    std::string Host;
    std::uint16_t Port = 0;
    bool operator==(const TOrigin&) const = default;
  };

  void Perform(CmdType type, const std::string& url, std::string data = {}, std::string argument = {});
  TOrigin ParseUrl();
  void BuildRequest(CmdType type, const TOrigin& server, bool may_authenticate);
  std::int64_t DataSize(CmdType type) const;
  void SendRequest(CmdType type);
  void ReadHeader();
  void ReadBody(CmdType type);
  void ReadChunks(const TTake& take, const char* abort_text);
  bool ReceiveBytes(std::int64_t count, const TTake& take, const char* abort_text);
  void Finish(CmdType type);
  bool Follow(const TOrigin& server);

  bool running_ = false;
  const TSink* sink_ = nullptr;  ///< takes the body while Fetch runs
  std::string url_;
  std::string path_;
  std::string data_;
  std::string argument_;
  std::uint16_t own_port_ = 0;  ///< the Port that the owner set
  TExStringList request_;
  THttpReplyHeader reply_;
  std::string redirect_page_;  ///< a redirect's body until it is known whether the redirect is followed
  std::string server_cookie_;  ///< the cookie that a redirect's reply set
  TOrigin server_cookie_origin_;
};

}  // namespace skyreel
