#include "catalogue/volume.h"

#include <algorithm>
#include <cstdio>
#include <set>

#include "base/text.h"
#include "catalogue/combinations.h"

namespace skyreel {

namespace {

using namespace std::chrono_literals;

void Add(TVolume& volume, const TDescription& source, const TCombination& combination,
         std::int64_t pictures) {
  const auto size = TypicalSize(source, combination);
  volume += {pictures, pictures * size.value_or(0), size.has_value()};
}

}  // namespace

TVolume& TVolume::operator+=(const TVolume& other) {
  Pictures += other.Pictures;
  Bytes += other.Bytes;
  AllSizesKnown = AllSizesKnown && other.AllSizesKnown;
  return *this;
}

std::string TVolume::TextWith(const char* period) const {
  std::string text = Count(Pictures, "picture") + period;
  if (Bytes > 0) text += (AllSizesKnown ? ", about " : ", more than ") + SizeText(Bytes);
  return text;
}

std::optional<std::int64_t> TypicalSize(const TDescription& source, const TCombination& combination) {
  const auto way =
      std::ranges::find_if(source.Ways, [&](const TWay& each) { return each.Serves(combination); });
  return way == source.Ways.end() ? std::nullopt : way->TypicalSize;
}

std::optional<TVolume> DailyVolume(const TDescription& source, const TChoices& choices) {
  if (!source.Time.Every) return std::nullopt;
  TVolume volume;
  ForEachCombination(ChosenRows(source, choices), [&](const TCombination& combination) {
    bool once = false;
    for (std::size_t i = 0; i < combination.size(); ++i)
      once = once || source.Variables[i].Rows[combination[i]].At;
    Add(volume, source, combination, once ? 1 : 24h / *source.Time.Every);
    return true;
  });
  return volume;
}

TVolume VolumeOf(const TDescription& source, const TPlan& plan, std::optional<int> days) {
  TVolume volume;
  std::set<std::size_t> counted;
  for (const TPlannedFile& file : plan.Files) {
    if (file.State != TPlanState::Wanted && file.State != TPlanState::NeedsList) continue;
    // Of the newest slots that are tried one after the other, one is fetched.
    if (!days && !counted.insert(file.Combination).second) continue;
    Add(volume, source, plan.Combinations[file.Combination], 1);
  }
  return volume;
}

std::string CadenceText(const TTimeRules& time) {
  if (!time.Every) return "at irregular times";
  const std::int64_t seconds = std::chrono::floor<std::chrono::seconds>(*time.Every).count();
  const auto every = [](std::int64_t number, const char* unit) {
    return number == 1 ? std::string("every ") + unit : "every " + Count(number, unit);
  };
  if (seconds == 86'400) return "once a day";
  if (seconds % 3'600 == 0) return every(seconds / 3'600, "hour");
  return seconds % 60 == 0 ? every(seconds / 60, "minute") : every(seconds, "second");
}

std::string SizeText(std::int64_t bytes) {
  const auto number = static_cast<double>(bytes);
  char text[32];
  if (bytes >= 999'500'000) {
    std::snprintf(text, sizeof text, "%.1f GB", number / 1e9);
  } else if (bytes >= 999'500) {
    std::snprintf(text, sizeof text, "%.0f MB", number / 1e6);
  } else if (bytes >= 1'000) {
    std::snprintf(text, sizeof text, "%.0f KB", number / 1e3);
  } else {
    std::snprintf(text, sizeof text, "%.0f B", number);
  }
  return text;
}

}  // namespace skyreel
