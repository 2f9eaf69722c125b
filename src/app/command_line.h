#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace skyreel {

/// What is done on the terminal, without a window.
struct TTerminalCommand {
  enum class TKind { None, ListSources, CheckSource, TrySource, Run, Animate };
  TKind Kind = TKind::None;
  std::string Argument;     ///< a file, an id, the ids that run, separated by commas, or SOURCE[/PRODUCT]
  std::optional<int> Days;  ///< Run: so many days instead of the newest slot
  bool DryRun = false;      ///< Run: only prints the plan

  // --- Animate.

  std::string Output{};                    ///< the file
  std::optional<std::chrono::hours> Last;  ///< up to the newest picture
  std::optional<int> FramesPerSecond;
  std::optional<int> LongestSide;  ///< of a frame, in pixels
};

/// What the program does before any window exists.
struct TStartPlan {
  enum class TAction {
    Run,       ///< go on and show the window
    ShowText,  ///< write Text to standard output and end with exit code 0
    Refuse,    ///< write Text to standard error and end with exit code 1
  };
  TAction Action = TAction::Run;
  std::string Text;
  /// What to draw with, in the form of QT_QPA_PLATFORM: "offscreen", which draws nothing, comes last. Empty:
  /// the user or Qt chooses.
  std::string Platforms;
  std::vector<std::string> Arguments;  ///< without the options of our own: switches, and what Qt takes
  TTerminalCommand Terminal;
  std::string Json;  ///< where the batch's document goes: a file, or "-" for standard output; empty: nowhere
};

/// Plans the start from the arguments (without the program's name) and the environment. The help and the
/// version come first. `variable` gives an environment variable, "" when unset.
TStartPlan PlanStart(const std::vector<std::string>& arguments,
                     const std::function<std::string(const char* name)>& variable);

/// Why a window cannot be shown.
extern const char* const kNoDisplayText;

/// Writes the text and a line end to a descriptor at once. Drops what a closed pipe does not take.
void WriteLine(int descriptor, const std::string& text);

}  // namespace skyreel
