// The .Z decoder and the bzip2 stream in process, into memory that is already warm.

#include <benchmark/benchmark.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "base/files.h"
#include "base/scope.h"
#include "bench/synthetic_picture.h"
#include "decompress/bzip2_stream.h"
#include "decompress/uncompress.h"
#include "demo/encoders.h"
#include "demo/lzw_encoder.h"

namespace skyreel {
namespace {

void DecodeZ(benchmark::State& state, const std::string& data) {
  const std::string packed = LzwEncode(data);
  TUncompressor decoder;
  TMemoryStream output;
  decoder.Decompress(packed, output);
  if (output.View() != data) throw std::runtime_error("decoded data differs");
  for (auto _ : state) decoder.Decompress(packed, output);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * output.Size());
  state.counters["packed/plain"] = static_cast<double>(packed.size()) / static_cast<double>(data.size());
}

void DecodeBz2(benchmark::State& state, const std::string& data) {
  const std::filesystem::path file = std::filesystem::temp_directory_path() / "skyreel-bench.bz2";
  WriteFileWhole(file, demo::CompressBz2(data, 9));
  const TAtScopeEnd remove([&file] { std::filesystem::remove(file); });
  std::string output(data.size(), '\0');
  for (auto _ : state) {
    TFileStream source(file);
    TBZDecompressionStream stream(source);
    if (stream.Read(output.data(), static_cast<std::int64_t>(output.size())) != stream.Position()) {
      throw std::runtime_error("short read");
    }
  }
  if (output != data) throw std::runtime_error("decoded data differs");
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * output.size()));
}

BENCHMARK_CAPTURE(DecodeZ, picture, bench::SyntheticPicture())->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(DecodeZ, noise, bench::Noise(8'000'000))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(DecodeZ, zeros, std::string(bench::kPictureSize, '\0'))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(DecodeBz2, picture, bench::SyntheticPicture())->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace skyreel

BENCHMARK_MAIN();
