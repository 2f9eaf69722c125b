#include "decompress/uncompress.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "base/files.h"
#include "demo/lzw_encoder.h"
#include "support/failure.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using namespace std::string_literals;

/// The output, or the message of the failure, which leaves no output.
std::string Decode(std::string_view input, std::int64_t limit = 1 << 30) {
  TMemoryStream output;
  output.SetSize(5);
  TUncompressor decoder;
  decoder.OutputLimit = limit;
  const std::string failure = test::Failure<EDecompressError>([&] { decoder.Decompress(input, output); });
  EXPECT_TRUE(failure.empty() || output.Size() == 0);
  return failure.empty() ? std::string(output.View()) : failure;
}

/// Codes of 9 bits behind a header.
std::string Codes(const std::vector<unsigned>& codes, char flags = '\x90') {
  std::string out{'\x1F', '\x9D', flags};
  unsigned long long bits = 0;
  unsigned count = 0;
  for (const unsigned code : codes) {
    bits |= static_cast<unsigned long long>(code) << count;
    for (count += 9; count >= 8; count -= 8, bits >>= 8) out += static_cast<char>(bits & 0xFF);
  }
  if (count > 0) out += static_cast<char>(bits & 0xFF);
  return out;
}

/// Fills tables quickly: few different bytes, so that strings grow long as well.
std::string Sample(std::size_t size, unsigned values) {
  std::mt19937 random(1);
  std::string data(size, '\0');
  for (char& byte : data) byte = static_cast<char>(random() % values);
  return data;
}

TEST(Uncompress, StreamsBuiltByHandDecodeOrAreRefusedWithTheirReason) {
  const std::string signature = "File if not a valid .Z file, bad signature found",
                    corrupt = "File is corrupt, a code stands for no string",
                    wide = "File is compressed with 17 bits, but I can only handle 16 bits.";
  const struct {
    const char* What;
    std::string Input, Output;
  } cases[] = {
      {"nothing", "", signature},
      {"half a signature", "\x1F", signature},
      {"gzip", "\x1F\x8B\x08", signature},
      {"17 bits", "\x1F\x9D\x91", wide},
      {"no flags", "\x1F\x9D", ""},
      {"less than a code", "\x1F\x9D\x90\x41", ""},
      {"literals", Codes({'a', 'b', 'c'}), "abc"},
      {"an entry is the previous string and the next byte", Codes({'a', 'b', 257, 258}), "ababba"},
      {"the entry just being made", Codes({'a', 257, 258}), "aaaaaa"},
      {"without block mode entries begin at 256", Codes({'a', 256, 257}, '\x10'), "aaaaaa"},
      {"a clear drops the rest of its group of eight codes",
       Codes({'a', 'b', 256, 300, 300, 300, 300, 300, 'c', 'd', 257}), "abcdcd"},
      {"a clear after a clear", Codes({'a', 256, 0, 0, 0, 0, 0, 0, 256, 0, 0, 0, 0, 0, 0, 0, 'b'}), "ab"},
      {"fewer than 9 bits: no entry is ever made", Codes({'a', 'b', 'c'}, '\x88'), "abc"},
      {"the same after a clear", Codes({'a', 256, 0, 0, 0, 0, 0, 0, 255, 'b'}, '\x88'),
       "a\xFF"
       "b"},
      {"the first code no byte", Codes({257}), corrupt},
      {"the first code a clear", Codes({256}), corrupt},
      {"one beyond the next entry", Codes({'a', 258}), corrupt},
      {"the first code after a clear", Codes({'a', 256, 0, 0, 0, 0, 0, 0, 257}), corrupt},
      {"beyond the next without block mode", Codes({'a', 257}, '\x10'), corrupt},
  };
  for (const auto& c : cases) EXPECT_EQ(Decode(c.Input), c.Output) << c.What;
}

