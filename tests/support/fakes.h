#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "transfer/file_result.h"
#include "transfer/transfer_context.h"

namespace skyreel::test {

/// A clock that stands still. A sleep sets it forward.
class TFakeClock : public TClock {
 public:
  explicit TFakeClock(TDateTime now) : Now(now) {}
  TDateTime UtcNow() const override { return Now; }
  void Sleep(std::chrono::milliseconds span) override {
    Slept += span;
    Now = Now + span;
    if (OnSleep) OnSleep();
  }

  TDateTime Now;
  std::chrono::milliseconds Slept{0};
  std::function<void()> OnSleep;
};

/// Keeps what was shown.
class TRecordingDisplay : public TStatusDisplay {
 public:
  void AddStatusLine(const std::string& text) override {
    Lines.insert(Lines.end() - (begun_ ? 1 : 0), text);
    AllLines.push_back(text);
  }
  void BeginFile(const std::string& line) override {
    AddStatusLine(line);
    begun_ = true;
  }
  void EndFile(const TFileResult& result, const std::string& line) override {
    Results.push_back(result);
    if (line.empty()) return;
    if (!std::exchange(begun_, false)) return AddStatusLine(line);
    AllLines.push_back(line);
    Lines.back() = line;
  }
  void SetPanel(int panel, const std::string& text) override {
    Panels.push_back({panel, text});
    shown_[panel] = text;
  }
  void SetProgress(int percent) override { Progress.push_back(percent); }
  void SetBytes(const std::string& label, const std::string& title) override {
    BytesLabels.push_back(label);
    Titles.push_back(title);
  }
  void SetBusyCursor(bool busy) override { BusyDepth += busy ? 1 : -1; }

  std::vector<std::string> Lines;  ///< the list as it stands
  std::vector<TFileResult> Results;
  std::vector<std::string> AllLines;  ///< every line that ever stood in it, in order
  std::vector<std::pair<int, std::string>> Panels;
  std::vector<int> Progress;
  std::vector<std::string> BytesLabels;
  std::vector<std::string> Titles;
  int BusyDepth = 0;

  /// What a panel shows now.
  std::string Panel(int panel) { return shown_[panel]; }

 private:
  bool begun_ = false;
  std::map<int, std::string> shown_;
};

/// Stops when told.
class TFakeRun : public TRunControl {
 public:
  bool StopRequested() const override { return Stop; }
  void RestartWatchdog() override { WatchdogArmed = true; }
  void StopWatchdog() override { WatchdogArmed = false; }
  void ExpectFiles(std::int64_t more) override { Expected += more; }

  bool Stop = false;
  bool WatchdogArmed = false;
  std::int64_t Expected = 0;
};

}  // namespace skyreel::test
