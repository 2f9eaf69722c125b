#pragma once

#include <cstdint>
#include <string>

#include "base/clock.h"
#include "base/scope.h"

namespace skyreel {

class TNMFTP;
class TNMHTTP;
class TTransferLedger;
class THttpsClient;
class TWinInetTransfer;
struct TFetchPlan;
struct TFileResult;
struct TRunRecord;

/// Shows what a job does while it runs. The main form implements it; tests record it.
class TStatusDisplay {
 public:
  virtual ~TStatusDisplay() = default;
  /// Appends one line to the status list and selects it, so that the list scrolls to it.
  virtual void AddStatusLine(const std::string& text) = 0;
  /// Appends the line of a file that is being fetched. It stays the newest line until EndFile: lines that are
  /// added meanwhile come before it.
  virtual void BeginFile(const std::string& line) = 0;
  /// Takes what became of a file, and the status line written from it: it replaces the line of BeginFile, or
  /// is added when there was none. An empty line changes nothing.
  virtual void EndFile(const TFileResult& result, const std::string& line) = 0;
  /// A status-bar panel: 0 the job's phase, 1 a short detail.
  virtual void SetPanel(int panel, const std::string& text) = 0;
  /// Progress of the current file in per cent, 0 to 100; values beyond count as the nearest end.
  virtual void SetProgress(int percent) = 0;
  /// The bytes label next to the progress bar, and the application's title (task-bar text).
  virtual void SetBytes(const std::string& label, const std::string& title) = 0;
  /// The hour-glass cursor; calls nest.
  virtual void SetBusyCursor(bool busy) = 0;
};

/// How a running job is told to stop, and how it guards its transfers. The main form implements it.
class TRunControl {
 public:
  virtual ~TRunControl() = default;
  /// True once the user (or a signal) asked the job to stop; polled between files.
  virtual bool StopRequested() const = 0;
  /// Starts the watchdog's full period again; called just before each transfer.
  virtual void RestartWatchdog() = 0;
  /// Called just after each transfer.
  virtual void StopWatchdog() = 0;
  /// This many more files than before will end at the display; a negative number means fewer. A job that does
  /// not know its files beforehand does not call it.
  virtual void ExpectFiles(std::int64_t /*more*/) {}
};

/// Guards one transfer: starts the watchdog now and stops it when the returned scope ends.
[[nodiscard]] inline auto Guard(TRunControl& run) {
  run.RestartWatchdog();
  return TAtScopeEnd([&run] { run.StopWatchdog(); });
}

/// The settings that all sources share, as they were when the run began.
struct TSharedSettings {
  int TimeoutSeconds = 200;  ///< 5 to 3600
  int BackDays = 2;          ///< 1 to 90
  bool UseProxy = false;
  std::string ProxyServer;
  std::string ProxyPort;  ///< as typed; a number only if the user typed one
};

/// What the transfer primitives need. Nothing in it leads back to the form. The owner keeps everything alive
/// for the whole run.
struct TTransferContext {
  TStatusDisplay& Display;
  TRunControl& Run;
  TClock& Clock;
  TNMFTP& NMFTP;
  TNMHTTP& NMHTTP;
  TNMHTTP& NMHTTPNotts;
  THttpsClient& Https;
  TTransferLedger& Ledger;
  TRunRecord& Record;  ///< of the run; see EndFile
  TSharedSettings Shared;
  /// The operating system's Internet library; null on systems without one.
  TWinInetTransfer* WinInet = nullptr;
  std::string Source{};  ///< the tab's caption
  /// Bytes; a larger download is given up, so that an endless one fills neither disk nor memory.
  std::int64_t LargestDownload = std::int64_t{1} << 30;
  /// Of a run that is only planned, else null: what would be fetched goes in here. No server is asked then,
  /// and nothing on the disk changes.
  TFetchPlan* Plan = nullptr;
};

/// The application's title while no transfer runs.
inline constexpr const char* kApplicationTitle = "Skyreel - from Quenmoor";

}  // namespace skyreel
