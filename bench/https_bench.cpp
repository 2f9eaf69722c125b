// Fetches the addresses of the standard input, one a line, through the fetch queue into a folder: "0", "1",
// ...
//   https_bench <PEM file> <host=address:port,...> <folder> [<group>]
// With a group all of them may run side by side over one connection.
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "bench_context.h"
#include "transfer/fetch_queue.h"

int main(int argc, char** argv) {
  if (argc < 4) {
    std::cerr << "https_bench <PEM file> <host=address:port,...> <folder> [<group>]\n";
    return 2;
  }
  const std::filesystem::path folder = argv[3];
  skyreel::bench::TBenchContext context(folder);
  std::vector<std::string> problems;
  context.Https.SetSettings(skyreel::ReadHttpsSettings(argv[1], argv[2], problems));
  skyreel::TFetchQueue queue(context.Context);
  int count = 0, failed = 0;
  for (std::string url; std::getline(std::cin, url); ++count) {
    skyreel::TFetchRequest request;
    request.Url = url;
    request.File = folder / std::to_string(count);
    if (argc > 4) request.Group = argv[4];
    request.Done = [&failed](const skyreel::TFetchAnswer& answer) {
      if (answer.End == skyreel::TFetchEnd::Answered && answer.Code == 200) return;
      std::cerr << answer.Code << ' ' << answer.Reason << '\n';
      ++failed;
    };
    queue.Add(std::move(request));
  }
  queue.Run();
  return count == 0 || failed > 0 || !problems.empty() ? 1 : 0;
}
