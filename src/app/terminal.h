#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "app/signal_watcher.h"

namespace skyreel {

/// What the commands of the terminal need from outside.
struct TTerminal {
  std::filesystem::path SettingsFile;   ///< read, never written
  std::filesystem::path ProgramFolder;  ///< of the report
  std::filesystem::path JournalFile;
  std::filesystem::path Home;
  TSignalWatcher& Signals;                                ///< stop a run; a second one aborts its transfers
  std::function<std::string(const char* name)> Variable;  ///< of the environment; "" when unset
  std::function<void(const std::string& line)> Output;    ///< results and status lines
  std::function<void(const std::string& line)> ErrorOutput;     ///< what is wrong
  std::function<void(const std::string& document)> Document{};  ///< of --run: gets it as JSON
};

/// Carries out a command on the terminal. `unknown`: arguments that match nothing. Returns the exit code; see
/// TExitCode. Throws ERegistryError when the settings cannot be read.
int RunOnTerminal(const TTerminal& terminal, const TTerminalCommand& command,
                  const std::vector<std::string>& unknown);

}  // namespace skyreel
