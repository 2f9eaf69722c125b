#pragma once

#include <string>
#include <vector>

#include "transfer/run_record.h"

namespace skyreel {

/// The exit codes of a batch. The first that applies counts, in the order of this list.
enum class TExitCode {
  Signal = 5,           ///< a signal ended the program
  NotStarted = 1,       ///< the program or a source that was named could not start
  UnknownArgument = 2,  ///< an argument matches no switch
  ServerProblem = 4,    ///< a server could not be reached or refused the login, or a login is missing
  FileFailed = 3,
  Done = 0,
};

/// What a batch did.
struct TBatchRecord {
  TDateTime Started;  ///< UTC
  std::vector<TRunRecord> Runs;
  std::vector<std::string> UnknownArguments;
  bool Signal = false;
  bool SideBySide = false;  ///< the runs shared their time

  TRunCounts Total() const;
  /// The line that ends a batch.
  std::string Line() const { return "Batch: " + Total().Text(); }
  TExitCode ExitCode() const;
  /// The batch as one JSON document, described in docs/report.schema.json.
  std::string Json(TDateTime ended) const;
};

}  // namespace skyreel
