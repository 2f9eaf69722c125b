#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/date_time.h"
#include "sources/source_table.h"

namespace skyreel::demo {

/// What goes wrong on purpose, so that a demo shows every outcome.
enum class TFault {
  None,
  Cut,    ///< the connection closes in the middle of the file
  Stall,  ///< the server says nothing after the request
};

/// A file that the archive has.
struct TServedFile {
  std::shared_ptr<const std::string> Content;
  std::string Type;    ///< MIME type
  TDateTime Modified;  ///< UTC
  TFault Fault = TFault::None;
  bool NeedsLogin = false;  ///< only those who give a user name and a password get it
};

/// Makes up every file that the sources' servers offered in the last hundred days, when a client asks for it.
/// Pictures of 03:00 to 03:59 are missing, those of 09:00 to 09:59 are cut, and the infra-red
/// JPEG pictures of 21:00 to 21:59 never arrive. Several threads may use it; it makes one picture at a time
/// and keeps the last ones.
class TDemoArchive {
 public:
  using TNow = std::function<TDateTime()>;
  explicit TDemoArchive(TNow now) : now_(std::move(now)) {}

  /// The file at a path as a client asks for it ("/goeseast/conus/vis/0601011745G13I01.tiff", with its
  /// query). Returns nullopt when the archive has no such file.
  std::optional<TServedFile> Find(const std::string& path);

  /// The names in a folder of the FTP servers, of the last four days; nullopt when there is no such folder.
  std::optional<std::vector<std::string>> FolderNames(std::string_view folder);

 private:
  struct TEntry {
    const TSource* Source;
    TOffer Offer;
  };
  const std::vector<TEntry>& Day(TDateTime day);
  /// The entries of the last `days` days up to now, the oldest day first, for which `wanted` holds.
  std::vector<TEntry> Recent(int days, const std::function<bool(const TEntry&)>& wanted);
  std::optional<TEntry> FindEntry(const std::string& path);
  std::optional<TServedFile> FindListing(const std::string& path);

  TNow now_;
  std::mutex making_;
  std::map<TDateTime, std::vector<TEntry>> days_;
  std::map<std::string, TServedFile, std::less<>> kept_;
  std::list<std::string> kept_order_;  ///< the oldest first
  std::size_t kept_bytes_ = 0;
};

}  // namespace skyreel::demo
