#include "transfer/wininet.h"

#include <sstream>

#include "support/job_fixture.h"
#include "transfer/ftp_fetch.h"

namespace skyreel {
namespace {

using enum TWinInetTransferState;
using testing::ElementsAre;

int handle = 0;

/// What the functions that play the library do and have seen.
struct TPlay {
  bool HasFile = true, Connects = true;
  std::uint32_t LastError = 0;
  std::string Response;
  std::ostringstream Calls;
  TWinInetApi::TStatusCallback Callback = nullptr;
  TWinInetApi::TContext Context = 0;

  /// Notes a call; returns a handle.
  void* Note(auto... words) {
    ((Calls << std::hex << words << ' '), ...);
    return &handle;
  }
  /// Reports `status` as the library does.
  void Tell(std::uint32_t status, auto info) { Callback(&handle, Context, status, &info, sizeof info); }
};
/// Plain functions play the library, so they find it by this pointer, which each test sets.
TPlay* play = nullptr;

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
      play->LastError = play->LastError == 0 ? 997 : 12031;
      return 0;
    };
    Api.InternetGetLastResponseInfoA = [](auto error, auto buffer, auto length) {
      *error = 0;
      *length = static_cast<std::uint32_t>(play->Response.copy(buffer, *length));
      return 1;
    };
    Api.GetLastError = [] { return play->LastError; };
  }
};

class WinInet : public testing::Test {
 protected:
  WinInet() {
    play = &play_;
    job_.Context.WinInet = &wininet_;
    job_.Clock.OnSleep = [this] {
      // The pauses behind a file come after its end.
      if (polls_ < on_polls_.size()) on_polls_[polls_++]();
    };
  }
  /// Fetches a file in a session; each poll runs the next of these. Whether it was received.
  bool Fetch(std::vector<std::function<void()>> on_polls, bool passive = false) {
    on_polls_ = std::move(on_polls);
    polls_ = 0;
    bool received = false;
    RunFtpSession(job_.Context, {"host:2121", "user", "secret", passive, true}, [&](TFtpSession& session) {
      const auto fetch = FtpFetchFile(job_.Context, session, {"f", "f", job_.OutputPath(), "", {}});
      if (fetch->StillNoted) job_.Ledger.End(job_.Output("f"), TTransferEnd::Whole);
      job_.Display.EndFile(fetch->Result, FtpLine(fetch->Result));
      received = fetch->Received;
    });
    return received;
  }

  test::TJobFixture job_;
  TPlay play_;
  TWinInetTransfer wininet_{std::make_unique<TPlayedLibrary>()};
  std::vector<std::function<void()>> on_polls_;
  std::size_t polls_ = 0;
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
    play_.Tell(41, 99U);
    // Other reports of the library, and nonsense, do not matter to a download.
    for (const std::uint32_t status : {30u, 31u, 40u, 60u, 70u, 99u, 100u}) play_.Tell(status, 7);
    play_.Tell(41, 'x');
    play_.Callback(&handle, play_.Context, 41, nullptr, 0);
    play_.Callback(&handle, 0, 41, &handle, sizeof handle);
  };
  const auto rest = [&] {
    play_.Tell(41, 101U);
    job_.WriteOutput("f", std::string(200, 'x'));
    play_.Tell(100, TEnd{1, 0});
  };
  EXPECT_TRUE(Fetch({[] {}, some, rest}, true));
  EXPECT_EQ(play_.Calls.str(),
            "open Skyreel 0 0 10000000 connect host 849 user secret 1 8000000 find f 80000000 0 close "
            "get f 1 0 0 80000002 close close ");
  EXPECT_THAT(job_.Display.Progress, ElementsAre(0, 0, 50, 0));
  EXPECT_THAT(job_.Display.BytesLabels, ElementsAre("0 bytes", "0 bytes", "99 bytes", "99 bytes", ""));
  EXPECT_EQ(job_.Display.Titles[3], kApplicationTitle);
  EXPECT_THAT(job_.Lines(), ElementsAre("Get: f", "Got 200 bytes"));
}

TEST_F(WinInet, EveryOutcomeHasItsLines) {
  using TRow = std::tuple<bool, std::uint32_t, std::uint32_t, const char*, std::size_t, test::TWords>;
  // Whether the file is there, the error before it is asked for, the error of the end, the server's response,
  // the bytes written, the lines.
  const TRow rows[] = {
      {false, 0, 0, "", 0, {"File does not exist"}},
      {true, 18, 0, "", 0, {"File does not exist"}},  // no more files
      {true, 1, 0, "", 0, {"Transfer failed"}},
      {true, 0, 12002, "ignored", 100, {"Transfer failed"}},
      {true, 0, 12003, "550-no\r\n550\x01 SECRET\r\n", 0, {"550-no", "550 ***"}},
      {true, 0, 12003, "550 no\r\n550 no\r\n", 0, {"550 no"}},
      {true, 0, 0, "", 100, {"Got 100 bytes", "f - received 100 of 200 bytes"}},
      {true, 0, 0, "", 200, {"Got 200 bytes"}},
  };
  for (const auto& [has_file, error, end, response, written, told] : rows) {
    SCOPED_TRACE(testing::Message() << response << end << told[0]);
    std::filesystem::remove(job_.Output("f"));
    play_.HasFile = has_file;
    play_.LastError = error;
    play_.Response = response;
    Fetch({[&, size = written, error_of_end = end] {
      if (wininet_.LastState() == wtsNoFile || play_.LastError != 997) return;
      job_.WriteOutput("f", std::string(size, 'x'));
      play_.Tell(100, TEnd{1, error_of_end});
    }});
    test::TWords lines = told;
    lines.insert(lines.begin(), "Get: f");
    EXPECT_EQ(job_.Lines(), lines);
    EXPECT_EQ(job_.Ledger.IsNoted(job_.Output("f")), !told[0].starts_with("File") && written < 200);
  }
  // 1000 ms and 50 ms of grace, in steps of 250: in the last step an end is too late already.
  job_.Context.Shared.TimeoutSeconds = 1;
  play_.LastError = 0;
  EXPECT_FALSE(Fetch({[] {}, [] {}, [] {}, [] {}, [&] { play_.Tell(100, TEnd{1, 0}); }}));
  EXPECT_THAT(job_.Lines(), ElementsAre("Get: f", "Transfer timed out"));
  play_.Connects = false;
  Fetch({});
  EXPECT_EQ(job_.Lines()[0], "Connection failed to: host - no connection from the Internet library");
}

}  // namespace
}  // namespace skyreel
