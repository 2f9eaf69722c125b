#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/descriptor.h"
#include "net/http_transport.h"
#include "transfer/fetch_plan.h"
#include "transfer/file_result.h"
#include "transfer/transfer_context.h"

// An https address, and a redirect to one, goes through the context's HTTPS client.
// Every request below goes out under the shared time-out and proxy, guarded by the watchdog. A wanted proxy
// whose port is not a number from 0 to 65535 is left out, and one status line a run says so.
// kept: once set, a proxy stays in effect for the program's run, even when it is not wanted any more.

namespace skyreel {

/// The proxy that the user wants, if any.
std::optional<THttpProxy> WantedProxy(TTransferContext& context);

/// What a server says about a file before it is fetched.
struct THttpFileInfo {
  int ReplyCode = 0;               ///< HTTP status, 0 when the reply had none
  bool Readable = false;           ///< every number and date in the header could be read
  std::int32_t ContentLength = 0;  ///< bytes; 0 when the server does not say
  TDateTime LastModified;          ///< zero when the server does not say
};

/// Asks NMHTTP's server for the header of `url`, before `file` is fetched from there. An error reply is an
/// answer, too. A plan notes the file and gets an empty answer. Throws std::exception when there is no
/// answer; ESockError when that is the network's fault.
THttpFileInfo AskHttpFileInfo(TTransferContext& context, const std::string& url, const TWantedFile& file);

/// A page that is kept in memory.
struct THttpPage {
  int ReplyCode = 0;        ///< HTTP status, 0 when there was no reply
  std::string Text;         ///< at most 64 MiB
  bool Incomplete = false;  ///< the reply is good but some of the page is missing
  std::string Reason;       ///< what is wrong with the reply, for a status line; empty for a good one
  bool NotAsked = false;    ///< for a plan, which notes the address
};

/// Fetches a page with progress display and `detail` in the second panel. Throws nothing for a failed
/// transfer.
THttpPage GetHttpPage(TTransferContext& context, TNMHTTP& client, const std::string& url,
                      const std::string& detail);

/// A body in a temporary file of the system's temporary folder. All streams of a running program share one
/// file name, so only one may hold a body at a time. Operations throw std::system_error.
class THttpStream {
 public:
  THttpStream() = default;
  ~THttpStream() { Clear(); }
  THttpStream(const THttpStream&) = delete;
  THttpStream& operator=(const THttpStream&) = delete;

  /// Makes the file unless it is there.
  void Open();
  void Write(std::string_view piece);
  /// Deletes the file.
  void Clear();
  std::int64_t Size() const { return size_; }
  /// Moves the file to `path` with `time` as its modification time; see MoveFileWhole. The stream is empty
  /// then.
  void MoveTo(const std::filesystem::path& path, TDateTime time);

 private:
  bool Create();

  std::filesystem::path path_;
  TDescriptor file_;
  std::int64_t size_ = 0;
};

/// Fetches `url` into `stream`, whose earlier content is dropped, with NMHTTP and progress display.
/// kept: an empty user name or password leaves the client's earlier one in force.
/// Returns the stream's size in bytes: 0 when the transfer failed in any way. The HTTP status is not looked
/// at: an error page counts as received. Throws nothing for a failed transfer.
std::int64_t GetHttpToStream(TTransferContext& context, const std::string& url, THttpStream& stream,
                             const std::string& user_name = "", const std::string& password = "");

/// How a file gets to its place.
enum class TDelivery {
  /// Through a THttpStream. Enough bytes are a whole file, whatever the HTTP status says. A short download
  /// deletes the local file.
  Stream,
  /// Straight into the file, whose folder is created. The transfer ledger notes it until it is whole. The
  /// HTTP status must be a good one. Only a whole file replaces a good older one; it arrives under the name
  /// with ".part" added (kPartSuffix), once more if that is a file of the user's.
  Direct,
};

/// One file to fetch over HTTP, and the rules by which it is judged.
struct THttpFileRequest {
  std::string Url;
  std::string GetLine;       ///< the status line while it is fetched; the outcome replaces it
  bool KeepGetLine = false;  ///< the outcome is a separate line
  std::string Name;          ///< begins the line with the outcome
  std::string Product;
  TDateTime SlotTime;
  std::filesystem::path LocalPath;
  TDelivery Delivery = TDelivery::Stream;
  std::int64_t GoodSize = 0;  ///< Direct: an older file of at least so many bytes, not noted as cut, is good
  std::int64_t CompleteSize = 0;  ///< a download of fewer bytes is incomplete
  bool Stamp = true;              ///< SlotTime, unless zero, becomes the file's modification time
  /// Called when the file is stored; may change the result's path, outcome and reason. A file that it
  /// throws for is NotDecoded.
  std::function<void(TFileResult&)> AfterSaving;
  std::string (*Line)(const TFileResult&) = PictureLine;  ///< writes the line with the outcome

  TWantedFile Wanted() const;
};

/// Fetches one file with NMHTTP, ends it at the display and returns what became of it. Incomplete: fewer
/// bytes came than a whole file has or the server announced (see ReadBodyHeader), a part (206), or a
/// compressed body. Refused: an HTML page, or with Direct an error reply. A body beyond the context's
/// LargestDownload is given up, and nothing of it is kept. For a plan, only notes the file, and returns
/// NotAsked. Throws nothing.
TFileResult FetchHttpFile(TTransferContext& context, const THttpFileRequest& request);

/// FetchHttpFile for `base_url` + `remote_name`: a local file of at least 1000 bytes is there already, a
/// download of at least 10000 bytes is whole. With `reencode` the saved picture goes through ConvertToJpeg
/// with `correction` as its gamma.
void GetHttpFile(TTransferContext& context, const std::string& base_url, const std::string& remote_name,
                 const std::filesystem::path& local_path, int correction, bool reencode, TDateTime file_time,
                 const std::string& product = "");

/// The URL without a user name and password in it, for a status line.
std::string UrlForDisplay(const std::string& url);

}  // namespace skyreel
