#include "transfer/wininet.h"

#include <gmock/gmock.h>

#include <cstring>
#include <fstream>
#include <map>
#include <thread>

#include "support/job_fixture.h"
#include "support/scripted_server.h"
#include "transfer/ftp_fetch.h"

namespace skyreel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// What the functions that play the library do and have seen. They are plain functions, so they find it by a
/// pointer that is set for the time of a test.
struct TPlay {
  // What the server has, and how a download goes: runs on a thread of the library.
  bool HasFile = true;
  std::uint32_t LastError = 0;
  std::uint32_t Size = 200;
  bool Connects = true;
  bool StartFails = false;
  std::string Response;
  std::function<void(TWinInetApi::TContext)> Download;

  // What was asked.
  std::vector<std::string> Calls;
  TWinInetApi::TStatusCallback Callback = nullptr;
  TWinInetApi::TContext Context = 0;
  std::string LocalPath;
  std::vector<std::thread> Threads;
};

TPlay* play = nullptr;
int open_handle = 0;

/// Tells `status` as the library does.
void Tell(std::uint32_t status, void* info, std::size_t length) {
  play->Callback(&open_handle, play->Context, status, info, static_cast<std::uint32_t>(length));
}
void TellBytes(std::uint32_t count) {
  Tell(41, &count, sizeof count);
}
void TellEnd(std::uint32_t error) {
  struct {
    std::uintptr_t Result;
    std::uint32_t Error;
  } result{1, error};
  Tell(100, &result, sizeof result);
}

std::string Hex(std::uint32_t value) {
  char text[11];
  std::snprintf(text, sizeof text, "%08x", value);
  return text;
}

class TPlayedLibrary : public TWinInetLibrary {
 public:
  TPlayedLibrary() {
    Api.InternetOpenA = [](const char* agent, std::uint32_t access, const char* proxy, const char* bypass,
                           std::uint32_t flags) -> void* {
      play->Calls.push_back(std::string("open ") + agent + " " + std::to_string(access) + " " + Hex(flags) +
                            (proxy || bypass ? " proxy" : ""));
      return &open_handle;
    };
    Api.InternetConnectA = [](void*, const char* host, std::uint16_t port, const char* user,
                              const char* password, std::uint32_t service, std::uint32_t flags,
                              std::uintptr_t) -> void* {
      play->Calls.push_back(std::string("connect ") + host + ":" + std::to_string(port) + " " + user + "/" +
                            password + " " + std::to_string(service) + " " + Hex(flags));
      return play->Connects ? &open_handle : nullptr;
    };
    Api.InternetSetStatusCallback = [](void*, TWinInetApi::TStatusCallback callback) {
      play->Callback = callback;
      return TWinInetApi::TStatusCallback(nullptr);
    };
    Api.InternetCloseHandle = [](void*) {
      play->Calls.push_back("close");
      return 1;
    };
    Api.FtpFindFirstFileA = [](void*, const char* path, TWinInetFindData* data, std::uint32_t flags,
                               std::uintptr_t context) -> void* {
      play->Calls.push_back(std::string("find ") + path + " " + Hex(flags) + " " + std::to_string(context));
      data->FileSizeLow = play->Size;
      return play->HasFile ? &open_handle : nullptr;
    };
    Api.FtpGetFileA = [](void*, const char* remote, const char* local, int fail_if_exists,
                         std::uint32_t attributes, std::uint32_t flags, std::uintptr_t context) {
      play->Calls.push_back(std::string("get ") + remote + " " + std::to_string(fail_if_exists) + " " +
                            std::to_string(attributes) + " " + Hex(flags));
      play->LocalPath = local;
      play->Context = context;
      play->LastError = play->StartFails ? 12031 : 997;
      if (!play->StartFails && play->Download) play->Threads.emplace_back(play->Download, context);
      return 0;
    };
    Api.InternetGetLastResponseInfoA = [](std::uint32_t* error, char* buffer, std::uint32_t* length) {
      *error = 0;
      *length = static_cast<std::uint32_t>(play->Response.copy(buffer, *length));
      return 1;
    };
    Api.GetLastError = []() { return play->LastError; };
  }
  /// Unloading waits for the library's threads.
  ~TPlayedLibrary() override {
    for (std::thread& thread : play->Threads) thread.join();
    play->Threads.clear();
  }
};

class WinInet : public testing::Test {
 protected:
  WinInet() {
    play = &play_;
    // A thread of the library runs between two polls, as far as it wants to.
    job_.Clock.OnSleep = [this] {
      if (on_poll_) on_poll_();
    };
  }
  ~WinInet() override {
    wininet_.reset();
    play = nullptr;
  }

  bool Get() {
    const bool done = wininet_->WinInetFtpGet(job_.Context, &open_handle, "/f", job_.Output("f"));
    return done;
  }
  /// Waits for the end of what the library does at present.
  void JoinLibrary() {
    for (std::thread& thread : play_.Threads) thread.join();
    play_.Threads.clear();
  }
  void SetUp() override {
    wininet_ = std::make_unique<TWinInetTransfer>(std::make_unique<TPlayedLibrary>());
    connection_ = wininet_->Connect("host", 21, "user", "secret", true);
  }
  void TearDown() override { connection_.reset(); }

