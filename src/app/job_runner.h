#pragma once

#include <QTimer>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "app/servers_dialog.h"
#include "app/source_page.h"
#include "net/https_client.h"
#include "net/nm_ftp.h"
#include "net/nm_http.h"
#include "transfer/ftp_fetch.h"
#include "transfer/run_record.h"
#include "transfer/transfer_ledger.h"
#include "transfer/wininet.h"

namespace skyreel {

/// Runs the jobs, one at a time, on the thread of the user interface. Owns the network clients, the transfer
/// ledger and the watchdog. A job waits inside its Run button's click, and its waits let events through. So
/// anything may happen during a job.
class TJobRunner : public QObject, private TRunControl {
 public:
  struct TSetup {
    TStatusDisplay& Display;
    TServerSettings& Servers;
    std::filesystem::path ProgramFolder;  ///< lists of wanted names, transfer ledger
    TClock* Clock = nullptr;              ///< nullptr: the computer's
    std::chrono::milliseconds WatchdogPeriod;
    bool KeepsFiles = false;                  ///< the record of a run holds each of its files
    std::function<TSharedSettings()> Shared;  ///< reads the shared controls
  };
  TJobRunner(QObject* parent, TSetup setup);

  /// The operating system's Internet library; nullptr on systems without one.
  TWinInetTransfer* WinInet() const { return win_inet_.get(); }
  bool Busy() const { return running_ != nullptr; }
  /// Which certificates secure servers may have besides the usual ones, and where hosts are (see
  /// ReadHttpsSettings). The next run says what is wrong with it.
  void SetHttps(const std::string& ca_file, const std::string& host_overrides);
  /// Runs a page's job to its end. While a job is running, asks that one to stop instead, and the second
  /// time aborts its transfer.
  void Run(TSourcePage& page, const TSourcePage::TJob& job);
  /// What a run of the source would work with.
  TJobPlanRequest PlanRequest(const TSource& source, TDateTime now) const;
  /// Asks the running job to stop and the program to close after it.
  void StopAndClose();
  bool CloseWhenDone() const { return close_when_done_; }
  /// From now on gives up a wait for a server that says nothing for this long.
  void GiveUpAfterSilence(std::chrono::seconds silence) { TimerSilence_.start(silence); }
  /// Counts the silence anew: a server said something.
  void EndSilence();

  /// See TRunControl::ExpectFiles.
  std::function<void(std::int64_t more)> OnExpectFiles;
  /// A job has ended and the display is back at rest. There is a record for each source that it ran.
  std::function<void(const std::vector<TRunRecord>& records)> OnEnd;

 private:
  /// True when a job was running already.
  bool BeginRun(TSourcePage& page);
  void EndRun(TSourcePage& page);
  TJobContext JobContext(const TSource& source, TClock& clock, TRunRecord& record);
  void LetEventsThrough();
  void TimerWatchdogTimer();

  // TRunControl
  bool StopRequested() const override { return stop_requested_; }
  void RestartWatchdog() override { TimerWatchdog_.start(); }
  void StopWatchdog() override { TimerWatchdog_.stop(); }
  void ExpectFiles(std::int64_t more) override { Fire(OnExpectFiles, more); }

  const TSetup setup_;
  std::unique_ptr<TWinInetTransfer> win_inet_;
  TSystemClock own_clock_;
  TFtpListing ftp_listing_;
  TNMFTP NMFTP_;
  TNMHTTP NMHTTP_;
  TNMHTTP NMHTTPNotts_;
  THttpsClient https_;
  TTransferLedger ledger_;
  QTimer TimerWatchdog_{this};
  QTimer TimerSilence_{this};

  std::vector<std::string> https_problems_;  ///< not yet said
  const TSourcePage* running_ = nullptr;     ///< whose job is running
  bool stop_requested_ = false;
  bool close_when_done_ = false;
  bool in_event_hook_ = false;
  std::vector<TSourcePage*> waiting_pages_;  ///< their Run buttons were pressed during the job
};

}  // namespace skyreel
