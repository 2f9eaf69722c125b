#include <gtest/gtest.h>

#include "base/clock.h"
#include "base/comma_text.h"
#include "base/date_time.h"
#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using TItems = std::vector<std::string>;

TEST(Text, OnlyWholeNumbersAreTaken) {
  EXPECT_EQ(ToInteger(" -42 "), -42);
  EXPECT_EQ(ToInteger("+2147483647"), 2147483647);
  for (const char* bad : {"", "x", "12x", "1 2", "2147483648", "+-1", "--1", "0x10", "1.0"})
    EXPECT_THROW(ToInteger(bad), EConvertError) << bad;
  EXPECT_EQ(ParseNumber<std::uint8_t>("256", 10, 255), 255);
}

TEST(Text, FileNamesFromServersStayOneComponent) {
  for (const char* good : {"a b.gif", "..gif", "caf\xC3\xA9"}) EXPECT_TRUE(IsSafeFileName(good)) << good;
  for (const std::string& bad :
       TItems{"", ".", "..", "a/b", "a\\b", "c:x", "a\nb", {"a\0b", 3}, "\x7F", std::string(256, 'a')})
    EXPECT_FALSE(IsSafeFileName(bad)) << bad;
}

TEST(Text, LinesOccurrencesBase64AndSecrets) {
  EXPECT_EQ(SplitLines("a\r\nb\nc\rd\r\n\r\n"), (TItems{"a", "b", "c", "d", ""}));
  EXPECT_EQ(ReplaceAll("aaa", "a", "aa"), "aaaaaa");
  EXPECT_EQ(Base64("f") + Base64("fo") + Base64("foobar") + Base64("\xFF\xFE\xFF"), "Zg==Zm8=Zm9vYmFy//7/");
  EXPECT_EQ(WithoutSecrets("hi user, pW is PW; dXNlcjpwdw== cHc user:pw", "user", "pw"),
            "hi user, *** is ***; ***== *** user:***");
  EXPECT_EQ(WithoutSecrets("a p w", "user", "p\1 w") + WithoutSecrets("Og==", "", ""), "a ***Og==");
}

TEST(CommaText, ReadsWhatPeopleAndOldFilesHold) {
  const std::pair<const char*, TItems> cases[] = {
      {" \r\n ", {}},
      {"D1,D2 , D3 a\r\nb", {"D1", "D2", "D3", "a", "b"}},
      {",a,,b,", {"", "a", "", "b", ""}},
      {"in\"side,\"x\"y \"never closed, by anyone", {"in\"side", "x", "y", "never closed, by anyone"}}};
  for (const auto& [text, items] : cases) EXPECT_EQ(FromCommaText(text), items) << text;
  const TItems items = {"D1", "0000 Met-7 IR", "a,b", "say \"x\"", "", "\ttab", "caf\xC3\xA9"};
  EXPECT_EQ(ToCommaText(items), "D1,\"0000 Met-7 IR\",\"a,b\",\"say \"\"x\"\"\",\"\",\"\ttab\",caf\xC3\xA9");
  EXPECT_EQ(FromCommaText(ToCommaText(items)), items);
}

TEST(DateTime, CountsDaysFromThirtiethOfDecember1899AndRefusesInvalidDates) {
  const TDateTime noon = TDateTime::FromDate(2026, 11, 24, 12);
  EXPECT_EQ(noon.Days(), 46350.5);
  EXPECT_EQ((noon + 59min).RoundedDown(15min) - noon, 45min);
  EXPECT_EQ(TDateTime::FromDate(1899, 12, 1, 6).Midnight(), TDateTime::FromDate(1899, 12, 1));
  for (const TDateTime::TParts& p : std::initializer_list<TDateTime::TParts>{
           {2023, 2, 29}, {2024, 258, 1}, {0, 1, 1}, {2024, 1, 1, 24}, {2024, 1, 1, 0, 60}})
    EXPECT_THROW(TDateTime::FromDate(p.Year, p.Month, p.Day, p.Hour, p.Minute), EConvertError) << p.Year;
}

TEST(DateTime, FormatsThePatternsOfTheJobs) {
  const std::pair<const char*, const char*> cases[] = {
      {"yyyy\\mm\\dd\\YYYY-mMm-dd hhnn", "2005\\11\\03\\2005-Nov-03 0407"},
      {"yymmddhh':'nnss._\"2400\"Aa'open", "05110304:0709._2400Aaopen"}};
  for (const auto& [pattern, text] : cases)
    EXPECT_EQ(FormatDateTime(pattern, TDateTime::FromDate(2005, 11, 3, 4, 7, 9)), text) << pattern;
}

TEST(SystemClock, SleepsInShortStepsThatLetEventsThrough) {
  int events = 0;
  const auto start = std::chrono::steady_clock::now();
  TSystemClock([&events] { ++events; }).Sleep(20ms);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
  EXPECT_TRUE(events >= 1 && events <= 5) << events;
}

TEST(Files, TimeSizeAndContentAreReadOfRegularFilesUpToALimit) {
  const test::TTempFolder folder;
  const TDateTime time = TDateTime::FromDate(1969, 12, 31, 23, 59, 59) + std::chrono::milliseconds(123);
  EXPECT_TRUE(SetFileDateTime(folder.Write("a", "12345"), time));
  EXPECT_EQ(GetFileDateTime(folder / "a"), time);
  EXPECT_TRUE(GetFileDateTime(folder / "none").IsZero());
  EXPECT_EQ(FileSizeOf(folder.Path()), -1);
  EXPECT_THROW(ReadWholeFile(folder / "a", 4), ERangeError);
  EXPECT_EQ(ReadWholeFile(folder / "a", 5), "12345");
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
  const TDescriptor file = OpenToRead(link);
  fs::permissions(link, fs::perms::owner_read);
  MoveFileWhole(file.Get(), link, kept);
  EXPECT_EQ(fs::status(kept).permissions(), usual);
  {
    const auto full_disk = test::LimitFileSize(8192);
    EXPECT_THROW(WriteFileWhole(kept, std::string(20000, 'x')), std::system_error);
  }
  EXPECT_EQ(ReadWholeFile(kept), "new");
  EXPECT_EQ(folder.Tree().size(), 2u);
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
