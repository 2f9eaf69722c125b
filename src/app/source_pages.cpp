#include "app/source_pages.h"

#include "app/main_form.h"
#include "base/comma_text.h"

namespace skyreel {

const std::array<TSourcePage, 12>& SourcePages() {
  using F = TFormMain;
  // Caption, page, Run and Browse button, output folder, switches, shown at start, needs a visible tab, Run
  // handler. GOES and GSFC share a folder.
  static constexpr std::array<TSourcePage, 12> pages = {{
      {"Weather data", "TabSheetBracknell", "ButtonRunBracknell", "ButtonBrowseBracknell",
       "EditOutputPathBracknell", "Bracknell", "-BRACK,-MSLP,-WEATHER", true, true,
       &F::ButtonRunBracknellClick},
      {"Archive Direct", "TabSheetEuArDirect", "ButtonRunEuDA", "ButtonBrowseEuDA", "EditOutputPathEuDA",
       "EumetsatArchiveDirect", "-EUAD", true, true, &F::ButtonRunEuDAClick},
      {"Dundee", "TabSheetDundee", "ButtonRunDundeeImg", "ButtonBrowseDundeeImg", "EditOutputPathDundeeImg",
       "Dundee", "-DUN", true, false, nullptr},
      {"Eumetsat", "TabSheetEuArchive", "ButtonRunEuArchive", "ButtonBrowseEuArchive",
       "EditOutputPathEuArchive", "EumetsatArchive", "-EUAR", true, true, &F::ButtonRunEuArchiveClick},
      {"GMS-5", "TabSheetGms5", "ButtonRunGms5", "ButtonBrowseGms5", "EditOutputPathGMS5", "GMS5", "", false,
       false, nullptr},
      {"GOES", "TabSheetGOES", "ButtonRunGOES", "ButtonBrowseGOES", "EditOutputPathGsfc", "GOES",
       "-GOES,-GSFC", true, true, &F::ButtonRunGOESClick},
      {"GSFC", "TabSheetGsfc2", "ButtonRunGsfc2", "ButtonBrowseGsfc2", "EditOutputPathGsfc2", "GOES", "",
       false, true, nullptr},
      {"MSFC", "TabSheetMsfc", "ButtonRunMSFC", "ButtonBrowseMSFC", "EditOutputPathMSFC", "MSFC", "-MSFC",
       false, false, &F::ButtonRunMSFCClick},
      {"Nottingham", "TabSheetNotts", "ButtonRunNotts", "ButtonBrowseNotts", "EditOutputPathNotts",
       "Nottingham", "", false, false, nullptr},
      {"PDUS", "TabSheetPDUS", "ButtonRunDundeePdus", "ButtonBrowseDundeePdus", "EditOutputPathDundeePdus",
       "PDUS", "-PDUS", false, true, &F::ButtonRunDundeePdusClick},
      {"RSS Archive", "TabSheetRss", "ButtonRunRss", "ButtonBrowseRss", "EditOutputPathRss", "EumetsatRSS",
       "-RSS", false, false, nullptr},
      {"Ulm", "TabSheetUlm", "ButtonRunUlm", "ButtonBrowseUlm", "EditOutputPathUlm", "Ulm", "-ULM", false,
       true, nullptr},
  }};
  return pages;
}

const TSourcePage& SourcePage(TSource source) {
  return SourcePages().at(static_cast<std::size_t>(source));
}

std::vector<std::string> SwitchesOf(const TSourcePage& page) {
  return FromCommaText(page.SwitchList);
}

std::vector<TSource> BatchSources() {
  std::vector<TSource> sources;
  for (std::size_t i = 0; i < SourcePages().size(); ++i) {
    if (*SourcePages()[i].SwitchList != '\0') sources.push_back(static_cast<TSource>(i));
  }
  return sources;
}

std::vector<TBatchGroup> BatchGroups() {
  std::vector<TBatchGroup> groups;
  for (const TSource source : BatchSources()) groups.push_back({SwitchesOf(SourcePage(source))});
  return groups;
}

}  // namespace skyreel
