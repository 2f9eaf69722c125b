#include "transfer/http_to_file.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <fstream>
#include <system_error>
#include <utility>

#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"
#include "net/nm_http.h"
#include "transfer/delivery_scope.h"
#include "transfer/http_header.h"
#include "transfer/size_limit_scope.h"
#include "transfer/transfer_ledger.h"
#include "transfer/transfer_progress.h"
#include "transfer/watchdog_scope.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

bool IsGoodReply(int code) {
  return code >= 200 && code <= 298;
}

/// The status line's text behind the protocol ("404 Not Found"), fit for one of ours.
std::string StatusText(const TNMHTTP& client) {
  const std::string text(Trim(client.LastReply));
  const std::size_t blank = text.find(' ');
  if (blank == std::string::npos) return "the server answered without a status";
  return "the server answered " + WithoutControls(text.substr(blank + 1, 80));
}

bool IsPage(const fs::path& path) {
  char beginning[4096];
  std::ifstream file(path, std::ios::binary);
  file.read(beginning, sizeof beginning);
  return IsHtmlPage({beginning, static_cast<std::size_t>(file.gcount())});
}

/// One GET into `file`, which is whole from `least` bytes on when the reply announces no more.
THttpSaveResult FetchInto(TTransferContext& context, const std::string& url, const fs::path& file,
                          std::int64_t least) {
  TNMHTTP& client = context.NMHTTP;
  const TProgressScope progress(context.Display, url);
  const TDeliveryScope delivery(client, file.string());
  const TWatchdogScope watchdog(context.Run);
  const TSizeLimitScope limit(client);
  try {
    client.Get(url);
  } catch (const std::system_error& error) {
    return {THttpSaveOutcome::NotSaved, ReasonOf(error)};
  } catch (const std::exception& error) {
    if (client.ReceivedByteCount > kLargestDownload) return {THttpSaveOutcome::Refused, kTooLarge};
    return {THttpSaveOutcome::TimedOut, ReasonOf(error)};
  }
  if (!IsGoodReply(client.ReplyCode)) return {THttpSaveOutcome::Refused, StatusText(client)};
  if (client.ReceivedByteCount > 0 && IsPage(file))
    return {THttpSaveOutcome::Refused, "a page came in its place"};
  if (client.ReplyCode == kPartialContent) return {THttpSaveOutcome::Cut, "the server sent only a part"};
  least = std::max<std::int64_t>(least, client.TransferSize);
  if (client.ReceivedByteCount == 0 || client.ReceivedByteCount < least) {
    return {THttpSaveOutcome::Cut,
            std::to_string(client.ReceivedByteCount) + " of " + std::to_string(least) + " bytes came"};
  }
  return {THttpSaveOutcome::Whole, ""};
}

}  // namespace

THttpFileInfo AskHttpFileInfo(TTransferContext& context, const std::string& url) {
  TNMHTTP& client = context.NMHTTP;
  const TDeliveryScope delivery(client);
  client.Head(url);
  THttpFileInfo info;
  info.ReplyCode = client.ReplyCode;
  info.Readable = ParseHttpHeader(client.Header, info.ContentLength, info.LastModified);
  return info;
}

THttpPage GetHttpPage(TTransferContext& context, const std::string& url, const std::string& detail) {
  TNMHTTP& client = context.NMHTTP;
  const TProgressScope progress(context.Display, detail);
  const TDeliveryScope delivery(client);
  const TWatchdogScope watchdog(context.Run);
  try {
    client.Get(url);
  } catch (const std::exception& error) {
    return {0, "", ReasonOf(error)};
  }
  THttpPage page{client.ReplyCode, std::move(client.Body), ""};
  if (!IsGoodReply(client.ReplyCode)) {
    page.Reason = StatusText(client);
  } else if (client.ReceivedByteCount < client.TransferSize || client.ReplyCode == kPartialContent) {
    page.Reason = "incomplete";
  } else if (page.Text.empty()) {
    page.Reason = "the page is empty";
  }
  return page;
}

THttpSaveResult SaveHttpFile(TTransferContext& context, const std::string& url, const fs::path& path,
                             std::int64_t good_size, std::int64_t announced, TDateTime time) {
  const bool keeps_old = context.Ledger.Present(path) && FileSizeOf(path) >= good_size;
  fs::path file = path;
  if (keeps_old) file += ".part";
  try {
    ForceDirectories(path.parent_path());
  } catch (const fs::filesystem_error& error) {
    return {THttpSaveOutcome::NotSaved, ReasonOf(error)};
  }
  // The good file itself is not noted: whatever happens to this transfer, it stays one.
  if (!context.Ledger.Begin(file))
    return {THttpSaveOutcome::NotSaved, "another copy of the program is fetching it"};

  THttpSaveResult result =
      FetchInto(context, url, file, keeps_old ? std::max(announced, good_size) : announced);

  std::error_code error;
  if (result.Outcome == THttpSaveOutcome::Whole) {
    // Before the rename: the older file is given up only for one that neither a kill nor a power cut undoes.
    if (!time.IsZero()) SetFileDateTime(file, time);
    if (!FlushToDisk(file)) {
      error.assign(errno, std::generic_category());
    } else if (keeps_old) {
      fs::rename(file, path, error);
    }
    if (error) result = {THttpSaveOutcome::NotSaved, error.message()};
  }
  const bool whole = result.Outcome == THttpSaveOutcome::Whole;
  // An error page or what does not end is worth nothing, and neither is a cut file beside a good one.
  if (!whole && (keeps_old || result.Outcome == THttpSaveOutcome::Refused)) fs::remove(file, error);
  context.Ledger.End(file, whole || keeps_old ? TTransferEnd::Whole : TTransferEnd::Cut);
  return result;
}

}  // namespace skyreel
