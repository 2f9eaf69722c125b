#pragma once

#include <QMainWindow>
#include <QTimer>
#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/archive_views.h"
#include "app/batch.h"
#include "app/batch_record.h"
#include "app/job_runner.h"
#include "app/journal_recorder.h"
#include "app/lower_views.h"
#include "app/run_progress.h"
#include "app/servers_dialog.h"
#include "app/source_tabs.h"
#include "app/status_log.h"

class QLabel;

namespace Ui {
class TFormMain;
}

namespace skyreel {

/// What the form needs from outside.
struct TFormEnvironment {
  TRegistryStore& Store;  ///< the settings key; outlives the form
  std::filesystem::path
      Executable;  ///< recorded under its base name, so that the maker's other programs find it
  std::filesystem::path AppPaths;       ///< the file that records it
  std::filesystem::path ProgramFolder;  ///< report, transfer ledger, lists of wanted names
  std::filesystem::path JournalFile;
  TSourceFolders SourceFolders;        ///< of descriptions
  std::vector<std::string> Arguments;  ///< of the command line, without the program's name and Qt's own
  /// Nobody sees the window: messages go to the log, and the program closes after the batch.
  bool Headless = false;
  TClock* Clock = nullptr;     ///< nullptr: the computer's
  std::function<void()> Bell;  ///< sounds the default beep; empty: the application's beep
  std::function<void(const std::string& line)> Output;  ///< of a batch: each line of the log once it is final
  std::function<void(const std::string& line)> ErrorOutput;   ///< of a batch: what does not go into the log
  std::function<void(const std::string& document)> Document;  ///< of a batch: gets it as JSON at its end
  std::chrono::milliseconds BatchDelay{1'000};
  std::chrono::milliseconds WatchdogPeriod{1'200'000};
};

/// The single window. It shows what the running job does, carries out the batch, and is closed only between
/// jobs: closing it during a job asks the job to stop first. Its dialogs run no event loop of their own.
class TFormMain : public QMainWindow, private TStatusDisplay, private TBatchActions {
 public:
  /// Reads all settings. Throws ERegistryError when one cannot be read; the store then stays as it is.
  explicit TFormMain(TFormEnvironment environment);
  /// Saves all settings.
  ~TFormMain() override;

  bool Busy() const { return runner_->Busy(); }

  /// Closes the program. While a job runs, asks it to stop and closes after it. May be called again.
  void ButtonCloseClick();
  /// As ButtonCloseClick, but does not wait for long: when a server says nothing, gives up soon after the
  /// network time-out.
  void CloseSoon();

  const TStatusLog& Log() const { return *log_; }
  /// Of the batch so far; Done when there was none.
  TExitCode ExitCode() const { return batch_.ExitCode(); }

 protected:
  void showEvent(QShowEvent* event) override;
  void closeEvent(QCloseEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  void FormCreate();
  void FormShow();
  void FormCloseQuery();
  void FormDestroy();
  void BuildStatusArea();
  /// The views in the lower half of the window.
  void AddLowerViews();
  // Tab goes through the source tabs, their pages, the lower tabs, their views and the shared controls. New
  // pages and views join at the end, so what follows them must move behind them.
  QWidget* LastInFocusChain() const;
  void OrderLog();
  void OrderSharedControls();
  void ShowFirstSteps();
  void WireEvents();

  /// Runs the page's job, unless its tab is hidden or its login is missing.
  void RunSource(TSourcePage& page, const TSourcePage::TJob& job);
  void JobEnded(const std::vector<TRunRecord>& records);
  std::vector<TCoverageSource> CoverageSources() const;
  void ShowRunProgress();
  std::string WhyNotAgain(const TJournalEntry& file);
  /// Fetches files of the journal anew, one page's after the other's.
  void FetchAgain(const std::vector<TJournalEntry>& files);
  /// A source that the batch names does not run.
  void NotRun(const TSource& source, TRunEnd end, const std::string& reason);
  bool CredentialsMissing(const TSourcePage& page);
  TSharedSettings ReadShared() const;

  // TStatusDisplay
  void AddStatusLine(const std::string& text) override;
  void BeginFile(const std::string& line) override;
  void EndFile(const TFileResult& result, const std::string& line) override;
  void SetPanel(int panel, const std::string& text) override;
  void SetProgress(int percent) override;
  void SetBytes(const std::string& label, const std::string& title) override;
  void SetBusyCursor(bool busy) override;
  /// Shows the application's title; while the window is not minimised its own title is the caption.
  void ShowTitle(const QString& application_title);

  // TBatchActions
  void MinimiseApplication() override;
  void Dial() override;
  void HangUp() override;
  void PressRun(const TSource& source, bool named) override;
  bool ClosePending() const override { return runner_->CloseWhenDone() || closed_; }
  void BatchEnded() override;
  void RingAfterBatch() override;
  void CloseProgram() override;

  void TimerShowTimer();
  void PressCurrentRun();
  /// Searches in the lower view that has the focus, else on the current page.
  void FindKeyPressed();
  /// Opens the menu of the widget that has the focus.
  void OpenContextMenu();
  void MenuItemRunOrbiscopeClick();
  void MenuItemServersClick();
  void MenuItemAboutClick();
  /// Tells the user something about `subject` without waiting for an answer.
  void ShowMessage(const std::string& subject, const std::string& text);
  /// Asks the user; calls `yes` or `no`.
  void Ask(const std::string& subject, const std::string& text, const std::function<void()>& yes,
           const std::function<void()>& no);
  void Bell();
  TDateTime UtcNow() const;

  TFormEnvironment environment_;
  std::unique_ptr<Ui::TFormMain> ui_;
  std::array<QLabel*, 2> panels_{};
  std::unique_ptr<TStatusLog> log_;
  TServerSettings servers_;
  TJournalRecorder journal_;
  TSharedCatalogue catalogue_;
  std::unique_ptr<TJobRunner> runner_;
  std::unique_ptr<TSourceTabs> tabs_;
  std::unique_ptr<TLowerViews> lower_;
  std::unique_ptr<TArchiveViews> views_;
  std::optional<TRunProgress> progress_;  ///< of the running job
  bool stopped_ = false;                  ///< the last job was stopped
  TRegistryString WindowGeometry_, SplitterState_;
  TRegistryString CaFile_, HostOverrides_;
  QTimer TimerShow_;
  QString orbiscope_path_;

  bool shown_ = false;
  bool closed_ = false;
  bool told_to_end_ = false;  ///< by a signal: nobody reads a message box
  bool batch_running_ = false;
  bool batch_ended_ = false;
  TBatchRecord batch_;
};

}  // namespace skyreel
