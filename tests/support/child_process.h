#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace skyreel::test {

/// A child process that runs `work` with the write end of a pipe and ends.
class TChild {
 public:
  template <typename F>
  explicit TChild(F work) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("pipe");
    process_ = ::fork();
    if (process_ == 0) {
      ::close(ends[0]);
      work(ends[1]);
      ::_exit(0);
    }
    ::close(ends[1]);
    read_ = ends[0];
  }
  ~TChild() {
    Kill();
    ::close(read_);
  }
  /// Waits for the child's next `count` bytes; false when it ended before.
  bool Await(int count = 1) {
    char byte;
    while (count > 0 && ::read(read_, &byte, 1) == 1) --count;
    return count == 0;
  }
  void Kill() {
    if (process_ > 0) {
      ::kill(process_, SIGKILL);
      Join();
    }
  }
  void Join() {
    ::waitpid(process_, nullptr, 0);
    process_ = 0;
  }

 private:
  pid_t process_ = 0;
  int read_ = -1;
};

/// Sends the byte that TChild::Await waits for.
inline void Say(int pipe) {
  EXPECT_EQ(::write(pipe, "x", 1), 1);
}

}  // namespace skyreel::test
