#include "catalogue/coverage.h"

#include <algorithm>
#include <set>

#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"
#include "catalogue/folder_scan.h"
#include "catalogue/slot_grid.h"
#include "catalogue/whole_file.h"
#include "transfer/run_record.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

using TSpan = TDateTime::TSpan;

constexpr TSpan kDay = std::chrono::days(1);

TSpan TimeOfDay(TDateTime time) {
  return time - time.Midnight();
}

TCellState WithoutFile(TPlanState state) {
  switch (state) {
    case TPlanState::NotYet:
      return TCellState::NotYet;
    case TPlanState::TooOld:
      return TCellState::NotOffered;
    case TPlanState::NeedsList:
      return TCellState::Unknown;
    default:
      return TCellState::Missing;
  }
}

const char* WhyNoFile(TCellState state) {
  switch (state) {
    case TCellState::Missing:
      return "no try is known";
    case TCellState::NotOffered:
      return "older than the server or your settings keep files";
    case TCellState::Unknown:
      return "only the server's list tells whether there is one";
    default:
      return "";
  }
}

/// Puts the cells into the days.
class TCoverageMaker {
 public:
  explicit TCoverageMaker(TCoverageRequest request)
      : request_(std::move(request)), today_(request_.Now.Midnight()), scan_(request_.Output) {}

  TCoverage Make() {
    ExpectTries();
    coverage_.Output = request_.Output;
    coverage_.Times = request_.Expected.Times;
    for (int back = 0; back < request_.Days; ++back)
      coverage_.Days.push_back({.Day = today_ - back * kDay, .Cells = {}});
    coverage_.Times.empty() ? PlaceInOrder() : PlaceByTime();
    return std::move(coverage_);
  }

 private:
  /// Expects the slots that were tried, where no cadence says what is due.
  void ExpectTries() {
    auto& [files, times] = request_.Expected;
    if (!times.empty()) return;
    std::set<TDateTime> slots;
    for (const TExpectedFile& file : files) slots.insert(file.Slot);
    for (const TSlotOutcome& tried : request_.Tries)
      if (slots.insert(tried.SlotTime).second) files.push_back({tried.SlotTime, tried.Path.string()});
    std::ranges::sort(files, {}, &TExpectedFile::Slot);
    if (!files.empty()) latest_ = files.back().Slot;

    std::set<TSpan> seen;
    std::size_t of_day = 0, busiest = 0;
    TDateTime day;
    for (const TExpectedFile& file : files) {
      if (!IsShown(file.Slot)) continue;
      seen.insert(TimeOfDay(file.Slot));
      if (std::exchange(day, file.Slot.Midnight()) != file.Slot.Midnight()) of_day = 0;
      busiest = std::max(busiest, ++of_day);
    }
    if (seen.size() == busiest) times.assign(seen.begin(), seen.end());
  }

  bool IsShown(TDateTime slot) const {
    return slot >= today_ - (request_.Days - 1) * kDay && slot < today_ + kDay;
  }
  /// For a slot without an expected file. Where no cadence says what is due, the last hours are not known
  /// yet.
  bool MayStillCome(TDateTime slot) const {
    return slot > request_.Now || (latest_ && slot > *latest_ && slot + kMayStillCome > request_.Now);
  }
  TCoverageDay& DayOf(TDateTime slot) {
    return coverage_.Days[static_cast<std::size_t>((today_ - slot.Midnight()) / kDay)];
  }

  void PlaceByTime() {
    for (TCoverageDay& day : coverage_.Days) {
      day.Cells.resize(coverage_.Times.size());
      for (std::size_t i = 0; i < day.Cells.size(); ++i) {
        TCoverageCell& cell = day.Cells[i];
        cell.Slot = day.Day + coverage_.Times[i];
        cell.State = MayStillCome(cell.Slot) ? TCellState::NotYet : TCellState::NotOffered;
        if (cell.State == TCellState::NotOffered) cell.Reason = "none at this time of the day";
      }
    }
    for (TExpectedFile& file : request_.Expected.Files) {
      if (!IsShown(file.Slot)) continue;
      const auto column = std::ranges::lower_bound(coverage_.Times, TimeOfDay(file.Slot));
      if (column == coverage_.Times.end() || *column != TimeOfDay(file.Slot)) continue;
      Fill(DayOf(file.Slot).Cells[static_cast<std::size_t>(column - coverage_.Times.begin())], file);
    }
  }

