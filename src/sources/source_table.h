#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sources/offer.h"
#include "sources/server_roots.h"

namespace skyreel {

/// One source: a tab of the window. All that the program knows about a source stands in its row, in its job's
/// unit and in its page.
struct TSource {
  const char* Caption;  ///< of its tab
  const char* Page;     ///< app/pages/<Page>.ui is its page
  /// The output folder at first, below "C:\" on Windows and below ~/Skyreel elsewhere.
  const char* OutputFolder;
  std::vector<std::string> Switches = {};  ///< of the batch, upper case
  bool ShownAtStart = false;
  bool NeedsVisibleTab = false;  ///< kept: Run does nothing while the tab is hidden
  bool NeedsLogin = false;       ///< a run needs a user name and a password
  /// The servers that its job asks. A source without any, and neither Described nor Bound, has no job: the
  /// program only keeps its settings.
  std::vector<TServerSetting> Servers = {};
  /// What the servers have of one day, for the demo archive. A file whose path names the day before may be
  /// among it.
  std::vector<TOffer> (*Offers)(TDateTime day) = nullptr;
  /// The server's page that lists these offers.
  std::string (*ListingPage)(const std::vector<TOffer>& offers) = nullptr;

  /// Bytes of its smallest whole file. 0: no file can be fetched anew by its address alone.
  std::int64_t SmallestFile = 0;

  bool Described = false;  ///< it runs the sources that files describe; "-ALL" leaves it out

  /// Its service has closed. Described sources that name its tab give its pictures today.
  bool Bound = false;

  bool HasJob() const { return Described || Bound || !Servers.empty(); }
};

/// All sources, in the order of their tabs.
const std::vector<TSource>& Sources();

}  // namespace skyreel
