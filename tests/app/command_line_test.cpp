#include "app/command_line.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <sstream>

#include "app/program_folder.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

TEST(StartPlan, RunsOnlyABatchWithoutADisplayAndAnswersHelpAndVersion) {
  const std::string batch = "xcb;wayland;offscreen";
  // The arguments, the variable that is set, and how the text begins or what a run draws with.
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"", "DISPLAY", ""},
      {"-goes -close", "DISPLAY", batch},
      {"-all", "WAYLAND_DISPLAY", batch},
      {"-min x-Ulm", "", "offscreen"},
      {"-CLOSE", "", "offscreen"},
      {"-goes", "QT_QPA_PLATFORM", ""},
      {"-platform offscreen -goes", "", ""},
      {"", "", "Skyreel: there is no display"},
      {"-style fusion GOES -min", "", "Skyreel: there is no display"},
      {"-ALL --help", "DISPLAY", "Skyreel fetches"},
      {"--version", "", "Skyreel " SKYREEL_VERSION "\n"}};
  for (const auto& [arguments, variable, text] : cases) {
    std::istringstream in(arguments);
    const TStartPlan plan =
        PlanStart({std::istream_iterator<std::string>(in), {}},
                  [&, set = variable](const std::string& name) { return name == set ? ":0" : ""; });
    const std::string shown = plan.Text + plan.Platforms;
    EXPECT_EQ(shown.substr(0, text.empty() ? shown.npos : text.size()), text) << arguments << variable;
    EXPECT_EQ(plan.Action == TStartPlan::TAction::Run, plan.Text.empty()) << arguments;
    EXPECT_EQ(plan.Action == TStartPlan::TAction::NoDisplay, plan.Text.find("no display") < 20);
  }
  EXPECT_THAT(PlanStart({"--help"}, {}).Text, testing::HasSubstr("-GOES, -GSFC"));
}

TEST(WriteLine, ReachesThePipeAtOnce) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  WriteLine(ends[1], "a line");
  char buffer[9] = {};
  EXPECT_GT(::read(ends[0], buffer, 8), 0);
  EXPECT_STREQ(buffer, "a line\n");
  for (const int end : ends) ::close(end);
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
