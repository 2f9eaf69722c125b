#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "transfer/transfer_ledger.h"

namespace skyreel::test {

/// Starts another copy of the program, which begins to write `path` and then halts.
inline pid_t StartCopy(const std::filesystem::path& ledger_file, const std::filesystem::path& path) {
  const pid_t copy = ::fork();
  if (copy == 0) {
    TTransferLedger ledger(ledger_file);
    if (ledger.Begin(path)) ::raise(SIGSTOP);
    ::_exit(0);
  }
  ::waitpid(copy, nullptr, WUNTRACED);
  return copy;
}
inline void KillCopy(pid_t copy) {
  ::kill(copy, SIGKILL);
  ::waitpid(copy, nullptr, 0);
}

}  // namespace skyreel::test
