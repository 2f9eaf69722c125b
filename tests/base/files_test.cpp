#include "base/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <system_error>

#include "base/descriptor.h"
#include "base/exceptions.h"
#include "support/limit_scope.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;

TEST(Files, StampsAreKeptToTheMillisecondAlsoBefore1970) {
  const test::TTempFolder folder;
  const fs::path path = folder.Write("a", "x");
  for (const TDateTime time : {TDateTime::FromDate(1969, 12, 31, 23, 59, 59),
                               TDateTime::FromDate(2024, 2, 29) + std::chrono::milliseconds(123)}) {
    EXPECT_TRUE(SetFileDateTime(path, time));
    EXPECT_EQ(GetFileDateTime(path), time);
  }
  EXPECT_FALSE(SetFileDateTime(folder / "none", TDateTime::FromDate(2005, 11, 10)));
  EXPECT_TRUE(GetFileDateTime(folder / "none").IsZero());
}

TEST(Files, AFileIsReplacedWholeOrLeftAlone) {
  const test::TTempFolder folder;
  const fs::path kept = folder.Write("kept", "precious"), plain = folder.Write("plain", "x");
  fs::create_directory(folder / "directory");
  const std::function<bool(const fs::path&)> ways[] = {
      [](const fs::path& to) {
        try {
          return WriteFileWhole(to, "new"), true;
        } catch (const std::system_error&) {
          return false;
        }
      },
      [&](const fs::path& to) {
        const fs::path from = folder.Write("from", "new");
        fs::permissions(from, fs::perms::owner_read | fs::perms::owner_write);
        const TDescriptor file(::open(from.c_str(), O_RDONLY | O_CLOEXEC));
        try {
          return MoveFileWhole(file.Get(), from, to), true;
        } catch (const std::system_error&) {
          return false;
        }
      }};
  for (const auto& replace : ways) {
    EXPECT_FALSE(replace(folder / "directory"));
    EXPECT_FALSE(replace(folder / "none/x"));
    fs::create_symlink(kept, folder / "link");
    EXPECT_TRUE(replace(folder / "link"));
    EXPECT_FALSE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(ReadWholeFile(folder / "link"), "new");
    EXPECT_EQ(fs::status(folder / "link").permissions(), fs::status(plain).permissions())
        << "as any new file";
    fs::remove(folder / "link");
  }
  {
    const test::TLimitScope full_disk(RLIMIT_FSIZE, 8192);
    EXPECT_THROW(WriteFileWhole(kept, std::string(20000, 'x')), std::system_error);
  }
  EXPECT_EQ(ReadWholeFile(kept), "precious");
  EXPECT_EQ(folder.Tree().size(), 2u) << "nothing half-written";
}

TEST(Files, AFolderIsNoFileAndWhatIsTooLargeIsNotRead) {
  const test::TTempFolder folder;
  EXPECT_EQ(FileSizeOf(folder.Write("a", "12345")), 5);
  EXPECT_EQ(FileSizeOf(folder.Path()), -1);
  EXPECT_THROW(ReadWholeFile(folder.Path()), std::system_error);
  EXPECT_THROW(ReadWholeFile(folder / "a", 4), ERangeError);
  EXPECT_EQ(ReadWholeFile(folder / "a", 5), "12345");
}

}  // namespace
}  // namespace skyreel
