// bench_http get URL FILE: fetches the URL into the file, as a transfer of the program does.
// bench_http stall MILLISECONDS: waits that long for a server that never answers, and prints how many per
// cent of one processor the wait took.
//
// bench/http.sh runs both and compares the first with curl.

#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "demo/tcp_server.h"
#include "net/nm_http.h"

namespace {

using namespace skyreel;

double ProcessorSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

int Get(const std::string& url, const std::string& file) {
  int packets = 0;
  TNMHTTP http([] {});
  http.TimeOut = 200'000;
  http.InputFileMode = true;
  http.Body = file;
  http.OnPacketRecvd = [&](TPowersock&) { ++packets; };
  http.Get(url);
  return http.ReplyCode == 200 && http.ReceivedByteCount == http.TransferSize && packets > 0 ? 0 : 1;
}

int Stall(int milliseconds) {
  // The system takes the connection and the request; nobody reads them.
  const demo::TListener listener(0);
  long turns = 0;
  TNMHTTP http([&] { ++turns; });
  http.TimeOut = milliseconds;
  const double before = ProcessorSeconds();
  const auto start = std::chrono::steady_clock::now();
  try {
    http.Get("http://127.0.0.1:" + std::to_string(listener.Port()) + "/");
    return 1;
  } catch (const EAbortError&) {
  }
  const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
  std::printf("%.2f %% of one processor, %ld turns in %.1f s\n",
              100 * (ProcessorSeconds() - before) / waited.count(), turns, waited.count());
  return 0;
}

}  // namespace

int main(int argc, char** argv) try {
  const std::string_view mode = argc > 1 ? argv[1] : "";
  if (mode == "get" && argc == 4) return Get(argv[2], argv[3]);
  if (mode == "stall" && argc == 3) return Stall(std::atoi(argv[2]));
  std::fprintf(stderr, "usage: bench_http get URL FILE | bench_http stall MILLISECONDS\n");
  return 2;
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_http: %s\n", error.what());
  return 1;
}
