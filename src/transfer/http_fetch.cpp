#include "transfer/http_fetch.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <optional>
#include <random>
#include <system_error>
#include <utility>

#include "base/exceptions.h"
#include "base/file_sink.h"
#include "base/files.h"
#include "base/scope.h"
#include "base/text.h"
#include "net/http_url.h"
#include "net/https_client.h"
#include "net/nm_http.h"
#include "transfer/http_header.h"
#include "transfer/jpeg_reencode.h"
#include "transfer/run_record.h"
#include "transfer/transfer_ledger.h"
#include "transfer/transfer_progress.h"

namespace skyreel {

namespace fs = std::filesystem;

std::optional<THttpProxy> WantedProxy(TTransferContext& context) {
  TSharedSettings& shared = context.Shared;
  if (!shared.UseProxy) return std::nullopt;
  std::string_view text = Trim(shared.ProxyPort);
  if (text.starts_with('+')) text.remove_prefix(1);
  if (const auto port = ParseNumber<std::uint16_t>(text)) return THttpProxy{shared.ProxyServer, *port};
  shared.UseProxy = false;
  context.Display.AddStatusLine("Proxy not set: port \"" + shared.ProxyPort + "\" is not a port number");
  return std::nullopt;
}

namespace {

constexpr std::int64_t kLargestPage = 64 << 20;
constexpr int kProxyUnauthorized = 407;

// --- One request ---------------------------------------------------------------------------------------

bool IsSecure(const std::string& url) {
  return StartsWithText(url, "https://");
}

/// Sends with `client`, or with the HTTPS client where the address or a redirect is a secure one. The request
/// then has the address that was asked last.
THttpReply Send(TTransferContext& context, TNMHTTP& client, THttpRequest& request,
                const THttpTransport::TSink& sink) {
  const bool secure = IsSecure(request.Url);
  if (!secure) {
    const TScopedValue stop_at_secure(
        client.OnRedirect, [](TNMHTTP& sender, bool& handled) { handled = IsSecure(sender.Location()); });
    const THttpReply reply = client.Fetch(request, sink);
    if (reply.Code < 300 || reply.Code > 398 || !IsSecure(client.Location())) return reply;
  }
  if (request.UserId.empty()) request.UserId = client.HeaderInfo.UserId;
  if (request.Password.empty()) request.Password = client.HeaderInfo.Password;
  if (!secure) {
    // A password is for the server that was asked first.
    if (ServerOf(client.Location()) != ServerOf("http://" + ParseHttpUrl(request.Url).Host)) {
      request.UserId.clear();
      request.Password.clear();
    }
    request.Url = client.Location();
  }
  return context.Https.Fetch(request, sink);
}

/// Sends under the shared settings, and reports a server that cannot be reached or wants another login.
THttpReply Ask(TTransferContext& context, TNMHTTP& client, THttpRequest request,
               const THttpTransport::TSink& sink) {
  request.TimeOut = context.Shared.TimeoutSeconds * 1000;
  request.Proxy = WantedProxy(context);
  const auto watchdog = Guard(context.Run);
  try {
    THttpReply reply = Send(context, client, request, sink);
    if (reply.Code == kUnauthorized)
      ReportServerProblem(context, request.Url, "refused the user name or the password");
    if (reply.Code == kProxyUnauthorized)
      ReportServerProblem(context, request.Url, "cannot be asked: the proxy wants a login");
    return reply;
  } catch (const EConnectError& error) {
    ReportServerProblem(context, request.Url,
                        (request.Proxy ? "cannot be asked: the proxy " : "") + error.Explanation);
    throw;
  }
}

/// How a GET ended.
struct TReceived {
  TFileOutcome Outcome = TFileOutcome::Saved;  ///< Saved: a reply came
  std::string Reason;
  THttpReply Reply;
  std::int64_t Bytes = 0;
  std::string Beginning;  ///< of the body, as much as tells a page from a picture
  bool TooLarge = false;
  TFileState State = TFileState::Failed;  ///< see TFileResult
};

/// One GET, the body to `sink`. Throws nothing.
TReceived Receive(TTransferContext& context, TNMHTTP& client, THttpRequest request, std::int64_t limit,
                  const THttpTransport::TSink& sink) {
  constexpr std::size_t kBeginning = 4096;
  TReceived received;
  const auto fail = [&](TFileOutcome outcome, const std::exception& error) {
    received.Outcome = outcome;
    received.Reason = ReasonOf(error);
  };
  try {
    received.Reply = Ask(context, client, std::move(request), [&](std::string_view piece) {
      received.Bytes += static_cast<std::int64_t>(piece.size());
      if (received.Bytes > limit) throw ETooLarge("larger than the limit");
      received.Beginning += piece.substr(0, kBeginning - std::min(kBeginning, received.Beginning.size()));
      sink(piece);
    });
  } catch (const ETooLarge&) {
    received.TooLarge = true;
    received.Outcome = TFileOutcome::NotSaved;
    // The client itself gives up the page of a redirect.
    received.Reason = TooLargeReason(received.Bytes > limit ? limit : std::int64_t{TPowersock::kMaxKept});
  } catch (const ESockError& error) {
    fail(TFileOutcome::TimedOut, error);
  } catch (const std::system_error& error) {
    fail(TFileOutcome::NotSaved, error);
  } catch (const std::exception& error) {
    fail(TFileOutcome::NotAsked, error);
  }
  return received;
}

bool IsGoodReply(int code) {
  return code >= 200 && code <= 298;
}

std::string StatusText(const THttpReply& reply) {
  if (reply.Status.empty()) return "the server answered without a status";
  return "the server answered " + reply.Status.substr(0, 80);
}

/// Why a body that should have `least` bytes is not whole; empty when it is.
std::string WhyNotWhole(const TReceived& received, std::int64_t least) {
  if (received.Reply.Code == kPartialContent) return "the server sent only a part";
  const TBodyHeader body = ReadBodyHeader(received.Reply.Header);
  if (body.Encoded) return "the server compressed it";
  if (!body.Length) return "the server announced no clear length";
  least = std::max(least, *body.Length);
  if (received.Bytes >= least) return "";
  return "received " + std::to_string(received.Bytes) + " of " + std::to_string(least) + " bytes";
}

/// Judges what came when a whole file has `least` bytes or more.
void Judge(TReceived& received, std::int64_t least, bool by_status) {
  if (received.Outcome != TFileOutcome::Saved) return;
  const THttpReply& reply = received.Reply;
  const auto fail = [&](TFileOutcome outcome, const std::string& reason) {
    received.Outcome = outcome;
    received.Reason = reason;
  };
  if (by_status && !IsGoodReply(reply.Code)) return fail(TFileOutcome::Refused, StatusText(reply));
  if (IsHtmlPage(received.Beginning)) return fail(TFileOutcome::Refused, "received an HTML page");
  const std::string why = WhyNotWhole(received, std::max<std::int64_t>(least, 1));
  if (!why.empty()) fail(TFileOutcome::Incomplete, why);
}

// --- Stream delivery -----------------------------------------------------------------------------------

TReceived ReceiveToStream(TTransferContext& context, const std::string& url, THttpStream& stream,
                          const std::string& user_name, const std::string& password) {
  context.Display.SetBusyCursor(true);
  const TAtScopeEnd cursor([&] { context.Display.SetBusyCursor(false); });
  const auto progress = ShowTransfer(context.Display, url);
  stream.Clear();
  THttpRequest request;
  request.Url = url;
  request.UserId = user_name;
  request.Password = password;
  // The server does its part while the file is made.
  request.OnSent = [&] { stream.Open(); };
  TReceived received = Receive(context, context.NMHTTP, std::move(request), context.LargestDownload,
                               [&](std::string_view piece) { stream.Write(piece); });
  if (received.Outcome != TFileOutcome::Saved) stream.Clear();
  return received;
}

/// Deletes a file, and nothing but a file.
void DeleteFile(const fs::path& path) {
  std::error_code ignored;
  if (FileSizeOf(path) >= 0) fs::remove(path, ignored);
}

TReceived FetchByStream(TTransferContext& context, const THttpFileRequest& request) {
  THttpStream stream;
  TReceived received = ReceiveToStream(context, request.Url, stream, "", "");
  if (received.Outcome == TFileOutcome::Saved && received.Bytes == 0) {
    received.Outcome = TFileOutcome::TimedOut;
    received.Reason = "received nothing";
    return received;
  }
  Judge(received, request.CompleteSize, false);
  if (received.Outcome == TFileOutcome::Incomplete || received.Outcome == TFileOutcome::Refused)
    DeleteFile(request.LocalPath);
  if (received.Outcome != TFileOutcome::Saved) return received;
  try {
    // Stamped before it has its final name: later runs do not look at the time of a file that is there.
    stream.MoveTo(request.LocalPath, request.SlotTime);
  } catch (const std::exception& error) {
    received.Outcome = TFileOutcome::NotSaved;
    received.Reason = ReasonOf(error);
  }
  return received;
}

// --- Direct delivery -----------------------------------------------------------------------------------

TReceived ReceiveToFile(TTransferContext& context, const std::string& url, const fs::path& path,
                        std::int64_t least) {
  const auto progress = ShowTransfer(context.Display, UrlForDisplay(url));
  std::optional<TFileSink> file;
  THttpRequest request;
  request.Url = url;
  // A request that fails before the first byte leaves an older file alone.
  TReceived received = Receive(context, context.NMHTTP, std::move(request), context.LargestDownload,
                               [&](std::string_view piece) {
                                 if (!file) file.emplace(path.string());
                                 file->Write(piece);
                               });
  Judge(received, least, true);
  try {
    if (file && received.Outcome == TFileOutcome::Saved) file->Close();
  } catch (const std::system_error& error) {
    received.Outcome = TFileOutcome::NotSaved;
    received.Reason = ReasonOf(error);
  }
  return received;
}

/// A temporary name beside `path`, but not that of a file that the user put there.
fs::path PartName(TTransferContext& context, fs::path path) {
  std::error_code ignored;
  do {
    path += kPartSuffix;
  } while (exists(fs::symlink_status(path, ignored)) && !context.Ledger.IsNoted(path));
  return path;
}

TReceived FetchDirect(TTransferContext& context, const THttpFileRequest& request) {
  const fs::path& path = request.LocalPath;
  const bool keeps_old = context.Ledger.Present(path) && FileSizeOf(path) >= request.GoodSize;
  const fs::path file = keeps_old ? PartName(context, path) : path;
  TReceived received;
  received.Outcome = TFileOutcome::NotSaved;
  try {
    ForceDirectories(path.parent_path());
  } catch (const fs::filesystem_error& error) {
    received.Reason = ReasonOf(error);
    return received;
  }
  // The good file itself is not noted: it stays good whatever happens to this transfer.
  if (!context.Ledger.Begin(file)) {
    received.Reason = "another copy of the program is fetching it";
    received.State = TFileState::NotYet;
    return received;
  }

  const std::int64_t least =
      keeps_old ? std::max(request.CompleteSize, request.GoodSize) : request.CompleteSize;
  received = ReceiveToFile(context, request.Url, file, least);

  std::error_code error;
  if (received.Outcome == TFileOutcome::Saved) {
    // The older file goes only when neither a kill nor a power cut can undo the new one.
    if (request.Stamp && !request.SlotTime.IsZero()) SetFileDateTime(file, request.SlotTime);
    if (!FlushToDisk(file)) {
      error.assign(errno, std::generic_category());
    } else if (keeps_old) {
      fs::rename(file, path, error);
    }
    if (error) {
      received.Outcome = TFileOutcome::NotSaved;
      received.Reason = error.message();
    }
  }
  const bool whole = received.Outcome == TFileOutcome::Saved;
  // An error page, an endless body and a cut file next to a good one are worth nothing.
  if (!whole && (keeps_old || received.TooLarge || received.Outcome == TFileOutcome::Refused))
    fs::remove(file, error);
  // A temporary file that could not be removed keeps its note.
  const bool done = whole || (keeps_old && FileSizeOf(file) < 0);
  context.Ledger.End(file, done ? TTransferEnd::Whole : TTransferEnd::Cut);
  return received;
}

}  // namespace

// --- The stream ----------------------------------------------------------------------------------------

void THttpStream::Open() {
  if (file_.IsOpen()) return;
  // Random, so that nobody can have put a file of that name there before.
  static const std::uint32_t identity = [] {
    RemoveAbandoned(fs::temp_directory_path(), "~Skyreel~XXXXXXXX.~tmp");
    return std::random_device{}();
  }();
  char name[32];
  std::snprintf(name, sizeof name, "~Skyreel~%08X.~tmp", identity);
  path_ = fs::temp_directory_path() / name;
  std::error_code ignored;
  do {
    if (!Create()) {
      fs::remove(path_, ignored);
      if (!Create()) ThrowErrno(path_.string());
    }
  } while (!LockNew(file_.Get(), path_));
}

/// Others may write in that folder. So the file must be new, our own, no link, and readable by us alone.
bool THttpStream::Create() {
  constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  file_ = TDescriptor(::open(path_.c_str(), kFlags, S_IRUSR | S_IWUSR));
  return file_.IsOpen();
}

void THttpStream::Write(std::string_view piece) {
  Open();
  if (!WriteAll(file_.Get(), piece)) ThrowErrno(path_.string());
  size_ += static_cast<std::int64_t>(piece.size());
}

void THttpStream::Clear() {
  std::error_code ignored;
  if (file_.IsOpen()) fs::remove(path_, ignored);
  file_.Close();
  size_ = 0;
}

void THttpStream::MoveTo(const fs::path& path, TDateTime time) {
  SetFileDateTime(file_.Get(), time);
  MoveFileWhole(file_.Get(), path_, path);
  Clear();
}

// --- The operations ------------------------------------------------------------------------------------

THttpFileInfo AskHttpFileInfo(TTransferContext& context, const std::string& url, const TWantedFile& file) {
  if (context.Plan) {
    const bool is_new = !file.Path.empty() && FileSizeOf(file.Path) < 0;
    context.Plan->Files.push_back({file, is_new ? TFetchPlan::TState::Wanted : TFetchPlan::TState::IfNew});
    return {};
  }
  THttpRequest request;
  request.Url = url;
  request.HeaderOnly = true;
  const THttpReply reply = Ask(context, context.NMHTTP, std::move(request), {});
  THttpFileInfo info;
  info.ReplyCode = reply.Code;
  info.Readable = ParseHttpHeader(reply.Header, info.ContentLength, info.LastModified);
  return info;
}

THttpPage GetHttpPage(TTransferContext& context, TNMHTTP& client, const std::string& url,
                      const std::string& detail) {
  THttpPage page;
  if (context.Plan) {
    context.Plan->Lists.push_back(UrlForDisplay(url));
    page.NotAsked = true;
    return page;
  }
  const auto progress = ShowTransfer(context.Display, detail);
  THttpRequest request;
  request.Url = url;
  const TReceived received = Receive(context, client, std::move(request), kLargestPage,
                                     [&](std::string_view piece) { page.Text += piece; });
  if (received.Outcome != TFileOutcome::Saved) {
    page.Text.clear();
    page.Reason = received.Reason;
    return page;
  }
  page.ReplyCode = received.Reply.Code;
  if (!IsGoodReply(page.ReplyCode)) {
    page.Reason = StatusText(received.Reply);
  } else if (!WhyNotWhole(received, 0).empty()) {
    page.Incomplete = true;
    page.Reason = "incomplete";
  } else if (page.Text.empty()) {
    page.Reason = "the page is empty";
  }
  return page;
}

std::int64_t GetHttpToStream(TTransferContext& context, const std::string& url, THttpStream& stream,
                             const std::string& user_name, const std::string& password) {
  ReceiveToStream(context, url, stream, user_name, password);
  return stream.Size();
}

TWantedFile THttpFileRequest::Wanted() const {
  return {Product, SlotTime, LocalPath, UrlForDisplay(Url)};
}

TFileResult FetchHttpFile(TTransferContext& context, const THttpFileRequest& request) {
  TFileResult result;
  result.Source = context.Source;
  result.Product = request.Product;
  result.SlotTime = request.SlotTime;
  result.Name = request.Name;
  result.Address = UrlForDisplay(request.Url);
  result.Path = request.LocalPath;
  if (context.Plan) {
    context.Plan->Files.push_back({request.Wanted(), TFetchPlan::TState::Wanted});
    result.Outcome = TFileOutcome::NotAsked;
    return result;
  }
  if (request.KeepGetLine) {
    context.Display.AddStatusLine(request.GetLine);
  } else {
    context.Display.BeginFile(request.GetLine);
  }

  const auto start = std::chrono::steady_clock::now();
  TReceived received =
      request.Delivery == TDelivery::Stream ? FetchByStream(context, request) : FetchDirect(context, request);
  result.Seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  result.Bytes = received.Bytes;
  result.Outcome = received.Outcome;
  result.State = IsAbsent(received.Reply.Code) ? TFileState::Missing : received.State;
  result.Reason = std::move(received.Reason);
  if (result.Outcome == TFileOutcome::Saved && request.AfterSaving) {
    try {
      request.AfterSaving(result);
    } catch (const std::exception& error) {
      result.Outcome = TFileOutcome::NotDecoded;
      result.Reason = ReasonOf(error);
    }
  }
  EndFile(context, result, request.Line(result));
  return result;
}

void GetHttpFile(TTransferContext& context, const std::string& base_url, const std::string& remote_name,
                 const fs::path& local_path, int correction, bool reencode, TDateTime file_time,
                 const std::string& product) {
  THttpFileRequest request;
  request.Url = base_url + remote_name;
  request.GetLine = "Get: " + remote_name;
  request.Name = remote_name;
  request.Product = product;
  request.SlotTime = file_time;
  request.LocalPath = local_path;
  request.CompleteSize = 10000;
  if (FileSizeOf(local_path) >= 1000) return CountPresent(context, request.Wanted());
  if (reencode) {
    request.AfterSaving = [correction](TFileResult& result) {
      ConvertToJpeg(fs::path(result.Path), result.Path, static_cast<float>(correction));
      SetFileDateTime(result.Path, result.SlotTime);
    };
  }
  FetchHttpFile(context, request);
}

std::string UrlForDisplay(const std::string& url) {
  const std::size_t begin = url.find("//") == std::string::npos ? 0 : url.find("//") + 2;
  const std::size_t at = url.substr(0, url.find('/', begin)).rfind('@');
  return at == std::string::npos || at < begin ? url : url.substr(0, begin) + "..." + url.substr(at);
}

}  // namespace skyreel
