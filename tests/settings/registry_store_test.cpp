#include "settings/registry_store.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "base/files.h"
#include "settings/registry_variable.h"
#include "support/failure.h"
#include "support/limit_scope.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;
using namespace testing;

class RegistryStore : public testing::Test {
 protected:
  QString Stored(const QString& name) const { return TRegistryStore(File).ReadString(name); }

  const test::TTempFolder Folder;
  const fs::path File = Folder / "a.conf";
};

TEST_F(RegistryStore, HandWrittenValuesAreReadAsMeant) {
  Folder.Write("a.conf",
               "; a comment\n[General]\nSectors=D1,D2\nSlots=\"0000,0600\"\nQuoted=D1, \"0000 Met-7 IR\"\n"
               "Password=pa ss #1  \nEuDA%20passive=TRUE\nDelayed=1\nBackDays = -2147483648 \nEmpty=\n");
  TRegistryStore store(File);
  QStringList texts;
  for (const char* name : {"Sectors", "Slots", "Quoted", "Password", "Empty"})
    texts << store.ReadString(name);
  EXPECT_EQ(texts.join('|'), "D1,D2|0000,0600|D1,\"0000 Met-7 IR\"|pa ss #1|");
  EXPECT_TRUE(store.ReadBoolean("EuDA passive") && store.ReadBoolean("Delayed"));
  EXPECT_EQ(store.ReadInteger("BackDays"), std::numeric_limits<std::int32_t>::min());
  EXPECT_FALSE(store.HasValue("empty")) << "names are case-sensitive";
}

TEST_F(RegistryStore, ReadErrorsNameValueAndFileAndStopAllWriting) {
  for (const char* line : {"Other=1", "V=", "V=12x", "V=true,false", "V=@Invalid()", "V=@Rect(1 2 3 4)"}) {
    for (const bool boolean : {false, true}) {
      Folder.Write("a.conf", line);
      const auto read = [&] {
        TRegistryStore store(File);
        const TRegistryString unharmed(store, "Unharmed", "default");
        if (boolean) TRegistryBoolean(store, "V", true);
        TRegistryInteger(store, "V", 7);
      };
      EXPECT_THAT(test::Failure<ERegistryError>(read), AllOf(HasSubstr("\"V\""), HasSubstr(File.string())));
      EXPECT_EQ(ReadWholeFile(File), line);
    }
  }
}

TEST_F(RegistryStore, AVariableTakesItsDefaultWhereNoneIsStoredAndSavesAnyTextWhenItIsDestroyed) {
  QString awkward = QString::fromUtf8(" @Invalid() a, \"b\"\\n\u4E16 \U0001F6F0;%20=");
  for (int c = 0; c < 256; ++c) awkward += QChar(c);
  Folder.Write("a.conf", "[General]\n");
  {
    TRegistryStore store(File);
    TRegistryString text(store, "S", "default"), gone(store, "Gone", "x");
    TRegistryInteger number(store, "I", 7);
    const TRegistryBoolean yes(store, "B", true);
    EXPECT_EQ(number.Value, 7);
    text.Value = awkward;
    number.Value = -8;
    gone.Delete = true;
    EXPECT_EQ(ReadWholeFile(File), "[General]\n") << "nothing is written before the end";
  }
  EXPECT_EQ(Stored("B") + Stored("I"), "true-8");
  TRegistryStore store(File);
  EXPECT_EQ(TRegistryString(store, "S", "").Value, awkward);
  EXPECT_FALSE(store.HasValue("Gone"));
  EXPECT_EQ(TRegistryString(store, "Missing", "default").Value, "default") << "a string alone may be missing";
}

TEST_F(RegistryStore, TheFileIsTheOwnersAloneAndALinkStaysOne) {
  fs::permissions(Folder.Write("a.conf", "Old=1\n"), fs::perms(0664));
  fs::create_symlink(File, Folder / "link.conf");
  const mode_t umask = ::umask(0);
  for (const char* name : {"link.conf", "new/deep/b.conf"})
    TRegistryStore(Folder / name).WriteString("New", "x");
  ::umask(umask);
  EXPECT_EQ(fs::status(File).permissions(), fs::perms(0600));
  EXPECT_EQ(fs::status(Folder / "new/deep/b.conf").permissions(), fs::perms(0600));
  EXPECT_TRUE(fs::is_symlink(Folder / "link.conf"));
  EXPECT_EQ(Stored("Old") + Stored("New"), "1x");
}

