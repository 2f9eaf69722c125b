#include "app/batch.h"

#include <gmock/gmock.h>

#include "app/process_priority.h"
#include "app/source_pages.h"

namespace skyreel {
namespace {

using testing::ElementsAre;

/// Writes down what a batch did, in words.
class TRecordingActions : public TBatchActions {
 public:
  void MinimiseApplication() override { Done.push_back("minimise"); }
  void Dial() override { Done.push_back("dial"); }
  void HangUp() override { Done.push_back("hang up"); }
  void PressRun(std::size_t group, bool named) override {
    Done.push_back(SourcePage(BatchSources().at(group)).Caption + std::string(named ? "" : " (all)"));
    if (Done.back() == CloseDuring) closing_ = true;
  }
  bool ClosePending() const override { return closing_; }
  void RingAfterBatch() override { Done.push_back("ring"); }
  void CloseProgram() override { Done.push_back("close"); }

  std::vector<std::string> Done;
  std::string CloseDuring;

 private:
  bool closing_ = false;
};

struct TBatchCase {
  const char* Name;
  std::vector<std::string> Arguments;
  std::vector<std::string> Done;
  bool CanDial = false;
};

class BatchTest : public testing::TestWithParam<TBatchCase> {};

TEST_P(BatchTest, DoesWhatTheArgumentsSay) {
  TRecordingActions actions;
  RunBatch(GetParam().Arguments, BatchGroups(), GetParam().CanDial, actions);
  EXPECT_EQ(actions.Done, GetParam().Done);
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, BatchTest,
    testing::Values(
        TBatchCase{
            "AllInLowerCaseRunsEveryGroupOnceAndCloses",
            {"-all"},
            {"minimise", "Weather data (all)", "Archive Direct (all)", "Dundee (all)", "Eumetsat (all)",
             "GOES (all)", "MSFC (all)", "PDUS (all)", "RSS Archive (all)", "Ulm (all)", "ring", "close"}},
        TBatchCase{"TwoNamesOfOneGroupRunItOnce", {"-GOES", "-GSFC"}, {"GOES"}},
        TBatchCase{"RunsThenCloses", {"-MSLP", "-CLOSE"}, {"Weather data", "ring", "close"}},
        TBatchCase{"ArgumentsInTheirOrderGroupsOfOneInTheTablesOrder",
                   {"-PDUS", "x-RSS-DUN-weather"},
                   {"PDUS", "Weather data", "Dundee", "RSS Archive"}},
        TBatchCase{"MatchesAnywhereInAnArgument", {"/run:-euarchive", "--min"}, {"minimise", "Eumetsat"}},
        TBatchCase{"ASwitchIsNotPutTogetherFromTwoArguments", {"-GO", "ES"}, {}},
        TBatchCase{"UnknownArgumentsDoNothing", {"-style", "fusion", "-GMS5", "-NOTTS"}, {}},
        TBatchCase{"WithoutTheLibraryNothingIsDialled", {"-DIAL", "-CLOSE"}, {"ring", "close"}},
        TBatchCase{"DialsFirstAndHangsUpAtClose",
                   {"-MIN", "-EUAD", "-CLOSE", "-DIAL"},
                   {"dial", "minimise", "Archive Direct", "ring", "hang up", "close"},
                   true},
        TBatchCase{"AnArgumentAfterCloseStillRuns", {"-CLOSE", "-MSFC"}, {"ring", "close", "MSFC"}},
        TBatchCase{"NoArgumentsNoBatch", {}, {}}),
    [](const testing::TestParamInfo<TBatchCase>& info) { return info.param.Name; });

TEST(Batch, StartsNoFurtherJobOnceACloseWasAsked) {
  TRecordingActions actions;
  actions.CloseDuring = "Eumetsat";
  RunBatch({"-EUAR", "-GOES", "-MSFC", "-CLOSE"}, BatchGroups(), true, actions);
  EXPECT_THAT(actions.Done, ElementsAre("Eumetsat", "ring", "close"));
}

TEST(Batch, TellsItsArgumentsFromOthers) {
  for (const char* argument : {"-all", "-CLOSE", "-mslp", "--goes", "x-Ulm"}) {
    EXPECT_TRUE(IsBatchArgument(argument, BatchGroups())) << argument;
  }
  for (const char* argument :
       {"-platform", "offscreen", "-style", "fusion", "-stylesheet", "-min", "", "GOES"}) {
    EXPECT_FALSE(IsBatchArgument(argument, BatchGroups())) << argument;
  }
}

#ifndef _WIN32
TEST(Batch, LeavesThePriorityWhereTheSystemHasNoClasses) {
  EXPECT_EQ(LowerPriority(), 0U);
}
#endif

}  // namespace
}  // namespace skyreel
