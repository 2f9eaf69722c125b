#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "base/date_time.h"

namespace skyreel {

/// The size of a regular file in bytes; -1 when there is none of that name or it cannot be looked at.
std::int64_t FileSizeOf(const std::filesystem::path& path);

/// Stamps the file's modification time with `time` (UTC). False, and no change, when that is not possible.
bool SetFileDateTime(const std::filesystem::path& path, TDateTime time);
bool SetFileDateTime(int descriptor, TDateTime time);
/// The file's modification time; zero when it cannot be read.
TDateTime GetFileDateTime(const std::filesystem::path& path);

/// Creates the folder with all missing parents. Throws std::filesystem::filesystem_error.
void ForceDirectories(const std::filesystem::path& folder);

/// A relative path written with backslashes ("goes-e\conus\", "2005\11\10\") as one of this platform,
/// the trailing separator kept.
std::filesystem::path PlatformPath(std::string_view backslash_path);

/// The date folder of a time, as files are filed: "2005/11/10/" (UTC).
std::filesystem::path DateFolder(TDateTime time);

/// The whole file. Throws std::system_error, or ERangeError when the file holds more than `limit` bytes.
std::string ReadWholeFile(const std::filesystem::path& path, std::int64_t limit = std::int64_t{1} << 31);

/// Locks an open file or folder for this process until the descriptor is closed, at once or not at all.
/// False, with errno set, when that is not possible; EWOULDBLOCK when somebody else holds it, or when the
/// path leads to another file by now, so that the lock would protect nothing.
bool TryLock(int descriptor, const std::filesystem::path& path);

/// Locks a file that this process has just made under `path`, against a RemoveAbandoned elsewhere. False when
/// that was faster and the file is gone: make another one.
bool LockNew(int descriptor, const std::filesystem::path& path);

/// What the temporary files and folders of this program are called; each X stands for a letter or a digit.
inline constexpr std::string_view kTemporaryName = "~skyreelXXXXXX";

/// Removes the files and folders named like `pattern` that a killed program left in `folder`. Whoever uses
/// one holds it by TryLock, so those in use stay.
void RemoveAbandoned(const std::filesystem::path& folder, std::string_view pattern = kTemporaryName);

/// Writes `data` under a temporary name beside `path`, then renames it, so that the file of that name is
/// at every moment either the old one or the whole new one. A symbolic link of that name is replaced, not
/// followed. The file gets `permissions` less the user's umask, before there is anything in it. Throws
/// std::system_error; the temporary file is gone and the old file untouched then.
void WriteFileWhole(const std::filesystem::path& path, std::string_view data, unsigned permissions = 0666);

/// Waits until the file's content is on the disk, where a power cut cannot take it. False, with errno set,
/// when it is not.
bool FlushToDisk(const std::filesystem::path& path);

/// Moves the finished file `from`, open for reading as `descriptor`, to the name `to`, with the permissions
/// of a new file. Renames it; where a rename is not possible (another file system, say) `to` becomes a whole
/// copy with the same modification time and `from` stays. At every moment `to` is either the old file or the
/// whole new one. Throws std::system_error.
void MoveFileWhole(int descriptor, const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace skyreel
