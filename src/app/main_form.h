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

#include "app/batch.h"
#include "app/source_pages.h"
#include "app/status_log.h"
#include "net/nm_ftp.h"
#include "net/nm_http.h"
#include "settings/registry_variable.h"
#include "sources/job_context.h"
#include "transfer/ftp_fetch.h"
#include "transfer/transfer_ledger.h"
#include "transfer/wininet.h"

class QLabel;
class QLineEdit;
class QPushButton;

namespace Ui {
class TFormMain;
}

namespace skyreel {

/// What the form needs from outside; main gives it the real things, tests their own.
struct TFormEnvironment {
  TRegistryStore& Store;             ///< the settings key; outlives the form
  std::filesystem::path Executable;  ///< its base name is recorded beside those of the maker's other programs
  std::filesystem::path AppPaths;    ///< where they are recorded
  std::filesystem::path ProgramFolder;  ///< report, transfer ledger, lists of wanted names
  std::vector<std::string> Arguments;   ///< of the command line, without the program's name and Qt's own
  /// Nobody sees the window: messages go to the log, and the program closes when the batch is over.
  bool Headless = false;
  TClock* Clock = nullptr;     ///< nullptr: the computer's
  std::function<void()> Bell;  ///< sounds the default beep; empty: the application's beep
  /// Of a batch: gets each line of the log once it is final, and what is told beside the log.
  std::function<void(const std::string& line)> Output;
  std::function<void(const std::string& line)> ErrorOutput;
  std::chrono::milliseconds BatchDelay{1'000};
  std::chrono::milliseconds WatchdogPeriod{1'200'000};
};

/// The single window, owner of all state. One job runs at a time, on the thread of the user interface: a job
/// waits inside its Run button's click, and the waits let events through. So anything may happen during a
/// job; dialogs never run a loop of their own, and the window is closed only between jobs.
class TFormMain : public QMainWindow, private TStatusDisplay, private TRunControl, private TBatchActions {
 public:
  /// Reads all settings. Throws ERegistryError when one cannot be read; the store then stays as it is.
  explicit TFormMain(TFormEnvironment environment);
  /// Saves all settings.
  ~TFormMain() override;

  bool Busy() const { return busy_; }

  // The Run handlers, one per source that can be fetched from.
  void ButtonRunBracknellClick();
  void ButtonRunEuDAClick();
  void ButtonRunEuArchiveClick();
  void ButtonRunGOESClick();
  void ButtonRunMSFCClick();
  void ButtonRunDundeePdusClick();

  /// Closes the program; while a job runs, asks it to stop and closes when it has ended. May be called at any
  /// time and again.
  void ButtonCloseClick();
  /// As ButtonCloseClick, for one who will not wait for long: a wait for a server that says nothing, and that
  /// the network time-out does not end, is given up after that time.
  void CloseSoon();

  const TStatusLog& Log() const { return *log_; }

 protected:
  void showEvent(QShowEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  struct TPages;
  /// The depth of the stack of busy cursors.
  using TSavedCursor = int;

  void FormCreate();
  void FormShow();
  void FormCloseQuery();
  void FormDestroy();
  void BuildPages();
  void BuildSourcesMenu();
  void FillItemLists();
  void SetDefaultPaths();
  void SelectMissingItems();
  void RestoreOwnSettings();
  void WireEvents();
  void WireTransfers();

  // The job bracket.
  bool BeginRun(QPushButton& button, TSavedCursor& saved_cursor);
  void EndRun(QPushButton& button, TSavedCursor saved_cursor);
  /// `credentials`: the edits of the user name and the password, for a source that needs both.
  void RunSource(TSource source, const std::function<void(TJobContext&)>& job,
                 const std::optional<std::array<QLineEdit*, 2>>& credentials = {});
  bool CredentialsMissing(const std::string& site, const std::string& user, const std::string& password);
  TJobContext JobContext();
  TServerRoots ReadServers();
  void LetEventsThrough();

  // TStatusDisplay
  void AddStatusLine(const std::string& text) override;
  void BeginFile(const std::string& line) override;
  void EndFile(const TFileResult& result, const std::string& line) override;
  void SetPanel(int panel, const std::string& text) override;
  void SetProgress(int percent) override;
  void SetBytes(const std::string& label, const std::string& title) override;
  void SetBusyCursor(bool busy) override;

  // TRunControl
  bool StopRequested() const override { return stop_requested_; }
  void RestartWatchdog() override;
  void StopWatchdog() override;

  // TBatchActions
  void MinimiseApplication() override;
  void Dial() override;
  void HangUp() override;
  void PressRun(std::size_t group, bool named) override;
  bool ClosePending() const override { return close_when_done_ || closed_; }
  void RingAfterBatch() override;
  void CloseProgram() override;

  void TimerShowTimer();
  void TimerWatchdogTimer();
  void ButtonBrowseClick(TSource source);
  void EditOutputPathChange(QLineEdit& edit);
  void PressCurrentRun();
  /// Shows the next tab (1) or the one before it (-1) among those that are not hidden, round the ends.
  void ShowNextTab(int step);
  void ButtonAnalysePDUSClick();
  void MenuItemRunOrbiscopeClick();
  void MenuItemServersClick();
  void MenuItemAboutClick();
  void ShowTab(TSource source, bool shown);
  /// Tells the user something about `subject` without waiting for an answer.
  void ShowMessage(const std::string& subject, const std::string& text);
  void Bell();

  QWidget& Page(TSource source) const { return *tabs_.at(static_cast<std::size_t>(source)); }
  bool IsTabShown(TSource source) const;
  std::string OutputPath(TSource source) const;

  TFormEnvironment environment_;
  std::unique_ptr<Ui::TFormMain> ui_;
  std::unique_ptr<TPages> pages_;
  std::array<QWidget*, 12> tabs_{};
  std::array<QAction*, 12> tab_actions_{};
  std::array<QLabel*, 2> panels_{};
  std::unique_ptr<TStatusLog> log_;

  // Job state.
  bool busy_ = false;
  bool stop_requested_ = false;
  bool close_when_done_ = false;
  bool closed_ = false;
  bool told_to_end_ = false;  ///< by a signal: nobody reads a message box
  bool batch_running_ = false;
  bool shown_ = false;
  bool in_event_hook_ = false;
  int cursor_depth_ = 0;
  std::vector<QPushButton*> waiting_buttons_;  ///< pressed during another button's job

  QString orbiscope_path_;
  /// The operating system's Internet library; empty where there is none.
  std::unique_ptr<TWinInetTransfer> win_inet_;

  std::unique_ptr<TClock> own_clock_;
  TFtpListing ftp_listing_;
  TNMFTP NMFTP_;
  TNMHTTP NMHTTP_;
  TNMHTTP NMHTTPNotts_;
  TTransferLedger ledger_;
  QTimer TimerShow_;
  QTimer TimerWatchdog_{this};
  QTimer TimerSilence_{this};  ///< runs once CloseSoon was called during a job; started anew by each packet

  // Settings of no control of their own; saved when they are freed.
  std::unique_ptr<TRegistryString> GoesESlot_, GoesWSlot_;
  std::unique_ptr<TRegistryString> WantedEuArSectors_, WantedEuArProducts_, WantedSectors_;
  std::unique_ptr<TRegistryString> VisibleTabs_, WindowGeometry_, SplitterState_;
  std::array<std::unique_ptr<TRegistryString>, kServerRootSettings.size()> servers_;
};

}  // namespace skyreel
