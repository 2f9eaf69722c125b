#include "transfer/transfer_progress.h"

#include <gmock/gmock.h>

#include "support/fakes.h"

namespace skyreel {
namespace {

TEST(TransferProgress, BarLabelAndTitleFollowTheBytesWithoutOverflow) {
  const struct {
    std::int64_t Received, Total;
    int Percent;  // -1: the bar does not move
    std::string Label, Title;
  } cases[] = {
      {0, 10, 0, "0 bytes", "0 bytes"},
      {999, 1000, 99, "999 bytes", "999 bytes"},
      {2, 3, 66, "2 bytes", "2 bytes"},
      {1000, 1000, 100, "100%", "Skyreel - from Quenmoor"},
      {2000, 1000, 100, "2000 bytes", "2000 bytes"},
      {3'000'000'000, 4'000'000'000, 75, "3000000000 bytes", "3000000000 bytes"},
      {INT64_MAX - 1, INT64_MAX, 99, "9223372036854775806 bytes", "9223372036854775806 bytes"},
      {INT64_MAX, 1, 100, "9223372036854775807 bytes", "9223372036854775807 bytes"},
      {-5, 100, 0, "-5 bytes", "-5 bytes"},
      {17, 0, -1, "17 bytes", "17 bytes"},
      {17, -1, -1, "17 bytes", "17 bytes"},
  };
  for (const auto& c : cases) {
    test::TRecordingDisplay display;
    ShowTransferProgress(display, c.Received, c.Total);
    EXPECT_EQ(display.Progress, c.Percent < 0 ? std::vector<int>() : std::vector{c.Percent}) << c.Label;
    EXPECT_THAT(display.BytesLabels, testing::ElementsAre(c.Label));
    EXPECT_THAT(display.Titles, testing::ElementsAre(c.Title));
  }
}

}  // namespace
}  // namespace skyreel
