#pragma once

#include <QSocketNotifier>
#include <functional>
#include <memory>

namespace skyreel {

/// Turns SIGTERM, SIGINT and SIGHUP into calls of a function on the user interface's thread, inside waits
/// too. To be made before any thread is started, since the signals are taken from the whole process; a signal
/// that comes before Start waits for it. A signal that was ignored when the program started (nohup) stays so.
/// On systems without signals it does nothing.
class TSignalWatcher {
 public:
  TSignalWatcher();
  ~TSignalWatcher();
  TSignalWatcher(const TSignalWatcher&) = delete;
  TSignalWatcher& operator=(const TSignalWatcher&) = delete;

  /// Needs the application object. `on_signal` may be called any number of times. A later call takes the
  /// place of an earlier one.
  void Start(std::function<void()> on_signal);

 private:
  int descriptor_ = -1;
  std::unique_ptr<QSocketNotifier> notifier_;
};

/// For the start of another program, which would inherit that the signals are held back and could not be
/// ended by them. One that comes just then ends this program at once.
void WithSignalsLetThrough(const std::function<void()>& action);

}  // namespace skyreel
