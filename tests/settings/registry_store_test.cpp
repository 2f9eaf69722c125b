#include "settings/registry_store.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "base/files.h"
#include "settings/registry_variable.h"
#include "support/failure.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;
using namespace testing;

class RegistryStore : public testing::Test {
 protected:
  static unsigned ModeOf(const fs::path& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
  }
  QString ReadBack(const QString& name) const { return TRegistryStore(File).ReadString(name); }
  void Write(const std::string& text) const { WriteFileWhole(File, text); }

  const test::TTempFolder Folder;
  const fs::path File = Folder / "a.conf";
};

TEST_F(RegistryStore, EveryTextSurvivesExactly) {
  QStringList values =
      QString::fromUtf8(
          "| |  both ends  |\t|a,b|D1,D2,\"0000 Met-7 IR\"|,|say "
          "\"hello\"|\"|'|\\|\\n|C:\\GOES\\|a=b|=|;comment|#|"
          "%20%|@|@@|@Invalid()|@String(x)|@ByteArray(x)|@Variant(\\0\\0\\0\\0)|@Rect(1 2 3 "
          "4)|true|[General]|"
          "line\nbreak\r\n|\0012ab\002cd|Gr\u00FC\u00DFe, \u4E16\u754C \U0001F6F0|\u00A0nbsp\u2028")
          .split('|');
  values += QString("a") + QChar(0) + "b" + QChar(0) + "1";
  values += QString(100000, 'x') + ", " + QString(1000, '"');
  values += QString();
  for (int c = 0; c < 256; ++c) values.back() += QChar(c);
  const auto name = [](qsizetype i) { return "name with blank " + QString::number(i); };
  {
    TRegistryStore store(File);
    for (qsizetype i = 0; i < values.size(); ++i) store.WriteString(name(i), values[i]);
  }
  for (qsizetype i = 0; i < values.size(); ++i) EXPECT_EQ(ReadBack(name(i)), values[i]) << "value " << i;
}

TEST_F(RegistryStore, HandWrittenValuesAreReadAsMeant) {
  Write(
      "; a comment\n[General]\nSectors=D1,D2,D3\nSlots=\"0000,0600\"\nQuoted=D1, \"0000 Met-7 IR\"\n"
      "Password=pa ss #1  \nEuDA%20passive=TRUE\nDelayed=1\nTimeout = 300 \nEmpty=\nBackDays=-2147483648\n"
      "ProxyServer=caf\xC3\xA9\n");
  TRegistryStore store(File);
  const std::pair<const char*, const char*> texts[] = {
      {"Sectors", "D1,D2,D3"},  {"Slots", "0000,0600"}, {"Quoted", "D1,\"0000 Met-7 IR\""},
      {"Password", "pa ss #1"}, {"Empty", ""},          {"ProxyServer", "caf\xC3\xA9"}};
  for (const auto& [name, text] : texts) EXPECT_EQ(store.ReadString(name), QString::fromUtf8(text)) << name;
  EXPECT_TRUE(store.ReadBoolean("EuDA passive") && store.ReadBoolean("Delayed"));
  EXPECT_EQ(store.ReadInteger("Timeout"), 300);
  EXPECT_EQ(store.ReadInteger("BackDays"), std::numeric_limits<std::int32_t>::min());
  EXPECT_TRUE(store.HasValue("Empty"));
  EXPECT_FALSE(store.HasValue("timeout")) << "names are case-sensitive";
}

