#include "app/batch.h"

#include <algorithm>

#include "app/process_priority.h"
#include "base/text.h"

namespace skyreel {

namespace {

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool Names(const TBatchGroup& group, const std::string& upper_argument) {
  return std::ranges::any_of(group.Switches,
                             [&](const std::string& item) { return Contains(upper_argument, item); });
}

}  // namespace

void RunBatch(const std::vector<std::string>& arguments, const std::vector<TBatchGroup>& groups,
              bool can_dial, TBatchActions& actions) {
  std::string line;
  for (const std::string& argument : arguments) line += UpperCase(argument) + " ";
  const bool all = Contains(line, "-ALL");
  const bool minimise = Contains(line, "-MIN");
  const bool dial = Contains(line, "-DIAL") && can_dial;

  if (dial) actions.Dial();
  if (minimise || all) actions.MinimiseApplication();

  std::vector<bool> done(groups.size(), false);
  bool closed = false;
  for (const std::string& argument : arguments) {
    const std::string upper = UpperCase(argument);
    const TPriorityClass saved = LowerPriority();
    for (std::size_t i = 0; i < groups.size(); ++i) {
      const bool named = Names(groups[i], upper);
      if (done[i] || !(all || named) || actions.ClosePending()) continue;
      actions.PressRun(i, named);
      done[i] = true;
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

bool IsBatchArgument(std::string_view argument, const std::vector<TBatchGroup>& groups) {
  const std::string upper = UpperCase(argument);
  return Contains(upper, "-ALL") || Contains(upper, "-CLOSE") ||
         std::ranges::any_of(groups, [&](const TBatchGroup& group) { return Names(group, upper); });
}

}  // namespace skyreel
