#include "settings/registry_store.h"

#include <gmock/gmock.h>

#include "base/files.h"
#include "settings/registry_variable.h"
#include "support/helpers.h"

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
               "Sectors=D1,D2\nQuoted=D1, \"0000 Met-7 IR\"\nPassword=pa ss #1  \nEuDA%20passive=TRUE\n");
  EXPECT_EQ(Stored("Sectors") + Stored("Quoted") + Stored("Password"), "D1,D2D1,\"0000 Met-7 IR\"pa ss #1");
  EXPECT_TRUE(TRegistryStore(File).ReadBoolean("EuDA passive"));
}

TEST_F(RegistryStore, ReadErrorsNameValueAndFileAndStopAllWriting) {
  for (const char* line : {"Other=1", "V=", "V=12x", "V=true,false", "V=@Invalid()", "V=@Rect(1 2 3 4)"})
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
  EXPECT_THROW(TRegistryStore(Folder.Path()), ERegistryError);
}

TEST_F(RegistryStore, AVariableTakesItsDefaultWhereNoneIsStoredAndSavesAnyTextWhenItIsDestroyed) {
  QString awkward = QString::fromUtf8(" @Invalid() a, \"b\"\\n\u4E16 \U0001F6F0;%20=");
  for (int c = 0; c < 256; ++c) awkward += QChar(c);
  Folder.Write("a.conf", "[General]\n");
  {
    TRegistryStore store(File);
    TRegistryString text(store, "S", "default"), gone(store, "Gone", "x");
    const TRegistryInteger number(store, "I", 7);
    const TRegistryBoolean yes(store, "B", true);
    text.Value = awkward;
    gone.Delete = true;
    EXPECT_EQ(ReadWholeFile(File), "[General]\n") << "nothing is written before the end";
  }
  EXPECT_EQ(Stored("B") + Stored("I"), "true7");
  TRegistryStore store(File);
  EXPECT_EQ(TRegistryString(store, "S", "").Value, awkward);
  EXPECT_FALSE(store.HasValue("Gone"));
}

TEST_F(RegistryStore, AWriteThroughALinkMakesTheFileTheOwnersAloneAndKeepsADamagedOneBesideIt) {
  const std::string text("Timeout=300\nnot a setting\n\0\0\1\n\xFF\xFE\n", 33);
  fs::permissions(Folder.Write("a.conf", text), fs::perms(0664));
  fs::create_symlink(File, Folder / "link.conf");
  TRegistryStore(Folder / "link.conf").WriteString("New", "x");
  EXPECT_TRUE(fs::is_symlink(Folder / "link.conf"));
  EXPECT_EQ(Stored("Timeout") + Stored("New"), "300x");
  EXPECT_EQ(ReadWholeFile(Folder / "a.conf.damaged"), text);
  for (const char* name : {"a.conf", "a.conf.damaged"})
    EXPECT_EQ(fs::status(Folder / name).permissions(), fs::perms(0600));
}

TEST_F(RegistryStore, ADiskThatTakesNothingLeavesTheOldFileWhole) {
  Folder.Write("a.conf", "[General]\nPrecious=1\n");
  TRegistryStore store(File);
  store.WriteString("Long", QString(100000, 'x'));
  {
    const auto full_disk = test::LimitFileSize(8192);
    EXPECT_FALSE(store.Flush());
  }
  EXPECT_EQ(ReadWholeFile(File), "[General]\nPrecious=1\n");
  EXPECT_EQ(Folder.Tree().size(), 1u) << "no temporary file stays";
  EXPECT_TRUE(store.Flush()) << "the changes are still pending";
  EXPECT_EQ(Stored("Long").size() + Stored("Precious").toInt(), 100001);
}

TEST_F(RegistryStore, TwoCopiesKeepEachOthersChangesAndForeignValuesStay) {
  Folder.Write("a.conf", "[General]\nA=old\nB=old\nC=old\nD=old\n[W]\nW=@Rect(1 2 3 4)\n");
  const TDateTime future = TDateTime::FromDate(2100, 1, 1);
  SetFileDateTime(File, future);
  {
    TRegistryStore first(File), second(File);
    first.WriteString("A", "new");
    first.WriteString("B", "old");
    second.WriteString("B", "new");
    first.WriteString("C", "old");
    second.DeleteValue("C");
    first.DeleteValue("D");
  }
  EXPECT_EQ(ReadWholeFile(File), "[General]\nA=new\nB=new\nC=old\n\n[W]\nW=@Rect(1 2 3 4)\n");
  EXPECT_GT(GetFileDateTime(File), future) << "or the library would not see a change of the same size";
}

TEST(AppPaths, AProgramIsFoundUnderItsBaseName) {
  const test::TTempFolder folder;
  const fs::path file = folder / "new/App Paths.conf";
  EXPECT_EQ(ReadAppPath(file, "Orbiscope"), "");
  for (const char* program : {"/opt/a, b/Skyreel.bin", "/opt/Orbiscope"}) RegisterAppPath(file, program);
  EXPECT_EQ(ReadAppPath(file, "Skyreel") + ReadAppPath(file, "Orbiscope"),
            "/opt/a, b/Skyreel.bin/opt/Orbiscope");
  EXPECT_THAT(SettingsFile("/x/Second.copy.exe").string(), EndsWith("/Quenmoor/Second.copy.conf"));
}

}  // namespace
}  // namespace skyreel
