#include "net/nm_http.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>
#include <utility>

#include "base/file_sink.h"
#include "base/files.h"
#include "base/scope.h"
#include "base/text.h"
#include "net/http_url.h"

namespace skyreel {

namespace {

constexpr int kMaxRepeats = 20;
constexpr std::size_t kMaxHeader = 1024 * 1024;

struct TMethod {
  const char* Name;
  bool AnnouncesData;  ///< has a Content-Length line
  bool SendsData;
  const char* ArgumentLine;  ///< the header that carries the second argument, or none
};

// kept: LINK and UNLINK announce request data that is never sent.
constexpr std::array<TMethod, 12> kMethods = {{
    {"GET ", false, false, nullptr},
    {"OPTIONS ", false, false, nullptr},
    {"HEAD ", false, false, nullptr},
    {"POST ", true, true, nullptr},
    {"PUT ", true, true, nullptr},
    {"PATCH ", true, true, nullptr},
    {"COPY ", false, false, "URI-header: "},
    {"MOVE ", false, false, "URI-header: "},
    {"DELETE ", false, false, nullptr},
    {"LINK ", true, false, "Link: "},
    {"UNLINK ", true, false, "Link: "},
    {"TRACE ", true, true, nullptr},
}};

/// The line that ends a header or a trailer. An empty one means that the server has closed.
bool IsLastLine(std::string_view line) {
  return line.empty() || line == "\n" || line == "\r\n";
}

const TMethod& MethodOf(CmdType type) {
  return kMethods[static_cast<std::size_t>(type)];
}

}  // namespace

void TExStringList::SetValue(std::string_view name, std::string_view value) {
  const std::string key = std::string(name) + ":";
  const auto line = std::find_if(lines_.begin(), lines_.end(),
                                 [&](const std::string& text) { return StartsWithText(text, key); });
  if (value.empty()) {
    if (line != lines_.end()) lines_.erase(line);
    return;
  }
  std::string text = key + " " + std::string(value);
  if (line != lines_.end()) {
    *line = std::move(text);
  } else {
    lines_.push_back(std::move(text));
  }
}

void TNMHTTP::Get(const std::string& url) {
  Perform(CmdType::Get, url);
}
void TNMHTTP::Options(const std::string& url) {
  Perform(CmdType::Options, url);
}
void TNMHTTP::Head(const std::string& url) {
  Perform(CmdType::Head, url);
}
void TNMHTTP::Post(const std::string& url, const std::string& data) {
  Perform(CmdType::Post, url, EncodePostData && !OutputFileMode ? UrlEncode(data) : data);
}
void TNMHTTP::Put(const std::string& url, const std::string& data) {
  Perform(CmdType::Put, url, data);
}
void TNMHTTP::Patch(const std::string& url, const std::string& data) {
  Perform(CmdType::Patch, url, data);
}
void TNMHTTP::Copy(const std::string& url, const std::string& destination) {
  Perform(CmdType::Copy, url, {}, destination);
}
void TNMHTTP::Move(const std::string& url, const std::string& destination) {
  Perform(CmdType::Move, url, {}, destination);
}
void TNMHTTP::Delete(const std::string& url) {
  Perform(CmdType::Delete, url);
}
void TNMHTTP::Link(const std::string& url, const std::string& link) {
  Perform(CmdType::Link, url, "Send.dat", link);
}
void TNMHTTP::Unlink(const std::string& url, const std::string& link) {
  Perform(CmdType::Unlink, url, "Send.dat", link);
}
void TNMHTTP::Trace(const std::string& url, const std::string& data) {
  Perform(CmdType::Trace, url, data);
}

void TNMHTTP::Abort() {
  notified_ = true;
  TPowersock::Abort();
}

THttpReply TNMHTTP::Fetch(const THttpRequest& request, const TSink& sink) {
  TimeOut = request.TimeOut;
  if (request.Proxy) {
    ProxyPort = request.Proxy->Port;
    Proxy = request.Proxy->Host;
  }
  if (!request.UserId.empty()) HeaderInfo.UserId = request.UserId;
  if (!request.Password.empty()) HeaderInfo.Password = request.Password;
  const TScopedValue body_sink(sink_, &sink);
  const TScopedValue sent(OnRequestSent, [&](TNMHTTP&) { Fire(request.OnSent); });
  Perform(request.HeaderOnly ? CmdType::Head : CmdType::Get, request.Url);
  const std::string_view status = Trim(LastReply);
  const std::size_t blank = std::min(status.find(' '), status.size());
  const std::string text = WithoutControls(std::string(Trim(status.substr(blank))));
  return {ReplyCode, WithoutSecrets(text, HeaderInfo.UserId, HeaderInfo.Password), Header};
}

void TNMHTTP::Perform(CmdType type, const std::string& url, std::string data, std::string argument) {
  RefuseInsideWait();
  if (running_) throw ESockError("Busy with another operation");
  // Closes the connection however the request ends.
  const TAtScopeEnd close([this] {
    Port.TakeSet();  // what the request set is not the owner's
    try {
      if (Connected) RequestCloseSocket();
    } catch (...) {
      // The caller gets the failure of the transfer itself.
    }
  });
  const TScopedValue running(running_, true);
  if (Port.TakeSet()) own_port_ = Port;
  url_ = url;
  data_ = std::move(data);
  argument_ = std::move(argument);

  std::optional<TOrigin> first;
  for (int repeats = 0;; ++repeats) {
    if (repeats > kMaxRepeats) throw ESockError("Too many redirects");
    ReceivedByteCount = 0;
    TransferSize = 0;
    ReplyCode = 0;
    reply_ = {};
    redirect_page_.clear();
    if (!OutputFileMode) Header.clear();
    if (!sink_ && !InputFileMode) Body.clear();

    const TOrigin server = ParseUrl();
    if (!first) first = server;
    BuildRequest(type, server, server == *first);
    Fire(OnAboutToSend, *this);
    for (const std::string& line : request_.Lines()) {
      if (HasControlCharacter(line)) throw std::runtime_error("Control character in the request");
    }
    // Connect would forget a cancel that came since the last reply.
    if (repeats > 0 && canceled_) ThrowAborted("Socket capture aborted");
    Connect();
    SendRequest(type);
    Fire(OnRequestSent, *this);
    ReadHeader();
    ReadBody(type);
    Finish(type);
    Disconnect();
    const bool repeat = ReplyCode >= 299 && ReplyCode <= 399 && Follow(server);
    if (ReplyCode == 401) Fire(OnAuthenticationNeeded, *this);
    if (!repeat) break;
  }
}

TNMHTTP::TOrigin TNMHTTP::ParseUrl() {
  const THttpUrl parsed = ParseHttpUrl(url_);
  url_ = parsed.Url;
  path_ = parsed.Path;
  if (!parsed.Host.empty()) {
    // A port belongs to the server that it was named with, not to the next one.
    Port = own_port_;
    Host = parsed.Host;
  }
  if (parsed.Port) Port = *parsed.Port;
  if (Port == 0) Port = kHttpPort;
  return {LowerCase(Host), Port};
}

std::int64_t TNMHTTP::DataSize(CmdType type) const {
  if (!OutputFileMode) return static_cast<std::int64_t>(data_.size());
  const std::int64_t size = FileSizeOf(data_);
  if (size < 0 && MethodOf(type).SendsData)
    throw std::runtime_error("Cannot read the file to send, " + data_);
  return std::max<std::int64_t>(size, 0);
}

void TNMHTTP::BuildRequest(CmdType type, const TOrigin& server, bool may_authenticate) {
  const TMethod& method = MethodOf(type);
  request_.Clear();
  // A blank would end the URL.
  const std::string target = ReplaceAll(Proxy.empty() ? path_ : url_, " ", "%20");
  request_.Add(method.Name + target + " HTTP/1.0");
  if (!Proxy.empty()) request_.Add("Proxy-Connection: Keep-Alive");
  request_.SetValue("Host", Host);
  request_.Add("Accept: www/source, text/html, video/mpeg, image/jpeg, image/x-tiff");
  request_.Add("Accept: image/x-rgb, image/x-xbm, image/gif, */*, application/postscript");
  // kept: these two are swapped.
  request_.SetValue("User-Agent", HeaderInfo.LocalMailAddress);
  request_.SetValue("From", HeaderInfo.LocalProgram);
  // The owner's cookie goes to the server that was asked first, a server's cookie to that server alone.
  const bool from_server = !server_cookie_.empty() && HeaderInfo.Cookie == server_cookie_;
  if (from_server ? server == server_cookie_origin_ : may_authenticate) {
    request_.SetValue("Cookie", HeaderInfo.Cookie);
  }
  request_.SetValue("Referer", HeaderInfo.Referer);
  if (may_authenticate && !HeaderInfo.UserId.empty() && !HeaderInfo.Password.empty()) {
    request_.SetValue("Authorization", "Basic " + Base64(HeaderInfo.UserId + ":" + HeaderInfo.Password));
  }
  request_.Add("Content-type: application/x-www-form-urlencoded");
  if (method.ArgumentLine) request_.Add(method.ArgumentLine + argument_);
  if (method.AnnouncesData) request_.Add("Content-Length: " + std::to_string(DataSize(type)));
}

void TNMHTTP::SendRequest(CmdType type) {
  std::string lines;
  for (const std::string& line : request_.Lines()) lines += line + "\r\n";
  SendAll(lines + "\r\n");
  if (!MethodOf(type).SendsData) return;
  // Sends NUL bytes too: the whole length was announced.
  OutputFileMode ? SendFile(data_) : SendAll(data_);
}

void TNMHTTP::ReadHeader() {
  std::optional<TFileSink> file;
  if (OutputFileMode) file.emplace(Header);
  std::size_t size = 0;
  bool status_line = true;
  ReadLines([&](const std::string& line) {
    size += line.size();
    if (size > kMaxHeader) throw ESockError("Header too long");
    if (file) {
      file->Write(line);
    } else {
      Header += line;
    }
    if (status_line) {
      LastReply = line;
      if (line.empty()) return false;
      if (!StartsWithText(line, "HTTP/")) throw ESockError("Not an HTTP reply");
      reply_ = {};
      reply_.Code = ReplyCodeOf(line);
    } else if (!IsLastLine(line)) {
      ReadHeaderLine(line, reply_);
      return true;
    }
    status_line = !status_line;
    // Interim replies (100 Continue) come before the reply proper.
    return !status_line || (reply_.Code >= 100 && reply_.Code <= 199);
  });
  if (size == 0) throw ESockError("Connection closed before the reply");

  if (file) file->Close();
  ReplyCode = static_cast<std::int16_t>(reply_.Code);
  TransferSize = reply_.ContentLength.value_or(0);
}

void TNMHTTP::ReadBody(CmdType type) {
  if (type == CmdType::Head || ReplyCode == 204 || ReplyCode == 304 ||
      (ReplyCode >= 100 && ReplyCode <= 199)) {
    return;
  }
  // kept: in file mode the message speaks of sending.
  const char* const abort_text = InputFileMode && !sink_ ? "Socket send aborted" : "Socket capture aborted";
  const bool redirect = ReplyCode >= 299 && ReplyCode <= 399;
  const bool to_file = InputFileMode && !sink_ && !redirect;
  std::string& text = InputFileMode || sink_ ? redirect_page_ : Body;
  std::optional<TFileSink> file;
  // Unlike CaptureString this does not drop a single byte.
  const auto take = [&](std::string_view chunk) {
    if (sink_ && !redirect) {
      (*sink_)(chunk);
      return chunk.size();
    }
    if (!to_file) return KeepInMemory(text, chunk);
    if (!file) file.emplace(Body);
    return file->Write(chunk);
  };

  if (reply_.TransferEncoding == "chunked") {
    TransferSize = 0;
    ReadChunks(take, abort_text);
  } else if (!reply_.TransferEncoding.empty()) {
    throw ESockError("Transfer encoding not supported");
  } else {
    ReceiveBytes(reply_.ContentLength.value_or(kNoLimit), take, abort_text);
  }
  // An empty body gives an empty file.
  if (to_file && !file && ReplyCode < 299 && TransferSize == 0) file.emplace(Body);
  if (file) file->Close();
}

bool TNMHTTP::ReceiveBytes(std::int64_t count, const TTake& take, const char* abort_text) {
  const std::int64_t end = count == kNoLimit ? kNoLimit : ReceivedByteCount + count;
  return Receive([&] { return end - ReceivedByteCount; }, take, abort_text);
}

void TNMHTTP::ReadChunks(const TTake& take, const char* abort_text) {
  while (true) {
    const std::string line = ReadLn();
    if (line.empty()) throw ESockError("Connection closed inside the reply");
    const std::int64_t size = ParseChunkSize(line);
    if (size < 0) throw ESockError("Damaged chunk in the reply");
    if (size == 0) break;
    if (!ReceiveBytes(size, take, abort_text)) throw ESockError("Connection closed inside the reply");
    if (!IsLastLine(ReadLn())) throw ESockError("Damaged chunk in the reply");
  }
  std::size_t trailer = 0;
  for (std::string line = ReadLn(); !IsLastLine(line); line = ReadLn()) {
    trailer += line.size();
    if (trailer > kMaxHeader) throw ESockError("Header too long");
  }
}

void TNMHTTP::Finish(CmdType type) {
  if (ReplyCode < 299) {
    Fire(OnSuccess, *this, type);
    ReportStatus(2, "Transaction Completed");
  } else if (ReplyCode >= 400) {
    Fire(OnFailure, *this, type);
  }
}

bool TNMHTTP::Follow(const TOrigin& server) {
  // Any other reply repeats the request unchanged.
  if (ReplyCode >= 300 && ReplyCode <= 302 && !reply_.Location.empty()) {
    url_ = ResolveLocation(reply_.Location, Host, Port);
  }
  if (ReplyCode < 300 || ReplyCode > 398) return true;
  if (!reply_.Cookie.empty()) {
    HeaderInfo.Cookie = reply_.Cookie;
    server_cookie_ = reply_.Cookie;
    server_cookie_origin_ = server;
  }
  bool handled = false;
  Fire(OnRedirect, *this, handled);
  if (handled && InputFileMode && !redirect_page_.empty()) {
    TFileSink file(Body);
    file.Write(redirect_page_);
    file.Close();
  }
  return !handled;
}

}  // namespace skyreel
