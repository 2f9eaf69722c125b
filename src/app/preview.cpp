#include "app/preview.h"

#include <algorithm>
#include <map>
#include <system_error>
#include <utility>

#include "base/files.h"
#include "catalogue/terminal_text.h"
#include "catalogue/volume.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

constexpr const char* kAskedFirst = "The server must be asked first; its list says which pictures it has:";

/// Adds the heading and the first of the lines, if there are any.
void AddSome(std::string& text, const char* heading, const std::vector<std::string>& lines) {
  constexpr std::size_t kMost = 3;
  if (lines.empty()) return;
  text += std::string("\n") + heading;
  for (std::size_t i = 0; i < std::min(kMost, lines.size()); ++i) text += "\n" + lines[i];
  if (lines.size() > kMost) text += "\nand " + std::to_string(lines.size() - kMost) + " more";
}

/// Nothing for a file that is gone.
std::optional<std::int64_t> SizeOf(const fs::path& path) {
  const std::int64_t size = FileSizeOf(path);
  return size < 0 ? std::nullopt : std::optional(size);
}

}  // namespace

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
  const fs::space_info space = fs::space(ExistingPart(std::move(folder)), error);
  return error ? "" : SizeText(static_cast<std::int64_t>(space.available)) + " are free on the disk.";
}

TPreview PreviewOf(const std::vector<TDescribedPlan>& plans, const fs::path& output) {
  TPreview preview;
  TVolume volume;
  std::vector<std::string> lists;
  bool newest_alone = false;
  for (const auto& [wanted, plan] : plans) {
    for (const TPlannedFile& file : plan.Files) {
      const TCombination& combination = plan.Combinations[file.Combination];
      TPreview::TRow row{
          StateText(file.State), SlotText(file.Slot), LocalPath(wanted.Source, combination, file.Slot), {}};
      row.Bytes = file.State == TPlanState::Present ? SizeOf(output / row.File)
                                                    : TypicalSize(wanted.Source, combination);
      preview.Rows.push_back(std::move(row));
    }
    volume += VolumeOf(wanted.Source, plan, wanted.Days);
    newest_alone = newest_alone || !wanted.Days;
    for (const TListRequest& list : plan.Lists) lists.push_back(list.Address);
  }
  std::string& text = preview.Summary;
  text = CountsText(preview.Rows) + ".\n";
  text += "To fetch: " + volume.Text() + ". " + FreeText(output);
  if (newest_alone) text += "\nOf several slots, the older ones are tried only if the newest is not there.";
  AddSome(text, kAskedFirst, lists);
  return preview;
}

TPreview PreviewOf(const TFetchPlan& plan, const fs::path& output) {
  TPreview preview;
  bool some_if_new = false;
  for (const TFetchPlan::TFile& file : plan.Files) {
    const bool present = file.State == TFetchPlan::TState::Present;
    const bool if_new = file.State == TFetchPlan::TState::IfNew;
    some_if_new = some_if_new || if_new;
    TPreview::TRow row;
    row.State = if_new ? "wanted if new" : StateText(present ? TPlanState::Present : TPlanState::Wanted);
    row.Slot = SlotText(file.SlotTime.IsZero() ? std::nullopt : std::optional(file.SlotTime));
    row.File = file.Path.empty() ? file.Address : file.Path.lexically_relative(output).generic_string();
    if (present) row.Bytes = SizeOf(file.Path);
    preview.Rows.push_back(std::move(row));
  }
  std::string& text = preview.Summary;
  text = CountsText(preview.Rows) + ". " + FreeText(output);
  if (some_if_new)
    text += "\nBefore a file that is \"wanted if new\", the server is asked for its date and size.";
  AddSome(text, kAskedFirst, plan.Lists);
  AddSome(text, "A run would also say:", plan.Notes);
  return preview;
}

}  // namespace skyreel
