#include "base/files.h"

#include <gtest/gtest.h>

#include "base/exceptions.h"
#include "support/limit_scope.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;

TEST(Files, AModificationTimeIsKeptToTheMillisecondAlsoBefore1970) {
  const test::TTempFolder folder;
  const TDateTime time = TDateTime::FromDate(1969, 12, 31, 23, 59, 59) + std::chrono::milliseconds(123);
  EXPECT_TRUE(SetFileDateTime(folder.Write("a", "x"), time));
  EXPECT_EQ(GetFileDateTime(folder / "a"), time);
  EXPECT_TRUE(GetFileDateTime(folder / "none").IsZero());
}

TEST(Files, AFileIsReplacedWholeOrNotAtAll) {
  const test::TTempFolder folder;
  const fs::path kept = folder.Write("kept", "precious"), link = folder / "link";
  const fs::perms usual = fs::status(kept).permissions();
  fs::create_symlink(kept, link);
  WriteFileWhole(link, "new");
  EXPECT_EQ(ReadWholeFile(link) + ReadWholeFile(kept), "newprecious");
  EXPECT_EQ(fs::status(link).permissions(), usual);
  EXPECT_EQ(fs::status(folder.Write("later", "x")).permissions(), usual) << "the umask is unchanged";
  EXPECT_THROW(WriteFileWhole(folder.Path(), "new"), std::system_error);

  const TDescriptor file = OpenToRead(link);
  fs::permissions(link, fs::perms::owner_read);
  EXPECT_THROW(MoveFileWhole(file.Get(), link, folder / "none/x"), std::system_error);
  MoveFileWhole(file.Get(), link, kept);
  EXPECT_EQ(fs::status(kept).permissions(), usual);
  {
    const test::TLimitScope full_disk(RLIMIT_FSIZE, 8192);
    EXPECT_THROW(WriteFileWhole(kept, std::string(20000, 'x')), std::system_error);
  }
  EXPECT_EQ(ReadWholeFile(kept), "new");
  EXPECT_EQ(folder.Tree().size(), 2u);
}

TEST(Files, OnlyRegularFilesUpToALimitAreRead) {
  const test::TTempFolder folder;
  EXPECT_EQ(FileSizeOf(folder.Write("a", "12345")), 5);
  EXPECT_EQ(FileSizeOf(folder.Path()), -1);
  EXPECT_THROW(ReadWholeFile(folder.Path()), std::system_error);
  EXPECT_THROW(ReadWholeFile(folder / "a", 4), ERangeError);
  EXPECT_EQ(ReadWholeFile(folder / "a", 5), "12345");
}

TEST(Files, AbandonedFilesAreRemovedAndThoseInUseStay) {
  const test::TTempFolder folder;
  for (const char* name : {"~skyreel4bcXYZ", "~skyreel4bcXY", "~skyreel4bcXY."}) folder.Write(name, "x");
  const TDescriptor used = OpenToRead(folder.Write("~skyreelInUse1", "x"));
  ASSERT_TRUE(TryLock(used.Get(), folder / "~skyreelInUse1"));
  RemoveAbandoned(folder.Path());
  EXPECT_EQ(folder.Tree().size(), 3u);
  EXPECT_EQ(FileSizeOf(folder / "~skyreel4bcXYZ"), -1);
}

}  // namespace
}  // namespace skyreel
