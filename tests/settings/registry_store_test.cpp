#include "settings/registry_store.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "base/comma_text.h"
#include "base/files.h"
#include "base/text.h"
#include "settings/registry_variable.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;

mode_t ModeOf(const fs::path& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

QString ReadBack(const fs::path& file, const QString& name) {
  return TRegistryStore(file).ReadString(name);
}

std::vector<QString> HostileValues() {
  std::vector<QString> values = {
      "",
      " ",
      "  both ends  ",
      "\t",
      "a,b",
      "D1,D2,\"0000 Met-7 IR\"",
      ",",
      "say \"hello\"",
      "\"",
      "'",
      "back\\slash\\",
      "\\",
      "\\n",
      "C:\\GOES\\",
      "a=b",
      "=",
      ";comment",
      "a;b",
      "#",
      "%20%",
      "100%",
      "@",
      "@@",
      "@Invalid()",
      "@String(x)",
      "@ByteArray(x)",
      "@Variant(\\0\\0\\0\\0)",
      "@Rect(1 2 3 4)",
      "true",
      "5",
      "[General]",
      "line\nbreak\r\n",
      "\x01"
      "2ab\x02"
      "cd",
      QString::fromUtf8("Grüße, 世界 \xF0\x9F\x9B\xB0"),
      QString(QChar(0xA0)) + "nbsp" + QChar(0x2028),
      QString(QChar(0)),
      QString("a") + QChar(0) + "b" + QChar(0) + "1",
      QString(100000, 'x') + ", " + QString(1000, '"'),
  };
  QString all_bytes;
  for (int c = 0; c < 256; ++c) all_bytes += QChar(c);
  values.push_back(all_bytes);
  QString scrambled = QString::fromUtf8("pass word,;=\\\"%Z zÄß€");
  for (QChar& c : scrambled) c = QChar(c.unicode() ^ 0x5A);
  values.push_back(scrambled);
  return values;
}

TEST(RegistryStore, EveryTextSurvivesExactly) {
  const test::TTempFolder folder;
  const std::vector<QString> values = HostileValues();
  const fs::path file = folder / "a.conf";
  {
    TRegistryStore store(file);
    for (std::size_t i = 0; i < values.size(); ++i)
      store.WriteString("name with blank " + QString::number(i), values[i]);
  }
  TRegistryStore again(file);
  for (std::size_t i = 0; i < values.size(); ++i) {
    const QString name = "name with blank " + QString::number(i);
    EXPECT_EQ(again.ReadString(name), values[i]) << "value " << i;
  }
}

TEST(RegistryStore, HandWrittenValuesAreReadAsMeant) {
  const test::TTempFolder folder;
  TRegistryStore store(folder.Write("a.conf",
                                    "; a comment\n"
                                    "[General]\n"
                                    "WantedEuArSectors=D1,D2,D3\n"
                                    "MSFCslots=\"0000,0600\"\n"
                                    "Quoted=D1, \"0000 Met-7 IR\"\n"
                                    "Password=pa ss #1  \n"
                                    "EuDA%20passive=TRUE\n"
                                    "Rss24HourDelayedData=1\n"
                                    "Timeout = 300 \n"
                                    "Empty=\n"
                                    "BackDays=-2147483648\n"
                                    "ProxyServer=caf\xC3\xA9\n"));
  EXPECT_EQ(store.ReadString("WantedEuArSectors"), "D1,D2,D3");
  EXPECT_EQ(store.ReadString("MSFCslots"), "0000,0600");
  EXPECT_EQ(store.ReadString("Quoted"), "D1,\"0000 Met-7 IR\"");
  EXPECT_EQ(store.ReadString("Password"), "pa ss #1");
  EXPECT_TRUE(store.ReadBoolean("EuDA passive"));
  EXPECT_TRUE(store.ReadBoolean("Rss24HourDelayedData"));
  EXPECT_EQ(store.ReadInteger("Timeout"), 300);
  EXPECT_EQ(store.ReadInteger("BackDays"), std::numeric_limits<std::int32_t>::min());
  EXPECT_TRUE(store.HasValue("Empty"));
  EXPECT_EQ(store.ReadString("Empty"), "");
  EXPECT_EQ(store.ReadString("ProxyServer"), QString::fromUtf8("caf\xC3\xA9"));
  EXPECT_FALSE(store.HasValue("timeout")) << "names are case-sensitive";
}

TEST(RegistryStore, ReadErrorsNameValueAndFileAndStopAllWriting) {
  const struct {
    const char* Line;
    bool Boolean;
  } kCases[] = {
      {"Other=1", false},
      {"Other=1", true},
      {"V=", false},
      {"V=", true},
      {"V=2147483648", false},
      {"V=12x", false},
      {"V=1.5", false},
      {"V=1,2", false},
      {"V=yes", true},
      {"V=2", true},
      {"V=true,false", true},
      {"V=@Invalid()", false},
      {"V=@Rect(1 2 3 4)", true},
  };
  for (const auto& [line, boolean] : kCases) {
    SCOPED_TRACE(line);
    const test::TTempFolder folder;
    const std::string text = std::string("[General]\n") + line + "\n";
    const fs::path file = folder.Write("a.conf", text);
    {
      TRegistryStore store(file);
      const TRegistryString unharmed(store, "Unharmed", "default");
      try {
        boolean ? void(TRegistryBoolean(store, "V", true)) : void(TRegistryInteger(store, "V", 7));
        ADD_FAILURE() << "no error";
      } catch (const ERegistryError& error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr("\"V\""), HasSubstr(file.string())));
      }
    }
    EXPECT_EQ(ReadWholeFile(file), text);
  }
}

