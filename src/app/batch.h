#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sources/source_table.h"

namespace skyreel {

/// What a batch does to the program.
class TBatchActions {
 public:
  virtual ~TBatchActions() = default;
  virtual void MinimiseApplication() = 0;
  /// Dials the default Internet connection without asking the user.
  virtual void Dial() = 0;
  virtual void HangUp() = 0;
  /// Shows the source's tab and presses its Run button; returns when the job has ended. `named` is false when
  /// only "-ALL" asked for it.
  virtual void PressRun(const TSource& source, bool named) = 0;
  /// The user or a signal asked the program to close: no further job may begin.
  virtual bool ClosePending() const = 0;
  /// All jobs have ended.
  virtual void BatchEnded() = 0;
  /// Sounds the bell if the user wants one after a batch.
  virtual void RingAfterBatch() = 0;
  virtual void CloseProgram() = 0;
};

/// Runs the batch that the arguments (without the program's name) ask for. For each argument it runs the
/// sources named, in the order of their tabs, each at most once in a batch. After the last argument "-CLOSE"
/// or "-ALL", wherever it stands, closes the program. A switch matches anywhere inside an argument and in
/// either letter case; "-ALL", "-MIN" and "-DIAL" match anywhere in the whole command line. It dials only if
/// `can_dial`.
void RunBatch(const std::vector<std::string>& arguments, bool can_dial, TBatchActions& actions);

/// Whether an argument matches a switch.
bool IsSwitch(std::string_view argument);

}  // namespace skyreel
