#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "base/files.h"
#include "support/temp_folder.h"

namespace skyreel::test {

/// The program in a folder of its own, with a home, settings and a temporary folder there.
class TPlace {
 public:
  /// `settings`: lines "Name=value". Throws std::runtime_error when the program does not know one of them.
  TPlace(const std::string& http_root, const std::string& ftp_root, const std::string& settings) {
    folder_.Write("tmp/.keep", "");
    folder_.Write("wanted", settings);
    const std::string command = "bash -ec 'cd $0; export TMPDIR=$0/tmp; . " SKYREEL_SETTINGS_SCRIPT
                                "; install_program $0 " SKYREEL_PROGRAM
                                "; point_at $0 $1 $2; set_values $0 < wanted' " +
                                folder_.Path().string() + " " + http_root + " " + ftp_root;
    if (std::system(command.c_str()) != 0) throw std::runtime_error("the program could not be set up");
  }

  const std::filesystem::path& Folder() const { return folder_.Path(); }
  std::filesystem::path Out() const { return folder_ / "home/Skyreel"; }
  /// A file's content; empty when there is no such file.
  std::string Text(const std::string& name) const {
    return FileSizeOf(folder_ / name) < 0 ? "" : ReadWholeFile(folder_ / name);
  }
  std::string Report() const { return Text("bin/SkyreelReport.txt"); }
  std::string Ledger() const { return Text("bin/SkyreelTransfers.txt"); }
  /// Temporary files, those in temporary folders, and locks, anywhere in the folder; a line each.
  std::string Leftovers() const {
    std::string found;
    for (const auto& [name, size] : folder_.Tree()) {
      for (const char* const sign : {"~skyreel", "~Skyreel~", ".part", ".tmp", ".lock"}) {
        if (name.find(sign) != std::string::npos) found += name + "\n";
      }
    }
    return found;
  }

 private:
  const TTempFolder folder_;
};

/// One run of a place's program.
class TRun {
 public:
  /// `environment`: "NAME=value" and so on, added to what cron would give it (and what a thread sanitizer is
  /// to leave out).
  TRun(const TPlace& place, const std::string& switches, const std::string& environment = "")
      : place_(place) {
    static std::atomic<int> number = 0;
    output_ = "output" + std::to_string(++number);
    const std::string command = "cd " + place.Folder().string() +
                                "; exec env -i TSAN_OPTIONS=\"$TSAN_OPTIONS\" HOME=$PWD/home "
                                "XDG_CONFIG_HOME=$PWD/home/.config TMPDIR=$PWD/tmp " +
                                "XDG_RUNTIME_DIR=$PWD/runtime " + environment + " bin/Skyreel " + switches +
                                " > " + output_ + " 2>&1";
    process_ = ::fork();
    if (process_ == 0) ::_exit(::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr));
  }
  ~TRun() {
    if (result_) return;
    Signal(SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
  TRun(const TRun&) = delete;
  TRun& operator=(const TRun&) = delete;

  pid_t Process() const { return process_; }
  void Signal(int number) const { ::kill(process_, number); }
  /// The exit code, or minus the number of the signal that ended it; none when it goes on beyond the time.
  std::optional<int> Wait(std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (int status = 0; !result_;) {
      if (::waitpid(process_, &status, WNOHANG) == process_) {
        result_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
      } else if (std::chrono::steady_clock::now() > end) {
        break;
      } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
    }
    return result_;
  }
  /// What it wrote to its standard outputs.
  std::string Output() const { return place_.Text(output_); }

 private:
  const TPlace& place_;
  std::string output_;
  pid_t process_;
  std::optional<int> result_;
};

}  // namespace skyreel::test
