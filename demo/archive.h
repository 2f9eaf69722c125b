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

namespace skyreel::demo {

/// What goes wrong on purpose, so that a demo shows every outcome.
enum class TFault {
  None,
  Cut,    ///< the connection closes in the middle of the file
  Stall,  ///< nothing comes after the request
};

/// A file that the archive has.
struct TServedFile {
  std::shared_ptr<const std::string> Content;
  std::string Type;    ///< MIME type
  TDateTime Modified;  ///< UTC
  TFault Fault = TFault::None;
};

/// Every file that Skyreel's sources ask for, made up when it is asked for: a path that names a plausible
/// picture time of the last hundred days gets a picture of that time. Pictures of 03:00 to 03:59 are missing,
/// those of 09:00 to 09:59 are cut, and the EUMETSAT archive's infra-red ones of 21:00 to 21:59 never arrive.
/// May be used by several threads; one picture is made at a time, and the last ones are kept.
class TDemoArchive {
 public:
  using TNow = std::function<TDateTime()>;
  explicit TDemoArchive(TNow now) : now_(std::move(now)) {}

  /// The file of a path as a server is asked for it ("/goeseast/conus/vis/0601011745G13I01.tiff", a query
  /// included); nullopt when there is none.
  std::optional<TServedFile> Find(const std::string& path);

  /// The names in a folder of the FTP servers, of the last two days; nullopt when there is no such folder.
  std::optional<std::vector<std::string>> FolderNames(std::string_view folder) const;

  /// Whether a path is for those alone who give a user name and a password.
  static bool NeedsLogin(std::string_view path);

 private:
  TNow now_;
  std::mutex making_;
  std::map<std::string, TServedFile, std::less<>> kept_;
  std::list<std::string> kept_order_;  ///< the oldest first
  std::size_t kept_bytes_ = 0;
};

}  // namespace skyreel::demo
