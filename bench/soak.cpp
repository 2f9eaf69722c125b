// skyreel-soak [FILES [SEED]]: one run of the program that fetches at least so many files (20000) from a
// server in this process that fails one request in ten. Prints what the server did, what the report says, and
// the program's memory and descriptors. Ends with 1 when the counts differ, the memory grew by 5 MB or more,
// or a descriptor was leaked.

#include <sys/socket.h>

#include <array>
#include <atomic>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <mutex>
#include <random>

#include "base/comma_text.h"
#include "base/text.h"
#include "bench/synthetic_picture.h"
#include "demo/tcp_server.h"
#include "sources/goes_gsfc.h"
#include "tests/process/program.h"

namespace {

using namespace skyreel;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr int kFirstSample = 1000;

struct TKind {
  const char* Name;
  const char* Outcome;  ///< the end of the report's line
};
enum { kWhole, kMissing, kPage, kHalf, kClosed, kReset, kKindCount };
constexpr std::array<TKind, kKindCount> kKinds = {{{"the whole file", " - OK"},
                                                   {"404 and a page", " - missing or incomplete"},
                                                   {"200 and a page", " - missing or incomplete"},
                                                   {"half of the body", " - missing or incomplete"},
                                                   {"nothing, and closed", " - timed out"},
                                                   {"nothing, and reset", " - timed out"}}};

struct TSample {
  std::int64_t MemoryKb = 0, Descriptors = 0;
};

TSample SampleOf(pid_t process) {
  TSample sample;
  const std::string folder = "/proc/" + std::to_string(process);
  std::ifstream status(folder + "/status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:") status >> sample.MemoryKb;
  }
  sample.Descriptors = std::distance(fs::directory_iterator(folder + "/fd"), {});
  return sample;
}

class TUnsteadyServer {
 public:
  explicit TUnsteadyServer(unsigned seed) : random_(seed) {}

  std::string Root() const { return "http://127.0.0.1:" + std::to_string(server_.Port()); }
  const std::string Content = bench::Noise(6000);
  std::atomic<pid_t> Process = 0;
  int Requests = 0;
  std::array<int, kKindCount> Done{};
  TSample Early, Late;

 private:
  void Serve(demo::TConnection& client) {
    for (auto line = client.ReadLine(); !line || !line->empty(); line = client.ReadLine()) {
      if (!line) return;
    }
    const std::size_t kind = NextKind();
    const std::string body = kind == kMissing || kind == kPage ? "<html>" + std::string(3000, ' ') : Content;
    if (kind == kReset) {
      const sockaddr nowhere{AF_UNSPEC, {}};
      ::connect(client.Socket(), &nowhere, sizeof nowhere);
    } else if (kind != kClosed) {
      client.Write(std::string(kind == kMissing ? "HTTP/1.0 404 Not Found" : "HTTP/1.0 200 OK") +
                   "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                   body.substr(0, kind == kHalf ? body.size() / 2 : body.size()));
    }
    client.Finish(5s);
  }

  std::size_t NextKind() {
    const std::lock_guard lock(mutex_);
    Late = SampleOf(Process);
    if (++Requests == kFirstSample) Early = Late;
    const std::size_t kind = random_() % 10 == 0 ? 1 + random_() % (kKindCount - 1) : std::size_t{kWhole};
    ++Done[kind];
    return kind;
  }

  std::mutex mutex_;
  std::mt19937 random_;
  demo::TTcpServer server_{0, [this](demo::TConnection& client) { Serve(client); }};
};

bool Soak(int files, unsigned seed) {
  const std::vector<std::string>& series = GoesProductItems();
  // Today may just have begun.
  const int days = files / (static_cast<int>(series.size()) * 48) + 2;
  TUnsteadyServer server(seed);
  const test::TPlace place(server.Root(), "127.0.0.1:1",
                           "Timeout=20\nBackDays=" + std::to_string(days) +
                               "\nGsfcInterval=0\nGsfcSectors=\"" +
                               ReplaceAll(ToCommaText(series), "\"", "\\\"") + "\"\n");
  const auto begin = std::chrono::steady_clock::now();
  test::TRun run(place, "-GOES -CLOSE");
  server.Process = run.Process();
  const bool ended = run.Wait(3h) == 0;
  const auto seconds =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);

  std::map<std::string, int> told, done;
  for (const std::string& line : SplitLines(place.Text("bin/SkyreelReport.txt"))) {
    if (line.starts_with("/goes")) ++told[line.substr(line.find(" - "))];
  }
  std::cout << "seed " << seed << ": " << server.Requests << " requests in " << seconds.count()
            << " s\n\n| | the server's count | the report's count |\n|---|---|---|\n";
  for (std::size_t i = 0; i < kKinds.size(); ++i) {
    std::cout << "| sent: " << kKinds[i].Name << " | " << server.Done[i] << " | |\n";
    done[kKinds[i].Outcome] += server.Done[i];
  }
  for (const auto& [outcome, count] : done)
    std::cout << "| told:" << outcome.substr(2) << " | " << count << " | " << told[outcome] << " |\n";
  int whole = 0;
  for (const auto& entry : fs::recursive_directory_iterator(place.Folder() / "home/Skyreel"))
    whole += entry.is_regular_file() && ReadWholeFile(entry.path()) == server.Content;
  std::cout << "| whole files on disk | " << server.Done[kWhole] << " | " << whole << " |\n\n"
            << "| | memory, kB | descriptors |\n|---|---|---|\n| after " << kFirstSample << " files | "
            << server.Early.MemoryKb << " | " << server.Early.Descriptors << " |\n| at the last file | "
            << server.Late.MemoryKb << " | " << server.Late.Descriptors << " |\n\n"
            << place.Leftovers();
  return ended && server.Requests >= files && told == done && whole == server.Done[kWhole] &&
         place.Leftovers().empty() && server.Early.MemoryKb > 0 &&
         server.Late.MemoryKb < server.Early.MemoryKb + 5 * 1024 &&
         server.Late.Descriptors <= server.Early.Descriptors;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const bool good =
        Soak(argc > 1 ? ToInteger(argv[1]) : 20000, argc > 2 ? static_cast<unsigned>(ToInteger(argv[2])) : 1);
    std::cout << (good ? "all agree" : "they do not agree") << std::endl;
    return good ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << "skyreel-soak: " << error.what() << "\n";
    return 2;
  }
}
