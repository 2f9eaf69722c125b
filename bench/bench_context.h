#pragma once

#include <filesystem>
#include <string>

#include "net/https_client.h"
#include "net/nm_ftp.h"
#include "net/nm_http.h"
#include "sources/job_context.h"
#include "transfer/run_record.h"
#include "transfer/transfer_ledger.h"
#include "transfer/transfer_progress.h"

namespace skyreel::bench {

/// Shows nothing and counts the lines.
class TQuietDisplay : public TStatusDisplay {
 public:
  void AddStatusLine(const std::string& text) override {
    ++Lines;
    Last = text;
  }
  void BeginFile(const std::string& line) override { Last = line; }
  void EndFile(const TFileResult&, const std::string& line) override { Last = line; }
  void SetPanel(int, const std::string&) override {}
  void SetProgress(int) override {}
  void SetBytes(const std::string&, const std::string&) override {}
  void SetBusyCursor(bool) override {}

  int Lines = 0;
  std::string Last;
};

class TEndlessRun : public TRunControl {
 public:
  bool StopRequested() const override { return false; }
  void RestartWatchdog() override {}
  void StopWatchdog() override {}
};

/// The clock stands at a fixed time, so that a run always looks for the same files.
class TFixedClock : public TSystemClock {
 public:
  explicit TFixedClock(TDateTime now) : TSystemClock({}), now_(now) {}
  TDateTime UtcNow() const override { return now_; }

 private:
  TDateTime now_;
};

/// All that a job works with, at 23:50 on a fixed day, with the real clients.
struct TBenchContext {
  explicit TBenchContext(const std::filesystem::path& folder)
      : Ledger(folder / "ledger.txt"),
        Context{{Display, Run, Clock, NMFTP, NMHTTP, NMHTTPNotts, Https, Ledger, Record, {}}, {}, folder} {
    NMHTTP.OnPacketRecvd = [this](TPowersock& sender) {
      ShowTransferProgress(Display, sender.ReceivedByteCount, sender.TransferSize);
    };
  }

  TQuietDisplay Display;
  TEndlessRun Run;
  TFixedClock Clock{TDateTime::FromDate(2005, 11, 10, 23, 50)};
  TNMFTP NMFTP;
  TNMHTTP NMHTTP;
  TNMHTTP NMHTTPNotts;
  THttpsClient Https;
  TTransferLedger Ledger;
  TRunRecord Record;
  TJobContext Context;
};

}  // namespace skyreel::bench
