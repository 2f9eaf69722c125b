#include "transfer/transfer_ledger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <fstream>
#include <iterator>
#include <optional>
#include <system_error>
#include <thread>

#include "base/descriptor.h"
#include "base/event.h"
#include "base/files.h"
#include "base/text.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

constexpr const char* kNobody = "-";
/// Far more than years of cut transfers leave behind.
constexpr std::int64_t kSizeLimit = 64 << 20;
/// A rewrite of the small file takes far less; a stopped copy must not hang this one.
constexpr auto kLockPatience = std::chrono::seconds(1);

std::string Encode(const fs::path& path) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string line;
  for (const char c : fs::absolute(path).lexically_normal().string()) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F || c == '%') {
      line += '%';
      line += kDigits[byte >> 4];
      line += kDigits[byte & 15];
    } else {
      line += c;
    }
  }
  return line;
}

fs::path Decode(const std::string& line) {
  std::string path;
  for (std::size_t i = 0; i < line.size(); ++i) {
    std::optional<std::uint8_t> byte;
    if (line[i] == '%') byte = ParseNumber<std::uint8_t>(std::string_view(line).substr(i + 1, 2), 16);
    path += byte ? static_cast<char>(*byte) : line[i];
    if (byte) i += 2;
  }
  return path;
}

std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

/// Boot, process number and start time of a process, which no later process shares. Empty when it does not
/// run.
std::string WriterOf(pid_t process) {
  const std::string number = std::to_string(process);
  const std::string status = ReadText("/proc/" + number + "/stat");
  // The name in brackets may hold anything. After it come the state and, as the 20th word, the start time.
  const std::size_t bracket = status.rfind(')');
  if (bracket == std::string::npos || status.size() < bracket + 3) return "";
  const char state = status[bracket + 2];
  if (state == 'Z' || state == 'X') return "";
  std::size_t word = bracket + 2;
  for (int n = 1; n < 20; ++n) word = status.find(' ', word) + 1;
  const std::string start = status.substr(word, status.find(' ', word) - word);
  return std::string(Trim(ReadText("/proc/sys/kernel/random/boot_id"))) + ':' + number + ':' + start;
}

bool IsRunning(const std::string& writer) {
  const std::size_t begin = writer.find(':') + 1;
  pid_t process = 0;
  if (std::from_chars(writer.data() + begin, writer.data() + writer.size(), process).ec != std::errc())
    return false;
  return process > 0 && WriterOf(process) == writer;
}

