#pragma once

#include <array>

namespace skyreel {

/// Where a page's files are stored unless the user says otherwise.
struct TDefaultPath {
  const char* Edit;    ///< object name of the page's output-path edit
  const char* Folder;  ///< name of the folder, below "C:\" on Windows and below ~/Skyreel elsewhere
};

/// One row per page, in the order of the tabs. GOES and GSFC share a folder.
inline constexpr std::array<TDefaultPath, 12> kDefaultPaths = {{
    {"EditOutputPathBracknell", "Bracknell"},
    {"EditOutputPathEuDA", "EumetsatArchiveDirect"},
    {"EditOutputPathDundeeImg", "Dundee"},
    {"EditOutputPathEuArchive", "EumetsatArchive"},
    {"EditOutputPathGMS5", "GMS5"},
    {"EditOutputPathGsfc", "GOES"},
    {"EditOutputPathGsfc2", "GOES"},
    {"EditOutputPathMSFC", "MSFC"},
    {"EditOutputPathNotts", "Nottingham"},
    {"EditOutputPathDundeePdus", "PDUS"},
    {"EditOutputPathRss", "EumetsatRSS"},
    {"EditOutputPathUlm", "Ulm"},
}};

}  // namespace skyreel
