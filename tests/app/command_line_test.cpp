#include "app/command_line.h"

#include <gmock/gmock.h>

#include "app/program_folder.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

TEST(StartPlan, RunsOnlyABatchWithoutADisplayAndAnswersHelpAndVersion) {
  // The arguments, the variable that is set, and how the text begins or what a run draws with.
  const std::tuple<std::vector<std::string>, std::string, std::string> cases[] = {
      {{}, "DISPLAY", ""},
      {{"-all"}, "WAYLAND_DISPLAY", "xcb;wayland;offscreen"},
      {{"-min", "x-Ulm"}, "", "offscreen"},
      {{"-goes"}, "QT_QPA_PLATFORM", ""},
      {{"-platform", "offscreen", "-goes"}, "", ""},
      {{"-style", "fusion", "GOES", "-min"}, "", "Skyreel: there is no display"},
      {{"-ALL", "--help"}, "DISPLAY", "Skyreel fetches"},
      {{"--version"}, "", "Skyreel " SKYREEL_VERSION "\n"}};
  for (const auto& [arguments, variable, text] : cases) {
    SCOPED_TRACE(testing::PrintToString(arguments) + variable);
    const TStartPlan plan = PlanStart(
        arguments, [&, set = variable](const std::string& name) { return name == set ? ":0" : ""; });
    const std::string shown = plan.Text + plan.Platforms;
    EXPECT_EQ(shown.substr(0, text.empty() ? shown.npos : text.size()), text);
    EXPECT_EQ(plan.Action == TStartPlan::TAction::Run, plan.Text.empty());
    EXPECT_EQ(plan.Action == TStartPlan::TAction::NoDisplay, plan.Text.find("no display") < 20);
  }
  EXPECT_THAT(PlanStart({"--help"}, {}).Text, testing::HasSubstr("-GOES, -GSFC"));
}

TEST(WriteLine, WritesAtOnceAndWhole) {
  testing::internal::CaptureStdout();
  WriteLine(1, "a line");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "a line\n");
}

TEST(ProgramFolder, IsTheOwnFolderUnlessNoUserMayWriteThere) {
  const test::TTempFolder folder;
  const std::filesystem::path data = folder / "data/Skyreel";
  EXPECT_EQ(ProgramFolder(folder / "Skyreel", data), folder.Path());
  for (const char* executable : {"/usr/bin/Skyreel", "/opt/skyreel/Skyreel", "/gone/Skyreel"})
    EXPECT_EQ(ProgramFolder(executable, data), data) << executable;
  EXPECT_TRUE(std::filesystem::is_directory(data));
}

}  // namespace
}  // namespace skyreel
