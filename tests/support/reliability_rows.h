#pragma once

#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <string>

namespace skyreel::test {

/// Adds a row to the page docs/reliability.md, which scripts/reliability makes of what the tests saw; nothing
/// happens in an ordinary test run (SKYREEL_RELIABILITY_ROWS names no file). A row is one line: the section
/// of the page, a tab, "| fault | where | what the user sees | what is on disk | goes on |". Rows that differ
/// in `where` alone become one. All texts are what was observed; ports and temporary folders, which differ
/// from run to run, have no place in them.
inline void AddReliabilityRow(const std::string& section, const std::string& fault, const std::string& where,
                              const std::string& user_sees, const std::string& on_disk,
                              const std::string& goes_on) {
  const char* const file = std::getenv("SKYREEL_RELIABILITY_ROWS");
  if (file == nullptr) return;
  std::string row = section + "\t|";
  for (const std::string& cell : {fault, where, user_sees, on_disk, goes_on}) {
    row += cell.empty() ? " -" : " ";
    for (const char c : cell) {
      if (c == '|') row += '\\';
      row += static_cast<unsigned char>(c) < 0x20 ? '?' : c;
    }
    row += " |";
  }
  std::ofstream(file, std::ios::app) << row + '\n';
}

}  // namespace skyreel::test
