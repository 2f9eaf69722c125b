#include "net/https_client.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "base/comma_text.h"
#include "base/date_time.h"
#include "base/exceptions.h"
#include "base/files.h"
#include "base/scope.h"
#include "base/text.h"
#include "net/http_parse.h"

namespace skyreel {

namespace {

using TMonotonic = std::chrono::steady_clock;

constexpr int kMaxRedirects = 20;
constexpr std::int64_t kMaxHeader = 256 << 10;  ///< also of a redirect's page
constexpr std::int64_t kMaxCertificates = 16 << 20;
constexpr int kWaitMilliseconds = 2;
constexpr auto kEventPeriod = std::chrono::milliseconds(2);
/// A transfer that stays below so many bytes a second for as long as a silence may last is given up.
constexpr long kLowSpeed = 100;
constexpr long kBufferSize = 128 * 1024;

/// The address as it is sent: blanks and bytes above ASCII encoded, the rest as it stands.
std::string Sendable(std::string_view url) {
  if (HasControlCharacter(url)) throw std::runtime_error("Control character in URL");
  constexpr char kHex[] = "0123456789ABCDEF";
  std::string sendable;
  for (const char c : url) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > ' ' && byte < 0x7F) {
      sendable += c;
    } else {
      sendable += {'%', kHex[byte >> 4], kHex[byte & 0xF]};
    }
  }
  return sendable;
}

bool IsSecure(std::string_view url) {
  return StartsWithText(url, "https:");
}
bool IsFtp(std::string_view url) {
  return StartsWithText(url, "ftp:");
}

bool IsRedirect(const THttpReply& reply) {
  constexpr std::array kCodes = {301, 302, 303, 307, 308};
  return std::ranges::find(kCodes, reply.Code) != kCodes.end() &&
         !HeaderValue(reply.Header, "Location").empty();
}

/// As HTTP writes a time: "Sun, 06 Nov 1994 08:49:37 GMT".
std::string HttpDate(std::int64_t unix_time) {
  constexpr std::array kDays = {"Thu", "Fri", "Sat", "Sun", "Mon", "Tue", "Wed"};
  const std::int64_t days = std::max<std::int64_t>(unix_time, 0) / 86400;
  return kDays[static_cast<std::size_t>(days % 7)] +
         FormatDateTime("', 'dd mmm yyyy hh':'nn':'ss' GMT'", TDateTime::FromUnixTime(unix_time));
}

std::string Seconds(std::int32_t milliseconds) {
  return std::to_string((milliseconds + 999) / 1000) + " s";
}

}  // namespace

// --- Settings ------------------------------------------------------------------------------------------

