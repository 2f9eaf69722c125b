#pragma once

#include <functional>
#include <string>
#include <vector>

namespace skyreel {

/// What the program does before any window exists.
struct TStartPlan {
  enum class TAction {
    Run,        ///< go on and show the window
    ShowText,   ///< write Text to standard output and end with exit code 0
    NoDisplay,  ///< write Text to standard error and end with exit code 1
  };
  TAction Action = TAction::Run;
  std::string Text;
  /// What to draw with, in the form of QT_QPA_PLATFORM; empty leaves the choice to Qt.
  std::string Platforms;
};

/// Plans the start from the arguments (with those for Qt, without the program's name) and the environment.
/// "--help" and "--version" come first. A batch without a usable display runs on the platform that draws
/// nothing; without a batch the program does not start, since nobody would see it. `variable` gives an
/// environment variable, "" when unset.
TStartPlan PlanStart(const std::vector<std::string>& arguments,
                     const std::function<std::string(const char* name)>& variable);

/// Writes the text and a line end to a descriptor at once. Drops what a closed pipe does not take.
void WriteLine(int descriptor, const std::string& text);

}  // namespace skyreel
