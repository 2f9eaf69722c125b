#include "sources/eu_archive.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <unordered_set>
#include <utility>

#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"
#include "net/nm_http.h"
#include "sources/slot_walk.h"
#include "sources/wanted_names.h"
#include "transfer/folder_maker.h"
#include "transfer/http_fetch.h"
#include "transfer/run_record.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kImageFolder = "/~idds/images/out/";
/// A picture is asked for when its slot began longer ago than this.
constexpr std::chrono::minutes kPublishingDelay{40};

/// The meaning of an item's first letter at the servers.
struct TChannel {
  char Letter;
  int OldSatellite;          ///< 7, 5 for Meteosat-7's old place
  int OldChannel;            ///< 1 visible, 2 infra-red, 3 water vapour
  const char* OldWholeDisc;  ///< what the old server calls the whole disc; nullptr: the item's own name
  const char* NewName;
  bool Product;  ///< a colour product
};

constexpr std::array<TChannel, 10> kChannels = {{
    {'C', 7, 1, nullptr, "VIS006", false},
    {'D', 7, 2, nullptr, "IR_108", false},
    {'E', 7, 3, nullptr, "WV_062", false},
    {'F', 7, 0, nullptr, "IR_039", false},  // the old server has none
    {'H', 5, 1, "CTOT", "VIS", false},
    {'I', 5, 2, "DTOT", "IR", false},
    {'J', 5, 3, "ETOT", "WV", false},
    {'M', 7, 2, nullptr, "AIR", true},
    {'O', 7, 2, nullptr, "FOG", true},
    {'U', 7, 2, nullptr, "DUST", true},
}};

const TChannel* ChannelOf(std::string_view item) {
  const auto channel = std::find_if(kChannels.begin(), kChannels.end(),
                                    [&](const TChannel& c) { return !item.empty() && item[0] == c.Letter; });
  return channel == kChannels.end() ? nullptr : &*channel;
}

char SectorOf(std::string_view item) {
  return item.size() > 1 ? item[1] : ' ';
}

std::string_view OldName(std::string_view item, const TChannel& channel) {
  return channel.OldWholeDisc ? channel.OldWholeDisc : item;
}

std::vector<std::string> Items(std::string_view letters, const char* suffix) {
  std::vector<std::string> items;
  for (const char letter : letters) {
    for (char digit = '1'; digit <= '9'; ++digit) items.push_back(std::string{letter, digit} + suffix);
  }
  return items;
}

void AppendTwoDigits(std::string& text, int number) {
  text += static_cast<char>('0' + number / 10);
  text += static_cast<char>('0' + number % 10);
}

/// The images of every `step`-th slot: the remote name is `before`, the slot's time as "hhnn", `after`.
std::vector<TEuArchiveImage> SlotImages(std::string_view item, TDateTime day, int step,
                                        std::string_view before, std::string_view after) {
  const TDateTime midnight = day.Midnight();
  std::vector<TEuArchiveImage> images(static_cast<std::size_t>((kSlotsPerDay + step - 1) / step));
  int slot = 0;
  for (TEuArchiveImage& image : images) {
    image.RemoteName.reserve(before.size() + 4 + after.size());
    image.RemoteName = before;
    AppendTwoDigits(image.RemoteName, slot / 2);
    image.RemoteName += slot % 2 == 0 ? "00" : "30";
    image.RemoteName += after;
    image.LocalName = item;
    image.LocalName += '_';
    AppendTwoDigits(image.LocalName, slot);
    image.Time = midnight + slot * kSlotLength;
    slot += step;
  }
  return images;
}

}  // namespace

const std::vector<std::string>& EuArchiveSectorItems() {
  static const std::vector<std::string> items = [] {
    std::vector<std::string> list = Items("C", "D");
    for (std::string& item : Items("DEF", "")) list.push_back(std::move(item));
    for (const char letter : std::string_view("CDEFHIJ")) list.push_back(letter + std::string("TOT"));
    return list;
  }();
  return items;
}

const std::vector<std::string>& EuArchiveProductItems() {
  static const std::vector<std::string> items = Items("MOU", "");
  return items;
}

std::vector<TEuArchiveImage> EuArchiveOldImages(std::string_view item, TDateTime day) {
  const TChannel* const channel = ChannelOf(item);
  if (!channel || channel->OldChannel == 0) return {};
  const std::string before = std::string(kImageFolder) + FormatDateTime("yyyymmdd_", day);
  const std::string after =
      "00_0" + std::to_string(channel->OldSatellite) + "_" + std::string(OldName(item, *channel)) + "_0.jpg";
  return SlotImages(item, day, 1, before, after);
}

