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

/// Plans the start from the arguments (without the program's name, Qt's own still among them) and the
/// environment. "--help" and "--version" go before everything else. A batch that finds no display, or one
/// that is gone or refuses it, runs on the platform that draws nowhere; anything else would wait for a user
/// who sees nothing. `variable` gives an environment variable, "" when unset.
TStartPlan PlanStart(const std::vector<std::string>& arguments,
                     const std::function<std::string(const char* name)>& variable);

/// Writes the text and a line end to a descriptor at once; what cannot be written (a closed pipe) is lost.
void WriteLine(int descriptor, const std::string& text);

}  // namespace skyreel