  void PlaceInOrder() {
    std::size_t busiest = 0;
    for (TExpectedFile& file : request_.Expected.Files) {
      if (!IsShown(file.Slot)) continue;
      std::vector<TCoverageCell>& cells = DayOf(file.Slot).Cells;
      Fill(cells.emplace_back(), file);
      busiest = std::max(busiest, cells.size());
    }
    for (TCoverageDay& day : coverage_.Days) day.Cells.resize(busiest);
  }

  void Fill(TCoverageCell& cell, TExpectedFile& file) {
    cell.Slot = file.Slot;
    cell.Path = std::move(file.Path);
    cell.Address = std::move(file.Address);
    const auto found = std::ranges::lower_bound(request_.Tries, file.Slot, {}, &TSlotOutcome::SlotTime);
    const TSlotOutcome* const tried =
        found != request_.Tries.end() && found->SlotTime == file.Slot ? &*found : nullptr;
    const bool there = !cell.Path.empty() && scan_.Has(cell.Path);
    cell.State = there ? TCellState::Whole : file.WithoutFile;
    cell.Reason = there ? "" : WhyNoFile(cell.State);
    if (!there && !cell.Path.empty() && scan_.IsHidden(cell.Path)) {
      cell.State = TCellState::Unknown;
      cell.Reason = "its folder cannot be read";
    } else if (there && IsNoted(cell.Path)) {
      cell.State = TCellState::Cut;
      cell.Reason = "its transfer broke off, or is still running";
      cell.Noted = true;
    } else if (tried) {
      AddTry(cell, *tried, there);
    }
  }

  bool IsNoted(const std::string& path) const {
    return !request_.Noted.empty() &&
           request_.Noted.contains((request_.Output / path).lexically_normal().string());
  }

  TCoverageRequest request_;
  const TDateTime today_;
  std::optional<TDateTime> latest_;  ///< expected slot, where no cadence says what is due
  TFolderScan scan_;
  TCoverage coverage_;
};

/// A file may have come in any way of the source, or was written anew in the format of its name.
TVerdict JudgeStored(const fs::path& path, const TDescription& source) {
  std::set<TFileType> types;
  for (const TWay& way : source.Ways) types.insert(way.Type);
  for (const TFileType type : {TFileType::Jpeg, TFileType::Png})
    if (LowerCase(path.extension().string()) == ExtensionOf(type)) types = {type};
  TVerdict verdict;
  for (const TFileType type : types) {
    TWay any;
    any.Type = type;
    verdict = JudgeFile(path, any, {});
    if (verdict.Kind == TVerdictKind::Whole) break;
  }
  return verdict;
}

}  // namespace

const char* CellStateText(TCellState state) {
  constexpr std::array<const char*, kCellStates> kTexts = {"whole",  "cut",         "missing", "not yet",
                                                           "failed", "not offered", "unknown"};
  return kTexts.at(static_cast<std::size_t>(state));
}

TExpectation ExpectationOf(const TDescription& source, const TCombination& combination, TDateTime now,
                           int days, std::optional<int> keep_days) {
  TExpectation expected;
  const TTimeRules& time = source.Time;
  if (!time.Every) return expected;
  const TDateTime kept = keep_days ? now - *keep_days * kDay : TDateTime();
  for (TPlannedFile& file : FilesDue(source, combination, now, days)) {
    const TCellState state = *file.Slot < kept ? TCellState::NotOffered : WithoutFile(file.State);
    expected.Files.push_back({*file.Slot, std::move(file.Path), state});
  }
  const TSlotGrid grid(*time.Every, time.Offset, time.Zone);
  const TDateTime last = grid.AtOrBefore(now.Midnight() + kDay - TSpan(1));
  for (TDateTime slot = last; slot >= now.Midnight(); slot = slot - *time.Every)
    expected.Times.push_back(TimeOfDay(slot));
  std::ranges::reverse(expected.Times);
  return expected;
}

