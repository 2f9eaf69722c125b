#pragma once

#include <cstddef>
#include <vector>

#include "catalogue/field_text.h"

namespace skyreel {

/// Calls take(const TCombination&) with each combination of these rows of the variables, the last variable
/// fastest, until it returns false. Without a variable there is one combination; one without rows gives none.
template <typename TTake>
void ForEachCombination(const std::vector<std::vector<std::size_t>>& rows, TTake take) {
  for (const auto& choice : rows) {
    if (choice.empty()) return;
  }
  std::vector<std::size_t> at(rows.size());
  TCombination combination(rows.size());
  for (;;) {
    for (std::size_t i = 0; i < rows.size(); ++i) combination[i] = rows[i][at[i]];
    if (!take(combination)) return;
    std::size_t turn = rows.size();
    while (turn > 0 && ++at[turn - 1] == rows[turn - 1].size()) at[--turn] = 0;
    if (turn == 0) return;
  }
}

}  // namespace skyreel
