#include "journal/journal.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/files.h"
#include "journal/source_memory.h"
#include "support/fakes.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;
using namespace testing;
using enum TJournalOutcome;

/// What version 1 of the tables looked like, with one run in it.
constexpr const char* kVersion1 = R"(
  CREATE TABLE runs(
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
  CREATE INDEX files_source ON files(source, at);
  INSERT INTO runs VALUES(7, '-GOES', 1795600000, 1795600060, 0);
  INSERT INTO run_sources VALUES(7, 'org.x', 1795600050, 1795599000, 0, 0, 5, 0, 1, 0, 0, 10);
  INSERT INTO files VALUES(3, 7, 1795600050, 'org.x', 'vis', 1795599600, 'https://x/a', '/a', 10, 0.5,
                           'missing', '404', '"e"', 'Thu');
  PRAGMA user_version = 1;)";

class Journal : public Test {
 protected:
  Journal() { Open(); }
  void Open() {
    journal_ = std::make_unique<TJournal>(file_, clock_);
    journal_->SetOnProblem([this](const std::string& text) { told_.push_back(text); });
  }
  /// Writes a file with these tables.
  void Make(const std::string& sql) const {
    std::ofstream(folder_.Write(file_.lexically_relative(folder_.Path()), ""));
    TDatabase(file_).Execute(sql);
  }
  static TJournalEntry Entry(const std::string& name, TJournalOutcome outcome, TDateTime slot = {}) {
    TJournalEntry entry{
        .Source = "org.x", .Product = "vis", .SlotTime = slot, .Address = "https://x/" + name};
    entry.Path = "/out/" + name;
    entry.Outcome = outcome;
    return entry;
  }
  void Run(const std::vector<TJournalEntry>& entries) {
    journal_->BeginRun("-X");
    for (const TJournalEntry& entry : entries) journal_->Add(entry);
    journal_->EndRun(0);
  }
  std::string Names(const TJournalQuery& query = {}) {
    std::string names;
    for (const TJournalRow& row : journal_->Rows(query)) names += row.Path.filename().string() + " ";
    return names;
  }

  const test::TTempFolder folder_;
  const fs::path file_ = folder_ / "state/Journal.sqlite";
  test::TFakeClock clock_{TDateTime::FromDate(2026, 11, 26, 12, 0)};
  std::vector<std::string> told_;
  std::unique_ptr<TJournal> journal_;
};

