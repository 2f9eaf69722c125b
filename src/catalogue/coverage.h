#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "base/date_time.h"
#include "catalogue/plan.h"
#include "journal/journal.h"

namespace skyreel {

/// How the file of one slot stands.
enum class TCellState {
  Whole,       ///< it is there, and nothing says that it is not complete
  Cut,         ///< it is there, but its transfer broke off, or the file ends too early
  Missing,     ///< it is due, but not there: nobody asked for it, or the server did not have it
  NotYet,      ///< it is not there, and it may still come
  Failed,      ///< it is not there: the last try failed, or what came was refused
  NotOffered,  ///< it is not there, and none is due: not at this time of the day, or not so long ago
  Unknown,     ///< only the server's list can tell whether it is due, or its folder cannot be read
};
inline constexpr std::size_t kCellStates = 7;
/// "whole", "cut", "missing", "not yet", "failed", "not offered", "unknown".
const char* CellStateText(TCellState state);

/// A slot that should have a file.
struct TExpectedFile {
  TDateTime Slot;
  std::string Path;  ///< below the output folder, or absolute
  TCellState WithoutFile = TCellState::Missing;
  std::string Address = {};  ///< of a built-in source: where the file comes from
};

/// What is expected of one product of a source.
struct TExpectation {
  std::vector<TExpectedFile> Files;
  /// The slots' times of the day, ascending. Empty for a source without a regular cadence.
  std::vector<TDateTime::TSpan> Times;
};

/// What a described source should have of today (UTC) and `days` less one days before it. Nothing is due that
/// is older than `keep_days`. A source without `every` expects nothing: only its server knows the slots.
TExpectation ExpectationOf(const TDescription& source, const TCombination& combination, TDateTime now,
                           int days, std::optional<int> keep_days);

/// One slot of one day.
struct TCoverageCell {
  TDateTime Slot;  ///< zero: the day has no such slot
  TCellState State = TCellState::NotOffered;
  std::string Path;          ///< below the output folder, or absolute; may be empty
  std::string Address = {};  ///< see TExpectedFile
  std::string Reason;        ///< why there is no whole file
  std::int64_t Size = -1;    ///< in bytes; negative: not known yet
  bool Noted = false;        ///< the transfer ledger holds it
};

struct TCoverageDay {
  TDateTime Day;
  std::vector<TCoverageCell> Cells;
  bool Checked = false;  ///< CheckFiles has looked at its files
};

/// Which slots of a product are there.
struct TCoverage {
  std::filesystem::path Output;
  /// The times of the columns; empty when a column is the n-th slot of its day.
  std::vector<TDateTime::TSpan> Times;
  std::vector<TCoverageDay> Days;  ///< newest first; each has as many cells as there are columns

  std::size_t Columns() const { return Days.empty() ? 0 : Days.front().Cells.size(); }
  std::array<int, kCellStates> Counts() const;
};

/// What a coverage is made from.
struct TCoverageRequest {
  TDateTime Now;
  int Days = 7;  ///< today (UTC) and so many days less one before it
  std::filesystem::path Output;
  TExpectation Expected = {};
  std::vector<TSlotOutcome> Tries = {};  ///< in the order of their slots
  /// Absolute paths of files that the transfer ledger holds.
  std::unordered_set<std::string> Noted = {};
};

/// Puts together what should be there, what is on the disk, and what became of the last tries. Reads each
/// folder once, and no file. Without times of the day, the slots of the tries are expected as well. Then the
/// days share their columns by time if they have the same slots; otherwise columns count the slots of a day.
TCoverage MakeCoverage(TCoverageRequest request);

/// Takes over what the last try of a slot says; `there`: its file is on the disk.
void AddTry(TCoverageCell& cell, const TSlotOutcome& tried, bool there);

/// Reads sizes, and checks whether the files of a described source are whole. Without a source a file counts
/// as it did before.
void CheckFiles(TCoverageDay& day, const std::filesystem::path& output, const TDescription* source);

/// "2026-11-20: 141 of 144, missing 0310 0320 1450"; cut, failed and unknown slots have lists of their own.
std::string DayText(const TCoverageDay& day);

}  // namespace skyreel
