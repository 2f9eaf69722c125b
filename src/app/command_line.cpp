#include "app/command_line.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "app/batch.h"

namespace skyreel {

namespace {

#if defined(_WIN32) || defined(__APPLE__)
constexpr bool kDisplayNeedsVariable = false;
#else
constexpr bool kDisplayNeedsVariable = true;
#endif

std::string HelpText() {
  std::string text =
      "Skyreel fetches weather-satellite images, charts and data files and files them by date.\n\n"
      "Usage: Skyreel [switches]\n\n"
      "Without switches the window opens. With switches a batch runs: the sources named are fetched one\n"
      "after the other, with the settings of their tabs. Switches may be written in either letter case.\n\n";
  const auto add = [&text](std::string names, const std::string& meaning) {
    names.resize(std::max<std::size_t>(names.size() + 2, 27), ' ');
    text += "  " + names + meaning + "\n";
  };
  for (const TSource& source : Sources()) {
    std::string names;
    for (const std::string& item : source.Switches) names += (names.empty() ? "" : ", ") + item;
    if (names.empty()) continue;
    add(names,
        std::string("fetch \"") + source.Caption + "\"" + (source.HasJob() ? "" : " (not in this version)"));
  }
  add("-ALL", "fetch all of them, minimised, then close");
  add("-MIN", "minimise the window first");
  add("-DIAL", "dial the default Internet connection first (Windows)");
  add("-CLOSE", "close the program (given last)");
  add("--help", "show this text");
  add("--version", "show the version");
  text +=
      "\nWithout a display a batch runs unseen and closes at its end. A batch writes its status lines to\n"
      "standard output too. SIGTERM, SIGINT and SIGHUP stop it after the current file; the report and the\n"
      "settings are written.\n";
  return text;
}

}  // namespace

TStartPlan PlanStart(const std::vector<std::string>& arguments,
                     const std::function<std::string(const char* name)>& variable) {
  const auto given = [&arguments](const char* name) {
    return std::ranges::find(arguments, name) != arguments.end();
  };
  TStartPlan plan;
  if (given("--help")) {
    plan.Action = TStartPlan::TAction::ShowText;
    plan.Text = HelpText();
  } else if (given("--version")) {
    plan.Action = TStartPlan::TAction::ShowText;
    plan.Text = std::string("Skyreel ") + SKYREEL_VERSION + "\n";
  } else if (kDisplayNeedsVariable && variable("QT_QPA_PLATFORM").empty() && !given("-platform") &&
             !given("--platform") && !given("-display")) {
    const bool batch = std::ranges::any_of(arguments, IsBatchArgument);
    const bool display = !variable("DISPLAY").empty() || !variable("WAYLAND_DISPLAY").empty();
    if (batch) {
      plan.Platforms = display ? "xcb;wayland;offscreen" : "offscreen";
    } else if (!display) {
      plan.Action = TStartPlan::TAction::NoDisplay;
      plan.Text =
          "Skyreel: there is no display (neither DISPLAY nor WAYLAND_DISPLAY is set). A batch runs "
          "without one; see Skyreel --help.\n";
    }
  }
  return plan;
}

void WriteLine(int descriptor, const std::string& text) {
  const std::string line = text + "\n";
  std::size_t done = 0;
  while (done < line.size()) {
    const auto written = ::write(descriptor, line.data() + done, line.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    done += static_cast<std::size_t>(written);
  }
}

}  // namespace skyreel