/// Opens the file and locks it. Each change replaces the file, so the lock counts only when the name still
/// leads to the locked file. Not locked when that fails.
class TLockedFile {
 public:
  explicit TLockedFile(const fs::path& path) {
    const auto end = std::chrono::steady_clock::now() + kLockPatience;
    while (!TryLock(path)) {
      if (error_ != EWOULDBLOCK || std::chrono::steady_clock::now() > end) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  bool IsLocked() const { return file_.IsOpen(); }
  int Error() const { return error_; }

 private:
  bool TryLock(const fs::path& path) {
    file_ = TDescriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    error_ = file_.IsOpen() && skyreel::TryLock(file_.Get(), path) ? 0 : errno;
    if (error_ != 0) file_.Close();
    return error_ == 0;
  }

  TDescriptor file_;
  int error_ = 0;
};

/// A note of a deleted file is useless. (A missing folder proves nothing: its disk may be unplugged.)
bool IsStale(const std::string& line, const std::string& writer) {
  const fs::path path = Decode(line);
  std::error_code ignored;
  return !fs::exists(fs::symlink_status(path, ignored)) && fs::is_directory(path.parent_path(), ignored) &&
         !IsRunning(writer);
}

}  // namespace

TTransferLedger::TTransferLedger(fs::path file) : TTransferLedger(std::move(file), WriterOf(::getpid())) {
  RemoveAbandoned(file_.parent_path());
  RemoveParts();
}

bool TTransferLedger::Begin(const fs::path& path) {
  const std::string line = Encode(path);
  bool busy = false, noted = unsaved_.contains(line);
  const bool saved = Change([&](TNotes& notes) {
    std::erase_if(notes, [](const auto& note) { return IsStale(note.first, note.second); });
    const auto found = notes.find(line);
    noted = noted || found != notes.end();
    busy = found != notes.end() && found->second != self_ && IsRunning(found->second);
    if (!busy) notes[line] = self_;
    return !busy;
  });
  if (busy) return false;
  if (!saved) unsaved_.insert(line);
  if (noted) noted_before_.insert(line);
  return true;
}

void TTransferLedger::End(const fs::path& path, TTransferEnd end) {
  const std::string line = Encode(path);
  // A file without a note counts as complete for ever, so it must survive a power cut.
  if (end == TTransferEnd::Whole && FileSizeOf(path) >= 0 && !FlushToDisk(path)) end = TTransferEnd::Cut;
  const bool keep = noted_before_.erase(line) == 0 ? end == TTransferEnd::Cut : end != TTransferEnd::Whole;
  if (!keep) unsaved_.erase(line);
  Change([&](TNotes& notes) {
    const auto found = notes.find(line);
    if (found == notes.end() || found->second != self_) return false;
    if (keep) {
      found->second = kNobody;
    } else {
      notes.erase(found);
    }
    return true;
  });
}

/// Removes the noted temporary files that nobody writes any more.
void TTransferLedger::RemoveParts() {
  const auto is_part = [](const auto& note) {
    return note.first.ends_with(kPartSuffix) && !IsRunning(note.second);
  };
  Refresh();
  // Only then is the file worth a lock.
  if (std::ranges::none_of(notes_, is_part)) return;
  Change([&](TNotes& notes) {
    return std::erase_if(notes, [&](const auto& note) {
             std::error_code ignored;
             return is_part(note) && fs::remove(Decode(note.first), ignored);
           }) > 0;
  });
}

std::vector<fs::path> TTransferLedger::Noted() {
  Refresh();
  std::vector<fs::path> paths;
  for (const auto& [line, writer] : notes_) paths.push_back(Decode(line));
  return paths;
}

bool TTransferLedger::IsNoted(const fs::path& path) {
  Refresh();
  if (notes_.empty() && unsaved_.empty()) return false;
  const std::string line = Encode(path);
  return notes_.contains(line) || unsaved_.contains(line);
}

bool TTransferLedger::Present(const fs::path& path) {
  return FileSizeOf(path) >= 0 && !IsNoted(path);
}

TTransferLedger::TVersion TTransferLedger::CurrentVersion() const {
  struct stat info {};
  if (::stat(file_.c_str(), &info) != 0) return {};
  return {info.st_dev, info.st_ino, info.st_size, info.st_mtim.tv_sec, info.st_mtim.tv_nsec};
}

/// Reads the file if it changed since the last time. An unreadable file holds no notes.
void TTransferLedger::Refresh() {
  const TVersion version = CurrentVersion();
  if (version == version_) return;
  version_ = version;
  notes_.clear();
  std::string text;
  try {
    if (version.Size >= 0) text = ReadWholeFile(file_, kSizeLimit);
  } catch (const std::exception&) {
    return;
  }
  for (const std::string& line : SplitLines(text)) {
    const std::size_t blank = line.find(' ');
    if (blank == 0 || blank == std::string::npos || HasControlCharacter(line)) continue;
    if (line.compare(blank + 1, 1, "/") != 0) continue;
    notes_[line.substr(blank + 1)] = line.substr(0, blank);
  }
}

/// Lets `change` alter the current notes, and saves them if it returns true. False when they could not be
/// saved.
bool TTransferLedger::Change(const std::function<bool(TNotes&)>& change) {
  std::string reason;
  {
    const TLockedFile lock(file_);
    Refresh();
    TNotes notes = notes_;
    if (!change(notes)) return true;
    if (lock.IsLocked()) {
      std::string text;
      for (const auto& [line, writer] : notes) text += writer + ' ' + line + '\n';
      try {
        WriteFileWhole(file_, text);
        return true;
      } catch (const std::system_error& error) {
        reason = error.code().message();
      }
    } else {
      reason = std::generic_category().message(lock.Error());
    }
  }
  if (!told_ && OnProblem) {
    told_ = true;
    Fire(OnProblem, *this, "Transfers cannot be noted in " + file_.string() + ": " + reason);
  }
  return false;
}

}  // namespace skyreel
