#include "transfer/folder_maker.h"

#include <unistd.h>

#include <cerrno>
#include <exception>
#include <system_error>

#include "base/exceptions.h"
#include "base/files.h"
#include "transfer/run_record.h"

namespace skyreel {

bool TFolderMaker::Make(const std::filesystem::path& folder) {
  const auto [entry, is_new] = made_.try_emplace(folder.native(), true);
  if (!is_new) return entry->second;
  try {
    if (!context_.Plan) ForceDirectories(folder);
    // Without this check every file of the folder would be fetched in vain.
    const std::filesystem::path existing = ExistingPart(folder) / ".";
    if (::access(existing.c_str(), W_OK | X_OK) != 0) throw std::system_error(errno, std::generic_category());
    if (!context_.Plan) RemoveAbandoned(folder);
  } catch (const std::exception& error) {
    entry->second = false;
    ReportFailure(context_, "Cannot file into " + folder.string() + ": " + ReasonOf(error));
  }
  return entry->second;
}

}  // namespace skyreel
