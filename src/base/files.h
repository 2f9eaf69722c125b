#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "base/date_time.h"
#include "base/descriptor.h"

namespace skyreel {

/// The size of a regular file in bytes; -1 when there is no such file or it cannot be accessed.
std::int64_t FileSizeOf(const std::filesystem::path& path);

/// Sets the file's modification time (UTC). False when that fails.
bool SetFileDateTime(const std::filesystem::path& path, TDateTime time);
bool SetFileDateTime(int descriptor, TDateTime time);
/// The file's modification time; zero when it cannot be read.
TDateTime GetFileDateTime(const std::filesystem::path& path);

/// Creates the folder and its missing parents. Throws std::filesystem::filesystem_error.
void ForceDirectories(const std::filesystem::path& folder);

/// The path itself if it exists, or the nearest parent that does.
std::filesystem::path ExistingPart(std::filesystem::path path);

/// A relative path written with backslashes ("goes-e\conus\") as a path of this platform. The trailing
/// separator stays.
std::filesystem::path PlatformPath(std::string_view backslash_path);

/// The date folder of a time: "2005/11/10/" (UTC).
std::filesystem::path DateFolder(TDateTime time);

/// The whole content of a regular file. Throws std::system_error, or ERangeError when it is larger than
/// `limit` bytes.
std::string ReadWholeFile(const std::filesystem::path& path, std::int64_t limit = std::int64_t{1} << 31);
/// The same into the memory that `room` returns for the file's size. Returns the number of bytes read.
std::size_t ReadWholeFile(const std::filesystem::path& path, std::int64_t limit,
                          const std::function<char*(std::size_t size)>& room);
/// Opens a file for reading. Throws std::system_error. Never waits for the writer of a pipe.
TDescriptor OpenToRead(const std::filesystem::path& path);

/// Locks an open file or folder until the descriptor is closed; does not wait. False, with errno set, when
/// that fails; errno is EWOULDBLOCK when another process holds the lock, or `path` is now another file.
bool TryLock(int descriptor, const std::filesystem::path& path);

/// Locks a file that this process has just made as `path`. False when a RemoveAbandoned of another process
/// has already removed it: make a new one.
bool LockNew(int descriptor, const std::filesystem::path& path);

/// The name of this program's temporary files and folders; each X stands for a letter or a digit.
inline constexpr std::string_view kTemporaryName = "~skyreelXXXXXX";

/// Removes the files and folders named like `pattern` that a killed program left in `folder`. Those in use
/// are locked (TryLock) and stay.
void RemoveAbandoned(const std::filesystem::path& folder, std::string_view pattern = kTemporaryName);

/// Writes `data` to a temporary file in the same folder and renames it to `path`: at every moment the file is
/// either the old one or the whole new one. Replaces a symbolic link, does not follow it. The file has
/// `permissions` less the user's umask from the start. Throws std::system_error; then the old file is
/// unchanged and the temporary one is gone.
/// A new temporary file. While it is open, RemoveAbandoned leaves it alone.
struct TTemporary {
  std::string Name;
  TDescriptor File;
};
/// Makes one in the folder of `path`, readable by its owner alone. Throws std::system_error.
TTemporary MakeTemporary(const std::filesystem::path& path);

/// A text that tells the content of a file from others: its size and a 64-bit FNV-1a sum. It is no proof
/// against somebody who wants two files to have the same. Throws std::system_error.
std::string FileHash(const std::filesystem::path& path);

void WriteFileWhole(const std::filesystem::path& path, std::string_view data, unsigned permissions = 0666);

/// Waits until the file's content is on the disk, safe from a power cut. False, with errno set, on failure.
bool FlushToDisk(const std::filesystem::path& path);

/// Moves the finished file `from`, open for reading as `descriptor`, to the name `to`, with the permissions
/// of a new file. Renames it; where that is not possible (another file system, for example) `to` becomes a
/// whole copy with the same modification time, and `from` stays. At every moment `to` is either the old file
/// or the whole new one. Throws std::system_error.
void MoveFileWhole(int descriptor, const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace skyreel
