#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace skyreel::test {

/// A child process that runs `work` and ends.
class TChild {
 public:
  template <typename TWork>
  explicit TChild(TWork work) : process_(::fork()) {
    if (process_ != 0) return;
    work();
    ::_exit(0);
  }
  ~TChild() { Kill(); }
  TChild(TChild&&) = delete;
  /// Waits until the child halts itself (::raise(SIGSTOP)); false when it ends first.
  bool Await() const {
    siginfo_t child{};
    ::waitid(P_PID, static_cast<id_t>(process_), &child, WSTOPPED | WEXITED | WNOWAIT);
    return child.si_code == CLD_STOPPED;
  }
  void Kill() {
    if (process_ == 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(std::exchange(process_, 0), nullptr, 0);
  }

 private:
  pid_t process_;
};

}  // namespace skyreel::test
