#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace skyreel {

/// One job group of a batch.
struct TBatchGroup {
  /// Any of these (upper case), anywhere inside an argument, names the group.
  std::vector<std::string> Switches;
};

/// What a batch does to the program. The main form does it; tests record it.
class TBatchActions {
 public:
  virtual ~TBatchActions() = default;
  virtual void MinimiseApplication() = 0;
  /// Dials the default Internet connection, unattended; hangs it up.
  virtual void Dial() = 0;
  virtual void HangUp() = 0;
  /// Shows the group's tab and presses its Run button; returns when the job has ended. `named` is false
  /// when only "-ALL" asked for it.
  virtual void PressRun(std::size_t group, bool named) = 0;
  /// The user (or a signal) asked the program to close: no further job may begin.
  virtual bool ClosePending() const = 0;
  /// Sounds the bell that rings after a batch, if the user wants one.
  virtual void RingAfterBatch() = 0;
  virtual void CloseProgram() = 0;
};

/// Runs the batch that the arguments (without the program's name) ask for: the groups one after the other, in
/// their own order for each argument, each at most once; "-CLOSE" (or "-ALL") then closes the program.
/// Switches match in either letter case and anywhere inside an argument; "-ALL", "-MIN" and "-DIAL" are
/// looked for in the whole command line. Dialling is left out unless `can_dial`.
void RunBatch(const std::vector<std::string>& arguments, const std::vector<TBatchGroup>& groups,
              bool can_dial, TBatchActions& actions);

/// Whether an argument asks for anything that a batch does.
bool IsBatchArgument(std::string_view argument, const std::vector<TBatchGroup>& groups);

}  // namespace skyreel
