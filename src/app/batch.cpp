#include "app/batch.h"

#include <algorithm>
#include <array>
#include <set>

#include "app/process_priority.h"
#include "base/text.h"

namespace skyreel {

namespace {

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool Names(const std::string& upper_argument, const TSource& source) {
  return std::ranges::any_of(source.Switches,
                             [&](const std::string& item) { return Contains(upper_argument, item); });
}

}  // namespace

void RunBatch(const std::vector<std::string>& arguments, bool can_dial, TBatchActions& actions) {
  std::string line;
  for (const std::string& argument : arguments) line += UpperCase(argument) + " ";
  const bool all = Contains(line, "-ALL");
  const bool minimise = Contains(line, "-MIN");
  const bool close = all || Contains(line, "-CLOSE");
  const bool dial = Contains(line, "-DIAL") && can_dial;

  if (dial) actions.Dial();
  if (minimise || all) actions.MinimiseApplication();

  std::set<const TSource*> done;
  for (const std::string& argument : arguments) {
    const std::string upper = UpperCase(argument);
    const TPriorityClass saved = LowerPriority();
    for (const TSource& source : Sources()) {
      const bool named = Names(upper, source);
      if (!named && (!all || source.Described || source.Switches.empty())) continue;
      if (actions.ClosePending() || !done.insert(&source).second) continue;
      actions.PressRun(source, named);
    }
    RestorePriority(saved);
  }
  actions.BatchEnded();
  if (!close) return;
  actions.RingAfterBatch();
  if (dial) actions.HangUp();
  actions.CloseProgram();
}

bool IsSwitch(std::string_view argument) {
  constexpr std::array<std::string_view, 4> kOthers = {"-ALL", "-MIN", "-DIAL", "-CLOSE"};
  const std::string upper = UpperCase(argument);
  return std::ranges::any_of(kOthers, [&](std::string_view other) { return Contains(upper, other); }) ||
         std::ranges::any_of(Sources(), [&](const TSource& source) { return Names(upper, source); });
}

}  // namespace skyreel