std::vector<TEuArchiveImage> EuArchiveNewImages(std::string_view item, TDateTime day, int msg_name) {
  const TChannel* const channel = ChannelOf(item);
  if (!channel) return {};
  const char sector = SectorOf(item);
  const bool meteosat7 = channel->OldWholeDisc != nullptr;
  constexpr const char* kSatellites[] = {"08-", "09-", "10-"};
  const char* const satellite =
      meteosat7 ? "07-" : kSatellites[msg_name >= 0 && msg_name <= 2 ? msg_name : 0];

  std::string after = channel->Product ? "-RGB-" : "-BNW-";
  after += satellite;
  after += channel->NewName;
  if (meteosat7) {
    after += "-00-600";
  } else if (sector == 'T') {
    after += "-00-800";
  } else {
    after += std::string("-0") + sector + (channel->Product ? "-1237" : "-600");
  }
  after += ".jpg";
  const int step = channel->Product || (sector == '2' && !meteosat7) ? 2 : 6;
  const std::string before = std::string(kImageFolder) + "SDDI-" + FormatDateTime("yyyymmdd-", day);
  return SlotImages(item, day, step, before, after);
}

std::string EuArchiveListing(std::string_view item) {
  const TChannel* const channel = ChannelOf(item);
  const char sector = SectorOf(item);
  char query[64];
  std::snprintf(query, sizeof query, "m=%d,s=%d,c=%d,o=0,d=0,f=1", channel ? channel->OldSatellite : 7,
                sector >= '0' && sector <= '9' ? sector - '0' : 0, channel ? channel->OldChannel : 2);
  return std::string("/IDDS-cgi/listImages?") + query;
}

std::vector<TOffer> EuArchiveOffers(TDateTime day) {
  std::vector<TOffer> offers;
  const auto add = [&](const std::string& item, const TEuArchiveImage& image, int width,
                       const std::string& listed_at) {
    TOffer offer{image.RemoteName, image.Time, "METEOSAT " + item,
                 TOffer::PictureOf(ChannelOf(item)->NewName[0])};
    offer.Width = offer.Height = width;
    if (IsDigit(SectorOf(item))) {
      offer.Zoom = 2.4;
      offer.Longitude = (SectorOf(item) - '5') * 12;
    }
    offer.ListedAt = listed_at;
    offers.push_back(std::move(offer));
  };
  for (const std::vector<std::string>* items : {&EuArchiveSectorItems(), &EuArchiveProductItems()}) {
    for (const std::string& item : *items) {
      for (const TEuArchiveImage& image : EuArchiveOldImages(item, day))
        add(item, image, 640, EuArchiveListing(item));
      for (int msg_name = 0; msg_name < 3; ++msg_name) {
        for (const TEuArchiveImage& image : EuArchiveNewImages(item, day, msg_name))
          add(item, image, std::atoi(&image.RemoteName[image.RemoteName.rfind('-') + 1]), "");
      }
    }
  }
  return offers;
}

std::string EuArchiveListingPage(const std::vector<TOffer>& offers) {
  std::string page = "<html><head><script>\nvar images = new Array();\n";
  int frame = 0;
  for (const TOffer& offer : offers)
    page += "frame" + std::to_string(frame++) + " = \"" + offer.Path + "\";\n";
  return page + "number_of_images = " + std::to_string(frame) + ";\n</script></head></html>\n";
}

TEuArchiveList KeepListedImages(std::string_view page, std::string_view server_root,
                                std::vector<TEuArchiveImage>& images) {
  const std::size_t begin = page.find("frame0");
  if (begin == std::string_view::npos) {
    images.clear();
    return TEuArchiveList::None;
  }
  const std::size_t end = page.find("number_of_images", begin);
  const TEuArchiveList list = end == std::string_view::npos ? TEuArchiveList::Cut : TEuArchiveList::Whole;
  if (images.empty()) return list;
  const std::string_view kept = page.substr(begin, end - begin);

  // The names differ only in the time, so one search for their common beginning finds them all. That matters
  // for a page of many megabytes.
  const std::string_view first = images.front().RemoteName;
  const std::string_view last = images.back().RemoteName;
  const std::string_view common(first.begin(), std::mismatch(first.begin(), first.end(), last.begin()).first);
  std::unordered_set<std::string_view> listed;
  std::unordered_set<std::string_view> names;
  for (const TEuArchiveImage& image : images) names.insert(image.RemoteName);
  const auto look = [&](std::string_view text) {
    for (std::size_t at = text.find(common); at != std::string_view::npos; at = text.find(common, at + 1)) {
      const auto name = names.find(text.substr(at, first.size()));
      if (name != names.end()) listed.insert(*name);
    }
  };

  // kept: the names are searched in the page's own text and in the paths taken from it.
  look(kept);
  std::string url;
  ForEachLine(kept, [&](std::string_view line) {
    const std::size_t equals = line.find('=');
    if (!line.starts_with("frame") || equals == std::string_view::npos || equals < 6) return;
    url = server_root;
    url += ReplaceAll(Trim(line.substr(std::min(equals + 3, line.size()))), "\";", "");
    look(url);
  });

  std::erase_if(images, [&](const TEuArchiveImage& image) { return !listed.contains(image.RemoteName); });
  return list;
}

