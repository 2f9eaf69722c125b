#include "catalogue/terminal_text.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "base/text.h"

namespace skyreel {

namespace {

/// The address of a picture, or of its first tile.
std::string AddressText(const TPictureAddresses& picture) {
  const std::size_t more = picture.Addresses.size() - 1;
  return picture.Addresses.front().Text + (more == 0 ? "" : " and " + std::to_string(more) + " more tiles");
}

std::string ListsText(const TPlan& plan) {
  std::string text;
  std::string_view before;
  for (const TListRequest& list : plan.Lists) {
    if (list.Address == std::exchange(before, list.Address)) continue;
    text += "would ask " + list.Address + (list.Problem.empty() ? "" : " - refused: " + list.Problem) + "\n";
  }
  return text;
}

}  // namespace

std::string SlotText(std::optional<TDateTime> slot) {
  return slot ? FormatDateTime("yyyy-mm-dd hh:nn:ss' UTC'", *slot) : "dated by the server";
}

const char* StateText(TPlanState state) {
  switch (state) {
    case TPlanState::Present:
      return "present";
    case TPlanState::Wanted:
      return "wanted";
    case TPlanState::NeedsList:
      return "needs the server's list";
    case TPlanState::NotYet:
      return "not yet";
    case TPlanState::Missing:
      return "missing";
    case TPlanState::Resting:
      return "missing, asked again later";
    case TPlanState::TooOld:
      return "too old";
    case TPlanState::Unchanged:
      return "unchanged";
  }
  return "";
}

std::string SourceListText(const TCatalogue& catalogue,
                           const std::function<bool(const std::string& id)>& ticked,
                           const std::function<std::string(const std::string& id)>& health) {
  std::vector<std::array<std::string, 5>> rows;
  std::array<std::size_t, 5> widths{};
  for (const TCatalogueEntry& entry : catalogue.Entries) {
    const auto& known = entry.Description;
    auto& row = rows.emplace_back(std::array<std::string, 5>{entry.Id, entry.Title, known ? known->Group : "",
                                                             ticked(entry.Id) ? "ticked" : "not ticked",
                                                             known ? health(entry.Id) : "broken"});
    if (entry.ChangedByUser) row.back() += ", changed by you";
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Utf8Length(row[i]));
  }
  std::string text;
  for (const auto& row : rows) {
    for (std::size_t i = 0; i + 1 < row.size(); ++i) {
      text += row[i] + std::string(widths[i] - Utf8Length(row[i]) + 2, ' ');
    }
    text += row.back() + "\n";
  }
  return text;
}

std::string CheckSourceText(const TDescription& source, TDateTime now) {
  // The three newest slots are what a run tries that goes back twice, and asks every list.
  TDescription three = source;
  three.Time.WalkBack = 2;
  three.Time.Kept.reset();
  for (TWay& way : three.Ways) {
    if (way.Find) way.Find->Above = 0;
  }
  TPlan plan = MakePlan({three, now});
  std::string text = source.Title + " (" + source.Id + "): no errors\n" + ListsText(plan);
  for (std::size_t i = 0; plan.Files.empty() && i < plan.Combinations.size(); ++i)
    plan.Files.push_back({i, {}, ""});
  std::map<std::tuple<std::size_t, std::size_t, std::string>, TDateTime> slots;  // by address
  for (const TPlannedFile& file : plan.Files) {
    const TCombination& combination = plan.Combinations[file.Combination];
    const std::string label = LabelOf(source, combination);
    text += "\n" + SlotText(file.Slot) + (label.empty() ? "" : ", " + label) + "\n";
    for (std::size_t i = 0; i < source.Ways.size(); ++i) {
      if (!source.Ways[i].Serves(combination)) continue;
      const bool fixed = source.Ways[i].IsFixedName();
      const auto picture =
          AddressesOf(source, combination, {i, file.Slot}, fixed ? std::optional(now) : std::nullopt);
      text += (i == 0 ? "  from " : "  or   ") + AddressText(picture) + "\n";
      if (!file.Slot || fixed || source.Ways[i].Modified || source.Ways[i].Url.NeedsFound()) continue;
      const TDateTime same =
          slots.try_emplace({file.Combination, i, picture.Addresses.front().Text}, *file.Slot).first->second;
      // Names may return every day.
      if (same != *file.Slot && same - *file.Slot < std::chrono::days(1))
        text += "  note this is also the address of " + SlotText(same) + "\n";
    }
    text += "  to   " + LocalPath(source, combination, file.Slot) + "\n";
  }
  return text;
}

std::string PlanText(const TDescription& source, const TPlan& plan, TDateTime now) {
  std::string text = ListsText(plan);
  std::set<std::size_t> wanted;  // combinations
  for (const TPlannedFile& file : plan.Files) {
    const TCombination& combination = plan.Combinations[file.Combination];
    const bool in_reserve = file.State == TPlanState::Wanted && !wanted.insert(file.Combination).second;
    text += std::string(in_reserve && plan.NewestAlone ? "in reserve" : StateText(file.State)) + ": " +
            LocalPath(source, combination, file.Slot);
    if (!file.Ways.empty())
      text += " from " + AddressText(AddressesOf(source, combination, file.Ways.front(), now));
    text += "\n";
  }
  return text;
}

}  // namespace skyreel
