#include "transfer/fetch_queue.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "base/exceptions.h"
#include "base/file_sink.h"
#include "base/scope.h"
#include "base/text.h"
#include "net/http_parse.h"
#include "transfer/http_fetch.h"
#include "transfer/http_header.h"

namespace skyreel {

namespace {

constexpr std::size_t kMaxHosts = 6;     ///< asked at a time
constexpr std::size_t kMaxStreams = 32;  ///< requests of a group at a time
constexpr int kMaxFailed = 2;            ///< files of one host
constexpr std::int64_t kMaxErrorPage = 1 << 20;
constexpr std::int64_t kMaxText = 64 << 20;
constexpr std::chrono::minutes kLongestWait(15);
constexpr std::chrono::milliseconds kStep(100);  ///< of a pause, between looks for a stop request

bool MayPass(int code) {
  constexpr std::array kCodes = {408, 425, 429, 500, 502, 503, 504};
  return std::ranges::find(kCodes, code) != kCodes.end() || (code >= 520 && code <= 524);
}

}  // namespace

struct TFetchQueue::TItem {
  explicit TItem(TFetchRequest request) : Request(std::move(request)) {}

  void Discard() {
    Answer.Text.clear();
    Answer.Bytes = 0;
    File.reset();
    Validator.clear();
  }

  /// Decides what becomes of the body.
  void TakeHeader(const THttpsReply& reply) {
    Keeps = reply.Code == 200 || reply.Code == kPartialContent;
    const std::string etag = HeaderValue(reply.Header, "ETag");
    if (reply.Code == 200) {
      Discard();
      if (!Request.File.empty() && !Request.HeaderOnly) File.emplace(Request.File.string());
      Answer.Length = reply.Length;
      Validator = etag.starts_with('"') ? etag : HeaderValue(reply.Header, "Last-Modified");
    } else if (reply.Code == kPartialContent) {
      const TContentRange range = ParseContentRange(HeaderValue(reply.Header, "Content-Range"));
      const bool same_size = !range.Total || !Answer.Length || *range.Total == *Answer.Length;
      const bool same_tag = etag.empty() || !Validator.starts_with('"') || etag == Validator;
      if (Validator.empty() || range.First != Answer.Bytes || !same_size || !same_tag) {
        Discard();
        throw ESockError("the server sent a part that was not asked for");
      }
    }
  }

  void TakeBody(std::string_view piece, std::int64_t limit) {
    const auto size = static_cast<std::int64_t>(piece.size());
    if (!Keeps) {
      ErrorPageBytes += size;
      if (ErrorPageBytes > kMaxErrorPage) throw ETooLarge("the server's error page is too large");
      return;
    }
    Answer.Bytes += size;
    if (Answer.Bytes > limit) throw ETooLarge("given up: larger than " + std::to_string(limit) + " bytes");
    if (File) {
      File->Write(piece);
    } else {
      Answer.Text += piece;
    }
  }

