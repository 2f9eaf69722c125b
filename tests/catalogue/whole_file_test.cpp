#include "catalogue/whole_file.h"

#include <gmock/gmock.h>

#include "base/files.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;
const std::filesystem::path kPictures = SKYREEL_TEST_PICTURES;

TWay Way(TFileType type) {
  TWay way;
  way.Type = type;
  return way;
}

std::string Reason(TFileType type, std::string_view bytes) {
  return JudgeBytes(bytes, Way(type), {}).Reason;
}

TEST(WholeFile, ItsBeginningProvesTheTypeAndItsEndIsThere) {
  const std::string page = "\r\n<!DOCTYPE html>";
  const std::string tar = std::string(257, 'n') + "ustar\0"s, hdf5 = "\x89HDF\r\n\x1A\n",
                    pdf = "%PDF-1.7\n%%EOF\n";
  const auto picture = [](const char* name) { return ReadWholeFile(kPictures / name); };
  const std::tuple<TFileType, std::string, const char*> cases[] = {
      {TFileType::Jpeg, picture("inks.jpg"), ""},
      {TFileType::Jpeg, picture("inks.jpg") + "\r\n\0"s, ""},
      {TFileType::Jpeg, picture("inks.jpg") + "x", "cut off"},
      {TFileType::Png, picture("grey.png"), ""},
      {TFileType::Gif, picture("colour.gif"), ""},
      {TFileType::Tiff, picture("colour_lzw.tif"), ""},
      {TFileType::Tar, tar, ""},
      {TFileType::NetCdf, "CDF\5", ""},
      {TFileType::NetCdf, hdf5, ""},
      {TFileType::Hdf5, hdf5, ""},
      {TFileType::Hdf5, "CDF\1", "not an HDF5 file, but a netCDF file"},
      {TFileType::Pdf, pdf, ""},
      {TFileType::Pdf, pdf.substr(0, 12), "cut off"},
      {TFileType::Tar, tar.substr(0, 260), "not a tar archive"},
      {TFileType::Png, picture("inks.jpg"), "not a PNG picture, but a JPEG picture"},
      {TFileType::Gif, page, "a page"},
      {TFileType::Gif, "", "empty"}};
  for (const auto& [type, bytes, reason] : cases) {
    EXPECT_EQ(Reason(type, bytes).empty(), std::string_view(reason).empty()) << Reason(type, bytes);
    EXPECT_THAT(Reason(type, bytes), HasSubstr(reason));
  }
  const std::pair<TFileType, const char*> cut[] = {{TFileType::Jpeg, "inks_adobe.jpg"},
                                                   {TFileType::Png, "colour_interlaced.png"},
                                                   {TFileType::Gif, "colour_interlaced.gif"},
                                                   {TFileType::Tiff, "colour_plain.tif"}};
  for (const auto& [type, name] : cut) {
    const std::string whole = picture(name);
    for (std::size_t size = 1; size < whole.size(); ++size)
      ASSERT_NE(Reason(type, whole.substr(0, size)), "") << name << " " << size;
  }
}

TEST(WholeFile, TheDirectoriesOfATiffLieInsideItAndSoDoesWhatTheyName) {
  // Both have one strip of 4 bytes at their end; directories in front of the data are as in cloud-optimised
  // files.
  const std::string classic =
      "MM\0*\0\0\0\10"
      "\0\2"
      "\1\x11\0\4\0\0\0\1\0\0\0\x26"
      "\1\x17\0\3\0\0\0\1\0\4\0\0"
      "\0\0\0\0"
      "data"s;
  const std::string big =
      "II+\0\10\0\0\0\x10\0\0\0\0\0\0\0"
      "\2\0\0\0\0\0\0\0"
      "\x44\1\x10\0\1\0\0\0\0\0\0\0\x48\0\0\0\0\0\0\0"
      "\x45\1\4\0\1\0\0\0\0\0\0\0\4\0\0\0\0\0\0\0"
      "\0\0\0\0\0\0\0\0"
      "data"s;
  for (const std::string& whole : {classic, big}) {
    EXPECT_EQ(Reason(TFileType::Tiff, whole), "");
    for (std::size_t size = 4; size < whole.size(); ++size)
      EXPECT_NE(Reason(TFileType::Tiff, whole.substr(0, size)), "") << size;
  }
  // Where in the classic file, what stands there instead.
  const std::pair<std::size_t, std::string> damaged[] = {{7, "\0"s},          // no directory
                                                         {8, "\0\0"s},        // no entries
                                                         {34, "\0\0\0\10"s},  // the directory follows itself
                                                         {14, "\xFF\xFF\xFF\xFF"},  // more strips than bytes
                                                         {12, "\0\0"s},  // the places are of no known type
                                                         {12, "\0\x10\x7F\xFF\xFF"s}};
  for (const auto& [at, bytes] : damaged) {
    const std::string file = std::string(classic).replace(at, bytes.size(), bytes);
    EXPECT_NE(Reason(TFileType::Tiff, file), "") << at << " " << testing::PrintToString(bytes);
  }
}

TEST(WholeFile, LengthSizesAndDateAreThoseOfTheSlot) {
  const test::TTempFolder folder;
  const std::string picture = ReadWholeFile(kPictures / "grey.png");
  const auto size = static_cast<std::int64_t>(picture.size());
  const auto path = folder.Write("~a", picture);
  const TDateTime slot = TDateTime::FromDate(2026, 11, 26, 12, 0);
  using std::chrono::hours;
  TWay dated = Way(TFileType::Png), blank = dated, small = dated, large = dated, exact = dated;
  dated.Modified = {hours(0), hours(2)};
  blank.Blank = {1, size};
  small.MinSize = size + 1;
  large.MaxSize = size - 1;
  exact.MinSize = *(exact.MaxSize = size);
  const std::tuple<TWay, TFileFacts, TVerdictKind, const char*> cases[] = {
      {exact, {size, {}, slot}, TVerdictKind::Whole, ""},
      {exact, {size + 1, {}, slot}, TVerdictKind::Damaged, "were announced"},
      {dated, {{}, slot, slot}, TVerdictKind::Whole, ""},
      {dated, {{}, slot + hours(2), slot}, TVerdictKind::Whole, ""},
      {dated, {{}, slot - hours(1), slot}, TVerdictKind::NoPicture, "modified 2026-11-26 11:00 UTC"},
      {dated, {{}, slot + hours(3), slot}, TVerdictKind::NoPicture, "of another slot"},
      {dated, {{}, {}, slot}, TVerdictKind::NoPicture, "no date"},
      {blank, {}, TVerdictKind::NoPicture, "blank"},
      {small, {}, TVerdictKind::Refused, "fewer"},
      {large, {}, TVerdictKind::Refused, "more"}};
  for (const auto& [way, facts, kind, reason] : cases) {
    const TVerdict verdict = JudgeFile(path, way, facts);
    EXPECT_EQ(verdict.Kind, kind) << reason;
    EXPECT_THAT(verdict.Reason, HasSubstr(reason));
  }
}

}  // namespace
}  // namespace skyreel
