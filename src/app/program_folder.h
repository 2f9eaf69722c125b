#pragma once

#include <filesystem>

namespace skyreel {

/// The program's folder, where the report is written and the lists of wanted names are looked for: the
/// executable's own folder, or `data_folder` (created when missing) for a copy installed where no user may
/// write: under a system prefix such as /usr or /opt, or in a folder that is read-only for this user.
std::filesystem::path ProgramFolder(const std::filesystem::path& executable,
                                    const std::filesystem::path& data_folder);

}  // namespace skyreel