TEST_F(RegistryStore, ADamagedFileIsReadAsFarAsItGoesAndKeptBesideTheNewOne) {
  for (const std::string& text :
       {std::string("[General]\nTimeout=300\nnot a setting\n[W]\nW=@Rect(1 2 3 4)\n"),
        std::string("Timeout=300\n\0\0\1\n\xFF\xFE\n", 19)}) {
    Folder.Write("a.conf", text);
    EXPECT_EQ(TRegistryStore(File).ReadInteger("Timeout"), 300);
    TRegistryStore(File).WriteInteger("Timeout", 1200);
    EXPECT_EQ(Stored("Timeout"), "1200");
    EXPECT_EQ(ReadWholeFile(Folder / "a.conf.damaged"), text);
    EXPECT_EQ(fs::status(Folder / "a.conf.damaged").permissions(), fs::perms(0600));
  }
}

TEST_F(RegistryStore, WhatCannotBeReadIsAnErrorAndIsNotReplaced) {
  ASSERT_EQ(::mkfifo((Folder / "pipe").c_str(), 0600), 0);
  for (const fs::path& path : {Folder.Path(), Folder / "pipe"})
    EXPECT_THAT(test::Failure<ERegistryError>([&path] { TRegistryStore store(path); }),
                HasSubstr(path.string()));
}

TEST_F(RegistryStore, ADiskThatTakesNothingLeavesTheOldFileWhole) {
  Folder.Write("a.conf", "[General]\nPrecious=1\n");
  TRegistryStore store(File), nowhere(File / "a.conf");
  nowhere.WriteString("V", "x");
  EXPECT_FALSE(nowhere.Flush()) << "no folder can be made there";
  store.WriteString("Long", QString(100000, 'x'));
  {
    const test::TLimitScope full_disk(RLIMIT_FSIZE, 8192);
    EXPECT_FALSE(store.Flush());
  }
  EXPECT_EQ(ReadWholeFile(File), "[General]\nPrecious=1\n");
  EXPECT_EQ(Folder.Tree().size(), 1u) << "no temporary file stays";
  EXPECT_TRUE(store.Flush()) << "the changes are still pending";
  EXPECT_EQ(Stored("Long").size() + Stored("Precious").toInt(), 100001);
}

TEST_F(RegistryStore, TwoCopiesKeepEachOthersChangesAndForeignValuesStay) {
  Folder.Write("a.conf",
               "[General]\nGone=x\nOnlyA=old\nOnlyB=old\nBoth=old\n[Window]\nWidth=@Rect(1 2 3 4)\n");
  {
    TRegistryStore first(File), second(File);
    first.DeleteValue("Gone");
    for (const auto& [store, value] : {std::pair(&first, "A"), std::pair(&second, "B")}) {
      store->WriteString("Both", value);
      store->WriteString(store == &first ? "OnlyA" : "OnlyB", value);
      store->WriteString(store == &first ? "OnlyB" : "OnlyA", "old");
    }
  }
  EXPECT_EQ(ReadWholeFile(File), "[General]\nBoth=A\nOnlyA=A\nOnlyB=B\n\n[Window]\nWidth=@Rect(1 2 3 4)\n");
  const TDateTime future = TDateTime::FromDate(2100, 1, 1);
  SetFileDateTime(File, future);
  TRegistryStore store(File);
  store.WriteString("Both", "B");
  EXPECT_TRUE(store.Flush());
  EXPECT_GT(GetFileDateTime(File), future) << "or the library would not see a change of the same size";
  store.WriteString("Both", "B");
  fs::remove(File);
  EXPECT_TRUE(store.Flush());
  EXPECT_EQ(Stored("Both"), "B") << "the file was lost meanwhile";
}

TEST(AppPaths, AProgramIsFoundUnderItsBaseName) {
  const test::TTempFolder folder;
  const fs::path file = folder / "App Paths.conf";
  EXPECT_EQ(ReadAppPath(file, "Orbiscope"), "");
  for (const char* program : {"/opt/a, b/Skyreel.bin", "/opt/Orbiscope"}) RegisterAppPath(file, program);
  EXPECT_EQ(ReadAppPath(file, "Skyreel") + ReadAppPath(file, "Orbiscope"),
            "/opt/a, b/Skyreel.bin/opt/Orbiscope");
  EXPECT_EQ(SettingsFile("/x/Second.copy.exe"), AppPathsFile().parent_path() / "Second.copy.conf");
  EXPECT_EQ(AppPathsFile().parent_path().filename(), "Quenmoor");
}

}  // namespace
}  // namespace skyreel
