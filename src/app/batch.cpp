#include "app/batch.h"

#include <algorithm>
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
  const bool dial = Contains(line, "-DIAL") && can_dial;

  if (dial) actions.Dial();
  if (minimise || all) actions.MinimiseApplication();

  std::set<const TSource*> done;
  bool closed = false;
  for (const std::string& argument : arguments) {
    const std::string upper = UpperCase(argument);
    const TPriorityClass saved = LowerPriority();
    for (const TSource& source : Sources()) {
      const bool named = Names(upper, source);
      if (!named && (!all || source.Switches.empty())) continue;
      if (actions.ClosePending() || !done.insert(&source).second) continue;
      actions.PressRun(source, named);
    }
    if (!closed && (all || Contains(upper, "-CLOSE"))) {
      closed = true;
      actions.RingAfterBatch();
      if (dial) actions.HangUp();
      actions.CloseProgram();
    }
    RestorePriority(saved);
  }
}

bool IsBatchArgument(std::string_view argument) {
  const std::string upper = UpperCase(argument);
  return Contains(upper, "-ALL") || Contains(upper, "-CLOSE") ||
         std::ranges::any_of(Sources(), [&](const TSource& source) { return Names(upper, source); });
}

}  // namespace skyreel
