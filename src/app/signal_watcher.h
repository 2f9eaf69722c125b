#pragma once

#include <QSocketNotifier>
#include <functional>
#include <memory>

namespace skyreel {

/// Turns SIGTERM, SIGINT and SIGHUP into calls of a function on the user interface's thread, also inside
/// waits. Make it before any thread starts: it takes the signals from the whole process. A signal that comes
/// before Start waits for it. A signal that was ignored at the program's start (nohup) stays ignored. Does
/// nothing on systems without signals.
class TSignalWatcher {
 public:
  TSignalWatcher();
  ~TSignalWatcher();
  TSignalWatcher(const TSignalWatcher&) = delete;
  TSignalWatcher& operator=(const TSignalWatcher&) = delete;

  /// Needs the application object. Calls `on_signal` once or more. A later Start replaces the function.
  void Start(std::function<void()> on_signal);

 private:
  int descriptor_ = -1;
  std::unique_ptr<QSocketNotifier> notifier_;
};

/// Lets the signals through while `action` runs. Use it to start another program: that one would inherit the
/// block and could not be ended by them. A signal that comes during the action ends this program at once.
void WithSignalsLetThrough(const std::function<void()>& action);

}  // namespace skyreel