TEST_F(RegistryStore, ReadErrorsNameValueAndFileAndStopAllWriting) {
  const std::pair<const char*, bool> cases[] = {
      {"Other=1", false},      {"Other=1", true},      {"V=", false},           {"V=", true},
      {"V=2147483648", false}, {"V=12x", false},       {"V=1.5", false},        {"V=2", true},
      {"V=yes", true},         {"V=true,false", true}, {"V=@Invalid()", false}, {"V=@Rect(1 2 3 4)", true}};
  for (const auto& [line, boolean] : cases) {
    const std::string text = std::string("[General]\n") + line + "\n";
    Write(text);
    EXPECT_THAT(test::Failure<ERegistryError>([&, boolean = boolean] {
                  TRegistryStore store(File);
                  const TRegistryString unharmed(store, "Unharmed", "default");
                  boolean ? void(TRegistryBoolean(store, "V", true)) : void(TRegistryInteger(store, "V", 7));
                }),
                AllOf(HasSubstr("\"V\""), HasSubstr(File.string())))
        << line;
    EXPECT_EQ(ReadWholeFile(File), text) << line;
  }
}

TEST_F(RegistryStore, AVariableTakesItsDefaultWhereNoneIsStoredAndSavesWhenItIsDestroyed) {
  for (const char* text : {"", "[General]\n"}) {
    Write(text);
    EXPECT_FALSE(TRegistryStore(File).KeyExists());
  }
  {
    TRegistryStore store(File);
    TRegistryString text(store, "S", "default"), gone(store, "Gone", "x");
    TRegistryInteger number(store, "I", 7);
    TRegistryBoolean yes(store, "B", true);
    EXPECT_EQ(number.Value, 7);
    text.Value = "changed";
    number.Value = -8;
    gone.Delete = true;
    EXPECT_EQ(ReadWholeFile(File), "[General]\n") << "nothing is written before the end";
  }
  TRegistryStore store(File);
  EXPECT_EQ(TRegistryString(store, "S", "").Value, "changed");
  EXPECT_EQ(TRegistryInteger(store, "I", 0).Value, -8);
  EXPECT_TRUE(TRegistryBoolean(store, "B", false).Value);
  EXPECT_FALSE(store.HasValue("Gone"));
  EXPECT_EQ(TRegistryString(store, "Missing", "default").Value, "default") << "a string alone may be missing";
}

TEST_F(RegistryStore, TheFileIsTheOwnersAloneWhateverItWasAndTheUmaskAndALinkStaysOne) {
  Write("Old=1\n");
  fs::permissions(File, fs::perms(0664));
  fs::create_symlink(File, Folder / "link.conf");
  const mode_t umask = ::umask(0);
  for (const char* name : {"link.conf", "new/deep/b.conf"}) {
    TRegistryStore store(Folder / name);
    store.WriteString("New", "x");
    EXPECT_TRUE(store.Flush());
  }
  ::umask(umask);
  EXPECT_EQ(ModeOf(File), 0600u);
  EXPECT_EQ(ModeOf(Folder / "new/deep/b.conf"), 0600u);
  EXPECT_TRUE(fs::is_symlink(Folder / "link.conf"));
  EXPECT_EQ(ReadBack("Old") + ReadBack("New"), "1x");
}

TEST_F(RegistryStore, ADamagedFileIsReadAsFarAsItGoesAndKeptBesideTheNewOne) {
  const fs::path kept = Folder / "a.conf.damaged";
  for (const std::string& text :
       {std::string("[General]\nTimeout=300\nthis is no setting\n[W]\nW=@Rect(1 2 3 4)\n"),
        std::string("Timeout=300\n\0\0\1\n\xFF\xFE\n", 19)}) {
    Write(text);
    {
      TRegistryStore store(File);
      EXPECT_EQ(store.ReadInteger("Timeout"), 300);
      store.WriteInteger("Timeout", 200);
      store.WriteString("Gone", "x");
      store.DeleteValue("Gone");
    }
    EXPECT_EQ(ReadBack("Timeout"), "200");
    EXPECT_FALSE(TRegistryStore(File).HasValue("Gone"));
    ASSERT_TRUE(fs::exists(kept));
    EXPECT_EQ(ReadWholeFile(kept), text);
    EXPECT_EQ(ModeOf(kept), 0600u);
    fs::remove(kept);
    TRegistryStore(File).WriteInteger("Timeout", 100);
    EXPECT_FALSE(fs::exists(kept)) << "the new file is whole";
  }
}

