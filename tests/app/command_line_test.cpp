#include "app/command_line.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <map>

#include "app/program_folder.h"
#include "sources/source_table.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using TVariables = std::map<std::string, std::string>;

TStartPlan Plan(const std::vector<std::string>& arguments, TVariables variables) {
  return PlanStart(arguments, [&](const char* name) { return variables[name]; });
}

TEST(StartPlan, RunsOnlyABatchWithoutADisplayAndAnswersHelpAndVersion) {
  using enum TStartPlan::TAction;
  const TVariables display = {{"DISPLAY", ":0"}};
  const struct {
    std::vector<std::string> Arguments;
    TVariables Variables;
    TStartPlan::TAction Action;
    std::string Platforms;
  } cases[] = {{{}, display, Run, ""},
               {{"-goes", "-close"}, display, Run, "xcb;wayland;offscreen"},
               {{"-all"}, {{"WAYLAND_DISPLAY", "wayland-0"}}, Run, "xcb;wayland;offscreen"},
               {{"-goes", "-close"}, {}, Run, "offscreen"},
               {{"-min", "-ULM"}, {}, Run, "offscreen"},
               {{"-goes"}, {{"QT_QPA_PLATFORM", "offscreen"}}, Run, ""},
               {{"-platform", "offscreen", "-goes"}, {}, Run, ""},
               {{}, {}, NoDisplay, ""},
               {{"-style", "fusion"}, {}, NoDisplay, ""},
               {{"--verbose"}, {{"DISPLAY", ""}}, NoDisplay, ""},
               {{"-ALL", "--help"}, display, ShowText, ""},
               {{"--version"}, {}, ShowText, ""}};
  for (const auto& c : cases) {
    const TStartPlan plan = Plan(c.Arguments, c.Variables);
    const std::string name = testing::PrintToString(c.Arguments) + testing::PrintToString(c.Variables);
    EXPECT_EQ(plan.Action, c.Action) << name;
    EXPECT_EQ(plan.Platforms, c.Platforms) << name;
    EXPECT_EQ(plan.Text.empty(), c.Action == Run) << name;
  }
  EXPECT_EQ(Plan({"--version"}, {}).Text, std::string("Skyreel ") + SKYREEL_VERSION + "\n");
  for (const TSource& source : Sources()) {
    for (const std::string& name : source.Switches)
      EXPECT_THAT(Plan({"--help"}, {}).Text, testing::HasSubstr(name));
  }
}

TEST(WriteLine, ReachesThePipeAtOnceAndSurvivesItsEnd) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const auto old_handler = std::signal(SIGPIPE, SIG_IGN);
  WriteLine(ends[1], "C1D_24.jpg - OK");
  char buffer[64] = {};
  EXPECT_GT(::read(ends[0], buffer, sizeof buffer - 1), 0);
  EXPECT_STREQ(buffer, "C1D_24.jpg - OK\n");
  ::close(ends[0]);
  WriteLine(ends[1], "nobody reads this");
  ::close(ends[1]);
  std::signal(SIGPIPE, old_handler);
}

TEST(ProgramFolder, IsTheOwnFolderUnlessNoUserMayWriteThere) {
  const test::TTempFolder folder;
  const std::filesystem::path data = folder / "data/Quenmoor/Skyreel";
  EXPECT_EQ(ProgramFolder(folder / "Skyreel", data), folder.Path());
  EXPECT_FALSE(std::filesystem::exists(data));
  for (const char* executable : {"/usr/bin/Skyreel", "/usr/local/bin/Skyreel", "/opt/skyreel/Skyreel"})
    EXPECT_EQ(ProgramFolder(executable, data), data) << executable;
  EXPECT_TRUE(std::filesystem::is_directory(data));
  EXPECT_EQ(ProgramFolder(folder / "gone/Skyreel", data), data);
}

}  // namespace
}  // namespace skyreel