TEST(Uncompress, ToolsAndDecoderAgreeInEveryWidthAndMode) {
  const test::TTempFolder folder;
  const std::string data = Sample(300'000, 30), plain = folder.Write("data", data).string();
  const std::string packed = (folder / "packed.Z").string();
  for (int bits = 9; bits <= 16; ++bits) {
    for (const bool block : {true, false}) {
      for (const unsigned values : {2U, 256U}) {
        const std::string other = Sample(400'000, values);
        EXPECT_TRUE(Decode(LzwEncode(other, {bits, block, {}})) == other)
            << bits << ", " << block << ", " << values;
      }
      folder.Write("packed.Z", LzwEncode(data, {bits, block, {}}));
      const std::string read = "gzip -dc < " + packed + " | cmp -s - " + plain;
      EXPECT_EQ(std::system(read.c_str()), 0) << "gzip reads our stream of " << bits << ", " << block;
    }
    const std::string write = "compress -b " + std::to_string(bits) + " -c " + plain + " > " + packed;
    if (bits == 9) continue;  // what it writes then, nobody reads
    ASSERT_EQ(std::system(write.c_str()), 0) << write;
    EXPECT_TRUE(Decode(ReadWholeFile(packed)) == data) << bits << " bits of compress";
  }
}

TEST(Uncompress, ClearsAndCutsAtEveryPlaceInAGroup) {
  const std::string data = Sample(9'000, 256);
  for (std::int64_t period = 1; period < 1100;
       period += period < 20 || (period > 250 && period < 270) ? 1 : 31) {
    const auto clear = [period](std::int64_t codes) { return codes % (period + 1) == period - 1; };
    ASSERT_TRUE(Decode(LzwEncode(data, {12, true, clear})) == data)
        << "a clear after every " << period << " codes";
  }
  // The output ends with the last complete code, and never differs before it.
  const std::string packed = LzwEncode(data, {10, true, {}});
  std::size_t last = 0;
  for (std::size_t size = 3; size <= packed.size(); ++size) {
    const std::string part = Decode(std::string_view(packed).substr(0, size));
    ASSERT_TRUE(data.starts_with(part) && part.size() >= last) << size;
    last = part.size();
  }
  EXPECT_EQ(last, data.size());
}

TEST(Uncompress, LongStringsDecodeUpToTheLimitOfTheOutput) {
  const std::string data(10'000'000, 'x');  // strings of up to 4,400 bytes
  const std::string packed = LzwEncode(data);
  EXPECT_TRUE(Decode(packed, 10'000'000) == data);
  EXPECT_LT(Decode(packed, 9'999'999).size(), 100u);
}

TEST(UncompressFiles, AreWrittenBesideTheInputWithItsTimeOrNotAtAll) {
  const test::TTempFolder folder;
  const auto packed = folder.Write("a.b.Z", LzwEncode("content"));
  folder.Write("a.b", "older and longer content");
  const TDateTime time = TDateTime::FromDate(2005, 11, 10, 12, 30);
  ASSERT_TRUE(SetFileDateTime(packed, time));
  EXPECT_TRUE(UncompressFile(packed));
  EXPECT_EQ(ReadWholeFile(folder / "a.b"), "content");
  EXPECT_EQ(GetFileDateTime(folder / "a.b"), time);

  EXPECT_FALSE(UncompressFile(folder / "missing.Z"));
  EXPECT_FALSE(UncompressFile(folder.Write("a.b.Z", "\x1F\x9D\x90")));
  for (const std::string& bad : {"\x1F\x8B\x08"s, Codes({'a', 300})})
    EXPECT_THROW(UncompressFile(folder.Write("a.b.Z", bad)), EDecompressError);
  EXPECT_EQ(ReadWholeFile(folder / "a.b"), "content") << "the older file";
  for (const char* name : {"noextension", ".Z"})
    EXPECT_THROW(UncompressFile(folder.Write(name, LzwEncode("x"))), EDecompressError);
  EXPECT_EQ(folder.Tree().size(), 4U);
}

}  // namespace
}  // namespace skyreel