TEST_F(RegistryStore, WhatCannotBeReadIsAnErrorAndIsNotReplaced) {
  fs::create_directory(Folder / "folder");
  ASSERT_EQ(::mkfifo((Folder / "pipe").c_str(), 0600), 0);
  for (const char* name : {"folder", "pipe"}) {
    EXPECT_THAT(test::Failure<ERegistryError>([&] { TRegistryStore store(Folder / name); }),
                HasSubstr((Folder / name).string()));
  }
}

TEST_F(RegistryStore, ADiskThatTakesNothingLeavesTheOldFileWhole) {
  const std::string text = "[General]\nPrecious=1\n";
  Write(text);
  const auto old_handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit small{8192, limit.rlim_max};
  {
    TRegistryStore store(File);
    store.WriteString("Long", QString(100000, 'x'));
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_FALSE(store.Flush());
    EXPECT_EQ(ReadWholeFile(File), text);
    EXPECT_EQ(Folder.Tree().size(), 1u) << "no temporary file stays";
    ::setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_TRUE(store.Flush()) << "the changes are still pending";
  }
  std::signal(SIGXFSZ, old_handler);
  EXPECT_EQ(ReadBack("Long").size(), 100000);
  EXPECT_EQ(ReadBack("Precious"), "1");

  TRegistryStore store(File / "a.conf");  // no folder can be made there
  store.WriteString("V", "x");
  EXPECT_FALSE(store.Flush());
}

TEST_F(RegistryStore, TwoCopiesKeepEachOthersChangesAndForeignValuesStay) {
  Write("[General]\nOnlyA=old\nOnlyB=old\nBoth=old\n[Window]\nWidth=@Rect(1 2 3 4)\n");
  {
    TRegistryStore first(File);
    {
      TRegistryStore second(File);
      const TRegistryString same(second, "OnlyA", "");
      second.WriteString("OnlyB", "B");
      second.WriteString("Both", "B");
    }
    const TRegistryString same(first, "OnlyB", "");
    first.WriteString("OnlyA", "A");
    first.WriteString("Both", "A");
  }
  EXPECT_EQ(ReadBack("OnlyA") + ReadBack("OnlyB"), "AB");
  EXPECT_EQ(ReadBack("Both"), "A") << "the last to exit";
  EXPECT_THAT(ReadWholeFile(File), HasSubstr("[Window]\nWidth=@Rect(1 2 3 4)"));
  {
    TRegistryStore store(File);
    const TRegistryString unchanged(store, "Both", "");
    fs::remove(File);
  }
  EXPECT_EQ(ReadBack("Both"), "A") << "the file was lost meanwhile";
}

TEST(AppPaths, AProgramIsFoundUnderItsBaseName) {
  const test::TTempFolder folder;
  const fs::path file = folder / "App Paths.conf";
  EXPECT_EQ(ReadAppPath(file, "Orbiscope"), "");
  for (const char* program : {"/opt/a, b/Skyreel.bin", "/opt/Orbiscope"}) RegisterAppPath(file, program);
  EXPECT_EQ(ReadAppPath(file, "Skyreel"), "/opt/a, b/Skyreel.bin");
  EXPECT_EQ(ReadAppPath(file, "Orbiscope"), "/opt/Orbiscope");
  EXPECT_EQ(ReadAppPath(file, "orbiscope"), "");
  EXPECT_EQ(SettingsFile("/usr/bin/Skyreel").filename(), "Skyreel.conf");
  EXPECT_EQ(SettingsFile("/x/Second.copy.exe").filename(), "Second.copy.conf");
  EXPECT_EQ(SettingsFile("/x/Skyreel").parent_path(), AppPathsFile().parent_path());
  EXPECT_EQ(AppPathsFile().parent_path().filename(), "Quenmoor");
}

}  // namespace
}  // namespace skyreel
