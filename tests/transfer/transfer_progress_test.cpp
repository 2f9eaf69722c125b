#include "transfer/transfer_progress.h"

#include <gmock/gmock.h>

#include "support/fakes.h"

namespace skyreel {
namespace {

TEST(TransferProgress, BarLabelAndTitleFollowTheBytesWithoutOverflow) {
  const struct {
    std::int64_t Received, Total;
    int Percent;  // -1: the bar does not move
  } cases[] = {
      {0, 10, 0},      {999, 1000, 99}, {2, 3, 66},   {1000, 1000, 100}, {INT64_MAX - 1, INT64_MAX, 99},
      {2000, 10, 100}, {17, 0, -1},     {17, -1, -1}, {-5, 100, 0},      {INT64_MAX, 1, 100},
  };
  for (const auto& c : cases) {
    test::TRecordingDisplay display;
    ShowTransferProgress(display, c.Received, c.Total);
    EXPECT_EQ(display.Progress, c.Percent < 0 ? std::vector<int>() : std::vector{c.Percent}) << c.Received;
    const std::string bytes = std::to_string(c.Received) + " bytes";
    EXPECT_THAT(display.BytesLabels, testing::ElementsAre(c.Received == c.Total ? "100%" : bytes));
    EXPECT_THAT(display.Titles, testing::ElementsAre(c.Received == c.Total ? kApplicationTitle : bytes));
  }
}

}  // namespace
}  // namespace skyreel
