#include "app/signal_watcher.h"

#ifdef __linux__
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>
#endif

namespace skyreel {

#ifdef __linux__

namespace {

sigset_t ClosingSignals() {
  sigset_t set;
  ::sigemptyset(&set);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    // An ignored signal that is blocked would still come through the descriptor.
    struct sigaction action {};
    if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) ::sigaddset(&set, number);
  }
  return set;
}

}  // namespace

TSignalWatcher::TSignalWatcher() {
  const sigset_t set = ClosingSignals();
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  descriptor_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
}

TSignalWatcher::~TSignalWatcher() {
  // The signals stay blocked: another one must not end the program while it saves its settings.
  notifier_.reset();
  if (descriptor_ >= 0) ::close(descriptor_);
}

void TSignalWatcher::Start(std::function<void()> on_signal) {
  if (descriptor_ < 0) return;
  notifier_ = std::make_unique<QSocketNotifier>(descriptor_, QSocketNotifier::Read);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(),
                   [this, handler = std::move(on_signal)] {
                     signalfd_siginfo info{};
                     bool got = false;
                     while (::read(descriptor_, &info, sizeof info) == sizeof info) got = true;
                     if (got) handler();
                   });
}

void WithSignalsLetThrough(const std::function<void()>& action) {
  const sigset_t set = ClosingSignals();
  sigset_t saved;
  ::pthread_sigmask(SIG_UNBLOCK, &set, &saved);
  action();
  ::pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

#else

TSignalWatcher::TSignalWatcher() = default;
TSignalWatcher::~TSignalWatcher() = default;
void TSignalWatcher::Start(std::function<void()>) {}
void WithSignalsLetThrough(const std::function<void()>& action) {
  action();
}

#endif

}  // namespace skyreel
