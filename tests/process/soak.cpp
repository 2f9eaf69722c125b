// skyreel-soak [FILES [SEED]]: one run of the program that fetches at least so many files (20000) from a
// server in this process that fails one request in ten. Prints what the server did, what the report says,
// memory and descriptors; ends with 1 when they do not agree, memory grew by 5 MB or more, or a descriptor
// was leaked.

#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <random>

#include "base/comma_text.h"
#include "base/files.h"
#include "base/text.h"
#include "process/file_server.h"
#include "process/program.h"
#include "sources/goes_gsfc.h"

namespace {

using namespace skyreel;
using namespace std::chrono_literals;

constexpr int kFirstSample = 1000;

struct TKind {
  const char* Name;
  const char* Outcome;  ///< the end of the report's line
};
constexpr std::array<TKind, 6> kKinds = {{{"the whole file", " - OK"},
                                          {"404 and a page", " - missing or incomplete"},
                                          {"a page in its place", " - missing or incomplete"},
                                          {"half of the body", " - missing or incomplete"},
                                          {"closed before the header", " - timed out"},
                                          {"reset", " - timed out"}}};

struct TSample {
  std::int64_t MemoryKb = 0, Descriptors = 0;
  explicit TSample(pid_t process = 0) {
    if (process == 0) return;
    const std::string folder = "/proc/" + std::to_string(process);
    std::ifstream status(folder + "/status");
    for (std::string word; status >> word;) {
      if (word == "VmRSS:") status >> MemoryKb;
    }
    Descriptors = std::distance(std::filesystem::directory_iterator(folder + "/fd"), {});
  }
};

class TUnsteadyServer {
 public:
  explicit TUnsteadyServer(unsigned seed) : random_(seed) {}

  std::string Root() const { return "http://127.0.0.1:" + std::to_string(server_.Port()); }
  std::atomic<pid_t> Process = 0;
  int Requests = 0;
  std::array<int, kKinds.size()> Done{};
  TSample Early, Late;

 private:
  void Serve(demo::TConnection& client) {
    for (auto line = client.ReadLine(); !line || !line->empty(); line = client.ReadLine()) {
      if (!line) return;
    }
    const std::size_t kind = Next();
    const std::string body = kind == 1 || kind == 2 ? "<html>" + std::string(3000, ' ') : content_;
    if (kind == 5) {
      const sockaddr nowhere{AF_UNSPEC, {}};
      ::connect(client.Socket(), &nowhere, sizeof nowhere);
    } else if (kind < 4) {
      client.Write(test::HttpHeader(kind == 1 ? "404 Not Found" : "200 OK", body.size()) +
                   body.substr(0, kind == 3 ? body.size() / 2 : body.size()));
    }
    client.Finish(5s);
  }

  std::size_t Next() {
    const std::lock_guard lock(mutex_);
    Late = TSample(Process);
    if (++Requests == kFirstSample) Early = Late;
    const std::size_t kind = random_() % 10 == 0 ? 1 + random_() % (kKinds.size() - 1) : 0;
    ++Done[kind];
    return kind;
  }

  const std::string content_ = test::SomeBytes(6000, 1);
  std::mutex mutex_;
  std::mt19937 random_;
  demo::TTcpServer server_{0, [this](demo::TConnection& client) { Serve(client); }};
};

std::string Quoted(const std::string& text) {
  return "\"" + ReplaceAll(text, "\"", "\\\"") + "\"";
}

bool Soak(int files, unsigned seed) {
  const std::vector<std::string>& series = GoesProductItems();
  // Today may just have begun.
  const int days = files / (static_cast<int>(series.size()) * 48) + 2;
  TUnsteadyServer server(seed);
  const test::TPlace place(server.Root(), "127.0.0.1:1",
                           "Timeout=20\nBackDays=" + std::to_string(days) +
                               "\nGsfcSectors=" + Quoted(ToCommaText(series)) + "\nGsfcInterval=0\n");
  const auto begin = std::chrono::steady_clock::now();
  test::TRun run(place, "-GOES -CLOSE");
  server.Process = run.Process();
  const auto code = run.Wait(3h);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();

  std::map<std::string, int> told, done;
  for (const std::string& line : place.Report()) {
    if (line.starts_with("/goes")) ++told[line.substr(line.find(" - "))];
  }
  std::printf("seed %u: %d requests in %.0f s, exit code %d\n\n| the server sent | times |\n|---|---|\n",
              seed, server.Requests, seconds, code.value_or(-1));
  for (std::size_t i = 0; i < kKinds.size(); ++i) {
    std::printf("| %s | %d |\n", kKinds[i].Name, server.Done[i]);
    done[kKinds[i].Outcome] += server.Done[i];
  }
  std::printf("\n| outcome | the server's count | the report's count |\n|---|---|---|\n");
  for (const auto& [outcome, count] : done)
    std::printf("| %s | %d | %d |\n", outcome.c_str() + 3, count, told[outcome]);
  std::int64_t whole = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(place.Out()))
    whole += FileSizeOf(entry.path()) == 6000;
  std::printf("\n%lld whole files on disk\n\n| after | memory, kB | descriptors |\n|---|---|---|\n",
              static_cast<long long>(whole));
  std::printf("| %d files | %lld | %lld |\n| the last file | %lld | %lld |\n", kFirstSample,
              static_cast<long long>(server.Early.MemoryKb), static_cast<long long>(server.Early.Descriptors),
              static_cast<long long>(server.Late.MemoryKb), static_cast<long long>(server.Late.Descriptors));
  const std::string leftovers = place.Leftovers();
  return code == 0 && server.Requests >= files && told == done && whole == server.Done[0] &&
         leftovers.empty() && server.Early.MemoryKb > 0 &&
         server.Late.MemoryKb < server.Early.MemoryKb + 5 * 1024 &&
         server.Late.Descriptors <= server.Early.Descriptors;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const bool good =
        Soak(argc > 1 ? ToInteger(argv[1]) : 20000, argc > 2 ? static_cast<unsigned>(ToInteger(argv[2])) : 1);
    std::puts(good ? "\nall agree" : "\nSOMETHING IS OFF");
    return good ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << "skyreel-soak: " << error.what() << "\n";
    return 2;
  }
}
