#include "transfer/transfer_progress.h"

#include <gmock/gmock.h>

#include <limits>

#include "support/fakes.h"

namespace skyreel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

TEST(TransferProgress, PercentIsRoundedDownAndNeverOverflows) {
  const struct {
    std::int64_t Received, Total;
    int Percent;
  } cases[] = {{0, 10, 0},
               {999, 1000, 99},
               {1, 3, 33},
               {2, 3, 66},
               {1000, 1000, 100},
               {2000, 1000, 100},
               {-5, 100, 0},
               {3'000'000'000, 4'000'000'000, 75},
               {kMost / 2, kMost, 50},
               {kMost - 1, kMost, 99},
               {kMost, kMost, 100},
               {kMost, 1, 100}};
  for (const auto& c : cases) {
    test::TRecordingDisplay display;
    ShowTransferProgress(display, c.Received, c.Total);
    EXPECT_THAT(display.Progress, ElementsAre(c.Percent)) << c.Received << " of " << c.Total;
  }
}

TEST(TransferProgress, BytesInLabelAndTitleUntilAllIsThere) {
  test::TRecordingDisplay display;
  ShowTransferProgress(display, 5'000'000'000, 5'000'000'001);
  ShowTransferProgress(display, 5'000'000'001, 5'000'000'001);
  EXPECT_THAT(display.BytesLabels, ElementsAre("5000000000 bytes", "100%"));
  EXPECT_THAT(display.Titles, ElementsAre("5000000000 bytes", "Skyreel - from Quenmoor"));
}

TEST(TransferProgress, UnknownTotalMovesNoBar) {
  for (const std::int64_t total : {std::int64_t{0}, std::int64_t{-1}, -kMost}) {
    test::TRecordingDisplay display;
    ShowTransferProgress(display, 17, total);
    EXPECT_THAT(display.Progress, IsEmpty());
    EXPECT_THAT(display.BytesLabels, ElementsAre("17 bytes"));
    EXPECT_THAT(display.Titles, ElementsAre("17 bytes"));
  }
}

}  // namespace
}  // namespace skyreel
