// A described source of 10 products every 10 minutes whose files of 90 days are all on disk, and the reading
// of 30 descriptions.
#include <benchmark/benchmark.h>

#include <fstream>

#include "base/files.h"
#include "catalogue/catalogue.h"
#include "catalogue/description_reader.h"
#include "catalogue/folder_scan.h"
#include "catalogue/plan.h"

namespace skyreel {
namespace {

constexpr std::string_view kSource = R"(format = 1
id = "org.example.sat"
title = "Sat"
licence = { name = "none", use = "any" }
[time]
every = "10m"
[vary.product]
values = ["a", "b", "c", "d", "e", "f", "g", "h", "i", "j"]
default = "all"
[get]
url = "https://example.org/{product}/{%Y%j%H%M}_{product}.jpg"
type = "image/jpeg"
[find]
kind = "listing"
url = "https://example.org/{product}/"
[keep]
folder = "{product}/{%Y-%m-%d}"
name = "{product}_{%Y%m%d_%H%M}.jpg"
)";

void BM_PlanAllPresent(benchmark::State& state) {
  std::string name = (std::filesystem::temp_directory_path() / "skyreel-bench-XXXXXX").string();
  const std::filesystem::path output = ::mkdtemp(name.data());
  const TDescription source = ReadDescription(kSource, "bench").Description.value();
  TPlanRequest request{source, TDateTime::FromDate(2026, 11, 26, 23, 59), {}, 90};
  for (const TPlannedFile& file : MakePlan(request).Files) {
    const std::filesystem::path path = output / file.Path;
    ForceDirectories(path.parent_path());
    std::ofstream(path) << "x";
  }
  std::size_t present = 0, lists = 0;
  for (auto _ : state) {
    TFolderScan scan(output);
    request.OnDisk = [&scan](std::string_view path) { return scan.Has(path); };
    const TPlan plan = MakePlan(request);
    present = plan.Files.size();
    lists = plan.Lists.size();
  }
  state.counters["files"] = static_cast<double>(present);
  state.counters["lists"] = static_cast<double>(lists);
  std::filesystem::remove_all(output);
}
BENCHMARK(BM_PlanAllPresent)->Unit(benchmark::kMillisecond);

void BM_ReadDescriptions(benchmark::State& state) {
  const auto& embedded = EmbeddedDescriptions();
  for (auto _ : state) {
    for (std::size_t i = 0; i < 30; ++i) {
      benchmark::DoNotOptimize(ReadDescription(embedded[i % embedded.size()].Text, "bench"));
    }
  }
  state.counters["files"] = 30;
  state.counters["lists"] = 0;
}
BENCHMARK(BM_ReadDescriptions)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace skyreel

BENCHMARK_MAIN();
