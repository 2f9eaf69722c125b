#include "transfer/wininet.h"

#include <gmock/gmock.h>

#include <sstream>
#include <thread>

#include "support/job_fixture.h"
#include "transfer/ftp_fetch.h"

namespace skyreel {
namespace {

using enum TWinInetTransferState;
using testing::ElementsAre;

int handle = 0;

/// What the functions that play the library do and have seen.
struct TPlay {
  bool HasFile = true, Connects = true, StartFails = false;
  std::uint32_t LastError = 0;
  std::string Response;
  std::function<void()> Download = [] {};  ///< runs on a thread of the library

  std::ostringstream Calls;
  TWinInetApi::TStatusCallback Callback = nullptr;
  TWinInetApi::TContext Context = 0;
  std::vector<std::thread> Threads;
  /// Notes a call; returns a handle.
  void* Note(auto... words) {
    ((Calls << std::hex << words << ' '), ...);
    return &handle;
  }
  void Join() {
    for (std::thread& thread : std::exchange(Threads, {})) thread.join();
  }
};
/// Plain functions play the library, so they find it by this pointer, which each test sets.
TPlay* play = nullptr;

/// Reports `status` as the library does.
template <typename T>
void Tell(std::uint32_t status, T info, std::uint32_t length = sizeof(T)) {
  play->Callback(&handle, play->Context, status, &info, length);
}
struct TEnd {
  std::uintptr_t Result;
  std::uint32_t Error;
};

class TPlayedLibrary : public TWinInetLibrary {
 public:
  TPlayedLibrary() {
    Api.InternetOpenA = [](auto agent, auto access, auto proxy, auto bypass, auto flags) {
      return play->Note("open", agent, access, proxy || bypass, flags);
    };
    Api.InternetConnectA = [](auto, auto host, auto port, auto user, auto word, auto service, auto flags,
                              auto) -> void* {
      play->Note("connect", host, port, user, word, service, flags);
      return play->Connects ? &handle : nullptr;
    };
    Api.InternetSetStatusCallback = [](auto, auto callback) {
      return std::exchange(play->Callback, callback);
    };
    Api.InternetCloseHandle = [](auto) { return play->Note("close") ? 1 : 0; };
    Api.FtpFindFirstFileA = [](auto, auto path, auto data, auto flags, auto context) -> void* {
      play->Note("find", path, flags, context);
      data->FileSizeLow = 200;
      return play->HasFile ? &handle : nullptr;
    };
    Api.FtpGetFileA = [](auto, auto remote, auto local, auto fail_if_exists, auto attributes, auto flags,
                         auto context) {
      play->Note("get", remote, std::string(local).ends_with("/out/f"), fail_if_exists, attributes, flags);
      play->Context = context;
      play->LastError = play->StartFails ? 12031 : 997;
      if (!play->StartFails) play->Threads.emplace_back(play->Download);
      return 0;
    };
    Api.InternetGetLastResponseInfoA = [](auto error, auto buffer, auto length) {
      *error = 0;
      *length = static_cast<std::uint32_t>(play->Response.copy(buffer, *length));
      return 1;
    };
    Api.GetLastError = [] { return play->LastError; };
  }
  /// Unloading waits for the library's threads.
  ~TPlayedLibrary() override { play->Join(); }
};

class WinInet : public testing::Test {
 protected:
  WinInet() {
    play = &play_;
    job_.Clock.OnSleep = [this] {
      play_.Join();
      if (polls_ < on_polls_.size()) on_polls_[polls_]();
      ++polls_;
    };
    connection_ = wininet_->Connect("host", 21, "user", "secret", true);
  }
  ~WinInet() override {
    connection_.reset();
    wininet_.reset();
  }
  /// Downloads a file; each poll runs the next of these.
  bool Get(std::vector<std::function<void()>> on_polls) {
    on_polls_ = std::move(on_polls);
    polls_ = 0;
    return wininet_->WinInetFtpGet(job_.Context, &handle, "/f", job_.Output("f"));
  }

