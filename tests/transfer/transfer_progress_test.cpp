#include "transfer/transfer_progress.h"

#include <gmock/gmock.h>

#include "support/fakes.h"

namespace skyreel {
namespace {

TEST(TransferProgress, BarLabelAndTitleFollowTheBytesWithoutOverflow) {
  // Received, total, per cent (-1: the bar does not move).
  const std::tuple<std::int64_t, std::int64_t, int> cases[] = {
      {0, 10, 0},      {999, 1000, 99}, {2, 3, 66},   {1000, 1000, 100}, {INT64_MAX - 1, INT64_MAX, 99},
      {2000, 10, 100}, {17, 0, -1},     {17, -1, -1}, {-5, 100, 0},
  };
  for (const auto& [received, total, percent] : cases) {
    test::TRecordingDisplay display;
    ShowTransferProgress(display, received, total);
    EXPECT_EQ(display.Progress, percent < 0 ? std::vector<int>() : std::vector{percent}) << received;
    const std::string bytes = std::to_string(received) + " bytes";
    EXPECT_THAT(display.BytesLabels, testing::ElementsAre(received == total ? "100%" : bytes));
    EXPECT_THAT(display.Titles, testing::ElementsAre(received == total ? kApplicationTitle : bytes));
  }
}

}  // namespace
}  // namespace skyreel
