#pragma once

#include <cstddef>
#include <string>

#include "catalogue/description.h"

namespace skyreel {

// The rules of a description that look at several of its words. Each gives the problem in plain words, or an
// empty text when all is well.

inline constexpr std::size_t kMostCombinations = 100'000;
inline constexpr int kMostTiles = 64;             ///< across, and down
inline constexpr int kLargestTile = 999'999'999;  ///< of the first column or row

/// How many combinations the variables have; a number above kMostCombinations stands for any such.
std::size_t CountCombinations(const TDescription& source);

/// Scheme and host must stand in the description for every combination, unless the address begins with a text
/// of the server.
std::string AddressStartProblem(const TDescription& source, const TFieldText& url);

/// The text must fill to a number from `least` to `most` for every combination. The problem continues the
/// word's name: " must be …".
std::string NumberProblem(const TDescription& source, const TFieldText& text, int least, int most);

/// Every part of the folder must be a safe component.
std::string FolderProblem(const TDescription& source);
/// The name must be a safe component.
std::string NameProblem(const TDescription& source);
/// Two slots must not have the same folder and name.
std::string SlotsProblem(const TDescription& source);
/// Two combinations must not have the same folder and name, letter case ignored.
std::string CombinationsProblem(const TDescription& source);
/// The extension of the name must fit the type of every way, or be one that a picture can be written anew as.
std::string FormatProblem(const TDescription& source);

}  // namespace skyreel