  test::TJobFixture job_;
  TPlay play_;
  std::function<void()> on_poll_;
  std::unique_ptr<TWinInetTransfer> wininet_;
  std::unique_ptr<TWinInetTransfer::TConnection> connection_;
};

TEST(WinInetLoader, GivesNothingUnlessAllThirteenEntryPointsAreThere) {
  std::vector<std::string> names;
  int something = 0;
  const auto all = [&](const char* name) -> void* {
    names.push_back(name);
    return &something;
  };
  TWinInetApi api;
  EXPECT_TRUE(ResolveWinInet(api, all));
  EXPECT_EQ(names.size(), 13u);
  for (const std::string& missing : std::vector<std::string>(names)) {
    EXPECT_FALSE(ResolveWinInet(api, [&](const char* name) { return missing == name ? nullptr : all(name); }))
        << missing;
  }
#ifndef _WIN32
  EXPECT_EQ(LoadWinInet(), nullptr);
#endif
}

TEST_F(WinInet, ADownloadAsksAsAgreedAndShowsItsProgress) {
  int polls = 0;
  play_.Download = [](TWinInetApi::TContext) {};
  on_poll_ = [&] {
    if (++polls == 1) JoinLibrary();
    if (polls == 2) TellBytes(99);
    if (polls == 3) {
      TellBytes(101);
      job_.WriteOutput("f", std::string(200, 'x'));
      // What else the library tells is no concern of a download.
      std::uint32_t other = 7;
      for (const std::uint32_t status : {30u, 31u, 40u, 60u, 70u, 99u}) Tell(status, &other, sizeof other);
      TellEnd(0);
    }
  };
  EXPECT_TRUE(Get());
  connection_.reset();
  EXPECT_EQ(wininet_->LastState(), TWinInetTransferState::wtsDone);
  EXPECT_THAT(play_.Calls,
              ElementsAre("open Skyreel 0 10000000", "connect host:21 user/secret 1 08000000",
                          "find /f 80000000 0", "close", "get /f 0 0 80000002", "close", "close"));
  EXPECT_EQ(play_.LocalPath, job_.Output("f").string());
  EXPECT_THAT(job_.Display.Progress, ElementsAre(0, 0, 50, 0));
  EXPECT_THAT(job_.Display.BytesLabels, ElementsAre("0 bytes", "0 bytes", "99 bytes"));
  EXPECT_EQ(job_.Display.Titles.back(), kApplicationTitle);
  EXPECT_THAT(job_.Display.Lines, ElementsAre("Got 200 bytes"));
}

TEST_F(WinInet, EveryOutcomeHasItsMessage) {
  using TLines = std::vector<std::string>;
  const struct {
    const char* Name;
    std::function<void()> Set;
    std::uint32_t Error;
    const char* Response;
    TWinInetTransferState State;
    TLines Lines;
  } rows[] = {
      {"no handle",
       [] { play->HasFile = false; },
       0,
       "",
       TWinInetTransferState::wtsNoFile,
       {"File does not exist"}},
      {"a handle, but no more files",
       [] { play->LastError = 18; },
       0,
       "",
       TWinInetTransferState::wtsNoFile,
       {"File does not exist"}},
      {"an error", [] {}, 12002, "ignored", TWinInetTransferState::wtsFailed, {"Transfer failed"}},
      {"an error with the server's text",
       [] {},
       12003,
       "550-no\r\n550\x01 such\r\n",
       TWinInetTransferState::wtsFailed,
       {"550-no", "550 such"}},
      {"the last line told twice",
       [] {},
       12003,
       "550 no\r\n550 no\r\n",
       TWinInetTransferState::wtsFailed,
       {"550 no"}},
      {"one line", [] {}, 12003, "550 no", TWinInetTransferState::wtsFailed, {"550 no"}},
      {"no text", [] {}, 12003, "", TWinInetTransferState::wtsFailed, {"Transfer failed"}},
      {"a start that fails",
       [] { play->StartFails = true; },
       0,
       "",
       TWinInetTransferState::wtsFailed,
       {"Transfer failed"}},
      {"an empty remote file",
       [] { play->Size = 0; },
       0,
       "",
       TWinInetTransferState::wtsDone,
       {"Got 3 bytes"}},
  };
  job_.WriteOutput("f", "abc");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Name);
    play_ = TPlay{};
    play_.Callback = nullptr;
    connection_ = wininet_->Connect("host", 21, "user", "secret", false);
    play_.Response = row.Response;
    play_.Download = [&](TWinInetApi::TContext) { TellEnd(row.Error); };
    on_poll_ = [&] { JoinLibrary(); };
    row.Set();
    job_.Display.Lines.clear();
    EXPECT_EQ(Get(), row.State == TWinInetTransferState::wtsDone);
    EXPECT_EQ(wininet_->LastState(), row.State);
    EXPECT_EQ(job_.Display.Lines, row.Lines);
  }
}

