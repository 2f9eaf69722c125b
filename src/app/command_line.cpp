#include "app/command_line.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "sources/source_table.h"

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
  add("-CLOSE", "close the program when all is fetched");
  add("--json FILE", "write what became of each file as JSON; - is standard output");
  add("--help, -h, -?", "show this text");
  add("--version", "show the version");
  text +=
      "\nWithout a display a batch runs unseen and closes at its end. A batch writes its status lines to\n"
      "standard output too, and with --json - to standard error. SIGTERM, SIGINT and SIGHUP stop it after\n"
      "the current file; the report and the settings are written.\n\n"
      "A batch ends with the first of these exit codes that applies:\n"
      "  5  a signal ended it\n"
      "  1  the program could not start, or a source that was named could not (its tab is hidden, or it\n"
      "     has no output folder)\n"
      "  2  an argument matches no switch; the others are carried out\n"
      "  4  a server could not be reached or refused the login, or a user name or password is missing\n"
      "  3  a file failed; one that the server does not have is no failure\n"
      "  0  otherwise\n";
  return text;
}

/// Takes the options of our own out of the arguments.
void TakeOptions(const std::vector<std::string>& arguments, TStartPlan& plan) {
  constexpr std::string_view kJson = "--json";
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument != kJson) {
      plan.Arguments.push_back(argument);
    } else if (++i < arguments.size()) {
      plan.Json = arguments[i];
    } else {
      plan.Action = TStartPlan::TAction::Refuse;
      plan.Text = "Skyreel: --json needs the name of a file, or - for standard output\n";
    }
  }
}

std::string ChoosePlatforms(const std::function<bool(const char* name)>& given,
                            const std::function<std::string(const char* name)>& variable) {
  if (!kDisplayNeedsVariable || given("-platform") || given("--platform") || given("-display")) return "";
  const std::string chosen = variable("QT_QPA_PLATFORM");
  if (!chosen.empty()) return chosen.find("offscreen") == std::string::npos ? chosen + ";offscreen" : "";
  if (variable("DISPLAY").empty() && variable("WAYLAND_DISPLAY").empty()) return "offscreen";
  return variable("XDG_SESSION_TYPE") == "wayland" ? "wayland;xcb;offscreen" : "xcb;wayland;offscreen";
}

}  // namespace

const char* const kNoDisplayText =
    "there is no display that can be used (see DISPLAY and WAYLAND_DISPLAY). A batch runs without one; see "
    "Skyreel --help.";

TStartPlan PlanStart(const std::vector<std::string>& arguments,
                     const std::function<std::string(const char* name)>& variable) {
  const auto given = [&arguments](const char* name) {
    return std::ranges::find(arguments, name) != arguments.end();
  };
  TStartPlan plan;
  if (given("--help") || given("-help") || given("-h") || given("-?")) {
    plan.Action = TStartPlan::TAction::ShowText;
    plan.Text = HelpText();
  } else if (given("--version")) {
    plan.Action = TStartPlan::TAction::ShowText;
    plan.Text = std::string("Skyreel ") + SKYREEL_VERSION + "\n";
  } else {
    TakeOptions(arguments, plan);
    plan.Platforms = ChoosePlatforms(given, variable);
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
