#include "app/command_line.h"

#include <gmock/gmock.h>

#include "app/program_folder.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

TEST(StartPlan, TakesItsOptionsChoosesAPlatformAndAnswersHelpAndVersion) {
  // The arguments, a variable and its value, and what a run draws with, the arguments left and the document's
  // file, or how the text begins.
  const std::tuple<std::vector<std::string>, std::string, std::string> cases[] = {
      {{"-GOES", "--json", "-all"}, "DISPLAY=:0", "xcb;wayland;offscreen|-GOES|-all"},
      {{"--json", "-", "-style", "fusion"}, "XDG_SESSION_TYPE=wayland", "offscreen|-style fusion|-"},
      {{}, "WAYLAND_DISPLAY=XDG_SESSION_TYPE=wayland", "xcb;wayland;offscreen||"},
      {{"-goes"}, "QT_QPA_PLATFORM=xcb", "xcb;offscreen|-goes|"},
      {{}, "QT_QPA_PLATFORM=offscreen", "||"},
      {{"-platform", "xcb"}, "", "|-platform xcb|"},
      {{"-goes", "--json"}, "", "Skyreel: --json needs"},
      {{"--animate", "a/b", "--output", "a.avi"}, "", "Skyreel: --output needs"},
      {{"--animate", "a/b", "--last", "25x"}, "", "Skyreel: --last needs"},
      {{"--animate", "a/b", "--last", "3D"}, "", "Skyreel: --animate needs --output"},
      {{"--fps", "30"}, "", "Skyreel: --output, --last, --fps and --size need --animate"},
      {{"--animate", "a", "--output", "a.GIF", "--last", "36h", "--fps", "30"}, "", "offscreen||"},
      {{"-ALL", "--help"}, "", "Skyreel fetches"},
      {{"-?"}, "", "Skyreel fetches"},
      {{"--version"}, "", "Skyreel " SKYREEL_VERSION "\n"}};
  for (const auto& [arguments, variable, expected] : cases) {
    const TStartPlan plan = PlanStart(arguments, [&, set = variable](const std::string& name) {
      return set.starts_with(name + "=") ? set.substr(name.size() + 1) : "";
    });
    std::string shown = plan.Text + plan.Platforms + "|";
    for (const std::string& left : plan.Arguments) shown += (shown.ends_with('|') ? "" : " ") + left;
    shown += "|" + plan.Json;
    EXPECT_EQ(shown.substr(0, plan.Text.empty() ? shown.npos : expected.size()), expected);
    EXPECT_EQ(plan.Action == TStartPlan::TAction::Run, plan.Text.empty());
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