namespace {

bool IsHostName(const std::string& text) {
  try {
    return ServerOf("http://" + text) == LowerCase(text) &&
           (text.find(':') == std::string::npos || text.ends_with(']'));
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace

THttpsSettings ReadHttpsSettings(const std::string& ca_file, std::string_view host_overrides,
                                 std::vector<std::string>& problems) {
  THttpsSettings settings;
  try {
    if (!ca_file.empty()) settings.Certificates = ReadWholeFile(ca_file, kMaxCertificates);
    if (!ca_file.empty() && settings.Certificates.find("-----BEGIN CERTIFICATE-----") == std::string::npos)
      throw std::runtime_error("it holds no certificate");
  } catch (const std::exception& error) {
    settings.Certificates.clear();
    problems.push_back("The setting CaFile is not used: " + ca_file + ": " + ReasonOf(error));
  }
  for (const std::string& item : FromCommaText(host_overrides)) {
    const std::size_t equals = std::min(item.find('='), item.size());
    const std::size_t colon = std::max(std::min(item.rfind(':'), item.size()), equals);
    const std::string host = item.substr(0, equals);
    const std::string address = Characters(item, equals + 2, colon - std::min(equals + 1, colon));
    const auto port = ParseNumber<std::uint16_t>(item.substr(std::min(colon + 1, item.size())));
    if (!IsHostName(host) || !IsHostName(address) || port.value_or(0) == 0) {
      problems.push_back("The setting HostOverrides is not used for \"" + WithoutControls(item) +
                         "\": write it as host=address:port");
    } else {
      settings.Overrides.push_back({host, address, *port});
    }
  }
  return settings;
}

std::string ServerOf(const std::string& url) {
  constexpr std::array<std::pair<std::string_view, std::string_view>, 3> kSchemes = {
      {{"http://", ":80"}, {"https://", ":443"}, {"ftp://", ":21"}}};
  const auto scheme =
      std::ranges::find_if(kSchemes, [&](const auto& known) { return StartsWithText(url, known.first); });
  if (scheme == kSchemes.end()) throw std::runtime_error("Not an http, https or ftp address");
  const std::string_view rest = std::string_view(url).substr(scheme->first.size());
  std::string server = LowerCase(rest.substr(0, rest.find_first_of("/?#")));
  // The library may read an odd name in another way, so that a password would go elsewhere.
  bool odd = server.find('\\') != std::string::npos;
  server.erase(0, server.find('@') + 1);
  for (const char c : server)
    odd |= !IsLetterOrDigit(c) && std::string_view(".-_:[]").find(c) == std::string_view::npos;
  if (server.ends_with(scheme->second)) server.erase(server.size() - scheme->second.size());
  if (server.empty() || server.front() == ':' || odd) throw std::runtime_error("Bad URL");
  return server;
}

// --- One request ---------------------------------------------------------------------------------------

/// libcurl, loaded for the first request: with all the libraries that it needs it would make each start of
/// the program 7 ms longer.
struct THttpsClient::TLibrary {
  TLibrary() {
    if (Multi == nullptr) throw std::bad_alloc();
    // Not one: hosts behind a proxy, or at one address by the user's settings, count as one host here.
    curl_multi_setopt(Multi, CURLMOPT_MAX_HOST_CONNECTIONS, 6L);
  }
  ~TLibrary() { curl_multi_cleanup(Multi); }
  TLibrary(const TLibrary&) = delete;
  TLibrary& operator=(const TLibrary&) = delete;

  template <typename TFunction>
  TFunction Find(const char* name) const {
    void* const found = Handle != nullptr ? ::dlsym(Handle, name) : nullptr;
    if (found == nullptr) throw std::runtime_error("libcurl cannot be loaded");
    return reinterpret_cast<TFunction>(found);
  }

  // It stays loaded: a lookup's thread may outlive the client.
  void* const Handle = ::dlopen("libcurl.so.4", RTLD_NOW | RTLD_NODELETE);
#define SKYREEL_FUNCTION(name) const decltype(&::name) name = Find<decltype(&::name)>(#name)
  SKYREEL_FUNCTION(curl_easy_cleanup);
  SKYREEL_FUNCTION(curl_easy_getinfo);
  SKYREEL_FUNCTION(curl_easy_init);
  SKYREEL_FUNCTION(curl_easy_setopt);
  SKYREEL_FUNCTION(curl_easy_strerror);
  SKYREEL_FUNCTION(curl_getdate);
  SKYREEL_FUNCTION(curl_multi_add_handle);
  SKYREEL_FUNCTION(curl_multi_cleanup);
  SKYREEL_FUNCTION(curl_multi_info_read);
  SKYREEL_FUNCTION(curl_multi_init);
  SKYREEL_FUNCTION(curl_multi_perform);
  SKYREEL_FUNCTION(curl_multi_poll);
  SKYREEL_FUNCTION(curl_multi_remove_handle);
  SKYREEL_FUNCTION(curl_multi_setopt);
  SKYREEL_FUNCTION(curl_multi_strerror);
  SKYREEL_FUNCTION(curl_slist_append);
  SKYREEL_FUNCTION(curl_slist_free_all);
  SKYREEL_FUNCTION(curl_version_info);
#undef SKYREEL_FUNCTION
  CURLM* const Multi = curl_multi_init();
};

struct THttpsClient::TTransfer {
  /// A list of texts as the library wants it.
  struct TLines {
    explicit TLines(const TLibrary& library) : Library(library) {}
    ~TLines() { Clear(); }
    TLines(const TLines&) = delete;
    TLines& operator=(const TLines&) = delete;

    void Clear() { Library.curl_slist_free_all(std::exchange(List, nullptr)); }
    void Add(const std::string& line) {
      curl_slist* const longer = Library.curl_slist_append(List, line.c_str());
      if (longer == nullptr) throw std::bad_alloc();
      List = longer;
    }

    const TLibrary& Library;
    curl_slist* List = nullptr;
  };

  TTransfer(TLibrary& library, THttpsRequest request, TSink sink, TDone done)
      : Library(library), Request(std::move(request)), Sink(std::move(sink)), Done(std::move(done)) {
    if (Easy == nullptr) throw std::bad_alloc();
  }
  ~TTransfer() {
    Stop();
    Library.curl_easy_cleanup(Easy);
  }
  TTransfer(const TTransfer&) = delete;
  TTransfer& operator=(const TTransfer&) = delete;

  void Go() {
    if (const CURLMcode code = Library.curl_multi_add_handle(Library.Multi, Easy); code != CURLM_OK)
      throw ESockError(Library.curl_multi_strerror(code));
    Running = true;
  }
  void Stop() {
    if (std::exchange(Running, false)) Library.curl_multi_remove_handle(Library.Multi, Easy);
  }
  template <typename TValue>
  void Set(CURLoption option, TValue value) {
    if (const CURLcode code = Library.curl_easy_setopt(Easy, option, value); code != CURLE_OK)
      throw std::runtime_error(Library.curl_easy_strerror(code));
  }
  template <typename TValue>
  TValue Info(CURLINFO info, TValue value) const {
    Library.curl_easy_getinfo(Easy, info, &value);
    return value;
  }

  /// For another request. A used handle does not take all options any more.
  void Renew() {
    Stop();
    Library.curl_easy_cleanup(Easy);
    Easy = Library.curl_easy_init();
    if (Easy == nullptr) throw std::bad_alloc();
  }

  /// Fills the reply from what the library knows once the header is complete.
  void CompleteHeader() {
    if (std::exchange(HeaderComplete, true)) return;
    if (IsFtp(Url)) {
      const bool old = Info(CURLINFO_CONDITION_UNMET, 0L) != 0;
      Reply.Code = old ? 304 : 200;
      Reply.Status = old ? "304 Not Modified" : "200 OK";
      const auto time = Info<curl_off_t>(CURLINFO_FILETIME_T, -1);
      if (time >= 0) Reply.Header = "Last-Modified: " + HttpDate(time) + "\r\n";
    } else {
      Reply.Code = static_cast<int>(Info(CURLINFO_RESPONSE_CODE, 0L));
      Reply.Http2 = Info(CURLINFO_HTTP_VERSION, 0L) >= CURL_HTTP_VERSION_2_0;
    }
    const auto length = Info<curl_off_t>(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, -1);
    if (length >= 0) Reply.Length = length;
    if (!IsRedirect(Reply)) Fire(Request.OnHeader, Reply);
  }

  /// Whether the server has answered, even if the body is cut.
  bool CompleteReply(CURLcode code) {
    if (IsFtp(Url) && code == CURLE_LOGIN_DENIED) return CompleteFtp("401 Login Refused");
    if (IsFtp(Url) && code != CURLE_OK && Info(CURLINFO_RESPONSE_CODE, 0L) == 550)
      return CompleteFtp("404 Not Found");
    if (code != CURLE_OK && (code != CURLE_PARTIAL_FILE || !Reply.Length)) return false;
    CompleteHeader();
    return true;
  }
  bool CompleteFtp(const char* status) {
    Reply.Status = status;
    Reply.Code = std::atoi(status);
    if (!std::exchange(HeaderComplete, true)) Fire(Request.OnHeader, Reply);
    return true;
  }

  std::size_t TakeHeader(std::string_view line) {
    LastByte = TMonotonic::now();
    if (IsFtp(Url)) return line.size();
    HeaderBytes += static_cast<std::int64_t>(line.size());
    if (HeaderBytes > kMaxHeader) throw ESockError("Header too long");
    // Interim replies (100 Continue) come before the reply proper.
    if (line.starts_with("HTTP/")) {
      Reply.Header.clear();
      const std::string_view status = Trim(line.substr(std::min(line.find(' '), line.size())));
      Reply.Status = WithoutSecrets(WithoutControls(std::string(status)), Request.UserId, Request.Password);
    }
    Reply.Header += line;
    return line.size();
  }

  std::size_t TakeBody(std::string_view piece) {
    LastByte = TMonotonic::now();
    // The library writes an FTP file's properties as a body.
    if (Request.HeaderOnly) return piece.size();
    CompleteHeader();
    Reply.Received += static_cast<std::int64_t>(piece.size());
    if (!IsRedirect(Reply)) {
      Sink(piece);
    } else if (Reply.Received > kMaxHeader) {
      throw ESockError("Reply too large");
    }
    return piece.size();
  }

  /// The library's form of the two above. It gives the pieces; less than their size ends the request.
  template <std::size_t (TTransfer::*take)(std::string_view)>
  static std::size_t Take(char* data, std::size_t size, std::size_t count, void* transfer) {
    auto& self = *static_cast<TTransfer*>(transfer);
    try {
      return (self.*take)({data, size * count});
    } catch (...) {
      self.Failure = std::current_exception();
      return size * count == 0 ? 1 : 0;
    }
  }

  static int TakeSent(void* transfer, char*, char*, int, int) {
    auto& self = *static_cast<TTransfer*>(transfer);
    self.Sent = true;
    self.LastByte = TMonotonic::now();
    return CURL_PREREQFUNC_OK;
  }

  std::string ErrorText(CURLcode code) const {
    return Error[0] != 0 ? Error.data() : Library.curl_easy_strerror(code);
  }
  bool IsOverdue(TMonotonic::time_point now) const {
    return Sent && Request.TimeOut > 0 && now - LastByte > std::chrono::milliseconds(Request.TimeOut);
  }
  ESockError NoAnswer() const {
    return ESockError(ServerOf(Url) + ": no answer within " + Seconds(Request.TimeOut));
  }

  TLibrary& Library;
  THandle Handle = 0;
  THttpsRequest Request;
  TSink Sink;
  TDone Done;
  CURL* Easy = Library.curl_easy_init();
  TLines HeaderLines{Library}, Overrides{Library};
  std::array<char, CURL_ERROR_SIZE> Error{};
  std::string Url;  ///< asked now
  int Redirects = 0;
  THttpsReply Reply;
  std::int64_t HeaderBytes = 0;
  bool HeaderComplete = false;
  bool Running = false;
  bool Http1 = false;
  bool Sent = false;
  bool SentReported = false;
  bool Aborted = false;
  TMonotonic::time_point LastByte{};
  std::exception_ptr Failure;  ///< thrown in one of the library's calls
};

namespace {

/// Says what is wrong in words for a user. `detail` are the library's words.
[[noreturn]] void ThrowFailure(CURLcode code, std::string detail, const std::string& server,
                               int system_error) {
  const std::string host = server + ": ";
  detail = WithoutControls(detail);
  const std::string cause(Trim(std::string_view(detail).substr(detail.rfind(':') + 1)));
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
      throw EConnectError(host + "no such host", "is not a known host");
    case CURLE_COULDNT_RESOLVE_PROXY:
      throw EConnectError("the proxy: no such host", "is not a known host");
    case CURLE_COULDNT_CONNECT: {
      const std::string reason = system_error != 0 ? std::strerror(system_error) : "no connection";
      throw EConnectError(host + reason, system_error == ECONNREFUSED ? "refused the connection"
                                                                      : "cannot be reached: " + reason);
    }
    case CURLE_PEER_FAILED_VERIFICATION:
      throw ECertificateError("the certificate of " + server + " is not trusted: " + cause,
                              "has no trusted certificate: " + cause);
    case CURLE_SSL_CACERT_BADFILE:
      throw ECertificateError("the file of trusted certificates cannot be read",
                              "cannot be checked: the file of trusted certificates cannot be read");
    case CURLE_SSL_CONNECT_ERROR:
      throw EConnectError(host + "no secure connection: " + cause, "makes no secure connection: " + cause);
    // What the library says of a header line that is too long for it.
    case CURLE_OUT_OF_MEMORY:
      throw ESockError("Header too long");
    case CURLE_GOT_NOTHING:
      throw ESockError("Connection closed before the reply");
    case CURLE_PARTIAL_FILE:
      throw ESockError("Connection closed inside the reply");
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
      throw ESockError("Not an HTTP reply");
    default:
      throw ESockError(host + detail);
  }
}

}  // namespace

// --- The client ----------------------------------------------------------------------------------------

THttpsClient::THttpsClient(TEventHook event_hook) : event_hook_(std::move(event_hook)) {}

THttpsClient::~THttpsClient() = default;

void THttpsClient::LoadLibrary() {
  if (!library_) library_ = std::make_unique<TLibrary>();
}

void THttpsClient::SetSettings(const THttpsSettings& settings) {
  overrides_ = settings.Overrides;
  certificates_.Close();
  if (settings.Certificates.empty()) return;
  LoadLibrary();
  // The library keeps what it has read of a file, but not of a text in memory: that costs 20 ms a connection.
  std::string all = settings.Certificates + '\n';
  const char* const system = library_->curl_version_info(CURLVERSION_NOW)->cainfo;
  if (system != nullptr && FileSizeOf(system) > 0) all += ReadWholeFile(system, kMaxCertificates);
  certificates_ = TDescriptor(::memfd_create("certificates", MFD_CLOEXEC));
  if (!certificates_.IsOpen() || !WriteAll(certificates_.Get(), all)) ThrowErrno("certificates");
}

THttpsClient::THandle THttpsClient::Start(THttpsRequest request, TSink sink, TDone done) {
  LoadLibrary();
  auto transfer =
      std::make_unique<TTransfer>(*library_, std::move(request), std::move(sink), std::move(done));
  transfer->Handle = ++last_handle_;
  transfer->Url = Sendable(transfer->Request.Url);
  Prepare(*transfer);
  transfer->Go();
  transfers_.emplace(last_handle_, std::move(transfer));
  return last_handle_;
}

void THttpsClient::Prepare(TTransfer& transfer) {
  const THttpsRequest& request = transfer.Request;
  const std::string server = ServerOf(transfer.Url);
  // A password, a cookie or a key is for the server that was asked first.
  const bool own_server = server == ServerOf(request.Url);
  transfer.Reply = {};
  transfer.Reply.Url = transfer.Url;
  transfer.HeaderBytes = 0;
  transfer.Error[0] = 0;
  transfer.HeaderComplete = transfer.Sent = transfer.SentReported = false;
  transfer.LastByte = TMonotonic::now();
  transfer.Http1 = http1_servers_.contains(server);

  transfer.Set(CURLOPT_PRIVATE, &transfer);
  transfer.Set(CURLOPT_ERRORBUFFER, transfer.Error.data());
  transfer.Set(CURLOPT_NOSIGNAL, 1L);
  transfer.Set(CURLOPT_QUICK_EXIT, 1L);
  transfer.Set(CURLOPT_BUFFERSIZE, kBufferSize);

  transfer.Set(CURLOPT_URL, transfer.Url.c_str());
  transfer.Set(CURLOPT_PROTOCOLS_STR, "http,https,ftp");
  transfer.Set(CURLOPT_PATH_AS_IS, 1L);
  transfer.Set(CURLOPT_NOBODY, request.HeaderOnly ? 1L : 0L);
  transfer.Set(CURLOPT_FILETIME, 1L);
  transfer.Set(CURLOPT_USERAGENT, "Skyreel/" SKYREEL_VERSION);
  transfer.Set(CURLOPT_HTTP_VERSION, transfer.Http1 ? static_cast<long>(CURL_HTTP_VERSION_1_1)
                                                    : static_cast<long>(CURL_HTTP_VERSION_2TLS));
  // A second request waits for the first one's connection, which may take both.
  transfer.Set(CURLOPT_PIPEWAIT, 1L);

  transfer.Set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  // With a folder of certificates the library would read all of them again for each connection.
  transfer.Set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  if (certificates_.IsOpen())
    transfer.Set(CURLOPT_CAINFO, ("/proc/self/fd/" + std::to_string(certificates_.Get())).c_str());

  transfer.HeaderLines.Clear();
  for (const std::string& line : request.HeaderLines) {
    if (HasControlCharacter(line)) throw std::runtime_error("Control character in the request");
    const bool secret = StartsWithText(line, "Authorization:") || StartsWithText(line, "Cookie:");
    if (own_server || !secret) transfer.HeaderLines.Add(line);
    constexpr std::string_view kSince = "If-Modified-Since:";
    if (IsFtp(transfer.Url) && StartsWithText(line, kSince)) {
      transfer.Set(CURLOPT_TIMECONDITION, static_cast<long>(CURL_TIMECOND_IFMODSINCE));
      transfer.Set(CURLOPT_TIMEVALUE_LARGE,
                   static_cast<curl_off_t>(library_->curl_getdate(line.c_str() + kSince.size(), nullptr)));
    }
  }
  if (!IsFtp(transfer.Url)) transfer.Set(CURLOPT_HTTPHEADER, transfer.HeaderLines.List);
  if (own_server && !request.UserId.empty() && !request.Password.empty()) {
    if (IsFtp(transfer.Url) && (HasControlCharacter(request.UserId) || HasControlCharacter(request.Password)))
      throw std::runtime_error("Control character in the request");
    transfer.Set(CURLOPT_USERNAME, request.UserId.c_str());
    transfer.Set(CURLOPT_PASSWORD, request.Password.c_str());
  }

  // Without these the proxy settings of the environment would take effect.
  transfer.Set(CURLOPT_PROXY, "");
  transfer.Set(CURLOPT_NOPROXY, "");
  if (request.Proxy) {
    if (HasControlCharacter(request.Proxy->Host)) throw std::runtime_error("Control character in the proxy");
    transfer.Set(CURLOPT_PROXY, Sendable(request.Proxy->Host).c_str());
    transfer.Set(CURLOPT_PROXYPORT, static_cast<long>(request.Proxy->Port));
    transfer.Set(CURLOPT_HTTPPROXYTUNNEL, IsSecure(transfer.Url) ? 1L : 0L);
    transfer.Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  }
  transfer.Overrides.Clear();
  for (const THostOverride& override : overrides_)
    transfer.Overrides.Add(override.Host + "::" + override.Address + ":" + std::to_string(override.Port));
  transfer.Set(CURLOPT_CONNECT_TO, transfer.Overrides.List);
  if (request.TimeOut > 0) {
    transfer.Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request.TimeOut));
    transfer.Set(CURLOPT_SERVER_RESPONSE_TIMEOUT, static_cast<long>((request.TimeOut + 999) / 1000));
    transfer.Set(CURLOPT_LOW_SPEED_LIMIT, kLowSpeed);
    transfer.Set(CURLOPT_LOW_SPEED_TIME, static_cast<long>((request.TimeOut + 999) / 1000));
  }

