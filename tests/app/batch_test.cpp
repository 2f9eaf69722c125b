#include "app/batch.h"

#include <gmock/gmock.h>

#include "app/process_priority.h"

namespace skyreel {
namespace {

/// Writes down what a batch did, in words. Told in which job to, it closes the window.
class TRecordingActions : public TBatchActions {
 public:
  void MinimiseApplication() override { Done += "minimise, "; }
  void Dial() override { Done += "dial, "; }
  void HangUp() override { Done += "hang up, "; }
  void PressRun(const TSource& source, bool named) override {
    const std::string caption = source.Caption;
    Done += caption + (named ? ", " : " (all), ");
    closing_ = closing_ || caption == CloseDuring;
  }
  bool ClosePending() const override { return closing_; }
  void RingAfterBatch() override { Done += "ring, "; }
  void CloseProgram() override {
    Done += "close, ";
    closing_ = true;
  }

  std::string Done, CloseDuring;

 private:
  bool closing_ = false;
};

TEST(Batch, DoesWhatTheArgumentsSay) {
  const struct {
    std::vector<std::string> Arguments;
    const char* Done;
    bool CanDial = false;
    const char* CloseDuring = "";
  } cases[] = {
      {{"-all"},
       "minimise, Weather data (all), Archive Direct (all), Dundee (all), Eumetsat (all), GOES (all), "
       "MSFC (all), PDUS (all), RSS Archive (all), Ulm (all), ring, close, "},
      {{"-goes", "-All", "-close"},
       "minimise, Weather data (all), Archive Direct (all), Dundee (all), Eumetsat (all), GOES, "
       "MSFC (all), PDUS (all), RSS Archive (all), Ulm (all), ring, close, "},
      {{"-GOES", "-GSFC"}, "GOES, "},
      {{"-MSLP", "-CLOSE"}, "Weather data, ring, close, "},
      {{"-PDUS", "x-RSS-DUN-weather"}, "PDUS, Weather data, Dundee, RSS Archive, "},
      {{"/run:-euarchive", "--min"}, "minimise, Eumetsat, "},
      {{"-GO", "ES"}, ""},
      {{"-style", "fusion", "-GMS5", "-NOTTS"}, ""},
      {{"-DIAL", "-CLOSE"}, "ring, close, "},
      {{"-MIN", "-EUAD", "-CLOSE", "-DIAL"}, "dial, minimise, Archive Direct, ring, hang up, close, ", true},
      {{"-CLOSE", "-MSFC"}, "ring, close, "},
      {{"-EUAR", "-GOES", "-MSFC", "-CLOSE"}, "Eumetsat, ring, close, ", false, "Eumetsat"},
      {{}, ""},
  };
  for (const auto& c : cases) {
    TRecordingActions actions;
    actions.CloseDuring = c.CloseDuring;
    RunBatch(c.Arguments, c.CanDial, actions);
    EXPECT_EQ(actions.Done, c.Done) << testing::PrintToString(c.Arguments);
  }
}

TEST(Batch, TellsItsArgumentsFromOthers) {
  for (const char* argument : {"-all", "-CLOSE", "-mslp", "--goes", "x-Ulm"})
    EXPECT_TRUE(IsBatchArgument(argument)) << argument;
  for (const char* argument : {"-platform", "offscreen", "-style", "-stylesheet", "-min", "", "GOES"})
    EXPECT_FALSE(IsBatchArgument(argument)) << argument;
  EXPECT_EQ(LowerPriority(), 0U) << "where the system has no classes of priority";
}

}  // namespace
}  // namespace skyreel
