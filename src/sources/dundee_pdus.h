#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "sources/job_context.h"
#include "sources/offer.h"

namespace skyreel {

inline constexpr TServerSetting kPdusServer{"ServerDundeePdus", "Dundee PDUS", "http://www.sat.dundee.ac.uk"};

/// Bytes.
inline constexpr std::int64_t kSmallestPdusProduct = 890120;

/// What the "PDUS" tab asks for.
struct TPdusSettings {
  std::string OutputPath;  ///< with its trailing separator
  std::string UserName;
  std::string Password;
  std::vector<std::string> Wanted;  ///< the ticked items of all pages, in page order
};

/// One page of the product choice: its caption and its items ("0030, Meteosat Europe, Visible").
struct TPdusPage {
  std::string Caption;
  std::vector<std::string> Items;
};

/// The six pages, in their order.
const std::vector<TPdusPage>& PdusPages();

/// The item texts as the order page writes them: "INDOEX" became "IODC".
std::vector<std::string> PdusWantedTexts(const std::vector<std::string>& items);

/// True when some entry of `list` occurs in `text`.
bool ListHasEntryIn(std::string_view text, const std::vector<std::string>& list);

/// Answers ListHasEntryIn for one list and many texts, in a time that hardly grows with the list.
class TEntryFinder {
 public:
  explicit TEntryFinder(std::vector<std::string> list);
  bool HasEntryIn(std::string_view text) const;

 private:
  std::vector<std::string> entries_;  ///< sorted, none the beginning of another
  bool first_bytes_[256] = {};
};

/// The image time in a product's name ("0207011230..." is 1 July 2002, 12:30; years 57 to 99 are 1957 to
/// 1999); zero when the first ten characters are not a valid date.
TDateTime PdusNameToDateTime(std::string_view name);

/// Where a product is filed: in the date folder of its time, or in the output folder itself when its name
/// holds no time.
std::filesystem::path PdusLocalPath(const std::string& output_path, const std::string& name);

/// What an order page offers of the wanted products.
struct TPdusOrder {
  struct TEntry {
    std::string Url;
    std::string Name;  ///< without ".pdu"; one safe path component
  };
  struct TRefusal {
    std::string Link;
    std::string Reason;
  };
  std::vector<TEntry> Entries;    ///< the last one of the page first
  std::vector<TRefusal> Refused;  ///< the first refused entries
  std::size_t RefusedCount = 0;   ///< all refused entries
};

/// Reads an order page: lines that hold "/pdus" and a wanted text, their link the first text in double
/// quotes, the product's name the link's first parameter. A link that leads away from the server `root`
/// ("http://host") and an unsafe file name refuse the entry. Never fails.
TPdusOrder ParseOrderPage(std::string_view page, const std::string& root,
                          const std::vector<std::string>& wanted);

/// The station's products of one day, and its order page.
std::vector<TOffer> PdusOffers(TDateTime day);
std::string PdusOrderPage(const std::vector<TOffer>& offers);

/// Developer's tool: reads saved order pages "_PdusList0001.txt", "_PdusList0002.txt", ... from the program's
/// folder and writes the products that they list, sorted by area, time and channel, to "_all_pdus.txt" in
/// `current_folder`. Throws std::system_error when a file cannot be read or written.
void AnalysePdus(const std::filesystem::path& program_folder, const std::filesystem::path& current_folder);

/// Fetches the wanted products that the station's order page offers, each link once.
class TPdusJob {
 public:
  TPdusJob(TJobContext& context, TPdusSettings settings);
  /// Runs to the end or until a stop is requested. Never throws for a product that fails.
  void Run();

 private:
  std::vector<TPdusOrder::TEntry> GetOrder();
  void Fetch(const std::string& url, const std::string& name);

  TJobContext& context_;
  const TPdusSettings settings_;
};

}  // namespace skyreel