TEST(RegistryStore, OnlyStringsMayBeMissingInAnExistingKey) {
  const test::TTempFolder folder;
  for (const char* text : {"", "[General]\n"}) {
    TRegistryStore store(folder.Write("empty.conf", text));
    EXPECT_FALSE(store.KeyExists());
    const TRegistryInteger number(store, "I", 7);
    const TRegistryBoolean yes(store, "B", true);
    EXPECT_EQ(number.Value, 7);
    EXPECT_TRUE(yes.Value);
  }
  TRegistryStore store(folder.Write("some.conf", "S2=x\n"));
  EXPECT_EQ(TRegistryString(store, "S", "default").Value, "default");
  EXPECT_THROW(TRegistryInteger(store, "I", 7), ERegistryError);
}

TEST(RegistryStore, AVariableSavesWhenItIsDestroyedOrTakesItsValueAway) {
  const test::TTempFolder folder;
  const fs::path file = folder / "new" / "deep" / "a.conf";
  {
    TRegistryStore store(file);
    TRegistryString text(store, "S", "default");
    TRegistryInteger number(store, "I", 7);
    TRegistryBoolean yes(store, "B", true);
    TRegistryString gone(store, "Gone", "x");
    text.Value = "changed";
    number.Value = -8;
    gone.Delete = true;
    EXPECT_FALSE(fs::exists(file)) << "nothing is written before the end";
  }
  TRegistryStore store(file);
  EXPECT_EQ(TRegistryString(store, "S", "").Value, "changed");
  EXPECT_EQ(TRegistryInteger(store, "I", 0).Value, -8);
  EXPECT_TRUE(TRegistryBoolean(store, "B", false).Value);
  EXPECT_FALSE(store.HasValue("Gone"));
}

TEST(RegistryStore, TheFileIsTheOwnersAloneWhateverItWasAndTheUmask) {
  const test::TTempFolder folder;
  const fs::path file = folder.Write("a.conf", "Old=1\n");
  fs::permissions(file, fs::perms(0664));
  const mode_t umask = ::umask(0);
  for (const fs::path& path : {file, folder / "b.conf"}) {
    TRegistryStore store(path);
    store.WriteString("New", "x");
    EXPECT_TRUE(store.Flush());
    EXPECT_EQ(ModeOf(path), 0600u) << path;
  }
  ::umask(umask);
  EXPECT_EQ(ReadBack(file, "Old"), "1");
}

TEST(RegistryStore, ADamagedFileIsReadAsFarAsItGoesAndKeptBesideTheNewOne) {
  const std::string kDamaged[] = {
      "[General]\nTimeout=300\nthis is no setting\n[Window]\nWidth=@Rect(1 2 3 4)\n",
      std::string("Timeout=300\n\0\0\1\n\xFF\xFE\n", 19),
  };
  for (const std::string& text : kDamaged) {
    SCOPED_TRACE(text);
    const test::TTempFolder folder;
    const fs::path file = folder.Write("a.conf", text);
    const fs::path kept = folder / "a.conf.damaged";
    {
      TRegistryStore store(file);
      EXPECT_EQ(store.ReadInteger("Timeout"), 300);
      store.WriteInteger("Timeout", 200);
      store.WriteString("Gone", "x");
      store.DeleteValue("Gone");
    }
    EXPECT_EQ(ReadBack(file, "Timeout"), "200");
    EXPECT_FALSE(TRegistryStore(file).HasValue("Gone"));
    ASSERT_TRUE(fs::exists(kept));
    EXPECT_EQ(ReadWholeFile(kept), text);
    EXPECT_EQ(ModeOf(kept), 0600u);

    fs::remove(kept);
    TRegistryStore(file).WriteInteger("Timeout", 100);
    EXPECT_FALSE(fs::exists(kept)) << "the new file is whole";
  }
}

TEST(RegistryStore, ForeignValuesStayInTheFile) {
  const test::TTempFolder folder;
  const fs::path file = folder.Write("a.conf", "[General]\nTimeout=300\n[Window]\nWidth=@Rect(1 2 3 4)\n");
  TRegistryStore(file).WriteInteger("Timeout", 200);
  const std::string text = ReadWholeFile(file);
  EXPECT_THAT(text,
              AllOf(HasSubstr("Timeout=200"), HasSubstr("[Window]"), HasSubstr("Width=@Rect(1 2 3 4)")));
  EXPECT_FALSE(fs::exists(folder / "a.conf.damaged"));
}

