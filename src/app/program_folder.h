#pragma once

#include <filesystem>
#include <string>

namespace skyreel {

inline constexpr const char* kReportName = "SkyreelReport.txt";
inline constexpr const char* kLedgerName = "SkyreelTransfers.txt";
inline constexpr const char* kJournalName = "Journal.sqlite";

/// The program's folder, for the report and the lists of wanted names. It is the executable's own folder; but
/// `data_folder` (created if missing) if that one is under a system prefix (/usr, /opt) or this user cannot
/// write there.
std::filesystem::path ProgramFolder(const std::filesystem::path& executable,
                                    const std::filesystem::path& data_folder);

/// The user's folder for what this program remembers from run to run; it may not exist yet.
std::filesystem::path StateFolder();

/// A path that the user typed: "~/" at its beginning is the home folder.
std::string FromHome(const std::string& path, const std::filesystem::path& home);

}  // namespace skyreel
