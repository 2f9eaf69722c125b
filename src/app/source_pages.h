#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "app/batch.h"

namespace skyreel {

class TFormMain;

/// The twelve sources, in the order of their tabs.
enum class TSource : std::size_t {
  WeatherData,
  ArchiveDirect,
  Dundee,
  Eumetsat,
  Gms5,
  Goes,
  Gsfc,
  Msfc,
  Nottingham,
  Pdus,
  RssArchive,
  Ulm
};

/// What the form, the batch and the View menu know about one source.
struct TSourcePage {
  const char* Caption;
  const char* Page;       ///< object name of the tab's page
  const char* RunButton;  ///< object names of its buttons
  const char* BrowseButton;
  const char* OutputPathEdit;  ///< object name of the edit of its output folder
  const char* OutputFolder;    ///< that folder at first, below "C:\" on Windows and below ~/Skyreel elsewhere
  const char* SwitchList;      ///< of the batch, upper case, as comma text
  bool ShownAtStart;
  bool NeedsVisibleTab;      ///< kept: the Run handler does nothing while the tab is hidden
  void (TFormMain::*Run)();  ///< nullptr: the program does not fetch from this source
};

/// One row per TSource, in that order.
const std::array<TSourcePage, 12>& SourcePages();
const TSourcePage& SourcePage(TSource source);

/// The page's switches, one by one.
std::vector<std::string> SwitchesOf(const TSourcePage& page);

/// The sources that have switches, in the order in which a batch runs them.
std::vector<TSource> BatchSources();
/// Their switches, row by row.
std::vector<TBatchGroup> BatchGroups();

}  // namespace skyreel