TEST_F(Journal, CountsFilesAndGivesItsRowsInPages) {
  Run({Entry("a", New), Entry("b", Present), Entry("c", Failed)});
  clock_.Now = clock_.Now + std::chrono::days(3);
  Run({Entry("d", Updated), Entry("e", NotYet), Entry("f", Refused)});
  EXPECT_EQ(Names(), "f e d c a ");
  EXPECT_EQ(Names({.Source = "org.y"}), "");
  EXPECT_EQ(Names({.Since = clock_.Now}), "f e d ");
  EXPECT_EQ(Names({.Run = journal_->RunNumber() - 1}), "c a ");
  const std::int64_t last = journal_->Rows({.Source = "org.x", .Limit = 4}).back().Id;
  EXPECT_EQ(Names({.Source = "org.x", .BeforeId = last}), "a ");
  EXPECT_THAT(journal_->LastRun("org.x")->Files, ElementsAre(0, 1, 0, 1, 0, 0, 1));
  struct stat info {};
  ASSERT_EQ(::stat(file_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);
  EXPECT_THAT(told_, IsEmpty());
}

TEST_F(Journal, BringsVersion1UpToDate) {
  Make(kVersion1);
  const TDateTime slot = TDateTime::FromUnixTime(1795599600);
  Run({Entry("a", Missing, slot)});
  const TJournalRow old = journal_->Rows({}).back();
  EXPECT_EQ(std::tie(old.Id, old.Run, old.Product, old.Seconds, old.Outcome, old.ETag),
            std::tuple(3, 7, "vis", 0.5, Missing, "\"e\""));
  EXPECT_EQ(TSourceMemory(*journal_, "org.x").Missed(slot).at(0).Times, 2);
  EXPECT_THAT(told_, IsEmpty());
}

TEST_F(Journal, TakesTheRowsOfTwoCopies) {
  constexpr int kCopies = 2, kRuns = 40, kFiles = 50;
  journal_.reset();
  for (int copy = 0; copy < kCopies; ++copy) {
    if (::fork() != 0) continue;
    Open();
    for (int run = 0; run < kRuns; ++run) Run(std::vector(kFiles, Entry(std::to_string(copy), New)));
    journal_.reset();
    ::_exit(told_.empty() ? 0 : 1);
  }
  for (int copy = 0, status = 0; copy < kCopies; ++copy) {
    ::wait(&status);
    EXPECT_EQ(status, 0);
  }
  Open();
  std::map<std::int64_t, std::map<fs::path, int>> runs;
  for (const TJournalRow& row : journal_->Rows({.Limit = 10'000})) ++runs[row.Run][row.Path];
  EXPECT_EQ(runs.size(), std::size_t{kCopies} * kRuns);
  for (const auto& [run, files] : runs) EXPECT_THAT(files, ElementsAre(Pair(_, kFiles)));
}

TEST_F(Journal, KeepsItsLocksWhileAnotherOfItsProcessComesAndGoes) {
  journal_.reset();
  int go[2];
  ASSERT_EQ(::pipe(go), 0);
  const pid_t other = ::fork();
  if (char byte = 0; other == 0) {
    if (::read(go[0], &byte, 1) == 1) TDatabase(file_).Execute("PRAGMA wal_checkpoint");
    // When the last copy closes the file, it removes what the others work with.
    ::_exit(0);
  }
  Open();
  Run({Entry("a", New)});
  EXPECT_EQ(TJournal(file_, clock_).NewestRun(), journal_->RunNumber());
  EXPECT_EQ(::write(go[1], "x", 1), 1);
  ::waitpid(other, nullptr, 0);
  EXPECT_GE(FileSizeOf(file_.string() + "-wal"), 0);
  Run({Entry("b", New)});
  EXPECT_EQ(Names(), "b a ");
  EXPECT_THAT(told_, IsEmpty());
}

TEST_F(Journal, RenamesADamagedFileAndLeavesANewerOneAlone) {
  // What is wrong, whether the file is renamed and begun anew, and what makes it wrong.
  const std::tuple<const char*, bool, std::function<void()>> rows[] = {
      {"text", true, [&] { std::ofstream(file_) << std::string(5'000, 'x'); }},
      {"cut", true, [&] { fs::resize_file(file_, 8'192); }},
      {"zeros inside", true,
       [&] { std::fstream(file_, std::ios::in | std::ios::out).seekp(4'096) << std::string(90'000, '\0'); }},
      {"other tables", true, [&] { TDatabase(file_).Execute("DROP TABLE files; CREATE TABLE files(x)"); }},
      {"negative version", true, [&] { TDatabase(file_).Execute("PRAGMA user_version = -1"); }},
      {"newer", false, [&] { TDatabase(file_).Execute("PRAGMA user_version = 99"); }},
      {"a folder", false, [&] { fs::remove(file_), fs::create_directory(file_); }},
  };
  for (const auto& [what, renamed, make] : rows) {
    SCOPED_TRACE(what);
    fs::remove_all(file_.parent_path());
    Open();
    Run(std::vector(500, Entry("old", New)));
    journal_.reset();
    make();
    told_.clear();
    Open();
    const std::int64_t size = FileSizeOf(file_);
    TJournal reader(file_, clock_);
    reader.LeaveDamaged();
    EXPECT_THAT(reader.Rows({}), IsEmpty());
    EXPECT_EQ(FileSizeOf(file_), size);
    for (int run = 0; run < 2; ++run) Run({Entry("new", New)});
    EXPECT_EQ(Names(), renamed ? "new new " : "");
    EXPECT_THAT(told_, ElementsAre(HasSubstr(renamed ? "Journal.sqlite.damaged-20261126-120000" : "cannot")));
    EXPECT_EQ(FileSizeOf(renamed ? fs::path(file_.string() + ".damaged-20261126-120000") : file_), size);
  }
}

TEST_F(Journal, WritesWhatAFullDiskDidNotTakeOnceThereIsRoom) {
  Run({Entry("a", New)});
  {
    const auto full = test::LimitFileSize(100);
    for (int run = 0; run < 2; ++run) Run({Entry("b", New)});
    EXPECT_EQ(Names(), "a ");
    EXPECT_THAT(told_, SizeIs(1));
  }
  EXPECT_EQ(Names(), "b b a ");
}

TEST_F(Journal, PrunesRowsAfterAYearAndRemembersStoredFiles) {
  TSourceMemory memory(*journal_, "org.x");
  memory.Remember({.Address = "https://x/a", .Path = "/out/a"});
  Run({Entry("a", New)});
  clock_.Now = clock_.Now + std::chrono::days(367);
  Run({Entry("b", New)});
  EXPECT_EQ(Names(), "b ");
  EXPECT_TRUE(memory.At("/out/a"));
}

TEST_F(Journal, KnowsTheHealthOfASource) {
  const TDateTime slot = clock_.Now - std::chrono::hours(1);
  // The run's files, and the health afterwards when a source is late after two hours.
  const std::pair<std::vector<TJournalEntry>, TSourceHealth> runs[] = {
      {{Entry("a", New, slot), Entry("b", Failed)}, TSourceHealth::Fresh},
      {{Entry("c", Failed)}, TSourceHealth::Late},
      {{Entry("a", Present, slot), Entry("c", Failed)}, TSourceHealth::Late},
      {{Entry("c", Failed)}, TSourceHealth::Failing},
      {{Entry("c", New, slot + std::chrono::hours(8))}, TSourceHealth::Fresh},
  };
  EXPECT_EQ(journal_->Health("org.x", std::chrono::hours(2)), TSourceHealth::NeverRun);
  for (const auto& [entries, health] : runs) {
    Run(entries);
    EXPECT_EQ(journal_->Health("org.x", std::chrono::hours(2)), health) << entries.back().Address;
    clock_.Now = clock_.Now + std::chrono::hours(2);
  }
  EXPECT_EQ(journal_->Health("org.x", {}), TSourceHealth::Fresh);
}

TEST_F(Journal, AsksForAMissedSlotEverLessOften) {
  const TDateTime slot = clock_.Now - std::chrono::hours(1);
  std::vector<std::int64_t> minutes;
  for (int time = 0; time < 7; ++time) {
    Run({Entry("a", Missing, slot), Entry("b", Failed, slot),
         Entry("c", Missing, slot - std::chrono::hours(1))});
    const std::vector<TMissedSlot> missed = TSourceMemory(*journal_, "org.x").Missed(slot);
    ASSERT_THAT(missed, SizeIs(1));
    minutes.push_back((missed[0].AskAgainAt() - clock_.Now) / std::chrono::minutes(1));
    clock_.Now = missed[0].AskAgainAt();
  }
  EXPECT_THAT(minutes, ElementsAre(5, 15, 30, 60, 180, 360, 360));
}

TEST_F(Journal, RemembersAStoredFileUntilAnotherSourceTakesItsPath) {
  TSourceMemory memory(*journal_, "org.x"), other(*journal_, "org.y");
  const auto stored = [&](const std::string& name, int hours) {
    return TStoredFile{.Product = "vis",
                       .SlotTime = clock_.Now - std::chrono::hours(hours),
                       .Address = "https://x/now",
                       .Path = "/out/" + name,
                       .Bytes = hours,
                       .ETag = name};
  };
  for (const auto& [name, hours] : {std::pair("a", 5), {"b", 4}, {"c", 3}, {"d", 2}}) {
    memory.Remember(stored(name, hours));
    clock_.Now = clock_.Now + std::chrono::seconds(1);
  }
  const auto old = [&](const TSourceMemory& source) {
    std::string names;
    for (const TStoredFile& file : source.Before(clock_.Now - std::chrono::hours(2), 10)) names += file.ETag;
    return names;
  };
  EXPECT_EQ(memory.Last("vis", "https://x/now")->ETag, "d");
  EXPECT_EQ(memory.At("/out/./b")->Bytes, 4);
  EXPECT_EQ(old(memory), "abcd");
  other.Remember(stored("a", 9));
  TJournalEntry built_in = Entry("b", New);
  built_in.Source = "GOES";
  journal_->Add(built_in);
  memory.Forget("/out/c");
  EXPECT_EQ(old(memory), "d");
  EXPECT_EQ(old(other), "a");
  EXPECT_EQ(memory.At("/out/a")->Source, "org.y");
}

}  // namespace
}  // namespace skyreel
