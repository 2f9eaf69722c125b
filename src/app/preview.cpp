#include "app/preview.h"

#include <algorithm>
#include <map>
#include <system_error>

#include "catalogue/terminal_text.h"
#include "catalogue/volume.h"

namespace skyreel {

namespace fs = std::filesystem;

std::string CountsText(const std::vector<TPreview::TRow>& rows) {
  std::map<std::string, int> counts;
  for (const TPreview::TRow& row : rows) ++counts[row.State];
  std::string text;
  for (const auto& [state, count] : counts)
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + state;
  return text.empty() ? "No file is planned yet" : text;
}

std::string FreeText(fs::path folder) {
  std::error_code error;
  while (!fs::exists(folder, error) && folder.has_relative_path()) folder = folder.parent_path();
  const fs::space_info space = fs::space(folder, error);
  return error ? "" : SizeText(static_cast<std::int64_t>(space.available)) + " are free on the disk.";
}

TPreview PreviewOf(const TWantedSource& wanted, const TPlan& plan, const fs::path& output) {
  TPreview preview;
  for (const TPlannedFile& file : plan.Files) {
    const TCombination& combination = plan.Combinations[file.Combination];
    TPreview::TRow row{
        StateText(file.State), SlotText(file.Slot), LocalPath(wanted.Source, combination, file.Slot), {}};
    if (file.State == TPlanState::Present) {
      std::error_code gone;
      const auto size = fs::file_size(output / row.File, gone);
      if (!gone) row.Bytes = static_cast<std::int64_t>(size);
    } else {
      row.Bytes = TypicalSize(wanted.Source, combination);
    }
    preview.Rows.push_back(std::move(row));
  }
  std::string& text = preview.Summary;
  text = CountsText(preview.Rows) + ".\n";
  text += "To fetch: " + VolumeOf(wanted.Source, plan, wanted.Days).Text() + ". " + FreeText(output);
  if (!wanted.Days) text += "\nOf several slots, the older ones are tried only if the newest is not there.";
  if (plan.Lists.empty()) return preview;
  text += "\nThe server must be asked first; its list says which pictures it has:";
  constexpr std::size_t kMostLists = 3;
  for (std::size_t i = 0; i < std::min(kMostLists, plan.Lists.size()); ++i)
    text += "\n" + plan.Lists[i].Address;
  if (plan.Lists.size() > kMostLists)
    text += "\nand " + std::to_string(plan.Lists.size() - kMostLists) + " more";
  return preview;
}

}  // namespace skyreel
