// The .Z decoder and the bzip2 stream in process, into memory that is already warm.

#include <benchmark/benchmark.h>
#include <bzlib.h>

#include <stdexcept>
#include <string>

#include "bench/synthetic_picture.h"
#include "decompress/bzip2_stream.h"
#include "decompress/uncompress.h"
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
  std::string packed(data.size() + data.size() / 50 + 1000, '\0');
  unsigned size = static_cast<unsigned>(packed.size());
  BZ2_bzBuffToBuffCompress(packed.data(), &size, const_cast<char*>(data.data()),
                           static_cast<unsigned>(data.size()), 9, 0, 0);
  packed.resize(size);
  std::string output(data.size(), '\0');
  for (auto _ : state) {
    TViewStream source(packed);
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
