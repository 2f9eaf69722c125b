#pragma once

#include <functional>
#include <string>

#include "catalogue/catalogue.h"
#include "catalogue/plan.h"

namespace skyreel {

/// "2026-11-26 03:00:00 UTC", or that the server tells it.
std::string SlotText(std::optional<TDateTime> slot);
/// "wanted", "needs the server's list" and so on.
const char* StateText(TPlanState state);

/// What --list-sources prints: a line for each source with its id, title, group, "ticked" or "not ticked",
/// its state of health, and "changed by you" where that is so. `ticked` and `health` are asked by id.
std::string SourceListText(const TCatalogue& catalogue,
                           const std::function<bool(const std::string& id)>& ticked,
                           const std::function<std::string(const std::string& id)>& health);

/// What --check-source prints of a sound description: the lists that it asks, and addresses and file names of
/// the three newest slots due, for the default choice. "?" stands for what only the server knows.
std::string CheckSourceText(const TDescription& source, TDateTime now);

/// What --dry-run prints of a plan: the lists that it needs, and a line for each file with its state.
std::string PlanText(const TDescription& source, const TPlan& plan, TDateTime now);

}  // namespace skyreel