  TFetchRequest Request;
  TFetchAnswer Answer;
  THttpsClient::THandle Handle = 0;
  std::chrono::steady_clock::time_point Begin{};
  std::optional<TFileSink> File;
  std::string Validator;  ///< of the bytes that are kept; "": they cannot be resumed
  bool Keeps = false;     ///< the reply's body is the file
  std::int64_t ErrorPageBytes = 0;
};

struct TFetchQueue::THost {
  std::string Name;
  std::deque<std::unique_ptr<TItem>> Waiting;
  std::vector<std::unique_ptr<TItem>> Running;
  TTime Due{0};  ///< by the clock's Uptime: no request before it
  TTime Gap{0};
  bool Http2 = false;
  int Failed = 0;
  std::string LeftWhy;  ///< not empty: the host is left
  int LeftOut = 0;
};

TFetchQueue::TFetchQueue(TTransferContext& context) : context_(context) {}

TFetchQueue::~TFetchQueue() {
  for (const THost* host : order_)
    for (const auto& item : host->Running) context_.Https.Cancel(item->Handle);
}

void TFetchQueue::Add(TFetchRequest request) {
  std::string name;
  try {
    name = ServerOf(request.Url);
  } catch (const std::exception&) {
    // Start says what is wrong with the address.
  }
  const auto [found, added] = hosts_.try_emplace(name);
  THost& host = found->second;
  if (added) {
    host.Name = name;
    order_.push_back(&host);
  }
  host.Gap = std::max(host.Gap, request.Gap);
  host.Waiting.push_back(std::make_unique<TItem>(std::move(request)));
}

void TFetchQueue::Run() {
  const TAtScopeEnd watchdog([this] { context_.Run.StopWatchdog(); });
  const TAtScopeEnd panel([this] { ShowWait(""); });
  while (!IsEmpty()) {
    ShowWait(WaitText());
    if (context_.Run.StopRequested()) {
      StopAll();
      continue;
    }
    StartAll();
    if (std::ranges::any_of(order_, [](const THost* host) { return !host->Running.empty(); })) {
      context_.Https.Turn();
    } else {
      WaitForHost();
    }
  }
  for (THost* host : order_) {
    if (const int count = std::exchange(host->LeftOut, 0); count > 0) {
      context_.Display.AddStatusLine(host->Name + ": not asked for " + Count(count, "file") + ": " +
                                     host->LeftWhy);
    }
  }
}

bool TFetchQueue::IsEmpty() const {
  return std::ranges::all_of(
      order_, [](const THost* host) { return host->Waiting.empty() && host->Running.empty(); });
}

bool TFetchQueue::MayStart(const THost& host) const {
  if (host.Waiting.empty() || !host.LeftWhy.empty() || context_.Clock.Uptime() < host.Due) return false;
  if (host.Running.empty()) return true;
  const std::string& group = host.Waiting.front()->Request.Group;
  return host.Http2 && host.Gap == TTime(0) && !group.empty() &&
         group == host.Running.back()->Request.Group && host.Running.size() < kMaxStreams;
}

void TFetchQueue::StartAll() {
  auto busy = static_cast<std::size_t>(
      std::ranges::count_if(order_, [](const THost* host) { return !host->Running.empty(); }));
  // A request that cannot be sent ends at once, and its Done may add a host.
  const std::vector<THost*> hosts = order_;
  for (THost* host : hosts) {
    if (!host->LeftWhy.empty()) EndWaiting(*host, TFetchEnd::LeftOut, host->LeftWhy);
    const bool was_idle = host->Running.empty();
    if (was_idle && busy == kMaxHosts) continue;
    bool started = false;
    while (MayStart(*host)) {
      Start(*host);
      started = true;
    }
    if (was_idle && !host->Running.empty()) ++busy;
    if (started)
      std::rotate(std::ranges::find(order_, host), std::ranges::find(order_, host) + 1, order_.end());
  }
}

void TFetchQueue::Start(THost& host) {
  std::unique_ptr<TItem> owned = std::move(host.Waiting.front());
  host.Waiting.pop_front();
  TItem& item = *owned;
  const TFetchRequest& wanted = item.Request;
  if (wanted.IsWanted && !wanted.IsWanted()) return;

  THttpsRequest request;
  request.Url = wanted.Url;
  request.HeaderOnly = wanted.HeaderOnly;
  request.TimeOut = context_.Shared.TimeoutSeconds * 1000;
  request.Proxy = WantedProxy(context_);
  const auto add_line = [&](const char* name, const std::string& value) {
    if (!value.empty()) request.HeaderLines.push_back(name + value);
  };
  if (item.Validator.empty() || item.Answer.Bytes == 0 || StartsWithText(wanted.Url, "ftp:")) {
    item.Discard();
    add_line("If-None-Match: ", wanted.ETag);
    add_line("If-Modified-Since: ", wanted.LastModified);
  } else {
    add_line("Range: ", "bytes=" + std::to_string(item.Answer.Bytes) + "-");
    add_line("If-Range: ", item.Validator);
  }
  std::int64_t limit = wanted.Limit > 0 ? wanted.Limit : context_.LargestDownload;
  if (wanted.File.empty()) limit = std::min(limit, kMaxText);
  request.OnHeader = [&item](const THttpsReply& reply) { item.TakeHeader(reply); };

  ++item.Answer.Tries;
  item.Keeps = false;
  item.ErrorPageBytes = 0;
  item.Begin = std::chrono::steady_clock::now();
  host.Due = std::max(host.Due, context_.Clock.Uptime() + host.Gap);
  context_.Run.RestartWatchdog();
  try {
    item.Handle = context_.Https.Start(
        std::move(request), [&item, limit](std::string_view piece) { item.TakeBody(piece, limit); },
        [this, &host, &item](const THttpsReply& reply, const std::exception_ptr& failure) {
          ItemEnded(host, item, reply, failure);
        });
  } catch (const std::exception& error) {
    return End(std::move(owned), TFetchEnd::NotSent, ReasonOf(error));
  }
  host.Running.push_back(std::move(owned));
}

void TFetchQueue::ShowWait(const std::string& text) {
  if (text != shown_wait_) context_.Display.SetPanel(1, shown_wait_ = text);
}

std::string TFetchQueue::WaitText() const {
  for (const THost* host : order_) {
    if (host->Waiting.empty() || context_.Clock.Uptime() >= host->Due) continue;
    const TItem& next = *host->Waiting.front();
    if (next.Answer.Tries == 0) continue;
    return "waiting for " + host->Name + ", try " + std::to_string(next.Answer.Tries + 1) + " of " +
           std::to_string(next.Request.Tries);
  }
  return "";
}

void TFetchQueue::WaitForHost() {
  TTime due = TTime::max();
  for (const THost* host : order_) {
    if (!host->Waiting.empty()) due = std::min(due, host->Due);
  }
  const TTime left = due - context_.Clock.Uptime();
  if (due != TTime::max() && left > TTime(0)) context_.Clock.Sleep(std::min(left, kStep));
}

// --- The end of a request ------------------------------------------------------------------------------

void TFetchQueue::ItemEnded(THost& host, TItem& item, const THttpsReply& reply,
                            const std::exception_ptr& failure) {
  const auto place = std::ranges::find(host.Running, &item, &std::unique_ptr<TItem>::get);
  std::unique_ptr<TItem> owned = std::move(*place);
  host.Running.erase(place);

  TFetchAnswer& answer = item.Answer;
  answer.Seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - item.Begin).count();
  answer.Code = reply.Code;
  answer.Url = reply.Url;
  // A 416 says nothing about the file itself.
  if (reply.Code != 416) {
    answer.Header = reply.Header;
    answer.ETag = HeaderValue(reply.Header, "ETag");
    answer.LastModified = HeaderValue(reply.Header, "Last-Modified");
  }
  host.Http2 = reply.Http2;

