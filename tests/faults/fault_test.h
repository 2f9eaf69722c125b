#pragma once

#include "support/failure.h"
#include "support/job_fixture.h"
#include "transfer/ftp_fetch.h"
#include "transfer/http_fetch.h"

namespace skyreel::test {

/// A fault hits the file "hit"; the file "next" is whole.
class TFaultTest : public TJobTest {
 protected:
  static constexpr std::size_t kSize = 12'000;
  static constexpr int kPatience = 300;  ///< milliseconds

  TFaultTest() {
    std::filesystem::create_directories(Folder / "tmp");
    ::setenv("TMPDIR", (Folder / "tmp").c_str(), 1);
    OnTurn = [this] {
      const auto now = std::chrono::steady_clock::now();
      if (std::exchange(restarts_, Run.Restarts) != Run.Restarts) armed_ = now;
      if (!Watchdog || now < armed_ + std::chrono::milliseconds(kPatience)) return;
      Watchdog = false;
      NMFTP.Abort();
      NMHTTP.Abort();
    };
    NMHTTP.OnAboutToSend = [this](TNMHTTP& client) {
      if (Impatient && client.URL().ends_with("hit")) client.TimeOut = kPatience;
    };
    NMFTP.OnConnect = [this](TPowersock& client) {
      if (Impatient) client.TimeOut = kPatience;
    };
  }
  ~TFaultTest() override {
    EXPECT_TRUE(std::filesystem::is_empty(Folder / "tmp"));
    ::unsetenv("TMPDIR");
  }

  TFileResult FetchHttp(const std::string& name, TDelivery delivery) {
    THttpFileRequest request;
    request.Url = Server.Url("/" + name);
    request.GetLine = "Get: " + name;
    request.Name = name;
    request.LocalPath = Output(name);
    request.Delivery = delivery;
    request.GoodSize = 4;
    request.CompleteSize = delivery == TDelivery::Direct ? kSize : 10'000;
    return FetchHttpFile(Context, request);
  }
  TFileResult FetchFtp(TFtpSession& session, const std::string& name) {
    const auto fetch = FtpFetchFile(Context, session, {name, "/" + name, OutputPath(), "", {}});
    if (!fetch) return {};
    if (fetch->StillNoted) Ledger.End(Output(name), TTransferEnd::Whole);
    Display.EndFile(fetch->Result, FtpLine(fetch->Result));
    return fetch->Result;
  }
  /// Ends an FTP run as the form does: a session leaves its last file's progress, and a failed transfer
  /// leaves the watchdog, to the end of the run.
  void EndFtpRun() {
    Display.SetPanel(1, "");
    Display.SetProgress(0);
    EXPECT_FALSE(std::exchange(Run.WatchdogArmed, false));
    Run.Stops = Run.Restarts;
    Lines();
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

  bool Impatient = false;  ///< the hit file's time-out is short
  bool Watchdog = false;   ///< the next transfer that takes long is aborted

 private:
  int restarts_ = 0;
  std::chrono::steady_clock::time_point armed_;
};

/// `text` over and over, more than 1 MiB of it.
inline std::string Repeated(const std::string& text) {
  std::string all;
  while (all.size() < 1'100'000) all += text;
  return all;
}

}  // namespace skyreel::test
