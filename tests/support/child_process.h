#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace skyreel::test {

/// A child process that runs `work` with the write end of a pipe and ends.
class TChild {
 public:
  template <typename TWork>
  explicit TChild(TWork work) {
    if (::pipe(pipe_) != 0) throw std::runtime_error("pipe");
    process_ = ::fork();
    if (process_ == 0) {
      work(pipe_[1]);
      ::_exit(0);
    }
    ::close(pipe_[1]);
  }
  ~TChild() {
    Kill();
    ::close(pipe_[0]);
  }
  /// Waits for the child's next `count` bytes; false when it ended before.
  bool Await(int count = 1) {
    char byte;
    while (count > 0 && ::read(pipe_[0], &byte, 1) == 1) --count;
    return count == 0;
  }
  void Kill() {
    if (process_ > 0) ::kill(process_, SIGKILL);
    Join();
  }
  void Join() {
    if (process_ > 0) ::waitpid(process_, nullptr, 0);
    process_ = 0;
  }

 private:
  int pipe_[2];
  pid_t process_ = 0;
};

/// Sends the byte that TChild::Await waits for.
inline void Say(int pipe) {
  if (::write(pipe, "x", 1) != 1) throw std::runtime_error("write");
}

}  // namespace skyreel::test