  const TVerdict verdict = Judge(item, reply, failure);
  if (verdict.End != TFetchEnd::Failed) return End(std::move(owned), verdict.End, verdict.Reason);
  if (verdict.Wait > kLongestWait) {
    host.LeftWhy = "it asks for a pause of " + std::to_string(verdict.Wait->count()) + " s";
  } else if (verdict.Wait) {
    host.Due = std::max(host.Due, context_.Clock.Uptime() + *verdict.Wait);
    if (verdict.Wait >= std::chrono::minutes(1))
      context_.Display.AddStatusLine(host.Name + " asks for a pause of " +
                                     std::to_string(verdict.Wait->count()) + " s");
  }
  if (verdict.MayPass && answer.Tries < owned->Request.Tries && host.LeftWhy.empty()) {
    if (!verdict.Wait) host.Due = std::max(host.Due, context_.Clock.Uptime() + Pause());
    host.Waiting.push_front(std::move(owned));
    return;
  }
  if (++host.Failed == kMaxFailed && host.LeftWhy.empty())
    host.LeftWhy = std::to_string(kMaxFailed) + " files failed, the last one with \"" + verdict.Reason + '"';
  End(std::move(owned), verdict.End, verdict.Reason);
}

TFetchQueue::TVerdict TFetchQueue::Judge(TItem& item, const THttpsReply& reply,
                                         const std::exception_ptr& failure) const {
  TFetchAnswer& answer = item.Answer;
  try {
    // The code of a reply counts even if its page has no end.
    if (failure && item.ErrorPageBytes <= kMaxErrorPage) std::rethrow_exception(failure);
    if (MayPass(reply.Code)) {
      const bool says_when = reply.Code == 429 || reply.Code == 503;
      return {TFetchEnd::Failed, "the server answered " + WithoutControls(reply.Status), true,
              ParseRetryAfter(says_when ? HeaderValue(reply.Header, "Retry-After") : "",
                              context_.Clock.UtcNow())};
    }
    if (reply.Code == 416 && answer.Bytes > 0) {
      const TContentRange range = ParseContentRange(HeaderValue(reply.Header, "Content-Range"));
      if (range.Total != answer.Bytes) {
        item.Discard();
        return {TFetchEnd::Failed, "the file has changed meanwhile", true};
      }
      answer.Code = 200;
    } else if (item.Keeps) {
      if (!item.Request.HeaderOnly && answer.Bytes < answer.Length.value_or(0))
        return {TFetchEnd::Failed, "Connection closed inside the reply", true};
      const TBodyHeader body = ReadBodyHeader(reply.Header);
      if (body.Encoded) return {TFetchEnd::Failed, "the server compressed it"};
      if (reply.Code == 200 && !body.Length)
        return {TFetchEnd::Failed, "the server announced no clear length"};
      answer.Code = 200;
    }
    if (answer.Code == kUnauthorized) answer.ServerProblem = "refused the user name or the password";
    if (item.File) item.File->Close();
    return {TFetchEnd::Answered};
  } catch (const ETooLarge& error) {
    answer.TooLarge = true;
    return {TFetchEnd::NotKept, error.what()};
  } catch (const std::system_error& error) {
    return {TFetchEnd::NotKept, ReasonOf(error)};
  } catch (const EAbortError& error) {
    return {TFetchEnd::Failed, error.what()};
  } catch (const EConnectError& error) {
    answer.ServerProblem = error.Explanation;
    return {TFetchEnd::Failed, error.what(), dynamic_cast<const ECertificateError*>(&error) == nullptr};
  } catch (const ESockError& error) {
    return {TFetchEnd::Failed, error.what(), true};
  } catch (const std::exception& error) {
    return {TFetchEnd::NotSent, ReasonOf(error)};
  }
}

TFetchQueue::TTime TFetchQueue::Pause() {
  return TTime(std::uniform_int_distribution(22'500, 37'500)(random_));
}

void TFetchQueue::End(std::unique_ptr<TItem> item, TFetchEnd end, const std::string& reason) {
  item->File.reset();
  if (end != TFetchEnd::Answered) item->Answer.Text.clear();
  item->Answer.End = end;
  item->Answer.Reason = reason;
  if (item->Request.Done) item->Request.Done(item->Answer);
}

void TFetchQueue::EndWaiting(THost& host, TFetchEnd end, const std::string& reason) {
  // A Done may add requests: they end in the next round.
  for (auto& item : std::exchange(host.Waiting, {})) {
    if (end == TFetchEnd::LeftOut) ++host.LeftOut;
    End(std::move(item), end, reason);
  }
}

void TFetchQueue::StopAll() {
  const std::vector<THost*> hosts = order_;
  for (THost* host : hosts) {
    for (auto& item : std::exchange(host->Running, {})) {
      context_.Https.Cancel(item->Handle);
      End(std::move(item), TFetchEnd::Stopped, "stopped");
    }
    EndWaiting(*host, TFetchEnd::Stopped, "stopped");
  }
}

}  // namespace skyreel
