#include "process/program.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "base/files.h"
#include "base/text.h"

namespace skyreel::test {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

std::string ReadIfThere(const fs::path& path) {
  return FileSizeOf(path) < 0 ? "" : ReadWholeFile(path);
}

}  // namespace

TPlace::TPlace(const std::string& http_root, const std::string& ftp_root, const std::string& settings) {
  fs::create_directories(folder_ / "tmp");
  const std::string command =
      "set -e; . " SKYREEL_SETTINGS_SCRIPT "; export TMPDIR=" + (folder_ / "tmp").string() +
      "; install_program " + folder_.Path().string() + " " SKYREEL_PROGRAM "; point_at " +
      folder_.Path().string() + " " + http_root + " " + ftp_root + "; set_values " + folder_.Path().string();
  std::ofstream(folder_ / "wanted") << settings;
  const std::string line = "bash -c '" + command + "' < " + (folder_ / "wanted").string();
  if (std::system(line.c_str()) != 0) throw std::runtime_error("the program could not be set up");
}

std::vector<std::string> TPlace::Report() const {
  return SplitLines(ReadIfThere(Bin() / "SkyreelReport.txt"));
}
std::string TPlace::Settings() const {
  return ReadIfThere(folder_ / "home/.config/Quenmoor/Skyreel.conf");
}
std::string TPlace::Ledger() const {
  return ReadIfThere(Bin() / "SkyreelTransfers.txt");
}

std::string TPlace::Leftovers() const {
  std::string found;
  for (const auto& [name, size] : folder_.Tree()) {
    for (const char* const sign : {"~skyreel", "~Skyreel~", ".skyreel", ".part", ".tmp", ".lock"}) {
      if (name.find(sign) != std::string::npos) found += name + "\n";
    }
  }
  return found;
}

TRun::TRun(const TPlace& place, const std::string& switches, std::vector<std::string> environment) {
  static std::atomic<int> number = 0;
  output_ = place.Folder() / ("output" + std::to_string(++number));
  const std::string home = place.Folder() / "home";
  for (const std::string& own :
       {"HOME=" + home, "XDG_CONFIG_HOME=" + home + "/.config", "TMPDIR=" + (place.Folder() / "tmp").string(),
        "XDG_RUNTIME_DIR=" + (place.Folder() / "runtime").string()})
    environment.push_back(own);
  const std::string program = place.Bin() / "Skyreel";
  std::vector<std::string> words = {program};
  for (std::string& word : SplitLines(ReplaceAll(switches, " ", "\n"))) words.push_back(std::move(word));
  const auto pointers = [](std::vector<std::string>& texts) {
    std::vector<char*> list;
    for (std::string& text : texts) list.push_back(text.data());
    list.push_back(nullptr);
    return list;
  };
  const std::vector<char*> arguments = pointers(words), variables = pointers(environment);
  process_ = ::fork();
  if (process_ != 0) return;
  const int file = ::open(output_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  ::dup2(file, 1);
  ::dup2(file, 2);
  ::execve(program.c_str(), arguments.data(), variables.data());
  ::_exit(127);
}

TRun::~TRun() {
  if (result_) return;
  Signal(SIGKILL);
  Wait(10s);
}

void TRun::Signal(int number) const {
  ::kill(process_, number);
}

std::optional<int> TRun::Wait(std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!result_) {
    int status = 0;
    if (::waitpid(process_, &status, WNOHANG) == process_) {
      result_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    } else if (std::chrono::steady_clock::now() > end) {
      break;
    } else {
      std::this_thread::sleep_for(2ms);
    }
  }
  return result_;
}

std::string TRun::Output() const {
  return ReadIfThere(output_);
}

}  // namespace skyreel::test
