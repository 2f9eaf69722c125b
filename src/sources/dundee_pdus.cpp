#include "sources/dundee_pdus.h"

#include <algorithm>
#include <array>
#include <set>
#include <unordered_set>
#include <utility>

#include "base/exceptions.h"
#include "base/files.h"
#include "base/scope.h"
#include "base/text.h"
#include "net/nm_http.h"
#include "transfer/http_fetch.h"
#include "transfer/run_record.h"
#include "transfer/transfer_ledger.h"

namespace skyreel {

namespace {

/// One page in short: times, each followed by the letters of its channels (I, V, W).
struct TPageTable {
  const char* Caption;
  const char* Area;
  const char* Times;  ///< nullptr: every half hour in all channels
  double Longitude;   ///< degrees east, below the satellite
};

constexpr TPageTable kPages[] = {
    {"Europe", "Meteosat Europe", nullptr, 0},
    {"Met 7", "Meteosat Earth", nullptr, 0},
    {"GMS", "GMS", "0000IV 0300IV 0600IV 0900IV 1200I 1500I 1800I 2100IV", 140},
    {"GOES-E", "GOES-E", "0000I 0300I 0600I 0900I 1200IV 1500IV 1800IV 2100IV", -75},
    {"GOES-W", "GOES-W", "0030IV 0330IV 0630I 0930I 1230I 1530IV 1830IV 2130IV", -135},
    {"Indian Ocean", "INDOEX",
     "0000I 0100I 0200IV 0230W 0300IV 0400IV 0500IV 0530W 0600IV 0700IV 0800IV 0830W 0900IV 1000IV 1100IV "
     "1230IVW 1300IV 1400IV 1430W 1500I 1530V 1600IV 1700IV 1730W 1800IV 1900I 2000I 2030W 2100I 2200I 2300I "
     "2330W",
     63},
};

std::string EveryHalfHour() {
  std::string times;
  for (TDateTime time; time < TDateTime() + std::chrono::days(1); time = time + std::chrono::minutes(30)) {
    times += FormatDateTime("hhnn", time) + "IVW ";
  }
  return times;
}

const char* ChannelName(char letter) {
  return letter == 'I' ? "Infra-Red" : letter == 'V' ? "Visible" : "Water Vapour";
}

TPdusPage MakePage(const TPageTable& table) {
  TPdusPage page{table.Caption, {}};
  std::string time;
  for (const char c : table.Times != nullptr ? table.Times : EveryHalfHour()) {
    if (c == ' ') {
      time.clear();
    } else if (c >= '0' && c <= '9') {
      time += c;
    } else {
      page.Items.push_back(time + ", " + table.Area + ", " + ChannelName(c));
    }
  }
  return page;
}

constexpr const char* kOrderPage = "/abin/filesorder?s=Date";

/// No product is smaller, so a smaller announced size is a sign of a cut file.

/// How many refused entries of a page are named one by one.
constexpr std::size_t kRefusalsNamed = 20;
/// How many characters of a refused entry's link are kept.
constexpr std::size_t kLinkKept = 1000;

/// Server text, shortened for a status line.
std::string Shortened(std::string_view text) {
  std::string line;
  for (const char c : text.substr(0, 120)) line += HasControlCharacter({&c, 1}) ? '?' : c;
  return text.size() > 120 ? line + "..." : line;
}

/// Why a link's target may not be fetched; empty when it may. The target is added to the server's root, so
/// only a path keeps the request on that server.
std::string LinkRefusal(std::string_view target) {
  if (HasControlCharacter(target) || target.find(' ') != std::string_view::npos)
    return "blank or control character in the link";
  if (!target.starts_with("/") || target.starts_with("//")) return "link leads away from the server";
  return "";
}

std::string ProductName(std::string_view target) {
  const std::size_t equals = target.find('=');
  if (equals != std::string_view::npos) target.remove_prefix(equals + 1);
  std::string name = UpperCase(target.substr(0, target.find('&')));
  if (name.starts_with("PDUS")) name.erase(0, 4);
  return name;
}

/// Takes one matching line of the order page.
void AddEntry(TPdusOrder& order, std::string_view line, const std::string& root) {
  const std::size_t open = line.find('"');
  if (open == std::string_view::npos) return;
  line.remove_prefix(open + 1);
  const std::size_t close = line.find('"');
  if (close == std::string_view::npos) return;
  const std::string_view target = line.substr(0, close);

  std::string name = ProductName(target);
  std::string refusal = LinkRefusal(target);
  const bool safe = IsSafeFileName(name) && IsSafeFileName(name + ".pdu.part");
  if (refusal.empty() && !safe) refusal = "unsafe file name";
  if (refusal.empty()) {
    order.Entries.push_back({root + std::string(target), std::move(name)});
    return;
  }
  ++order.RefusedCount;
  if (order.Refused.size() < kRefusalsNamed)
    order.Refused.push_back({std::string(target.substr(0, kLinkKept)), std::move(refusal)});
}

/// The text by which products are sorted: area, then time, then channel.
std::string SortKey(const std::string& product) {
  std::array<std::string, 3> fields;
  std::size_t field = 0;
  for (const char c : UpperCase(product)) {
    if (c == ',') {
      if (++field == fields.size()) break;
    } else {
      fields[field] += c == ' ' ? '_' : c;
    }
  }
  return fields[1] + fields[0] + fields[2];
}

std::string PdusLine(const TFileResult& result) {
  if (result.Outcome == TFileOutcome::Saved || result.Outcome == TFileOutcome::NotSaved)
    return PictureLine(result);
  return result.Name + " - incomplete?";
}

}  // namespace

const std::vector<TPdusPage>& PdusPages() {
  static const std::vector<TPdusPage> pages = [] {
    std::vector<TPdusPage> made;
    for (const TPageTable& table : kPages) made.push_back(MakePage(table));
    return made;
  }();
  return pages;
}

std::vector<std::string> PdusWantedTexts(const std::vector<std::string>& items) {
  std::vector<std::string> texts;
  for (const std::string& item : items) texts.push_back(ReplaceAll(item, "INDOEX", "IODC"));
  return texts;
}

bool ListHasEntryIn(std::string_view text, const std::vector<std::string>& list) {
  return std::any_of(list.begin(), list.end(), [&](const std::string& entry) {
    return !entry.empty() && text.find(entry) != std::string_view::npos;
  });
}

TEntryFinder::TEntryFinder(std::vector<std::string> list) {
  std::sort(list.begin(), list.end());
  for (std::string& entry : list) {
    // A text that holds an entry also holds its beginning, so the shorter entry is enough.
    if (entry.empty() || (!entries_.empty() && entry.starts_with(entries_.back()))) continue;
    first_bytes_[static_cast<unsigned char>(entry.front())] = true;
    entries_.push_back(std::move(entry));
  }
}

bool TEntryFinder::HasEntryIn(std::string_view text) const {
  for (; !text.empty(); text.remove_prefix(1)) {
    if (!first_bytes_[static_cast<unsigned char>(text.front())]) continue;
    // No entry begins with another one. So if `text` begins with an entry, that entry is the last one that is
    // not sorted after `text`.
    const auto after = std::upper_bound(entries_.begin(), entries_.end(), text);
    if (after != entries_.begin() && text.starts_with(*std::prev(after))) return true;
  }
  return false;
}

TDateTime PdusNameToDateTime(std::string_view name) {
  int pairs[5];
  for (std::size_t i = 0; i < 5; ++i) {
    const std::string_view pair = name.substr(std::min(2 * i, name.size()), 2);
    if (pair.size() != 2 || pair.find_first_not_of("0123456789") != std::string_view::npos) return {};
    pairs[i] = ToInteger(pair);
  }
  try {
    return TDateTime::FromDate(pairs[0] + (pairs[0] < 57 ? 2000 : 1900), pairs[1], pairs[2], pairs[3],
                               pairs[4]);
  } catch (const EConvertError&) {
    return {};
  }
}

std::filesystem::path PdusLocalPath(const std::string& output_path, const std::string& name) {
  const TDateTime time = PdusNameToDateTime(name);
  const std::filesystem::path folder = output_path;
  return (time.IsZero() ? folder : folder / DateFolder(time)) / name;
}

TPdusOrder ParseOrderPage(std::string_view page, const std::string& root,
                          const std::vector<std::string>& wanted) {
  const TEntryFinder finder(wanted);
  TPdusOrder order;
  ForEachLine(page, [&](std::string_view line) {
    if (line.find("/pdus") != std::string_view::npos && finder.HasEntryIn(line)) AddEntry(order, line, root);
  });
  std::reverse(order.Entries.begin(), order.Entries.end());
  return order;
}

std::vector<TOffer> PdusOffers(TDateTime day) {
  std::vector<TOffer> offers;
  char area = 'A';
  for (const TPageTable& table : kPages) {
    for (const std::string& item : PdusWantedTexts(MakePage(table).Items)) {
      const TDateTime time = day.Midnight() + std::chrono::hours(ToInteger(item.substr(0, 2))) +
                             std::chrono::minutes(ToInteger(item.substr(2, 2)));
      const char channel = item[item.rfind(", ") + 2];
      TOffer offer{"/abin/pdus?name=PDUS" + FormatDateTime("yymmddhhnn", time) + area + channel, time, item,
                   TOffer::PictureOf(channel)};
      offer.Width = 1250;
      offer.Height = 712;
      offer.DataSize = kSmallestPdusProduct;
      offer.Longitude = table.Longitude;
      offer.Zoom = area == 'A' ? 2 : 1;
      offer.ListedAt = kOrderPage;
      offers.push_back(std::move(offer));
    }
    ++area;
  }
  return offers;
}

std::string PdusOrderPage(const std::vector<TOffer>& offers) {
  std::string page = "<html><head><title>Files by date</title></head><body><pre>\n";
  for (const TOffer& offer : offers) {
    page += "<a href=\"" + offer.Path + "&order=Date\">" + FormatDateTime("dd/mm/yyyy", offer.Time) + " at " +
            offer.Title + "</a>\n";
  }
  return page + "</pre></body></html>\n";
}

void AnalysePdus(const std::filesystem::path& program_folder, const std::filesystem::path& current_folder) {
  std::set<std::string> found;
  for (int n = 1;; ++n) {
    const std::string number = std::to_string(n);
    const std::string digits = std::string(4 - std::min<std::size_t>(4, number.size()), '0') + number;
    const std::filesystem::path path = program_folder / ("_PdusList" + digits + ".txt");
    if (!std::filesystem::exists(path)) break;
    for (std::string_view line : SplitLines(ReadWholeFile(path))) {
      // The page's footnote on its first image carries that date.
      if (line.find("/pdus?") == std::string_view::npos || line.find("01/11/1993") != std::string_view::npos)
        continue;
      const std::size_t at = line.find(" at ");
      if (at == std::string_view::npos) continue;
      const std::string_view kept = line.substr(0, line.find("</a"));
      if (kept.size() > at + 4) found.emplace(kept.substr(at + 4));
    }
  }
  std::vector<std::string> products(found.begin(), found.end());
  std::stable_sort(products.begin(), products.end(),
                   [](const std::string& a, const std::string& b) { return SortKey(a) < SortKey(b); });
  std::string text;
  for (const std::string& product : products) text += product + "\n";
  WriteFileWhole(current_folder / "_all_pdus.txt", text);
}

TPdusJob::TPdusJob(TJobContext& context, TPdusSettings settings)
    : context_(context), settings_(std::move(settings)) {}

void TPdusJob::Run() {
  // Taken back at the end, so that no other source's server gets them.
  const TScopedValue user(context_.NMHTTP.HeaderInfo.UserId, settings_.UserName);
  const TScopedValue password(context_.NMHTTP.HeaderInfo.Password, settings_.Password);
  context_.Display.SetPanel(0, "Dundee PDUS");

  const std::vector<TPdusOrder::TEntry> entries = GetOrder();
  if (entries.empty()) {
    context_.Display.SetPanel(1, "No new files found");
    return;
  }
  std::unordered_set<std::string_view> asked;  // a page may repeat a link thousands of times
  for (const TPdusOrder::TEntry& entry : entries) {
    if (context_.Run.StopRequested()) break;
    if (asked.insert(entry.Url).second) Fetch(entry.Url, entry.Name);
  }
  context_.Display.SetPanel(1, "All files done");
}

std::vector<TPdusOrder::TEntry> TPdusJob::GetOrder() {
  const std::string root = context_.Servers.Root(kPdusServer);
  const THttpPage page =
      GetHttpPage(context_, context_.NMHTTP, root + kOrderPage, "Getting available PDUS data list...");
  context_.Display.SetPanel(1, "Parsing file list");
  // A refused login has its line already.
  if (page.ReplyCode == 401) return {};
  if (!page.Reason.empty()) ReportFailure(context_, "Dundee PDUS file list - " + page.Reason);
  // An error page lists nothing.
  if (page.ReplyCode < 200 || page.ReplyCode > 298) return {};

  TPdusOrder order = ParseOrderPage(page.Text, root, PdusWantedTexts(settings_.Wanted));
  for (const auto& [link, reason] : order.Refused) {
    const std::string shown = Shortened(WithoutSecrets(link, settings_.UserName, settings_.Password));
    ReportFailure(context_, shown + " - refused: " + reason);
  }
  if (const std::size_t more = order.RefusedCount - order.Refused.size(); more > 0) {
    context_.Record.Counts.Failed += static_cast<std::int64_t>(more);
    context_.Display.AddStatusLine("... and " + std::to_string(more) + " more refused");
  }
  return std::move(order.Entries);
}

void TPdusJob::Fetch(const std::string& url, const std::string& name) {
  THttpFileRequest file;
  file.Url = url;
  file.Name = name + ".pdu";
  file.GetLine = "Get: " + file.Name;
  file.KeepGetLine = true;
  file.SlotTime = PdusNameToDateTime(name);
  file.LocalPath = PdusLocalPath(settings_.OutputPath, file.Name);
  THttpFileInfo info;
  try {
    info = AskHttpFileInfo(context_, url, file.Wanted());
  } catch (const std::exception&) {
    // The size stays unknown, and an existing file stays as it is.
  }
  // The length of an error page says nothing about the product.
  const std::int64_t size = info.ReplyCode < 400 ? info.ContentLength : 0;

  const std::filesystem::path& path = file.LocalPath;
  if (context_.Ledger.Present(path) && (size <= 0 || FileSizeOf(path) == size))
    return CountPresent(context_, file.Wanted());

  const bool believable = size >= kSmallestPdusProduct;
  file.Delivery = TDelivery::Direct;
  file.GoodSize = kSmallestPdusProduct;
  file.CompleteSize = size;
  file.Stamp = believable;
  file.AfterSaving = [&](TFileResult& result) {
    if (believable && result.Bytes == size) return;
    result.Outcome = TFileOutcome::Incomplete;
    result.Reason = "the server announced " + std::to_string(size) + " bytes";
  };
  file.Line = PdusLine;
  FetchHttpFile(context_, file);
}

}  // namespace skyreel
