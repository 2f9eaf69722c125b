#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "base/files.h"
#include "decompress/bzip2_stream.h"
#include "decompress/uncompress.h"
#include "demo/encoders.h"
#include "demo/lzw_encoder.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

using demo::CompressBz2;
using test::Failure;
using TPath = std::filesystem::path;

/// First few different bytes, so that strings grow long, then all, so that the table fills quickly. Five
/// bzip2 blocks of the smallest size, more than one input buffer.
std::string Sample() {
  std::mt19937 random(7);
  std::string data(450'000, '\0');
  for (std::size_t i = 0; i < data.size(); ++i)
    data[i] = static_cast<char>(random() % (i < 200'000 ? 3 : 256));
  return data;
}

/// The output, or the message of the failure.
std::string Decode(std::string_view input, std::int64_t limit = 1 << 30) {
  TMemoryStream output;
  output.SetSize(5);
  TUncompressor decoder;
  decoder.OutputLimit = limit;
  const std::string failure = Failure<EDecompressError>([&] { decoder.Decompress(input, output); });
  return failure + std::string(output.View());
}

/// Codes of 9 bits behind a header.
std::string Codes(const std::vector<unsigned>& codes, char flags = '\x90') {
  std::string out{'\x1F', '\x9D', flags};
  for (std::size_t bit = 0; bit < codes.size() * 9; ++bit) {
    if (bit % 8 == 0) out += '\0';
    out.back() = static_cast<char>(out.back() | (codes[bit / 9] >> bit % 9 & 1) << bit % 8);
  }
  return out;
}

TEST(Uncompress, DecodesOrRefusesStreamsBuiltByHand) {
  const std::string corrupt = "File is corrupt, undefined code";
  const std::pair<std::string, std::string> cases[] = {
      {"\x1F\x8B\x08", "File if not a valid .Z file, bad signature found"},
      {"\x1F\x9D\x91", "File is compressed with 17 bits, but I can only handle 16 bits."},
      // No flags, a cut code.
      {"\x1F\x9D", ""},
      {Codes({'a', 'b', 'c'}).substr(0, 6), "ab"},
      // Entries: the previous string and the next byte; from 256 on without block
      // mode.
      {Codes({'a', 'b', 257, 258}), "ababba"},
      {Codes({'a', 256, 257}, '\x10'), "aaaaaa"},
      // A clear drops the rest of its group of eight codes, also a clear after a clear.
      {Codes({'a', 'b', 256, 300, 300, 300, 300, 300, 'c', 'd', 257}), "abcdcd"},
      {Codes({'a', 256, 0, 0, 0, 0, 0, 0, 256, 0, 0, 0, 0, 0, 0, 0, 'b'}), "ab"},
      // With at most 8 bits no entry is made.
      {Codes({'a', 256, 0, 0, 0, 0, 0, 0, 'c', 'b'}, '\x88'), "acb"},
      // Undefined: the first code a clear; beyond the next entry; the first code after a clear.
      {Codes({256}), corrupt},
      {Codes({'a', 258}), corrupt},
      {Codes({'a', 256, 0, 0, 0, 0, 0, 0, 257}), corrupt}};
  for (const auto& [input, output] : cases) EXPECT_EQ(Decode(input), output) << testing::PrintToString(input);
}

TEST(Uncompress, ReadsEveryWidthAndModeUpToTheLimitOfTheOutput) {
  const test::TTempFolder folder;
  const std::string data = Sample();
  ASSERT_EQ(std::system(("compress " + folder.Write("data", data).string()).c_str()), 0);
  EXPECT_TRUE(Decode(ReadWholeFile(folder / "data.Z")) == data);
  for (int bits = 9; bits <= 16; ++bits) {
    // Each at another place of a group, the group at the second width.
    const auto clear = [bits](std::int64_t codes) { return codes % (257 + bits) == 0; };
    for (const TLzwOptions& options : {TLzwOptions{bits, true, {}}, {bits, false, {}}, {bits, true, clear}})
      EXPECT_TRUE(Decode(LzwEncode(data, options)) == data) << bits << ", " << options.BlockMode;
  }
  const std::string same(10'000'000, 'x');  // strings of up to 4,400 bytes
  EXPECT_TRUE(Decode(LzwEncode(same), 10'000'000) == same);
  EXPECT_EQ(Decode(LzwEncode(same), 9'999'999), "File decodes to more than 9999999 bytes");
}

TEST(BZip2Stream, ReadsAndSeeksForwardAndToTheBeginningWhileOthersMoveItsSource) {
  const test::TTempFolder folder;
  const std::string data = Sample();
  TFileStream source(folder.Write("x", CompressBz2(data)));
  TBZDecompressionStream stream(source);
  EXPECT_EQ(stream.Seek(100'010, TSeekOrigin::Current), 100'010);
  source.Seek(3, TSeekOrigin::Beginning);
  std::string read(500'000, '\0');
  EXPECT_EQ(stream.Read(read.data(), 300'000), 300'000);
  EXPECT_TRUE(read.starts_with(data.substr(100'010, 300'000)));
  EXPECT_THROW(stream.Seek(400'010, TSeekOrigin::Beginning), EBZDecompressionError);
  EXPECT_THROW(stream.Seek(0, TSeekOrigin::End), EBZDecompressionError);
  EXPECT_EQ(Failure<EBZDecompressionError>([&] { stream.Write("x", 1); }), "Invalid stream operation");
  EXPECT_EQ(stream.Seek(0, TSeekOrigin::Current), 400'010);
  EXPECT_EQ(stream.Seek(0, TSeekOrigin::Beginning), 0);
  EXPECT_EQ(stream.Read(read.data(), 500'000), 450'000);
  EXPECT_TRUE(read.starts_with(data) && stream.StreamEnded());
  EXPECT_EQ(stream.Seek(1'000'000, TSeekOrigin::Beginning), 450'000) << "beyond the end";
}

TEST(Files, AreDecodedBesideTheInputWithItsTimeOrNotAtAll) {
  int events = 0;
  const auto count = [&events] { ++events; };
  const auto unpack_bz2 = [&](const TPath& path) { return DecompressBz2File(path, count, 500'000); };
  const std::tuple<const char*, std::string, std::string, std::function<bool(TPath)>> kinds[] = {
      {"a.b.Z", LzwEncode(Sample()), Codes({'a', 300}), UncompressFile},
      {"a.b.bz2", CompressBz2(Sample()), CompressBz2(std::string(500'001, 'x')), unpack_bz2}};
  for (const auto& [name, good, bad, unpack] : kinds) {
    const test::TTempFolder folder;
    const TDateTime time = TDateTime::FromDate(2005, 11, 10, 12, 30);
    folder.Write("a.b", "older");
    EXPECT_THROW(unpack(folder.Write(name, bad)), EDecompressError);
    EXPECT_EQ(ReadWholeFile(folder / "a.b"), "older");
    ASSERT_TRUE(SetFileDateTime(folder.Write(name, good), time));
    EXPECT_TRUE(unpack(folder / name));
    EXPECT_TRUE(ReadWholeFile(folder / "a.b") == Sample());
    EXPECT_EQ(GetFileDateTime(folder / "a.b"), time);
    EXPECT_FALSE(unpack(folder / "missing.Z"));
    EXPECT_EQ(folder.Tree().size(), 2U);
    for (const char* unusable : {"noextension", ".Z"})
      EXPECT_THROW(unpack(folder.Write(unusable, good)), EDecompressError);
  }
  EXPECT_GE(events, 10);
}

TEST(Files, OfBzip2FailWithTheCodeOfTheLibraryAndMayBeEmpty) {
  const test::TTempFolder folder;
  const std::string good = CompressBz2(Sample());
  const std::pair<std::string, std::string> cases[] = {{good.substr(0, good.size() - 1), "error -7"},
                                                       {good + good, "error -1"},
                                                       {"", ""},
                                                       {CompressBz2(""), ""}};
  for (const auto& [input, text] : cases) {
    const auto unpack = [path = folder.Write("x.bz2", input)] { EXPECT_FALSE(DecompressBz2File(path)); };
    EXPECT_EQ(Failure<EBZCompressionError>(unpack), text) << input.size();
    EXPECT_EQ(FileSizeOf(folder / "x"), text.empty() ? 0 : -1);
  }
  EXPECT_FALSE(UncompressFile(folder.Write("z.Z", "\x1F\x9D\x90")));
}

}  // namespace
}  // namespace skyreel
