#include "journal/journal_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <thread>

#include "base/date_time.h"
#include "base/descriptor.h"
#include "base/event.h"
#include "base/exceptions.h"
#include "base/files.h"

namespace skyreel {

namespace {

using TCause = EDatabaseError::TCause;

/// Step n turns version n of the tables into version n + 1. A step is never changed once it was released.
/// Times are seconds since 1970 UTC, or NULL when they are not known.
constexpr std::array kSteps = {
    R"(CREATE TABLE runs(
         id INTEGER PRIMARY KEY, what TEXT NOT NULL, began INTEGER NOT NULL, ended INTEGER, exit INTEGER);
       CREATE TABLE run_sources(
         run INTEGER NOT NULL, source TEXT NOT NULL, at INTEGER NOT NULL, newest_slot INTEGER,
         new INTEGER NOT NULL, updated INTEGER NOT NULL, present INTEGER NOT NULL, not_yet INTEGER NOT NULL,
         missing INTEGER NOT NULL, failed INTEGER NOT NULL, refused INTEGER NOT NULL, bytes INTEGER NOT NULL,
         PRIMARY KEY(run, source)) WITHOUT ROWID;
       CREATE INDEX run_sources_source ON run_sources(source, run);
       CREATE TABLE files(
         id INTEGER PRIMARY KEY, run INTEGER NOT NULL, at INTEGER NOT NULL, source TEXT NOT NULL,
         product TEXT NOT NULL, slot INTEGER, address TEXT NOT NULL, path TEXT NOT NULL,
         bytes INTEGER NOT NULL, seconds REAL NOT NULL, outcome TEXT NOT NULL, reason TEXT NOT NULL,
         etag TEXT NOT NULL, last_modified TEXT NOT NULL);
       CREATE INDEX files_at ON files(at);
       CREATE INDEX files_run ON files(run, at);
       CREATE INDEX files_source ON files(source, at);)",
    R"(CREATE TABLE stored(
         path TEXT PRIMARY KEY, source TEXT NOT NULL, product TEXT NOT NULL, slot INTEGER,
         address TEXT NOT NULL, at INTEGER NOT NULL, bytes INTEGER NOT NULL, hash TEXT NOT NULL,
         etag TEXT NOT NULL, last_modified TEXT NOT NULL, stamp TEXT NOT NULL) WITHOUT ROWID;
       CREATE INDEX stored_slot ON stored(source, slot);
       CREATE INDEX stored_address ON stored(source, product, address, at);
       CREATE INDEX files_missing ON files(source, slot, product, at) WHERE outcome = 'missing';)",
};

std::int64_t VersionOf(TDatabase& database) {
  TStatement version(database, "PRAGMA user_version");
  version.Next();
  return version.Number(0);
}

std::pair<dev_t, ino_t> IdentityOf(const struct stat& info) {
  return {info.st_dev, info.st_ino};
}

}  // namespace

bool TJournalFile::Use(const std::function<void(TDatabase& database)>& action) {
  const auto end = std::chrono::steady_clock::now() + patience_;
  bool begun_anew = false;
  while (!off_) {
    try {
      if (!database_) Open();
      action(*database_);
      return true;
    } catch (const EDatabaseError& error) {
      const bool busy = error.Cause == TCause::Busy;
      if (busy && std::chrono::steady_clock::now() < end) {
        // While another copy opens or closes the file, SQLite does not wait.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        continue;
      }
      if (error.Cause == TCause::Damaged) {
        database_.reset();
        if (!leaves_damaged_ && !std::exchange(begun_anew, true) && MoveAside()) continue;
        off_ = true;
      }
      if (!busy || patience_ > kPatience) TellUnusable(error.what());
    } catch (const std::system_error& error) {
      TellUnusable(ReasonOf(error));
    }
    return false;
  }
  return false;
}

void TJournalFile::SetPatience(std::chrono::milliseconds patience) {
  patience_ = std::max(patience, kPatience);
  if (database_) database_->SetPatience(patience_);
}

void TJournalFile::Open() {
  ForceDirectories(file_.parent_path());
  // SQLite would make the file readable by all. A file that is there is not opened here: the close would end
  // the locks of the other journals of this process.
  constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
  const bool made = TDescriptor(::open(file_.c_str(), kFlags, S_IRUSR | S_IWUSR)).IsOpen();
  if (!made && errno != EEXIST) ThrowErrno(file_.string());
  struct stat info {};
  if (::stat(file_.c_str(), &info) != 0) ThrowErrno(file_.string());
  if (!S_ISREG(info.st_mode)) throw EDatabaseError(TCause::Outside, "it is not a regular file");
  if (::chmod(file_.c_str(), S_IRUSR | S_IWUSR) != 0) ThrowErrno(file_.string());
  opened_ = IdentityOf(info);
  database_ = std::make_unique<TDatabase>(file_);
  try {
    BringUpToDate();
  } catch (...) {
    database_.reset();
    throw;
  }
}

void TJournalFile::BringUpToDate() {
  constexpr std::int64_t kNewest = kSteps.size();
  database_->SetPatience(patience_);
  std::int64_t version = VersionOf(*database_);
  if (version > kNewest) {
    off_ = true;
    throw EDatabaseError(TCause::Outside, "a newer version of Skyreel has written it");
  }
  if (version < 0) throw EDatabaseError(TCause::Damaged, "it has no version");
  // A commit waits for the disk only now and then: a power cut may cost the last seconds, a kill nothing.
  database_->Execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL");
  if (version == kNewest) return;
  TTransaction transaction(*database_);
  // Another copy may have been faster.
  for (version = VersionOf(*database_); version < kNewest; ++version)
    database_->Execute(kSteps.at(static_cast<std::size_t>(version)));
  database_->Execute("PRAGMA user_version = " + std::to_string(version));
  transaction.Commit();
}

/// Renames the damaged file. True when the name is free now, or leads to another file: another copy was
/// faster.
bool TJournalFile::MoveAside() {
  const TDescriptor file(::open(file_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat info {};
  if (file.IsOpen()) ::flock(file.Get(), LOCK_EX);
  if (::stat(file_.c_str(), &info) != 0 || IdentityOf(info) != opened_) return true;
  const std::string name = file_.string();
  const std::string aside = name + FormatDateTime("'.damaged-'yyyymmdd-hhnnss", clock_.UtcNow());
  // The main file goes last: a new one would take over what an old "-wal" holds.
  for (const char* const suffix : {"-wal", "-shm"})
    std::rename((name + suffix).c_str(), (aside + suffix).c_str());
  if (std::rename(name.c_str(), aside.c_str()) != 0) return false;
  Tell("The journal " + name + " is damaged. It was renamed to " + aside + ", and a new one was begun");
  return true;
}

void TJournalFile::TellUnusable(const std::string& reason) {
  Tell("The journal " + file_.string() + " cannot be used: " + reason);
}

void TJournalFile::Tell(const std::string& text) {
  if (told_.insert(text).second) Fire(OnProblem, text);
}

}  // namespace skyreel