TEST(RegistryStore, WhatCannotBeReadIsAnErrorAndIsNotReplaced) {
  const test::TTempFolder folder;
  fs::create_directory(folder / "folder");
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  for (const char* name : {"folder", "pipe"}) {
    try {
      TRegistryStore store(folder / name);
      ADD_FAILURE() << name;
    } catch (const ERegistryError& error) {
      EXPECT_THAT(error.what(), HasSubstr((folder / name).string()));
    }
  }
}

TEST(RegistryStore, AFullDiskLeavesTheOldFileWhole) {
  const test::TTempFolder folder;
  const std::string text = "[General]\nPrecious=1\n";
  const fs::path file = folder.Write("a.conf", text);
  const auto old_handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit small{8192, limit.rlim_max};
  {
    TRegistryStore store(file);
    store.WriteString("Long", QString(100000, 'x'));
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_FALSE(store.Flush());
    EXPECT_EQ(ReadWholeFile(file), text);
    EXPECT_EQ(folder.Tree().size(), 1u) << "no temporary file stays";
    ::setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_TRUE(store.Flush()) << "the changes are still pending";
  }
  std::signal(SIGXFSZ, old_handler);
  EXPECT_EQ(ReadBack(file, "Long").size(), 100000);
  EXPECT_EQ(ReadBack(file, "Precious"), "1");
}

TEST(RegistryStore, AFolderThatCannotBeMadeIsSilent) {
  const test::TTempFolder folder;
  folder.Write("occupied", "x");
  TRegistryStore store(folder / "occupied" / "a.conf");
  store.WriteString("V", "x");
  EXPECT_FALSE(store.Flush());
  EXPECT_EQ(ReadWholeFile(folder / "occupied"), "x");
}

TEST(RegistryStore, TwoCopiesKeepEachOthersChanges) {
  const test::TTempFolder folder;
  const fs::path file = folder.Write("a.conf", "OnlyA=old\nOnlyB=old\nBoth=old\nForeign=old\n");
  {
    TRegistryStore first(file);
    {
      TRegistryStore second(file);
      const TRegistryString same(second, "OnlyA", "");
      second.WriteString("OnlyB", "B");
      second.WriteString("Both", "B");
    }
    const TRegistryString same(first, "OnlyB", "");
    first.WriteString("OnlyA", "A");
    first.WriteString("Both", "A");
  }
  EXPECT_EQ(ReadBack(file, "OnlyA"), "A");
  EXPECT_EQ(ReadBack(file, "OnlyB"), "B");
  EXPECT_EQ(ReadBack(file, "Both"), "A") << "the last to exit";
  EXPECT_EQ(ReadBack(file, "Foreign"), "old");
}

TEST(RegistryStore, UnchangedValuesComeBackWhenTheFileWasLostMeanwhile) {
  const test::TTempFolder folder;
  const fs::path file = folder.Write("a.conf", "Timeout=200\nForeign=1\n");
  {
    TRegistryStore store(file);
    const TRegistryInteger timeout(store, "Timeout", 0);
    fs::remove(file);
  }
  EXPECT_EQ(ReadBack(file, "Timeout"), "200");
}

TEST(RegistryStore, ALinkedSettingsFileStaysALink) {
  const test::TTempFolder folder;
  const fs::path target = folder.Write("dotfiles/skyreel.conf", "Timeout=200\n");
  fs::create_symlink(target, folder / "a.conf");
  {
    TRegistryStore store(folder / "a.conf");
    store.WriteInteger("Timeout", 300);
  }
  EXPECT_TRUE(fs::is_symlink(folder / "a.conf"));
  EXPECT_EQ(ReadBack(target, "Timeout"), "300");
}

TEST(AppPaths, AProgramIsFoundUnderItsBaseName) {
  const test::TTempFolder folder;
  const fs::path file = folder / "App Paths.conf";
  EXPECT_EQ(ReadAppPath(file, "Orbiscope"), "");
  RegisterAppPath(file, "/opt/a, b/Skyreel.bin");
  RegisterAppPath(file, "/opt/Orbiscope");
  EXPECT_EQ(ReadAppPath(file, "Skyreel"), "/opt/a, b/Skyreel.bin");
  EXPECT_EQ(ReadAppPath(file, "Orbiscope"), "/opt/Orbiscope");
  EXPECT_EQ(ReadAppPath(file, "orbiscope"), "");
}

TEST(AppPaths, EachExecutableNameHasItsOwnKeyBelowTheConfigurationFolder) {
  EXPECT_EQ(SettingsFile("/usr/bin/Skyreel").filename(), "Skyreel.conf");
  EXPECT_EQ(SettingsFile("/x/Second.copy.exe").filename(), "Second.copy.conf");
  EXPECT_EQ(SettingsFile("/x/Skyreel").parent_path(), AppPathsFile().parent_path());
  EXPECT_EQ(AppPathsFile().parent_path().filename(), "Quenmoor");
}

}  // namespace
}  // namespace skyreel
