#include "base/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <fstream>
#include <system_error>

#include "base/descriptor.h"
#include "base/exceptions.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;

TEST(Files, StampsAreKeptToTheMillisecondAlsoBefore1970) {
  const test::TTempFolder folder;
  const fs::path path = folder.Write("a", "x");
  for (const TDateTime time :
       {TDateTime::FromDate(2005, 11, 10, 12), TDateTime::FromDate(1969, 12, 31, 23, 59, 59),
        TDateTime::FromDate(2024, 2, 29) + std::chrono::milliseconds(123)}) {
    EXPECT_TRUE(SetFileDateTime(path, time));
    EXPECT_EQ(GetFileDateTime(path), time);
  }
  EXPECT_FALSE(SetFileDateTime(folder / "none", TDateTime::FromDate(2005, 11, 10)));
  EXPECT_TRUE(GetFileDateTime(folder / "none").IsZero());
}

TEST(Files, WriteFileWholeReplacesLinksAndLeavesNothingHalfWritten) {
  const test::TTempFolder folder;
  const fs::path kept = folder.Write("kept", "precious");
  fs::create_symlink(kept, folder / "link");
  WriteFileWhole(folder / "link", "new");
  EXPECT_EQ(ReadWholeFile(kept), "precious");
  EXPECT_EQ(ReadWholeFile(folder / "link"), "new");
  EXPECT_FALSE(fs::is_symlink(folder / "link"));

  fs::create_directory(folder / "directory");
  EXPECT_THROW(WriteFileWhole(folder / "directory", "x"), std::system_error);
  EXPECT_THROW(WriteFileWhole(folder / "none" / "x", "x"), std::system_error);
  EXPECT_EQ(folder.Tree().size(), 2u);

  // A limit on file sizes stands for a disk that fills in the middle of the write.
  const auto old_handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit small{8192, limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_THROW(WriteFileWhole(kept, std::string(20000, 'x')), std::system_error);
  ::setrlimit(RLIMIT_FSIZE, &limit);
  std::signal(SIGXFSZ, old_handler);
  EXPECT_EQ(ReadWholeFile(kept), "precious");
  EXPECT_EQ(folder.Tree().size(), 2u);
}

TEST(Files, MoveFileWholeReplacesOrKeepsTheFile) {
  const test::TTempFolder folder;
  const fs::path fresh = folder.Write("fresh", "new");
  fs::permissions(fresh, fs::perms::owner_read | fs::perms::owner_write);
  const TDescriptor file(::open(fresh.c_str(), O_RDONLY | O_CLOEXEC));
  fs::create_directory(folder / "directory");
  EXPECT_FALSE(MoveFileWhole(file.Get(), folder / "none", folder / "old"));
  EXPECT_FALSE(MoveFileWhole(file.Get(), fresh, folder / "directory"));
  EXPECT_FALSE(MoveFileWhole(file.Get(), fresh, folder / "none" / "x"));
  EXPECT_EQ(ReadWholeFile(fresh), "new");

  const fs::path kept = folder.Write("kept", "precious");
  fs::create_symlink(kept, folder / "link");
  const fs::path plain = folder.Write("plain", "x");
  EXPECT_TRUE(MoveFileWhole(file.Get(), fresh, folder / "link"));
  EXPECT_FALSE(fs::exists(fresh));
  EXPECT_FALSE(fs::is_symlink(folder / "link"));
  EXPECT_EQ(ReadWholeFile(folder / "link"), "new");
  EXPECT_EQ(ReadWholeFile(kept), "precious");
  EXPECT_EQ(fs::status(folder / "link").permissions(), fs::status(plain).permissions()) << "as any new file";
}

TEST(Files, AFolderIsNoFileAndWhatIsTooLargeIsNotRead) {
  const test::TTempFolder folder;
  EXPECT_EQ(FileSizeOf(folder.Write("a", "12345")), 5);
  EXPECT_EQ(FileSizeOf(folder / "none"), -1);
  EXPECT_EQ(FileSizeOf(folder.Path()), -1);
  EXPECT_THROW(ReadWholeFile(folder.Path()), std::system_error);
  EXPECT_THROW(ReadWholeFile(folder / "a", 4), ERangeError);
  EXPECT_EQ(ReadWholeFile(folder / "a", 5), "12345");
  EXPECT_EQ(PlatformPath("goes-e\\conus\\") / DateFolder(TDateTime::FromDate(2005, 11, 10, 12)) / "x",
            fs::path("goes-e/conus/2005/11/10/x"));
}

}  // namespace
}  // namespace skyreel
