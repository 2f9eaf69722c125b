#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "transfer/fetch_plan.h"
#include "transfer/file_result.h"

namespace skyreel {

struct TTransferContext;

/// Files by what became of them, and the work behind them.
struct TRunCounts {
  std::int64_t New = 0, Present = 0, NotYet = 0, Missing = 0, Failed = 0;
  std::int64_t Bytes = 0;  ///< received
  double Seconds = 0;

  TRunCounts& operator+=(const TRunCounts& other);
  bool HasFiles() const { return New + Present + NotYet + Missing + Failed > 0; }
  /// "16 new, 398 present, 2 not yet, 1 missing, 0 failed; 10.1 MB in 42 s"; 1 MB is 1,000,000 bytes.
  std::string Text() const;
};

/// How a run ended.
enum class TRunEnd {
  Done,        ///< every wanted file was looked at
  Stopped,     ///< the user or a signal asked for it
  NotStarted,  ///< a setting or a hidden tab prevents it
  NoLogin,     ///< the user name or the password is missing
  Broken,      ///< an error ended the whole job
};

/// What one run of a source did.
struct TRunRecord {
  std::string Source;       ///< the tab's caption, or the id of a described source
  std::string Title{};      ///< for lines; empty: the source
  TDateTime Started;        ///< UTC
  bool KeepsFiles = false;  ///< Files is filled; a run may ask for many thousands
  std::vector<TFileResult> Files;
  TRunCounts Counts;
  TDateTime NewestPresent{};  ///< slot of the newest file that was present; zero when it is not known
  /// Servers that could not be reached or refused the login, each with what happened.
  std::vector<std::string> ServerProblems;
  TRunEnd End = TRunEnd::Done;
  std::string Reason;  ///< why the run is not Done

  const std::string& Name() const { return Title.empty() ? Source : Title; }
  /// The line that ends a run: the source, its counts, and why it ended early.
  std::string Line() const;
};

/// A file that the server does not have counts as not yet there for this long after its slot.
inline constexpr std::chrono::hours kMayStillCome{3};

/// Counts a file's end, sets its State, and shows it with its line at the display. A file that the server
/// does not have counts as not yet there for kMayStillCome, then as missing.
void EndFile(TTransferContext& context, TFileResult result, const std::string& line);

/// The same for a file whose State is set already.
void CountFile(TTransferContext& context, TFileResult result, const std::string& line);

/// Counts a file that is there already and good, so that it is not asked for.
void CountPresent(TTransferContext& context, TWantedFile file);

/// Adds a status line about a failure that costs more than one file, and counts it.
void ReportFailure(TTransferContext& context, const std::string& line);

/// Reports once a run that a server could not be reached or refused the login: "GOES: http://host refused the
/// connection". `address`: a URL at the server. `what` follows its name.
void ReportServerProblem(TTransferContext& context, const std::string& address, const std::string& what);

}  // namespace skyreel
