#include "decompress/uncompress.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "base/files.h"
#include "demo/lzw_encoder.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using namespace std::string_literals;

std::string Decode(std::string_view input) {
  TMemoryStream output;
  TUncompressor().Decompress(input, output);
  return std::string(output.View());
}

std::string DecodeError(std::string_view input) {
  TMemoryStream output;
  output.SetSize(5);
  try {
    TUncompressor().Decompress(input, output);
  } catch (const EDecompressError& error) {
    EXPECT_EQ(output.Size(), 0);
    return error.what();
  }
  return "no error";
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
std::string Sample(std::size_t size, unsigned values, unsigned seed = 1) {
  std::mt19937 random(seed);
  std::string data(size, '\0');
  for (char& byte : data) byte = static_cast<char>(random() % values);
  return data;
}

TEST(Uncompress, BadHeadersAreRefusedWithTheirReason) {
  const std::string signature = "File if not a valid .Z file, bad signature found";
  EXPECT_EQ(DecodeError(""), signature);
  EXPECT_EQ(DecodeError("\x1F"), signature);
  EXPECT_EQ(DecodeError("\x1F\x8B\x08"), signature);
  EXPECT_EQ(DecodeError("<html>"), signature);
  EXPECT_EQ(DecodeError("\x1F\x9D\x91"), "File is compressed with 17 bits, but I can only handle 16 bits.");
  EXPECT_EQ(DecodeError("\x1F\x9D\x9F"), "File is compressed with 31 bits, but I can only handle 16 bits.");
}

TEST(Uncompress, TooFewBytesForOneCodeDecodeToNothing) {
  EXPECT_EQ(Decode("\x1F\x9D"), "");
  EXPECT_EQ(Decode("\x1F\x9D\x90"), "");
  EXPECT_EQ(Decode("\x1F\x9D\x90\x41"), "");
  EXPECT_EQ(Decode("\x1F\x9D\x90\x41\x00"s), "A");
}

TEST(Uncompress, CodesBuiltByHand) {
  struct TCase {
    const char* Behaviour;
    std::string Input;
    std::string Output;
  };
  const TCase cases[] = {
      {"literals", Codes({'a', 'b', 'c'}), "abc"},
      {"an entry is the previous string plus the next byte", Codes({'a', 'b', 257, 258}), "ababba"},
      {"the entry just being made", Codes({'a', 257, 258}), "aaaaaa"},
      {"without block mode entries begin at 256", Codes({'a', 256, 257}, '\x10'), "aaaaaa"},
      {"a clear drops the rest of its group of eight codes",
       Codes({'a', 'b', 256, 300, 300, 300, 300, 300, 'c', 'd', 257}), "abcdcd"},
      {"a clear after a clear", Codes({'a', 256, 0, 0, 0, 0, 0, 0, 256, 0, 0, 0, 0, 0, 0, 0, 'b'}), "ab"},
      {"fewer than 9 bits: no entry is ever made", Codes({'a', 'b', 'c'}, '\x88'), "abc"},
      {"fewer than 9 bits, after a clear", Codes({'a', 256, 0, 0, 0, 0, 0, 0, 255, 'b', 255}, '\x88'),
       "a\xFF"
       "b\xFF"},
  };
  for (const TCase& c : cases) EXPECT_EQ(Decode(c.Input), c.Output) << c.Behaviour;
}

TEST(Uncompress, CodesThatStandForNothingAreRefused) {
  const std::string corrupt = "File is corrupt, a code stands for no string";
  EXPECT_EQ(DecodeError(Codes({257})), corrupt) << "first code no byte";
  EXPECT_EQ(DecodeError(Codes({256})), corrupt) << "first code a clear";
  EXPECT_EQ(DecodeError(Codes({'a', 258})), corrupt) << "one beyond the next entry";
  EXPECT_EQ(DecodeError(Codes({'a', 511})), corrupt);
  EXPECT_EQ(DecodeError(Codes({'a', 256, 0, 0, 0, 0, 0, 0, 257})), corrupt) << "first code after a clear";
  EXPECT_EQ(DecodeError(Codes({'a', 257}, '\x10')), corrupt) << "without block mode";
}

TEST(Uncompress, EveryWidthAndModeDecodesToTheByte) {
  for (int bits = 9; bits <= 16; ++bits) {
    for (const bool block : {true, false}) {
      for (const unsigned values : {2U, 40U, 256U}) {
        const std::string data = Sample(400'000, values);
        const std::string packed =
            LzwEncode(data, {.MaximumBits = bits, .BlockMode = block, .ClearAfter = {}});
        EXPECT_TRUE(Decode(packed) == data) << bits << " bits, block mode " << block << ", values " << values;
      }
    }
  }
}

TEST(Uncompress, ClearsAndGrowthAtEveryPlaceInAGroup) {
  const std::string data = Sample(9'000, 256);
  for (std::int64_t period = 1; period < 1100;
       period += period < 20 || (period > 250 && period < 270) ? 1 : 31) {
    const std::string packed =
        LzwEncode(data, {.MaximumBits = 12, .BlockMode = true, .ClearAfter = [period](std::int64_t codes) {
                           return codes % (period + 1) == period - 1;
                         }});
    ASSERT_TRUE(Decode(packed) == data) << "a clear after every " << period << " codes";
  }
  // Cut behind every byte: the output ends with the last complete code, and never differs before it.
  const std::string packed = LzwEncode(data, {.MaximumBits = 10, .BlockMode = true, .ClearAfter = {}});
  std::size_t last = 0;
  TUncompressor decoder;
  TMemoryStream part;
  for (std::size_t size = 3; size <= packed.size(); ++size) {
    decoder.Decompress(std::string_view(packed).substr(0, size), part);
    ASSERT_TRUE(data.starts_with(part.View())) << size;
    ASSERT_GE(part.View().size(), last);
    last = part.View().size();
  }
  EXPECT_EQ(last, data.size());
}

TEST(Uncompress, LongStringsDecodeAndTheDecoderCanBeUsedAgain) {
  TUncompressor decoder;
  TMemoryStream output;
  const std::string data(40'000'000, 'x');  // strings of up to 8,900 bytes
  decoder.Decompress(LzwEncode(data), output);
  EXPECT_TRUE(output.View() == data);
  decoder.Decompress(LzwEncode("short"), output);
  EXPECT_EQ(output.View(), "short");
}

TEST(Uncompress, OutputIsBounded) {
  const std::string data(1'000'000, 'x');
  const std::string packed = LzwEncode(data);
  ASSERT_LT(packed.size(), 5'000U);
  TUncompressor decoder;
  TMemoryStream output;
  decoder.OutputLimit = 1'000'000;
  decoder.Decompress(packed, output);
  EXPECT_TRUE(output.View() == data);
  decoder.OutputLimit = 999'999;
  EXPECT_THROW(decoder.Decompress(packed, output), EDecompressError);
  EXPECT_EQ(output.Size(), 0);
}

class UncompressFiles : public testing::Test {
 protected:
  test::TTempFolder folder_;
};

TEST_F(UncompressFiles, ToolsAndDecoderAgree) {
  const std::string data = Sample(300'000, 30);
  const std::string plain = folder_.Write("data", data).string();
  const std::string packed = (folder_ / "packed.Z").string();
  for (int bits = 10; bits <= 16; ++bits) {
    const std::string command = "compress -b " + std::to_string(bits) + " -c " + plain + " > " + packed;
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    EXPECT_TRUE(Decode(ReadWholeFile(packed)) == data) << bits << " bits of compress";
  }
  for (int bits = 9; bits <= 16; ++bits) {
    for (const bool block : {true, false}) {
      folder_.Write("packed.Z", LzwEncode(data, {.MaximumBits = bits, .BlockMode = block, .ClearAfter = {}}));
      const std::string command = "gzip -dc < " + packed + " | cmp -s - " + plain;
      EXPECT_EQ(std::system(command.c_str()), 0) << "gzip reads our stream of " << bits << ", " << block;
    }
  }
}

TEST_F(UncompressFiles, WritesBesideTheInputWithItsTime) {
  const auto packed = folder_.Write("a.b.Z", LzwEncode("content"));
  folder_.Write("a.b", "older and longer content");
  const TDateTime time = TDateTime::FromDate(2005, 11, 10, 12, 30);
  ASSERT_TRUE(SetFileDateTime(packed, time));
  EXPECT_TRUE(UncompressFile(packed));
  EXPECT_EQ(ReadWholeFile(folder_ / "a.b"), "content");
  EXPECT_EQ(GetFileDateTime(folder_ / "a.b"), time);
  EXPECT_EQ(folder_.Tree().size(), 2U);
}

TEST_F(UncompressFiles, FailureWritesNothing) {
  EXPECT_FALSE(UncompressFile(folder_ / "missing.Z"));
  EXPECT_FALSE(UncompressFile(folder_.Write("empty.Z", "\x1F\x9D\x90")));
  EXPECT_THROW(UncompressFile(folder_.Write("gzip.Z", "\x1F\x8B\x08")), EDecompressError);
  folder_.Write("kept", "older");
  EXPECT_THROW(UncompressFile(folder_.Write("kept.Z", Codes({'a', 300}))), EDecompressError);
  EXPECT_THROW(UncompressFile(folder_.Write("noextension", LzwEncode("x"))), EDecompressError);
  EXPECT_THROW(UncompressFile(folder_.Write(".Z", LzwEncode("x"))), EDecompressError);
  EXPECT_EQ(ReadWholeFile(folder_ / "kept"), "older");
  EXPECT_EQ(folder_.Tree().size(), 6U);
}

}  // namespace
}  // namespace skyreel
