#pragma once

#include <atomic>

#include "support/helpers.h"
#include "support/job_fixture.h"
#include "transfer/ftp_fetch.h"
#include "transfer/http_fetch.h"

namespace skyreel::test {

/// Fetches files into the output folder. Fault tables hit the file "hit"; the file "next" is whole.
class TFetchTest : public TJobTest {
 protected:
  static constexpr std::size_t kSize = 12'000;

  TFetchTest() {
    std::filesystem::create_directories(Folder / "tmp");
    ::setenv("TMPDIR", (Folder / "tmp").c_str(), 1);
    OnTurn = [this] {
      if (!Watchdog || (*Stalls == stalls_ && !Endless) || ++turns_ < 20) return;
      Watch(false);
      NMFTP.Abort();
      NMHTTP.Abort();
    };
  }
  ~TFetchTest() override {
    EXPECT_TRUE(std::filesystem::is_empty(Folder / "tmp"));
    ::unsetenv("TMPDIR");
  }

  TFileResult FetchHttp(const std::string& name, TDelivery delivery, std::int64_t complete = kSize,
                        std::int64_t good = 4) {
    THttpFileRequest request;
    request.Url = Server.Url("/" + name);
    request.GetLine = "Get: " + name;
    request.Name = name;
    request.SlotTime = Clock.Now;
    request.LocalPath = Output(name);
    request.Delivery = delivery;
    request.GoodSize = good;
    request.CompleteSize = delivery == TDelivery::Direct ? complete : 10'000;
    return FetchHttpFile(Context, request);
  }
  /// Ends the file as the sources do. What FtpFetchFile gave; Received is false when it gave nothing.
  TFtpFetch FetchFtp(TFtpSession& session, const std::string& name, const std::string& folder = "") {
    const auto fetch = FtpFetchFile(Context, session, {name, "/" + name, Output(folder), "", {}});
    if (!fetch) return {};
    if (fetch->StillNoted) Ledger.End(fetch->Result.Path, TTransferEnd::Whole);
    Display.EndFile(fetch->Result, FtpLine(fetch->Result));
    return *fetch;
  }
  /// Ends an FTP run as the form does: a session leaves its last file's progress, and a failed transfer
  /// leaves the watchdog, to the end of the run.
  void EndFtpRun() {
    Display.SetPanel(1, "");
    Display.SetProgress(0);
    Display.SetBytes("", kApplicationTitle);
    Run.WatchdogArmed = false;
    Display.Lines.clear();
  }
  /// What is on the disk under a name: "nothing", "whole", "half", "older" or its size; ", noted".
  std::string Left(const std::string& name) {
    const std::int64_t size = FileSizeOf(Output(name));
    std::string left = size < 0            ? "nothing"
                       : size == kSize     ? "whole"
                       : size == kSize / 2 ? "half"
                       : size == 5         ? "older"
                                           : std::to_string(size);
    return Ledger.IsNoted(Output(name)) ? left + ", noted" : left;
  }

  /// Lets the watchdog abort the transfer once a server stalls and everything that it sent was read.
  void Watch(bool on) {
    Watchdog = on;
    stalls_ = *Stalls;
    turns_ = 0;
  }

  const std::atomic<int>* Stalls = &Server.Stalls;  ///< of the server that Watch looks at
  bool Watchdog = false;
  bool Endless = false;  ///< the server does not stall but sends for ever

 private:
  int stalls_ = 0;
  int turns_ = 0;
};

}  // namespace skyreel::test
