#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <thread>

#include "base/files.h"
#include "support/helpers.h"

namespace skyreel::test {

/// Looks every 2 ms until `condition` holds, for at most `limit`. True when it holds.
inline bool WaitUntil(std::chrono::milliseconds limit, const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition() && std::chrono::steady_clock::now() < end)
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  return condition();
}

/// The program in a folder of its own, with a home, settings and a temporary folder there.
class TPlace {
 public:
  /// `settings`: lines "Name=value". Throws std::runtime_error when the program knows no setting of a name.
  TPlace(const std::string& http_root, const std::string& ftp_root, const std::string& settings) {
    folder_.Write("tmp/.keep", "");
    folder_.Write("wanted", settings);
    const std::string command = "bash -ec 'cd $0; export TMPDIR=$0/tmp; . " SKYREEL_SETTINGS_SCRIPT
                                "; install_program $0 " SKYREEL_PROGRAM
                                "; point_at $0 $1 $2; set_values $0 < wanted' " +
                                folder_.Path().string() + " " + http_root + " " + ftp_root;
    if (std::system(command.c_str()) != 0) throw std::runtime_error("the program could not be set up");
  }

  const TTempFolder& Folder() const { return folder_; }
  /// A file's content; empty when there is no such file.
  std::string Text(const std::string& name) const {
    return FileSizeOf(folder_ / name) < 0 ? "" : ReadWholeFile(folder_ / name);
  }
  /// Temporary files anywhere in the folder, one a line. The lock of the settings is not counted: when a run
  /// is killed while it takes the lock, the library leaves it for half a minute.
  std::string Leftovers() const {
    std::string found;
    for (const auto& [name, size] : folder_.Tree())
      for (const char* const sign : {"~skyreel", "~Skyreel~", ".part", ".tmp"})
        if (name.find(sign) != std::string::npos) found += name + "\n";
    return found;
  }

 private:
  const TTempFolder folder_;
};

/// One run of a place's program.
class TRun {
 public:
  /// `environment`: "NAME=value" and so on, added to what cron would give it.
  TRun(const TPlace& place, const std::string& switches, const std::string& environment = "")
      : place_(place) {
    const std::string command = "cd " + place.Folder().Path().string() +
                                "; exec env -i TSAN_OPTIONS=\"$TSAN_OPTIONS\" HOME=$PWD/home "
                                "XDG_CONFIG_HOME=$PWD/home/.config TMPDIR=$PWD/tmp " +
                                "XDG_RUNTIME_DIR=$PWD/runtime " + environment + " bin/Skyreel " + switches +
                                " > output$$ 2>&1";
    process_ = ::fork();
    if (process_ == 0) ::_exit(::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr));
  }
  ~TRun() {
    if (!result_) Signal(SIGKILL);
    Wait(std::chrono::minutes(1));
  }
  TRun(const TRun&) = delete;

  pid_t Process() const { return process_; }
  void Signal(int number) const { ::kill(process_, number); }
  /// The exit code, or minus the number of the signal that ended it; nothing when it is still running then.
  std::optional<int> Wait(std::chrono::milliseconds limit) {
    WaitUntil(limit, [&] {
      int status = 0;
      if (!result_ && ::waitpid(process_, &status, WNOHANG) == process_)
        result_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
      return result_.has_value();
    });
    return result_;
  }
  /// What it wrote to its standard outputs.
  std::string Output() const { return place_.Text("output" + std::to_string(process_)); }

 private:
  const TPlace& place_;
  pid_t process_;
  std::optional<int> result_;
};

}  // namespace skyreel::test
