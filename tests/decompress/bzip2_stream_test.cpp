#include "decompress/bzip2_stream.h"

#include <gtest/gtest.h>

#include <random>

#include "base/files.h"
#include "decompress/uncompress.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

std::string Pack(std::string data) {
  std::string out(data.size() + data.size() / 50 + 1000, '\0');
  unsigned size = static_cast<unsigned>(out.size());
  EXPECT_EQ(
      BZ2_bzBuffToBuffCompress(out.data(), &size, data.data(), static_cast<unsigned>(data.size()), 1, 0, 0),
      BZ_OK);
  out.resize(size);
  return out;
}

/// Three blocks of the smallest block size, more than one input buffer.
std::string Sample() {
  std::mt19937 random(7);
  std::string data(250'000, '\0');
  for (char& byte : data) byte = static_cast<char>(random() % 64);
  return data;
}

std::string ReadAll(TStream& stream, std::int64_t chunk) {
  std::string all;
  std::string buffer(static_cast<std::size_t>(chunk), '\0');
  for (;;) {
    const std::int64_t got = stream.Read(buffer.data(), chunk);
    all.append(buffer, 0, static_cast<std::size_t>(got));
    if (got < chunk) return all;
  }
}

template <typename TError, typename TAction>
std::string Message(TAction action) {
  try {
    action();
  } catch (const TError& error) {
    return error.what();
  }
  return "no error";
}

TEST(BZip2Stream, DeliversTheDataInPiecesOfAnySize) {
  const std::string data = Sample();
  const std::string packed = Pack(data);
  for (const std::int64_t chunk : {1000, 32768, 999'999}) {
    TViewStream source(packed);
    TBZDecompressionStream stream(source);
    int chunks = 0;
    stream.OnChunkDecoded = [&](TCustomBZip2Stream& sender) {
      EXPECT_EQ(&sender, &stream);
      ++chunks;
    };
    EXPECT_TRUE(ReadAll(stream, chunk) == data) << chunk;
    EXPECT_TRUE(stream.StreamEnded());
    EXPECT_GE(chunks, 3);
    EXPECT_EQ(stream.Read(nullptr, 0), 0);
  }
}

TEST(BZip2Stream, ReturnsToItsPlaceInASourceThatOthersMove) {
  const std::string data = Sample();
  const std::string packed = Pack(data);
  TViewStream source(packed);
  TBZDecompressionStream stream(source);
  std::string first(100'000, '\0');
  ASSERT_EQ(stream.Read(first.data(), 100'000), 100'000);
  source.Seek(3, TSeekOrigin::Beginning);
  EXPECT_TRUE(first + ReadAll(stream, 32768) == data);
}

TEST(BZip2Stream, FailuresCarryTheLibrarysCode) {
  const std::string good = Pack("some data");
  std::string damaged = Pack(Sample());
  damaged[damaged.size() / 2] = static_cast<char>(~damaged[damaged.size() / 2]);
  const std::pair<std::string, std::string> cases[] = {
      {"<html>no bzip2</html>", "error -5"},
      {damaged, "error -4"},
      {good + good, "error -1"},
      {good + "rubbish", "error -1"},
  };
  for (const auto& [input, text] : cases) {
    TViewStream source(input);
    TBZDecompressionStream stream(source);
    EXPECT_EQ(Message<EBZCompressionError>([&] { ReadAll(stream, 4096); }), text);
  }
}

TEST(BZip2Stream, SeeksToTheBeginningAndForwardOnly) {
  const std::string data = Sample();
  const std::string packed = Pack(data);
  TViewStream source(packed);
  TBZDecompressionStream stream(source);
  const auto next = [&] {
    char byte = 0;
    EXPECT_EQ(stream.Read(&byte, 1), 1);
    return byte;
  };
  EXPECT_EQ(stream.Seek(10, TSeekOrigin::Beginning), 10);
  EXPECT_EQ(next(), data[10]);
  EXPECT_EQ(stream.Seek(5000, TSeekOrigin::Current), 5011);
  EXPECT_EQ(next(), data[5011]);
  EXPECT_EQ(stream.Seek(0, TSeekOrigin::Current), 5012);
  const std::pair<std::int64_t, TSeekOrigin> refused[] = {{5012, TSeekOrigin::Beginning},
                                                          {5, TSeekOrigin::Beginning},
                                                          {-1, TSeekOrigin::Current},
                                                          {0, TSeekOrigin::End},
                                                          {-1, TSeekOrigin::Beginning}};
  for (const auto& [offset, origin] : refused) {
    EXPECT_EQ(Message<EBZDecompressionError>([&] { stream.Seek(offset, origin); }),
              "Invalid stream operation");
  }
  EXPECT_EQ(Message<EBZDecompressionError>([&] { stream.Write("x", 1); }), "Invalid stream operation");
  EXPECT_EQ(stream.Seek(0, TSeekOrigin::Beginning), 0);
  EXPECT_TRUE(ReadAll(stream, 32768) == data);
  EXPECT_EQ(stream.Seek(1'000'000, TSeekOrigin::Beginning), 250'000) << "beyond the end";
}

class Bz2Files : public testing::Test {
 protected:
  test::TTempFolder folder_;
};

TEST_F(Bz2Files, WritesBesideTheInputWithItsTime) {
  const std::string data = Sample();
  const auto packed = folder_.Write("picture.bz2", Pack(data));
  const TDateTime time = TDateTime::FromDate(2005, 11, 10, 12, 30);
  ASSERT_TRUE(SetFileDateTime(packed, time));
  int events = 0;
  EXPECT_TRUE(DecompressBz2File(packed, [&] {
    ++events;
    EXPECT_EQ(folder_.Tree().size(), 1U) << "nothing is written before the end";
  }));
  EXPECT_GE(events, 8);
  EXPECT_TRUE(ReadWholeFile(folder_ / "picture") == data);
  EXPECT_EQ(GetFileDateTime(folder_ / "picture"), time);
  EXPECT_EQ(folder_.Tree().size(), 2U);
}

TEST_F(Bz2Files, EmptyInputMakesAnEmptyFileAndMissingOneNone) {
  EXPECT_FALSE(DecompressBz2File(folder_ / "missing.bz2"));
  EXPECT_TRUE(folder_.Tree().empty());
  EXPECT_FALSE(DecompressBz2File(folder_.Write("empty.bz2", "")));
  EXPECT_EQ(FileSizeOf(folder_ / "empty"), 0);
  EXPECT_FALSE(DecompressBz2File(folder_.Write("nothing.bz2", Pack(""))));
  EXPECT_EQ(FileSizeOf(folder_ / "nothing"), 0);
}

TEST_F(Bz2Files, FailureKeepsTheOlderFileAndLeavesNoOther) {
  const std::string good = Pack(Sample());
  folder_.Write("x", "older");
  const std::pair<std::string, std::string> cases[] = {
      {good.substr(0, good.size() - 1), "error -7"},
      {good.substr(0, good.size() / 2), "error -7"},
      {good.substr(0, 2), "error -7"},
      {good + "rubbish", "error -1"},
      {"rubbish", "error -5"},
  };
  for (const auto& [input, text] : cases) {
    const auto path = folder_.Write("x.bz2", input);
    EXPECT_EQ(Message<EBZCompressionError>([&] { DecompressBz2File(path); }), text) << input.size();
    EXPECT_EQ(ReadWholeFile(folder_ / "x"), "older");
    EXPECT_EQ(folder_.Tree().size(), 2U);
  }
  const auto path = folder_.Write("x.bz2", good);
  EXPECT_THROW(DecompressBz2File(path, {}, 249'999), EDecompressError);
  EXPECT_THROW(DecompressBz2File(path, [] { throw std::runtime_error("stop"); }), std::runtime_error);
  EXPECT_EQ(ReadWholeFile(folder_ / "x"), "older");
  EXPECT_EQ(folder_.Tree().size(), 2U);
}

}  // namespace
}  // namespace skyreel