TEST_F(WinInet, ALateEndConcernsNobody) {
  job_.Context.Shared.TimeoutSeconds = 1;
  // The library goes on with the first request until it is unloaded, while a second one runs.
  std::atomic<bool> go{false};
  play_.Download = [&go, callback = play_.Callback](TWinInetApi::TContext mine) {
    go.wait(false);
    std::uint32_t count = 1000;
    struct {
      std::uintptr_t Result;
      std::uint32_t Error;
    } end{0, 12002};
    callback(&open_handle, mine, 41, &count, sizeof count);
    callback(&open_handle, mine, 100, &end, sizeof end);
  };
  EXPECT_FALSE(Get());
  EXPECT_THAT(job_.Display.Lines, ElementsAre("Transfer timed out"));
  // 1000 ms and 50 ms of grace, in steps of 250.
  EXPECT_EQ(job_.Clock.Slept, std::chrono::milliseconds(1250));

  std::thread first = std::move(play_.Threads.at(0));
  play_.Threads.clear();
  play_.Download = [](TWinInetApi::TContext) {
    TellBytes(200);
    TellEnd(0);
  };
  job_.WriteOutput("f", "abc");
  on_poll_ = [&] {
    go = true;
    go.notify_all();
    JoinLibrary();
  };
  EXPECT_TRUE(Get());
  EXPECT_EQ(job_.Display.Lines.back(), "Got 3 bytes");
  play_.Threads.push_back(std::move(first));
  // Unloads the library, which ends its threads, before the first request's record goes.
  connection_.reset();
  wininet_.reset();
}

TEST_F(WinInet, ACompletionInTheLastStepIsTooLate) {
  job_.Context.Shared.TimeoutSeconds = 1;
  play_.Download = [](TWinInetApi::TContext) {};
  int polls = 0;
  on_poll_ = [&] {
    if (++polls == 5) TellEnd(0);
  };
  EXPECT_FALSE(Get());
  EXPECT_EQ(wininet_->LastState(), TWinInetTransferState::wtsTimedOut);
  EXPECT_THAT(job_.Display.Lines, ElementsAre("Transfer timed out"));
}

TEST_F(WinInet, TheCallbackSurvivesNonsense) {
  play_.Download = [](TWinInetApi::TContext) {};
  int polls = 0;
  on_poll_ = [&] {
    if (++polls > 1) return;
    std::uint32_t count = 1;
    Tell(41, nullptr, 0);
    Tell(41, &count, 1);
    Tell(100, &count, sizeof count);
    play_.Callback(&open_handle, 0, 41, &count, sizeof count);
    TellBytes(0xFFFFFFFF);
    TellEnd(0);
  };
  EXPECT_TRUE(Get());
}

TEST_F(WinInet, ASessionFetchesThroughIt) {
  job_.Context.WinInet = wininet_.get();
  connection_.reset();
  on_poll_ = [&] { JoinLibrary(); };
  const struct {
    const char* Name;
    bool HasFile;
    std::size_t Written;
    bool Result, Present;
    std::vector<std::string> Lines;
  } rows[] = {
      {"whole", true, 200, true, true, {"Get: f", "Got 200 bytes"}},
      {"short", true, 100, true, false, {"Get: f", "Got 100 bytes", "f - 100 of 200 bytes received"}},
      {"none", false, 0, false, false, {"Get: f", "File does not exist"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Name);
    std::filesystem::remove(job_.Output("f"));
    play_ = TPlay{};
    play_.HasFile = row.HasFile;
    play_.Download = [&](TWinInetApi::TContext) {
      std::ofstream(play->LocalPath) << std::string(row.Written, 'x');
      TellEnd(0);
    };
    job_.Display.Lines.clear();
    EXPECT_TRUE(
        RunFtpSession(job_.Context, {"host:2121", "user", "secret", false, true}, [&](TFtpSession& session) {
          EXPECT_TRUE(session.UsesWinInet());
          EXPECT_EQ(FtpFetchFile(job_.Context, session, TFtpVariant::CurrentFolder, "f", job_.OutputPath()),
                    row.Result);
        }));
    EXPECT_EQ(play_.Calls[1], "connect host:2121 user/secret 1 00000000");
    EXPECT_EQ(job_.Display.Lines, row.Lines);
    EXPECT_EQ(job_.Ledger.Present(job_.Output("f")), row.Present);
    EXPECT_FALSE(job_.Run.WatchdogArmed);
  }
  play_.Connects = false;
  job_.Display.Lines.clear();
  EXPECT_FALSE(RunFtpSession(job_.Context, {"host", "user", "secret", false, true}, [](TFtpSession&) {}));
  EXPECT_THAT(job_.Display.Lines,
              ElementsAre("Connection failed to: host - no connection from the Internet library"));
}

}  // namespace
}  // namespace skyreel
