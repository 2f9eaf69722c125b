#pragma once

#include <filesystem>
#include <string>

#include "base/clock.h"

namespace skyreel {

class TNMFTP;
class TNMHTTP;
class TTransferLedger;
class TWinInetTransfer;

/// What a job shows while it runs. The main form shows it; tests record it.
class TStatusDisplay {
 public:
  virtual ~TStatusDisplay() = default;
  /// Appends one line to the status list and selects it, so that the list scrolls to it.
  virtual void AddStatusLine(const std::string& text) = 0;
  /// The same of a line that stands for a transfer until EndStatusLine puts its outcome in its place. Lines
  /// that are added meanwhile come before it, so that it stays the newest.
  virtual void BeginStatusLine(const std::string& text) = 0;
  virtual void EndStatusLine(const std::string& text) = 0;
  /// A status-bar panel: 0 the job's phase, 1 a short detail.
  virtual void SetPanel(int panel, const std::string& text) = 0;
  /// Progress of the current file in per cent, 0 to 100; values beyond are held at the ends.
  virtual void SetProgress(int percent) = 0;
  /// The bytes label beside the progress bar.
  virtual void SetBytesLabel(const std::string& text) = 0;
  /// The application's title (task-bar text).
  virtual void SetTitle(const std::string& text) = 0;
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
};

/// The settings that all sources share, as they were when the run began.
struct TSharedSettings {
  int TimeoutSeconds = 200;  ///< 5 to 3600
  int BackDays = 2;          ///< 1 to 90
  bool UseProxy = false;
  std::string ProxyServer;
  std::string ProxyPort;  ///< as typed; a number only if the user typed one
};

/// What the transfer primitives need; nothing in it leads back to the form. The owner keeps everything
/// alive for the whole run.
struct TTransferContext {
  TStatusDisplay& Display;
  TRunControl& Run;
  TClock& Clock;
  TNMFTP& NMFTP;
  TNMHTTP& NMHTTP;
  TNMHTTP& NMHTTPNotts;
  TTransferLedger& Ledger;
  TSharedSettings Shared;
  /// The operating system's Internet library; null where there is none.
  TWinInetTransfer* WinInet = nullptr;
};

/// The application's title while no transfer runs.
inline constexpr const char* kApplicationTitle = "Skyreel - from Quenmoor";

}  // namespace skyreel