  test::TJobFixture job_;
  TPlay play_;
  std::vector<std::function<void()>> on_polls_;
  std::size_t polls_ = 0;
  std::unique_ptr<TWinInetTransfer> wininet_ =
      std::make_unique<TWinInetTransfer>(std::make_unique<TPlayedLibrary>());
  std::unique_ptr<TWinInetTransfer::TConnection> connection_;
};

TEST(WinInetLoader, GivesNothingUnlessAllThirteenEntryPointsAreThere) {
  TWinInetApi api;
  for (int missing = 1; missing <= 14; ++missing) {
    int asked = 0;
    EXPECT_EQ(
        ResolveWinInet(api, [&](const char*) -> void* { return ++asked == missing ? nullptr : &asked; }),
        missing == 14);
    EXPECT_EQ(asked, std::min(missing, 13));
  }
}

TEST_F(WinInet, ADownloadAsksAsAgreedAndShowsItsProgress) {
  const auto some = [&] {
    Tell(41, 99U);
    // Other reports of the library, and nonsense, do not matter to a download.
    for (const std::uint32_t status : {30u, 31u, 40u, 60u, 70u, 99u}) Tell(status, 7);
    play_.Callback(&handle, play_.Context, 41, nullptr, 0);
    std::uint32_t count = 1;
    play_.Callback(&handle, 0, 41, &count, sizeof count);
    Tell(41, count, 1);
    Tell(100, count);
  };
  const auto rest = [&] {
    Tell(41, 101U);
    job_.WriteOutput("f", std::string(200, 'x'));
    Tell(100, TEnd{1, 0});
  };
  EXPECT_TRUE(Get({[] {}, some, rest}));
  connection_.reset();
  EXPECT_EQ(wininet_->LastState(), wtsDone);
  EXPECT_EQ(play_.Calls.str(),
            "open Skyreel 0 0 10000000 connect host 15 user secret 1 8000000 find /f 80000000 0 close "
            "get /f 1 0 0 80000002 close close ");
  EXPECT_THAT(job_.Display.Progress, ElementsAre(0, 0, 50, 0));
  EXPECT_THAT(job_.Display.BytesLabels, ElementsAre("0 bytes", "0 bytes", "99 bytes", "99 bytes"));
  EXPECT_EQ(job_.Display.Titles.back(), kApplicationTitle);
  EXPECT_THAT(job_.Lines(), ElementsAre("Got 200 bytes"));
}

TEST_F(WinInet, EveryOutcomeOfASessionsFileHasItsLines) {
  using TRow = std::tuple<const char*, bool, bool, std::uint32_t, std::uint32_t, std::size_t, test::TWords>;
  // The server's response, whether the file is there, whether the start fails, the last error, the error of
  // the end, the bytes written, the lines.
  const TRow rows[] = {
      {"", false, false, 0, 0, 0, {"File does not exist"}},
      {"", true, false, 18, 0, 0, {"File does not exist"}},  // no more files
      {"", true, true, 0, 0, 0, {"Transfer failed"}},
      {"ignored", true, false, 0, 12002, 100, {"Transfer failed"}},
      {"550-no\r\n550\x01 such\r\n", true, false, 0, 12003, 0, {"550-no", "550 such"}},
      {"550 no\r\n550 no\r\n", true, false, 0, 12003, 0, {"550 no"}},
      {"", true, false, 0, 12003, 0, {"Transfer failed"}},
      {"", true, false, 0, 0, 100, {"Got 100 bytes", "f - received 100 of 200 bytes"}},
      {"", true, false, 0, 0, 200, {"Got 200 bytes"}},
  };
  job_.Context.WinInet = wininet_.get();
  const auto session = [&](const std::function<void(TFtpSession&)>& work) {
    return RunFtpSession(job_.Context, {"host:2121", "user", "secret", false, true}, work);
  };
  for (const auto& [response, has_file, start_fails, last_error, end_error, written, told] : rows) {
    SCOPED_TRACE(testing::Message() << response << end_error);
    std::filesystem::remove(job_.Output("f"));
    play_.HasFile = has_file;
    play_.StartFails = start_fails;
    play_.LastError = last_error;
    play_.Response = response;
    play_.Download = [&, size = written, error = end_error] {
      job_.WriteOutput("f", std::string(size, 'x'));
      Tell(100, TEnd{1, error});
    };
    EXPECT_TRUE(session([&](TFtpSession& open) {
      const auto fetch = FtpFetchFile(job_.Context, open, {"f", "f", job_.OutputPath(), "", {}});
      EXPECT_EQ(fetch->Received, wininet_->LastState() == wtsDone);
      if (fetch->StillNoted) job_.Ledger.End(job_.Output("f"), TTransferEnd::Whole);
      job_.Display.EndFile(fetch->Result, FtpLine(fetch->Result));
    }));
    test::TWords lines = told;
    lines.insert(lines.begin(), "Get: f");
    EXPECT_EQ(job_.Lines(), lines);
    EXPECT_EQ(job_.Ledger.IsNoted(job_.Output("f")), !told[0].starts_with("File") && written < 200);
  }
  EXPECT_THAT(play_.Calls.str(), testing::HasSubstr(" connect host 849 user secret 1 0 "));
  play_.Connects = false;
  EXPECT_FALSE(session([](TFtpSession&) {}));
  EXPECT_THAT(job_.Lines(),
              ElementsAre("Connection failed to: host - no connection from the Internet library"));
}

TEST_F(WinInet, AnEndThatComesTooLateConcernsNobody) {
  job_.Context.Shared.TimeoutSeconds = 1;
  // 1000 ms and 50 ms of grace, in steps of 250; in the last step an end is too late already.
  EXPECT_FALSE(Get({[] {}, [] {}, [] {}, [] {}, [] { Tell(100, TEnd{1, 0}); }}));
  EXPECT_EQ(wininet_->LastState(), wtsTimedOut);
  EXPECT_THAT(job_.Lines(), ElementsAre("Transfer timed out"));
  EXPECT_EQ(job_.Clock.Slept, std::chrono::milliseconds(1250));

  // The library still writes to the record of a request that timed out while another one runs.
  EXPECT_FALSE(Get({}));
  const TWinInetApi::TContext first = play_.Context;
  EXPECT_TRUE(Get({[&] {
    TEnd end{0, 12002};
    play_.Callback(&handle, first, 100, &end, sizeof end);
    Tell(100, TEnd{1, 0});
  }}));
}

}  // namespace
}  // namespace skyreel
