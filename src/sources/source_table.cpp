#include "sources/source_table.h"

#include "sources/dundee_pdus.h"
#include "sources/eu_archive.h"
#include "sources/eu_data.h"
#include "sources/goes_gsfc.h"
#include "sources/met_charts.h"
#include "sources/msfc_data.h"

namespace skyreel {

const std::vector<TSource>& Sources() {
  static const std::vector<TSource> sources = {
      {.Caption = "Live",
       .Page = "live",
       .OutputFolder = "Live",
       .Switches = {"-LIVE"},
       .ShownAtStart = true,
       .Described = true},
      {.Caption = "Weather data",
       .Page = "weather_data",
       .OutputFolder = "Bracknell",
       .Switches = {"-BRACK", "-MSLP", "-WEATHER"},
       .ShownAtStart = true,
       .NeedsVisibleTab = true,
       .Servers = MetChartServers(),
       .Offers = MetChartOffers},
      {.Caption = "Archive Direct",
       .Page = "archive_direct",
       .OutputFolder = "EumetsatArchiveDirect",
       .Switches = {"-EUAD"},
       .ShownAtStart = true,
       .NeedsVisibleTab = true,
       .NeedsLogin = true,
       .Servers = {kEuDataServer},
       .Offers = EuDataOffers,
       .SmallestFile = 1},
      {.Caption = "Dundee",
       .Page = "dundee",
       .OutputFolder = "Dundee",
       .Switches = {"-DUN"},
       .ShownAtStart = true,
       .Bound = true},
      {.Caption = "Eumetsat",
       .Page = "eumetsat",
       .OutputFolder = "EumetsatArchive",
       .Switches = {"-EUAR"},
       .ShownAtStart = true,
       .NeedsVisibleTab = true,
       .Servers = {kEuArchiveOldServer, kEuArchiveNewServer},
       .Offers = EuArchiveOffers,
       .ListingPage = EuArchiveListingPage,
       .SmallestFile = 10'000},
      {.Caption = "GMS-5", .Page = "gms5", .OutputFolder = "GMS5", .Bound = true},
      {.Caption = "GOES",
       .Page = "goes",
       .OutputFolder = "GOES",
       .Switches = {"-GOES", "-GSFC"},
       .ShownAtStart = true,
       .NeedsVisibleTab = true,
       .Servers = {kGoesServer},
       .Offers = GoesOffers,
       .SmallestFile = 2'000},
      {.Caption = "GSFC", .Page = "gsfc", .OutputFolder = "GOES", .NeedsVisibleTab = true},
      {.Caption = "MSFC",
       .Page = "msfc",
       .OutputFolder = "MSFC",
       .Switches = {"-MSFC"},
       .Servers = {kMsfcServer},
       .Offers = MsfcOffers,
       .SmallestFile = 1},
      {.Caption = "Nottingham", .Page = "nottingham", .OutputFolder = "Nottingham", .Bound = true},
      {.Caption = "PDUS",
       .Page = "pdus",
       .OutputFolder = "PDUS",
       .Switches = {"-PDUS"},
       .NeedsVisibleTab = true,
       .NeedsLogin = true,
       .Servers = {kPdusServer},
       .Offers = PdusOffers,
       .ListingPage = PdusOrderPage,
       .SmallestFile = kSmallestPdusProduct},
      {.Caption = "RSS Archive", .Page = "rss_archive", .OutputFolder = "EumetsatRSS", .Switches = {"-RSS"}},
      {.Caption = "Ulm",
       .Page = "ulm",
       .OutputFolder = "Ulm",
       .Switches = {"-ULM"},
       .NeedsVisibleTab = true,
       .Bound = true},
  };
  return sources;
}

}  // namespace skyreel