std::array<int, kCellStates> TCoverage::Counts() const {
  std::array<int, kCellStates> counts{};
  for (const TCoverageDay& day : Days)
    for (const TCoverageCell& cell : day.Cells)
      if (!cell.Slot.IsZero()) ++counts.at(static_cast<std::size_t>(cell.State));
  return counts;
}

void AddTry(TCoverageCell& cell, const TSlotOutcome& tried, bool there) {
  if (there) {
    const bool failed = tried.Outcome == TJournalOutcome::Failed;
    cell.State = failed ? TCellState::Cut : TCellState::Whole;
    cell.Reason = failed ? tried.Reason : "";
    return;
  }
  switch (tried.Outcome) {
    case TJournalOutcome::New:
    case TJournalOutcome::Updated:
    case TJournalOutcome::Present:
      if (cell.State == TCellState::NotOffered) return;
      cell.State = TCellState::Missing;
      cell.Reason = "it was fetched, and the file is gone";
      return;
    case TJournalOutcome::NotYet:
      if (cell.State == TCellState::Missing) cell.Reason = "not there at the last try";
      return;
    case TJournalOutcome::Missing:
      cell.State = TCellState::Missing;
      break;
    case TJournalOutcome::Failed:
    case TJournalOutcome::Refused:
      cell.State = TCellState::Failed;
      break;
  }
  cell.Reason = tried.Reason.empty() ? "the server did not have it" : tried.Reason;
}

TCoverage MakeCoverage(TCoverageRequest request) {
  return TCoverageMaker(std::move(request)).Make();
}

void CheckFiles(TCoverageDay& day, const fs::path& output, const TDescription* source) {
  day.Checked = true;
  for (TCoverageCell& cell : day.Cells) {
    if (cell.State != TCellState::Whole && cell.State != TCellState::Cut) continue;
    const fs::path path = output / cell.Path;
    cell.Size = FileSizeOf(path);
    if (cell.Size < 0) {
      cell.State = TCellState::Missing;
      cell.Reason = "the file is gone";
    } else if (source && !cell.Noted) {
      try {
        const TVerdict verdict = JudgeStored(path, *source);
        cell.State = verdict.Kind == TVerdictKind::Whole ? TCellState::Whole : TCellState::Cut;
        cell.Reason = verdict.Reason;
      } catch (const std::exception& error) {
        cell.State = TCellState::Unknown;
        cell.Reason = ReasonOf(error);
      }
    }
  }
}

std::string DayText(const TCoverageDay& day) {
  std::array<std::string, kCellStates> slots;
  std::array<int, kCellStates> counts{};
  for (const TCoverageCell& cell : day.Cells) {
    if (cell.Slot.IsZero()) continue;
    const auto state = static_cast<std::size_t>(cell.State);
    ++counts.at(state);
    slots.at(state) += FormatDateTime(
        cell.Slot == cell.Slot.RoundedDown(std::chrono::minutes(1)) ? " hhnn" : " hhnnss", cell.Slot);
  }
  const int whole = counts.at(static_cast<std::size_t>(TCellState::Whole));
  int due = whole;
  std::string lists;
  for (const TCellState state :
       {TCellState::Missing, TCellState::Cut, TCellState::Failed, TCellState::Unknown}) {
    const auto each = static_cast<std::size_t>(state);
    due += counts.at(each);
    if (counts.at(each) > 0) lists += std::string(", ") + CellStateText(state) + slots.at(each);
  }
  return FormatDateTime("yyyy-mm-dd", day.Day) + ": " + std::to_string(whole) + " of " + std::to_string(due) +
         lists;
}

}  // namespace skyreel
