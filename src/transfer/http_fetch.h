#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "transfer/transfer_context.h"

namespace skyreel {

/// Sets the client's time-out (milliseconds) and, when a proxy is wanted, proxy port and host.
/// kept: a port that is no number from 0 to 65535 leaves both proxy properties as they were, and so does a
/// proxy that is not wanted: one set earlier in the program's run stays in effect.
void ApplySharedHttpSettings(TNMHTTP& client, const TSharedSettings& shared);

/// Says once per run, in a status line of its own, that the wanted proxy cannot be set because its port is no
/// number, and turns the wish off in `context` for the rest of the run. To be called before a "Get: " line
/// is shown.
void ReportUnusableProxy(TTransferContext& context);

/// Fetches `url` into `stream` (its earlier content is dropped) with NMHTTP, by way of a temporary file in
/// the system's temporary folder, under the shared time-out, guarded by the watchdog, with progress display.
/// kept: an empty user name or password leaves the client's earlier one in force.
/// Returns the size of `stream` in bytes: 0 when the transfer failed in any way. The HTTP status is not
/// looked at: an error page counts as received. Throws nothing for a failed transfer.
std::int64_t GetHttpToStream(TTransferContext& context, const std::string& url, std::string& stream,
                             const std::string& user_name = "", const std::string& password = "");

/// One file to fetch over HTTP, and the rules by which it is judged.
struct THttpFileRequest {
  std::string Url;
  std::string GetName;     ///< shown while it is fetched, behind "Get: "
  std::string ResultName;  ///< begins the line with the outcome
  std::filesystem::path LocalPath;
  std::int64_t PresentSize = 0;   ///< a local file of at least so many bytes is there already
  std::int64_t CompleteSize = 0;  ///< a download of at least so many bytes is whole
  TDateTime FileTime;             ///< becomes the file's modification time
  /// Called with the saved file's path; returns the path that holds the image from then on. May throw.
  std::function<std::filesystem::path(const std::filesystem::path&)> AfterSaving;
};

enum class THttpFileOutcome { Present, Saved, NotSaved, Incomplete, TimedOut };

/// Fetches one file unless it is there already (no line then), and leaves one status line with the outcome:
/// ResultName and " - OK", " - missing or incomplete" (fewer bytes than complete or than announced, a
/// part (206), or a page instead of a picture; a short local file of an earlier run is deleted), " - timed
/// out" (nothing received), or " - not saved: " and the reason. The local file is at every moment either the
/// old one or a whole new one. Throws nothing.
THttpFileOutcome FetchHttpFile(TTransferContext& context, const THttpFileRequest& request);

/// FetchHttpFile for `base_url` + `remote_name`: a local file of at least 1000 bytes is there already, a
/// download of at least 10000 bytes is whole. With `reencode` the saved picture goes through ConvertToJpeg
/// with `correction` as its gamma.
THttpFileOutcome GetHttpFile(TTransferContext& context, const std::string& base_url,
                             const std::string& remote_name, const std::filesystem::path& local_path,
                             int correction, bool reencode, TDateTime file_time);

}  // namespace skyreel
