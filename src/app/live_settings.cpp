#include "app/live_settings.h"

#include <vector>

#include "base/comma_text.h"
#include "base/text.h"

namespace skyreel {

namespace {

/// Sources that a new profile has ticked.
const std::set<std::string> kTickedAtFirst = {"gov.noaa.opc.surface-analysis", "gov.noaa.star.goes-east-fd",
                                              "jp.go.jma.himawari"};

std::vector<std::string> Entries(TRegistryStore& store, const char* name) {
  return store.HasValue(name) ? FromCommaText(store.ReadString(name).toStdString())
                              : std::vector<std::string>();
}

std::set<std::string> Ids(TRegistryStore& store, const char* name) {
  const std::vector<std::string> entries = Entries(store, name);
  return {entries.begin(), entries.end()};
}

/// Reads "id=days".
std::map<std::string, int> DaysById(TRegistryStore& store, const char* name) {
  std::map<std::string, int> days_by_id;
  for (const std::string& entry : Entries(store, name)) {
    const std::size_t equals = entry.rfind('=');
    if (equals == std::string::npos) continue;
    const auto days = ParseNumber<int>(std::string_view(entry).substr(equals + 1));
    if (days && *days > 0) days_by_id[entry.substr(0, equals)] = *days;
  }
  return days_by_id;
}

std::map<std::string, TChoices> ChoicesById(TRegistryStore& store) {
  std::map<std::string, TChoices> choices;
  for (const std::string& entry : Entries(store, "LiveChoices")) {
    const std::size_t slash = entry.find('/'), equals = entry.find('=', slash);
    if (equals == std::string::npos) continue;
    std::vector<std::string>& ticked =
        choices[entry.substr(0, slash)][entry.substr(slash + 1, equals - slash - 1)];
    if (equals + 1 < entry.size()) ticked.push_back(entry.substr(equals + 1));
  }
  return choices;
}

void Write(TRegistryStore& store, const char* name, const std::vector<std::string>& entries) {
  store.WriteString(name, QString::fromStdString(ToCommaText(entries)));
}

void WriteDays(TRegistryStore& store, const char* name, const std::map<std::string, int>& days_by_id) {
  std::vector<std::string> entries;
  for (const auto& [id, days] : days_by_id) entries.push_back(id + "=" + std::to_string(days));
  Write(store, name, entries);
}

}  // namespace

TLiveSettings::TLiveSettings(TRegistryStore& store)
    : Ticked(store.HasValue("LiveTicked") ? Ids(store, "LiveTicked") : kTickedAtFirst),
      Terms(store.HasValue("LiveAccepted") ? store.ReadString("LiveAccepted").toStdString() : ""),
      Choices(ChoicesById(store)),
      Days(DaysById(store, "LiveDays")),
      KeepDays(DaysById(store, "LiveKeepDays")) {}

void TLiveSettings::Save(TRegistryStore& store) const {
  Write(store, "LiveTicked", {Ticked.begin(), Ticked.end()});
  store.WriteString("LiveAccepted", QString::fromStdString(Terms.Text()));
  std::vector<std::string> entries;
  for (const auto& [id, choices] : Choices) {
    for (const auto& [variable, values] : choices) {
      const std::string begin = id + "/" + variable + "=";
      if (values.empty()) entries.push_back(begin);
      for (const std::string& value : values) entries.push_back(begin + value);
    }
  }
  Write(store, "LiveChoices", entries);
  WriteDays(store, "LiveDays", Days);
  WriteDays(store, "LiveKeepDays", KeepDays);
}

TWantedSource TLiveSettings::Wanted(const TDescription& source) const {
  TWantedSource wanted{source};
  if (const auto choices = Choices.find(source.Id); choices != Choices.end())
    wanted.Choices = choices->second;
  if (const auto days = Days.find(source.Id); days != Days.end()) wanted.Days = days->second;
  if (const auto days = KeepDays.find(source.Id); days != KeepDays.end()) wanted.KeepDays = days->second;
  wanted.AcceptsTerms = Terms.Accepts(source.Id);
  return wanted;
}

}  // namespace skyreel
