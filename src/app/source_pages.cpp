#include "app/source_pages.h"

#include "app/main_form.h"

namespace skyreel {

const std::array<TSourcePage, 12>& SourcePages() {
  using F = TFormMain;
  // Caption, page, Run and Browse button, switches, shown at start, needs a visible tab, Run handler.
  static const std::array<TSourcePage, 12> pages = {{
      {"Weather data",
       "TabSheetBracknell",
       "ButtonRunBracknell",
       "ButtonBrowseBracknell",
       {"-BRACK", "-MSLP", "-WEATHER"},
       true,
       true,
       &F::ButtonRunBracknellClick},
      {"Archive Direct",
       "TabSheetEuArDirect",
       "ButtonRunEuDA",
       "ButtonBrowseEuDA",
       {"-EUAD"},
       true,
       true,
       &F::ButtonRunEuDAClick},
      {"Dundee",
       "TabSheetDundee",
       "ButtonRunDundeeImg",
       "ButtonBrowseDundeeImg",
       {"-DUN"},
       true,
       false,
       nullptr},
      {"Eumetsat",
       "TabSheetEuArchive",
       "ButtonRunEuArchive",
       "ButtonBrowseEuArchive",
       {"-EUAR"},
       true,
       true,
       &F::ButtonRunEuArchiveClick},
      {"GMS-5", "TabSheetGms5", "ButtonRunGms5", "ButtonBrowseGms5", {}, false, false, nullptr},
      {"GOES",
       "TabSheetGOES",
       "ButtonRunGOES",
       "ButtonBrowseGOES",
       {"-GOES", "-GSFC"},
       true,
       true,
       &F::ButtonRunGOESClick},
      {"GSFC", "TabSheetGsfc2", "ButtonRunGsfc2", "ButtonBrowseGsfc2", {}, false, true, nullptr},
      {"MSFC",
       "TabSheetMsfc",
       "ButtonRunMSFC",
       "ButtonBrowseMSFC",
       {"-MSFC"},
       false,
       false,
       &F::ButtonRunMSFCClick},
      {"Nottingham", "TabSheetNotts", "ButtonRunNotts", "ButtonBrowseNotts", {}, false, false, nullptr},
      {"PDUS",
       "TabSheetPDUS",
       "ButtonRunDundeePdus",
       "ButtonBrowseDundeePdus",
       {"-PDUS"},
       false,
       true,
       &F::ButtonRunDundeePdusClick},
      {"RSS Archive", "TabSheetRss", "ButtonRunRss", "ButtonBrowseRss", {"-RSS"}, false, false, nullptr},
      {"Ulm", "TabSheetUlm", "ButtonRunUlm", "ButtonBrowseUlm", {"-ULM"}, false, true, nullptr},
  }};
  return pages;
}

const TSourcePage& SourcePage(TSource source) {
  return SourcePages().at(static_cast<std::size_t>(source));
}

std::vector<TSource> BatchSources() {
  std::vector<TSource> sources;
  for (std::size_t i = 0; i < SourcePages().size(); ++i) {
    if (!SourcePages()[i].Switches.empty()) sources.push_back(static_cast<TSource>(i));
  }
  return sources;
}

std::vector<TBatchGroup> BatchGroups() {
  std::vector<TBatchGroup> groups;
  for (const TSource source : BatchSources()) groups.push_back({SourcePage(source).Switches});
  return groups;
}

}  // namespace skyreel
