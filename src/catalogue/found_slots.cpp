#include "catalogue/found_slots.h"

#include <algorithm>

namespace skyreel {

TFoundSlots::TFoundSlots(const TDescription& source, const TFind& find, const TCombination& combination)
    : find_(find), matcher_(find.Match, {source, combination, {}, source.Time.Zone}, find.MatchIsAddress) {}

void TFoundSlots::Add(const TListAnswer& answer) {
  if (find_.Kind == TFind::TKind::WmsTime) {
    times_.push_back(&answer);
    return;
  }
  for (const TListEntry& entry : answer.Entries) {
    const auto slot = matcher_.SlotOf(entry.Text);
    if (!slot) continue;
    const auto [found, fresh] = slots_.try_emplace(*slot, TFound{entry.Text, entry.Read});
    if (!fresh && found->second.Text < entry.Text) found->second = {entry.Text, entry.Read};
  }
}

bool TFoundSlots::Has(TDateTime slot) const {
  if (std::ranges::any_of(times_, [slot](const auto* answer) { return answer->HasTime(slot); })) return true;
  // Without "*" the document gives the newest slot, and those before it are tried.
  if (!find_.EachEntry) return !slots_.empty() && slot <= slots_.rbegin()->first;
  return slots_.contains(slot);
}

std::vector<TDateTime> TFoundSlots::Within(TDateTime first, TDateTime last) const {
  std::vector<TDateTime> within;
  for (const TListAnswer* answer : times_) {
    const auto times = answer->TimesWithin(first, last);
    within.insert(within.end(), times.begin(), times.end());
  }
  for (auto slot = slots_.lower_bound(first); slot != slots_.end() && slot->first <= last; ++slot) {
    within.push_back(slot->first);
  }
  return within;
}

std::optional<TFound> TFoundSlots::Of(TDateTime slot) const {
  const auto found = slots_.find(slot);
  return found == slots_.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace skyreel