/// One run of the job.
class TEuArchiveJob::TRun {
 public:
  TRun(TJobContext& context, const TEuArchiveSettings& settings)
      : context_(context),
        settings_(settings),
        wanted_(TWantedNames::FromFile(context.ProgramFolder / "EuArchive.txt", context.Display)),
        walk_(context),
        folders_(context) {}

  void Item(const std::string& item) {
    walk_.Days([&](TDateTime day) { Day(item, day); });
  }

  bool Stopped() const { return walk_.Stopped(); }

 private:
  void Day(const std::string& item, TDateTime day) {
    context_.Display.SetPanel(
        0, item + " " + FormatDateTime(settings_.NewNaming ? "yyyymmdd-" : "yyyymmdd", day));
    const fs::path folder = settings_.OutputPath / DateFolder(day);
    if (folders_.Make(folder)) {
      if (settings_.NewNaming) {
        NewNaming(item, day, folder);
      } else {
        OldNaming(item, day, folder);
      }
    }
    context_.Display.SetPanel(0, "");
    context_.Display.SetPanel(1, "");
  }

  void OldNaming(const std::string& item, TDateTime day, const fs::path& folder) {
    Fetch(item, ListedImages(item, day), folder, context_.Servers.Root(kEuArchiveOldServer));
  }

  std::vector<TEuArchiveImage> ListedImages(const std::string& item, TDateTime day) {
    std::vector<TEuArchiveImage> images = EuArchiveOldImages(item, day);
    if (images.empty()) return images;
    const std::string day_of_item = item + FormatDateTime(" yyyymmdd", day);
    const std::string root = context_.Servers.Root(kEuArchiveOldServer);
    const THttpPage page =
        GetHttpPage(context_, context_.NMHTTPNotts, root + EuArchiveListing(item),
                    "Getting file list for " + std::string(OldName(item, *ChannelOf(item))));
    if (page.NotAsked) return images;
    const TEuArchiveList list = KeepListedImages(page.Text, root, images);
    if (list == TEuArchiveList::None) {
      context_.Display.SetPanel(1, "Failed to get file list");
      ReportFailure(context_,
                    day_of_item + " - failed to get file list: " +
                        (page.ReplyCode == 0 && page.Text.empty() ? page.Reason : "the page holds no list"));
    } else if (page.Incomplete || list == TEuArchiveList::Cut) {
      ReportFailure(context_, day_of_item + " - file list incomplete");
    }
    return images;
  }

  void NewNaming(const std::string& item, TDateTime day, const fs::path& folder) {
    Fetch(item, EuArchiveNewImages(item, day, settings_.MsgName), folder,
          context_.Servers.Root(kEuArchiveNewServer));
  }

  void Fetch(const std::string& item, const std::vector<TEuArchiveImage>& images, const fs::path& folder,
             const std::string& server) {
    for (const TEuArchiveImage& image : images) {
      if (walk_.Stopped()) return;
      if (!wanted_.Wants(image.LocalName)) continue;
      if (image.Time + kPublishingDelay >= context_.Clock.UtcNow()) continue;
      const fs::path path = folder / (image.LocalName + ".jpg");
      GetHttpFile(context_, server, image.RemoteName, path, 0, false, image.Time, item);
    }
  }

  TJobContext& context_;
  const TEuArchiveSettings& settings_;
  const TWantedNames wanted_;
  TSlotWalk walk_;
  TFolderMaker folders_;
};

TEuArchiveJob::TEuArchiveJob(TJobContext& context, TEuArchiveSettings settings)
    : context_(context), settings_(std::move(settings)) {}

void TEuArchiveJob::Run() {
  TRun run(context_, settings_);
  for (const std::string& item : settings_.Items) {
    if (run.Stopped()) return;
    run.Item(UpperCase(item));
  }
}

}  // namespace skyreel
