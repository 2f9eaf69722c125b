#include "decompress/bzip2_stream.h"

#include <gtest/gtest.h>

#include <random>

#include "base/files.h"
#include "decompress/uncompress.h"
#include "support/failure.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using test::Failure;

std::string Pack(std::string data) {
  std::string out(data.size() + data.size() / 50 + 1000, '\0');
  auto size = static_cast<unsigned>(out.size());
  BZ2_bzBuffToBuffCompress(out.data(), &size, data.data(), static_cast<unsigned>(data.size()), 1, 0, 0);
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
  std::string all, buffer(static_cast<std::size_t>(chunk), '\0');
  for (;;) {
    const std::int64_t got = stream.Read(buffer.data(), chunk);
    all.append(buffer, 0, static_cast<std::size_t>(got));
    if (got < chunk) return all;
  }
}

TEST(BZip2Stream, DeliversTheDataInPiecesOfAnySizeFromASourceThatOthersMove) {
  const std::string data = Sample(), packed = Pack(data);
  for (const std::int64_t chunk : {1000, 32768, 999'999}) {
    TViewStream source(packed);
    TBZDecompressionStream stream(source);
    int chunks = 0;
    stream.OnChunkDecoded = [&](TCustomBZip2Stream&) { ++chunks; };
    std::string first(100'000, '\0');
    ASSERT_EQ(stream.Read(first.data(), 100'000), 100'000);
    source.Seek(3, TSeekOrigin::Beginning);
    EXPECT_TRUE(first + ReadAll(stream, chunk) == data) << chunk;
    EXPECT_TRUE(stream.StreamEnded());
    EXPECT_GE(chunks, 3);
    EXPECT_EQ(stream.Read(nullptr, 0), 0);
  }
}

TEST(BZip2Stream, SeeksToTheBeginningAndForwardOnly) {
  const std::string data = Sample(), packed = Pack(data);
  TViewStream source(packed);
  TBZDecompressionStream stream(source);
  char byte = 0;
  EXPECT_EQ(stream.Seek(10, TSeekOrigin::Beginning), 10);
  EXPECT_EQ(stream.Seek(5000, TSeekOrigin::Current), 5010);
  EXPECT_EQ(stream.Read(&byte, 1), 1);
  EXPECT_EQ(byte, data[5010]);
  const std::pair<std::int64_t, TSeekOrigin> refused[] = {{5011, TSeekOrigin::Beginning},
                                                          {-1, TSeekOrigin::Current},
                                                          {0, TSeekOrigin::End},
                                                          {-1, TSeekOrigin::Beginning}};
  for (const auto& [offset, origin] : refused) {
    EXPECT_EQ(Failure<EBZDecompressionError>([&, to = offset, from = origin] { stream.Seek(to, from); }),
              "Invalid stream operation");
  }
  EXPECT_EQ(Failure<EBZDecompressionError>([&] { stream.Write("x", 1); }), "Invalid stream operation");
  EXPECT_EQ(stream.Seek(0, TSeekOrigin::Current), 5011);
  EXPECT_EQ(stream.Seek(0, TSeekOrigin::Beginning), 0);
  EXPECT_TRUE(ReadAll(stream, 32768) == data);
  EXPECT_EQ(stream.Seek(1'000'000, TSeekOrigin::Beginning), 250'000) << "beyond the end";
}

TEST(Bz2Files, AreWrittenBesideTheInputWithItsTime) {
  const test::TTempFolder folder;
  const std::string data = Sample();
  const auto packed = folder.Write("picture.bz2", Pack(data));
  const TDateTime time = TDateTime::FromDate(2005, 11, 10, 12, 30);
  ASSERT_TRUE(SetFileDateTime(packed, time));
  int events = 0;
  EXPECT_TRUE(DecompressBz2File(packed, [&] {
    ++events;
    EXPECT_EQ(folder.Tree().size(), 1U) << "nothing is written before the end";
  }));
  EXPECT_GE(events, 8);
  EXPECT_TRUE(ReadWholeFile(folder / "picture") == data);
  EXPECT_EQ(GetFileDateTime(folder / "picture"), time);
  EXPECT_FALSE(DecompressBz2File(folder / "missing.bz2"));
  for (const std::string& input : {std::string(), Pack("")}) {
    EXPECT_FALSE(DecompressBz2File(folder.Write("nothing.bz2", input)));
    EXPECT_EQ(FileSizeOf(folder / "nothing"), 0);
  }
}

TEST(Bz2Files, AFailureCarriesTheLibrarysCodeKeepsTheOlderFileAndLeavesNoOther) {
  const test::TTempFolder folder;
  const std::string good = Pack(Sample());
  std::string damaged = good;
  damaged[damaged.size() / 2] = static_cast<char>(~damaged[damaged.size() / 2]);
  folder.Write("x", "older");
  const std::pair<std::string, std::string> cases[] = {{good.substr(0, good.size() - 1), "error -7"},
                                                       {good.substr(0, 2), "error -7"},
                                                       {damaged, "error -4"},
                                                       {good + good, "error -1"},
                                                       {good + "rubbish", "error -1"},
                                                       {"rubbish", "error -5"}};
  for (const auto& [input, text] : cases) {
    const auto path = folder.Write("x.bz2", input);
    EXPECT_EQ(Failure<EBZCompressionError>([&] { DecompressBz2File(path); }), text) << input.size();
  }
  const auto path = folder.Write("x.bz2", good);
  EXPECT_THROW(DecompressBz2File(path, {}, 249'999), EDecompressError);
  EXPECT_EQ(Failure([&] { DecompressBz2File(path, [] { throw std::runtime_error("stop"); }); }), "stop");
  EXPECT_EQ(ReadWholeFile(folder / "x"), "older");
  EXPECT_EQ(folder.Tree().size(), 2U);
}

}  // namespace
}  // namespace skyreel
