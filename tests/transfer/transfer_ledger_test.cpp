#include "transfer/transfer_ledger.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>

#include <fstream>

#include "base/descriptor.h"
#include "base/files.h"
#include "support/helpers.h"
#include "transfer/child_process.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;

class TransferLedger : public testing::Test {
 protected:
  /// A transfer of `path` that ends so.
  static void Transfer(TTransferLedger& ledger, const fs::path& path, TTransferEnd end) {
    ASSERT_TRUE(ledger.Begin(path)) << path;
    ledger.End(path, end);
  }

  const test::TTempFolder folder_;
  const fs::path file_ = folder_ / "SkyreelTransfers.txt";
  const fs::path picture_ = folder_.Write("2005/11/a %\n.jpg", "old");
  TTransferLedger ledger_{file_};
};

TEST_F(TransferLedger, TheNoteStaysUnlessTheTransferEndedWholeOrNeverTouchedTheFile) {
  // Whether it was cut before, how the transfer ends, whether the file is present afterwards.
  const std::tuple<bool, TTransferEnd, bool> rows[] = {
      {false, TTransferEnd::Whole, true},     {false, TTransferEnd::Untouched, true},
      {false, TTransferEnd::Cut, false},      {true, TTransferEnd::Whole, true},
      {true, TTransferEnd::Untouched, false}, {true, TTransferEnd::Cut, false},
  };
  for (const auto& [cut_before, end, present] : rows) {
    SCOPED_TRACE(testing::Message() << cut_before << static_cast<int>(end));
    fs::remove(file_);
    TTransferLedger ledger(file_);
    if (cut_before) Transfer(ledger, picture_, TTransferEnd::Cut);
    EXPECT_EQ(ledger.Present(picture_), !cut_before);
    ASSERT_TRUE(ledger.Begin(picture_));
    EXPECT_TRUE(ledger.IsNoted(folder_ / "2005/./11/../11//a %\n.jpg")) << "however the path is written";
    EXPECT_FALSE(TTransferLedger(file_).Present(picture_)) << "the note must be on disk before the transfer";
    ledger.End(picture_, end);
    EXPECT_EQ(ledger.Present(picture_), present);
    EXPECT_EQ(TTransferLedger(file_).Present(picture_), present);
  }
}

TEST_F(TransferLedger, AKilledCopyLeavesItsNotesAndARunningOneIsNotDisturbed) {
  const pid_t copy = test::StartCopy(file_, picture_);
  EXPECT_FALSE(ledger_.Present(picture_));
  EXPECT_FALSE(ledger_.Begin(picture_)) << "another copy is writing this file";
  test::KillCopy(copy);
  EXPECT_FALSE(ledger_.Present(picture_));
  Transfer(ledger_, picture_, TTransferEnd::Whole);
  EXPECT_TRUE(ledger_.Present(picture_));
}

TEST_F(TransferLedger, ATemporaryFileGoesOnceItsCopyIsKilledAndTheUsersOwnStays) {
  const fs::path part = folder_.Write("a.part", "half"), own = folder_.Write("own.part", "precious");
  const pid_t copy = test::StartCopy(file_, part);
  EXPECT_TRUE(TTransferLedger(file_).IsNoted(part));
  test::KillCopy(copy);
  EXPECT_FALSE(TTransferLedger(file_).IsNoted(part));
  EXPECT_TRUE(!fs::exists(part) && fs::exists(own));
}

TEST_F(TransferLedger, WhatCannotBeSavedHoldsInMemoryAndIsToldOnce) {
  std::vector<std::string> told;
  ledger_.OnProblem = [&](TTransferLedger&, const std::string& text) { told.push_back(text); };
  // As a copy that holds the lock and does not go on.
  TDescriptor lock(::open(file_.c_str(), O_RDWR | O_CREAT, 0666));
  ASSERT_EQ(::flock(lock.Get(), LOCK_EX), 0);
  Transfer(ledger_, picture_, TTransferEnd::Cut);
  EXPECT_FALSE(ledger_.Present(picture_));
  lock.Close();
  Transfer(ledger_, picture_, TTransferEnd::Whole);
  EXPECT_TRUE(ledger_.Present(picture_));
  EXPECT_THAT(told, testing::ElementsAre("Transfers cannot be noted in " + file_.string() +
                                         ": Resource temporarily unavailable"));
}

TEST_F(TransferLedger, DamagedLinesArePassedOverAndGoodOnesKept) {
  const std::string good = "- " + folder_.Write("good", "x").string();
  for (const std::string damage :
       {"\1\2", "-", "- ", " /x", "- x", "99999999999999999999:: /x", "\xff\xfe %"}) {
    std::ofstream(file_, std::ios::binary) << damage << "\r\n" << good << "\n" << damage;
    TTransferLedger ledger(file_);
    EXPECT_FALSE(ledger.Present(folder_ / "good")) << damage;
    Transfer(ledger, picture_, TTransferEnd::Whole);
    EXPECT_TRUE(TTransferLedger(file_).IsNoted(folder_ / "good"));
  }
}

TEST_F(TransferLedger, NotesOfFilesThatAreGoneAreDroppedButNotThoseOfAFolderThatIsAway) {
  const fs::path gone = folder_.Write("gone", "x"), away = folder_.Write("disk/away", "x");
  for (const fs::path& path : {gone, away}) Transfer(ledger_, path, TTransferEnd::Cut);
  fs::remove(gone);
  fs::rename(folder_ / "disk", folder_ / "unmounted");
  Transfer(ledger_, picture_, TTransferEnd::Whole);
  EXPECT_FALSE(ledger_.IsNoted(gone));
  EXPECT_TRUE(ledger_.IsNoted(away));
}

}  // namespace
}  // namespace skyreel
