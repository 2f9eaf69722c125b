// Matching an order page of 20,000 links against all products of the station.
#include <benchmark/benchmark.h>

#include "base/text.h"
#include "sources/dundee_pdus.h"

namespace skyreel {
namespace {

std::vector<std::string> AllWanted() {
  std::vector<std::string> items;
  for (const TPdusPage& page : PdusPages()) items.insert(items.end(), page.Items.begin(), page.Items.end());
  return PdusWantedTexts(items);
}

/// 20,000 links; one in `every` is a product of the tables.
std::string OrderPage(int every) {
  const std::vector<std::string> wanted = AllWanted();
  std::string page = "<html><body><pre>\n";
  TDateTime time = TDateTime::FromDate(2002, 7, 1);
  for (int i = 0; i < 20'000; ++i, time = time + std::chrono::minutes(30)) {
    const std::string product = i % every == 0 ? wanted[static_cast<std::size_t>(i) % wanted.size()]
                                               : "0015, Meteosat Rapid, Visible";
    page += "<a href=\"/abin/pdus?f=PDUS" + FormatDateTime("yymmddhhnn", time) +
            "MET7&amp;s=" + std::to_string(i) + "\">" + FormatDateTime("dd/mm/yyyy", time) + " at " +
            product + "</a>  1,234,567 bytes<br>\n";
  }
  return page + "</pre></body></html>\n";
}

void BM_OrderPage(benchmark::State& state) {
  const std::vector<std::string> wanted = AllWanted();
  const std::string page = OrderPage(static_cast<int>(state.range(0)));
  std::size_t entries = 0;
  for (auto _ : state) entries = ParseOrderPage(page, "http://station", wanted).Entries.size();
  state.counters["entries"] = static_cast<double>(entries);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * page.size()));
}
BENCHMARK(BM_OrderPage)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);

/// Does the same with one plain search for each line and product.
void BM_OrderPagePlainSearch(benchmark::State& state) {
  const std::vector<std::string> wanted = AllWanted();
  const std::string page = OrderPage(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::size_t entries = 0;
    ForEachLine(page, [&](std::string_view line) { entries += ListHasEntryIn(line, wanted); });
    benchmark::DoNotOptimize(entries);
  }
}
BENCHMARK(BM_OrderPagePlainSearch)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);

/// 50 MB of digits: the worst page for the search.
void BM_HostilePage(benchmark::State& state) {
  const std::vector<std::string> wanted = AllWanted();
  std::string page = "/pdus ";
  while (page.size() < 50'000'000) page += "0000, 0030, ";
  for (auto _ : state) benchmark::DoNotOptimize(ParseOrderPage(page, "http://station", wanted));
}
BENCHMARK(BM_HostilePage)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
}  // namespace skyreel

BENCHMARK_MAIN();