  transfer.Set(CURLOPT_HEADERFUNCTION, &TTransfer::Take<&TTransfer::TakeHeader>);
  transfer.Set(CURLOPT_HEADERDATA, &transfer);
  transfer.Set(CURLOPT_WRITEFUNCTION, &TTransfer::Take<&TTransfer::TakeBody>);
  transfer.Set(CURLOPT_WRITEDATA, &transfer);
  transfer.Set(CURLOPT_PREREQFUNCTION, &TTransfer::TakeSent);
  transfer.Set(CURLOPT_PREREQDATA, &transfer);
}

void THttpsClient::Cancel(THandle handle) {
  transfers_.erase(handle);
}

void THttpsClient::Abort() {
  for (const auto& [handle, transfer] : transfers_) transfer->Aborted = true;
}

void THttpsClient::Turn() {
  if (in_turn_) throw ESockError("Busy with another operation");
  const TScopedValue in_turn(in_turn_, true);
  if (transfers_.empty()) return LetEventsThrough();

  int running = 0;
  library_->curl_multi_perform(library_->Multi, &running);
  ReportSent();
  ReportProgress();

  std::vector<std::pair<THandle, CURLcode>> ended;
  int left = 0;
  while (const CURLMsg* const message = library_->curl_multi_info_read(library_->Multi, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    const CURLcode code = message->data.result;
    TTransfer* transfer = nullptr;
    library_->curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
    ended.emplace_back(transfer->Handle, code);
  }
  // What is called for one request may cancel another.
  for (const auto& [handle, code] : ended) {
    if (const auto transfer = transfers_.find(handle); transfer != transfers_.end())
      Finish(*transfer->second, code);
  }

  // Before the hook: it may take long, and meanwhile bytes come that nobody has read yet.
  EndOverdue();

  if (ended.empty() && !transfers_.empty())
    library_->curl_multi_poll(library_->Multi, nullptr, 0, kWaitMilliseconds, nullptr);
  LetEventsThrough();
}

void THttpsClient::LetEventsThrough() {
  if (TMonotonic::now() - last_hook_ < kEventPeriod) return;
  Fire(event_hook_);
  last_hook_ = TMonotonic::now();
}

void THttpsClient::ReportSent() {
  std::vector<THandle> sent;
  for (const auto& [handle, transfer] : transfers_) {
    if (transfer->Sent && !std::exchange(transfer->SentReported, transfer->Sent)) sent.push_back(handle);
  }
  for (const THandle handle : sent) {
    const auto transfer = transfers_.find(handle);
    if (transfer == transfers_.end()) continue;
    try {
      Fire(transfer->second->Request.OnSent);
    } catch (...) {
      End(handle, std::current_exception());
    }
  }
}

void THttpsClient::ReportProgress() {
  std::int64_t received = 0, announced = 0;
  for (const auto& [handle, transfer] : transfers_) {
    received += transfer->Reply.Received;
    announced += transfer->Reply.Length.value_or(0);
  }
  if (std::exchange(reported_bytes_, received) != received) Fire(OnReceived, received, announced);
}

void THttpsClient::EndOverdue() {
  const auto now = TMonotonic::now();
  std::vector<std::pair<THandle, std::exception_ptr>> over;
  for (const auto& [handle, transfer] : transfers_) {
    if (transfer->Aborted) {
      over.emplace_back(handle, std::make_exception_ptr(EAbortError("Transfer aborted")));
    } else if (transfer->IsOverdue(now)) {
      over.emplace_back(handle, std::make_exception_ptr(transfer->NoAnswer()));
    }
  }
  for (const auto& [handle, failure] : over) End(handle, failure);
}

void THttpsClient::Finish(TTransfer& transfer, int library_code) {
  std::exception_ptr failure;
  try {
    if (GoesOn(transfer, library_code)) return;
  } catch (...) {
    failure = std::current_exception();
  }
  End(transfer.Handle, failure);
}

bool THttpsClient::GoesOn(TTransfer& transfer, int library_code) {
  const auto code = static_cast<CURLcode>(library_code);
  if (transfer.Failure) std::rethrow_exception(transfer.Failure);
  const std::string server = ServerOf(transfer.Url);
  if (code == CURLE_OPERATION_TIMEDOUT && transfer.Request.TimeOut > 0) {
    const ESockError why = transfer.NoAnswer();
    if (transfer.Sent) throw why;
    throw EConnectError(why.what(),
                        "cannot be reached: no answer within " + Seconds(transfer.Request.TimeOut));
  }
  if ((code == CURLE_HTTP2 || code == CURLE_HTTP2_STREAM) && !transfer.Http1) {
    http1_servers_.insert(server);
    // Of a body that has begun the sink has a part already.
    if (!transfer.HeaderComplete) return Restart(transfer);
  }
  if (!transfer.CompleteReply(code))
    ThrowFailure(code, transfer.ErrorText(code), server,
                 static_cast<int>(transfer.Info(CURLINFO_OS_ERRNO, 0L)));
  if (!IsRedirect(transfer.Reply)) return false;

  if (++transfer.Redirects > kMaxRedirects) throw ESockError("Too many redirects");
  const std::string next = Sendable(transfer.Info(CURLINFO_REDIRECT_URL, ""));
  if (!IsSecure(next) && (IsSecure(transfer.Url) || !StartsWithText(next, "http:")))
    throw ESockError(server + ": redirects to an address that is not secure");
  transfer.Url = next;
  return Restart(transfer);
}

bool THttpsClient::Restart(TTransfer& transfer) {
  transfer.Renew();
  Prepare(transfer);
  transfer.Go();
  return true;
}

void THttpsClient::End(THandle handle, std::exception_ptr failure) {
  const auto ended = transfers_.extract(handle);
  if (ended.empty()) return;
  TTransfer& transfer = *ended.mapped();
  transfer.Stop();
  if (transfer.Done) transfer.Done(transfer.Reply, std::move(failure));
}

THttpReply THttpsClient::Fetch(const THttpRequest& request, const TSink& sink) {
  if (in_turn_) throw ESockError("Busy with another operation");
  THttpReply reply;
  std::exception_ptr failure;
  bool over = false;
  const THandle handle =
      Start({request, {}, {}}, sink, [&](const THttpsReply& ended, std::exception_ptr why) {
        reply = ended;
        failure = std::move(why);
        over = true;
      });
  const TAtScopeEnd cancel([&] { Cancel(handle); });
  while (!over) Turn();
  if (failure) std::rethrow_exception(failure);
  return reply;
}

}  // namespace skyreel
