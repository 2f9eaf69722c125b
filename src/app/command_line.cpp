#include "app/command_line.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "app/animation_export.h"
#include "base/text.h"
#include "sources/source_table.h"

namespace skyreel {

namespace {

#if defined(_WIN32) || defined(__APPLE__)
constexpr bool kDisplayNeedsVariable = false;
#else
constexpr bool kDisplayNeedsVariable = true;
#endif

constexpr int kMostDays = 366;

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
    add(names, std::string("fetch \"") + source.Caption + "\"" +
                   (source.HasJob() ? "" : " (its service has closed)"));
  }
  add("-ALL", "fetch all of them but \"Live\", minimised, then close");
  add("-MIN", "minimise the window first");
  add("-DIAL", "dial the default Internet connection first (Windows)");
  add("-CLOSE", "close the program when all is fetched");
  add("--json FILE", "write what became of each file as JSON; - is standard output");
  add("--list-sources", "list the described sources (docs/sources.md)");
  add("--check-source FILE", "check a description of a source without the network");
  add("--try-source FILE|ID", "fetch one picture of a source into nowhere and say what came");
  add("--run ID[,ID...]", "fetch the newest pictures of described sources, then end");
  add("--days N", "with --run: fetch N days instead");
  add("--dry-run", "with --run: print what would be fetched");
  add("--animate SOURCE[/PRODUCT]", "save stored pictures as an animation: an id, or a tab in quotes");
  add("--output FILE", "with --animate: the file; .mp4 and .webm need ffmpeg, .gif does not");
  add("--last 24h", "with --animate: the hours (h) or days (d) up to the newest picture");
  add("--fps N", "with --animate: pictures a second, 1 to 30; otherwise 12");
  add("--size N", "with --animate: the longest side of a frame in pixels; otherwise 1080");
  add("--help, -h, -?", "show this text");
  add("--version", "show the version");
  text +=
      "\nWithout a display a batch runs unseen and closes at its end. A batch writes its status lines to\n"
      "standard output too, and with --json - to standard error. SIGTERM, SIGINT and SIGHUP stop it after\n"
      "the current file; the report and the settings are written.\n\n"
      "A batch ends with the first of these exit codes that applies:\n"
      "  5  a signal ended it\n"
      "  1  the program could not start, or a source that was named could not (its tab is hidden, it has no\n"
      "     output folder, or its description is wrong)\n"
      "  2  an argument matches no switch; the others are carried out\n"
      "  4  a server could not be reached or refused the login, or a user name or password is missing\n"
      "  3  a file failed; one that the server does not have is no failure\n"
      "  0  otherwise\n";
  return text;
}

/// An option of our own that takes a value.
struct TOption {
  const char* Name;
  const char* Needs;  ///< what its value is
  /// False when the value is wrong.
  bool (*Take)(const std::string& value, TStartPlan& plan);
};

template <TTerminalCommand::TKind kind>
bool TakeCommand(const std::string& value, TStartPlan& plan) {
  plan.Terminal.Kind = kind;
  plan.Terminal.Argument = value;
  return true;
}

/// "36h", "3d".
bool TakeLast(const std::string& value, TStartPlan& plan) {
  const bool days = value.back() == 'd' || value.back() == 'D';
  if (!days && value.back() != 'h' && value.back() != 'H') return false;
  const auto number = ParseNumber<int>(value.substr(0, value.size() - 1));
  if (!number || *number < 1 || *number > kMostDays * (days ? 1 : 24)) return false;
  plan.Terminal.Last = std::chrono::hours(days ? *number * 24 : *number);
  return true;
}

template <std::optional<int> TTerminalCommand::*member, int least, int most>
bool TakeNumber(const std::string& value, TStartPlan& plan) {
  const std::optional<int> number = ParseNumber<int>(value);
  plan.Terminal.*member = number;
  return number && *number >= least && *number <= most;
}

bool TakeOutput(const std::string& value, TStartPlan& plan) {
  plan.Terminal.Output = value;
  return IsAnimationName(value);
}

bool TakeJson(const std::string& value, TStartPlan& plan) {
  plan.Json = value;
  return true;
}

/// Takes the options of our own out of the arguments.
void TakeOptions(const std::vector<std::string>& arguments, TStartPlan& plan) {
  using enum TTerminalCommand::TKind;
  constexpr TOption kOptions[] = {
      {"--json", "the name of a file, or - for standard output", TakeJson},
      {"--run", "the ids of sources, separated by commas", TakeCommand<Run>},
      {"--days", "a number of days from 1 to 366", TakeNumber<&TTerminalCommand::Days, 1, kMostDays>},
      {"--check-source", "the name of a file", TakeCommand<CheckSource>},
      {"--try-source", "the name of a file, or an id", TakeCommand<TrySource>},
      {"--animate", "a source, or source/product", TakeCommand<Animate>},
      {"--output", "the name of a file that ends in .mp4, .webm or .gif", TakeOutput},
      {"--last", "hours or days up to 366 days, such as 24h or 3d", TakeLast},
      {"--fps", "a number from 1 to 30",
       TakeNumber<&TTerminalCommand::FramesPerSecond, 1, TAnimationStyle::kMostFramesPerSecond>},
      {"--size", "a number of pixels from 16 to 4096",
       TakeNumber<&TTerminalCommand::LongestSide, TAnimationOrder::kLeastSide, TAnimationOrder::kMostSide>},
  };
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    const auto option = std::ranges::find(kOptions, argument, &TOption::Name);
    if (argument == "--list-sources") {
      plan.Terminal.Kind = ListSources;
    } else if (argument == "--dry-run") {
      plan.Terminal.DryRun = true;
    } else if (option == std::end(kOptions)) {
      plan.Arguments.push_back(argument);
    } else if (++i == arguments.size() || arguments[i].empty() || !option->Take(arguments[i], plan)) {
      plan.Action = TStartPlan::TAction::Refuse;
      plan.Text = "Skyreel: " + argument + " needs " + option->Needs + "\n";
      return;
    }
  }
  const TTerminalCommand& command = plan.Terminal;
  const bool animation_options =
      !command.Output.empty() || command.Last || command.FramesPerSecond || command.LongestSide;
  if ((command.Days || command.DryRun) && command.Kind != Run) {
    plan.Text = "Skyreel: --days and --dry-run need --run\n";
  } else if (animation_options && command.Kind != Animate) {
    plan.Text = "Skyreel: --output, --last, --fps and --size need --animate\n";
  } else if (command.Kind == Animate && command.Output.empty()) {
    plan.Text = "Skyreel: --animate needs --output\n";
  }
  if (!plan.Text.empty()) plan.Action = TStartPlan::TAction::Refuse;
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
