#include "app/job_runner.h"

#include <QCoreApplication>
#include <utility>

#include "app/program_folder.h"
#include "base/scope.h"
#include "transfer/transfer_progress.h"

namespace skyreel {

namespace {

std::unique_ptr<TWinInetTransfer> MakeWinInet() {
  auto library = LoadWinInet();
  return library ? std::make_unique<TWinInetTransfer>(std::move(library)) : nullptr;
}

}  // namespace

TJobRunner::TJobRunner(QObject* parent, TSetup setup)
    : QObject(parent),
      setup_(std::move(setup)),
      win_inet_(MakeWinInet()),
      own_clock_([this] { LetEventsThrough(); }),
      NMFTP_([this] { LetEventsThrough(); }),
      NMHTTP_([this] { LetEventsThrough(); }),
      NMHTTPNotts_([this] { LetEventsThrough(); }),
      https_([this] { LetEventsThrough(); }),
      ledger_(setup_.ProgramFolder / kLedgerName) {
  const auto show_progress = [this](TPowersock& sender) {
    ShowTransferProgress(setup_.Display, sender.ReceivedByteCount, sender.TransferSize);
  };
  BindFtpEvents(NMFTP_, setup_.Display, ftp_listing_);
  NMHTTP_.OnPacketRecvd = show_progress;
  NMHTTPNotts_.OnPacketRecvd = show_progress;
  https_.OnReceived = [this](std::int64_t received, std::int64_t announced) {
    ShowTransferProgress(setup_.Display, received, announced);
  };
  NMHTTPNotts_.InputFileMode = true;
  ledger_.OnProblem = [this](TTransferLedger&, const std::string& text) {
    setup_.Display.AddStatusLine(text);
  };
  TimerWatchdog_.setObjectName("TimerWatchdog");
  TimerWatchdog_.setSingleShot(true);
  TimerWatchdog_.setInterval(setup_.WatchdogPeriod);
  connect(&TimerWatchdog_, &QTimer::timeout, this, &TJobRunner::TimerWatchdogTimer);
  connect(&TimerSilence_, &QTimer::timeout, this, &TJobRunner::TimerWatchdogTimer);
}

void TJobRunner::SetHttps(const std::string& ca_file, const std::string& host_overrides) {
  try {
    https_.SetSettings(ReadHttpsSettings(ca_file, host_overrides, https_problems_));
  } catch (const std::exception& error) {
    https_problems_.push_back(std::string("The setting CaFile is not used: ") + error.what());
  }
}

bool TJobRunner::BeginRun(TSourcePage& page) {
  if (running_ != nullptr) {
    if (&page != running_) {
      setup_.Display.AddStatusLine(std::string(page.Source().Caption) +
                                   ": not started; this press of Run only stops " +
                                   running_->Source().Caption);
    }
    if (stop_requested_) {
      // The user does not want to wait for the end of the file.
      setup_.Display.AddStatusLine(std::string(running_->Source().Caption) +
                                   ": stopped at once by the second press");
      TimerWatchdogTimer();
    }
    stop_requested_ = true;
    page.ShowRunState(TRunState::Wait);
    waiting_pages_.push_back(&page);
    return true;
  }
  page.ShowRunState(TRunState::Stop);
  stop_requested_ = false;
  close_when_done_ = false;
  setup_.Display.SetBusyCursor(true);
  setup_.Display.SetProgress(0);
  // It may show "Complete" of the run before.
  setup_.Display.SetPanel(0, "");
  running_ = &page;
  return false;
}

void TJobRunner::EndRun(TSourcePage& page) {
  running_ = nullptr;
  StopWatchdog();
  setup_.Display.SetProgress(0);
  setup_.Display.SetBytes("", kApplicationTitle);
  setup_.Display.SetPanel(0, "Complete");
  setup_.Display.SetPanel(1, "");
  setup_.Display.SetBusyCursor(false);
  page.ShowRunState(TRunState::Run);
  for (TSourcePage* waiting : waiting_pages_) waiting->ShowRunState(TRunState::Run);
  waiting_pages_.clear();
}

void TJobRunner::Run(TSourcePage& page, const TSourcePage::TJob& job) {
  if (BeginRun(page)) return;
  for (const std::string& problem : std::exchange(https_problems_, {})) setup_.Display.AddStatusLine(problem);
  TClock& clock = setup_.Clock != nullptr ? *setup_.Clock : own_clock_;
  std::vector<TRunRecord> records;
  TRunRecord record;
  record.Source = page.Source().Caption;
  record.Started = clock.UtcNow();
  record.KeepsFiles = setup_.KeepsFiles;
  const auto start = std::chrono::steady_clock::now();
  const auto ended = [&](TRunEnd end, const std::string& reason) {
    record.End = end;
    record.Reason = reason;
  };
  if (page.OutputPath().empty()) {
    ended(TRunEnd::NotStarted, "no output folder is chosen");
  } else {
    try {
      TJobContext context = JobContext(page.Source(), clock, record);
      job(context);
      records = std::move(context.Records);
      if (stop_requested_) ended(TRunEnd::Stopped, "stopped");
    } catch (const std::exception& error) {
      ended(TRunEnd::Broken, error.what());
    }
  }
  record.Counts.Seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (records.empty()) {
    setup_.Display.AddStatusLine(record.Line());
    records.push_back(std::move(record));
  }
  EndRun(page);
  Fire(OnEnd, records);
}

TJobContext TJobRunner::JobContext(const TSource& source, TClock& clock, TRunRecord& record) {
  return {
      {setup_.Display, *this, clock, NMFTP_, NMHTTP_, NMHTTPNotts_, https_, ledger_, record, setup_.Shared(),
       win_inet_.get(), source.Caption},
      setup_.Servers.Roots(source, [this](const std::string& line) { setup_.Display.AddStatusLine(line); }),
      setup_.ProgramFolder};
}

TJobPlanRequest TJobRunner::PlanRequest(const TSource& source, TDateTime now) const {
  TJobPlanRequest request;
  request.Now = now;
  request.Shared = setup_.Shared();
  request.Servers =
      setup_.Servers.Roots(source, [&](const std::string& line) { request.Notes.push_back(line); });
  request.ProgramFolder = setup_.ProgramFolder;
  request.LedgerFile = setup_.ProgramFolder / kLedgerName;
  request.WinInet = win_inet_.get();
  return request;
}

void TJobRunner::StopAndClose() {
  stop_requested_ = true;
  close_when_done_ = true;
}

void TJobRunner::EndSilence() {
  if (TimerSilence_.isActive()) TimerSilence_.start();
}

void TJobRunner::LetEventsThrough() {
  // An event's handler may wait, too. The outer wait lets the events through.
  if (in_event_hook_) return;
  const TScopedValue inside(in_event_hook_, true);
  QCoreApplication::processEvents();
}

void TJobRunner::TimerWatchdogTimer() {
  TimerWatchdog_.stop();
  NMFTP_.Abort();
  NMHTTP_.Abort();
  NMHTTPNotts_.Abort();
  https_.Abort();
}

}  // namespace skyreel
