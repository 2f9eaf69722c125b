#include "demo/archive.h"

#include <set>

#include "base/text.h"
#include "demo/encoders.h"
#include "demo/lzw_encoder.h"
#include "demo/picture.h"

namespace skyreel::demo {

namespace {

constexpr int kDaysKept = 100;
constexpr int kDaysListed = 3;
constexpr std::size_t kMostDaysInMemory = 8;
constexpr std::size_t kMostKeptBytes = 64 << 20;
constexpr std::size_t kLongestPath = 500;

/// The days of which a path may be: each day whose date is in it, the day after that, and the last two for a
/// path without a date.
std::set<TDateTime> DaysOf(const std::string& path, TDateTime now) {
  std::string digits;
  for (const char c : path) {
    if (IsDigit(c)) digits += c;
  }
  const TDateTime today = now.Midnight();
  std::set<TDateTime> days = {today - std::chrono::days(1), today};
  for (int back = 0; back <= kDaysKept; ++back) {
    const TDateTime day = today - std::chrono::days(back);
    if (digits.find(FormatDateTime("yymmdd", day)) != std::string::npos)
      days.insert({day, day + std::chrono::days(1)});
  }
  return days;
}

std::string NameOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

TPicture Draw(const TOffer& offer) {
  // A large picture is a small one with each pixel repeated: drawing takes long.
  const int factor = std::max(1, offer.Width / 600);
  const int width = offer.Width / factor, height = offer.Height / factor;
  TPicture picture;
  if (offer.Picture == TOffer::TPicture::Chart) {
    unsigned area = 0;
    for (const char c : offer.Title) area += static_cast<unsigned char>(c);
    picture = DrawChart(area % 17, offer.Time, width, height);
  } else {
    const TChannel channel = offer.Picture == TOffer::TPicture::Visible    ? TChannel::Visible
                             : offer.Picture == TOffer::TPicture::Infrared ? TChannel::Infrared
                                                                           : TChannel::WaterVapour;
    picture = DrawEarth({channel, offer.Longitude, offer.Zoom, offer.Time}, width, height);
  }
  WriteCaption(picture, offer.Title + "  " + FormatDateTime("yyyy-mm-dd hh:nn", offer.Time) + " UTC");
  return factor == 1 ? picture : Enlarge(picture, factor);
}

/// A data file of the offer's size: a text about it, padded, then the picture's rows.
std::string DataFile(const TOffer& offer, const TPicture& picture) {
  std::string file = offer.Title + "\n" + std::to_string(picture.Width) + " x " +
                     std::to_string(picture.Height) + " bytes, rows from the top, at the end of this file\n";
  file.resize(offer.DataSize - picture.Pixels.size(), '\0');
  return file += picture.Pixels;
}

TServedFile Make(const TOffer& offer) {
  const std::string name = NameOf(offer.Path);
  const std::string extension = LowerCase(name.substr(name.rfind('.') + 1));
  const auto served = [&](std::string content, const char* type) {
    return TServedFile{std::make_shared<const std::string>(std::move(content)), type, offer.Time};
  };
  const TPicture picture = Draw(offer);
  if (offer.DataSize > 0) {
    std::string data = DataFile(offer, picture);
    if (extension == "z") data = LzwEncode(data);
    if (extension == "bz2") data = CompressBz2(data);
    return served(std::move(data), "application/octet-stream");
  }
  if (extension == "jpg") return served(EncodeJpeg(picture), "image/jpeg");
  if (extension == "gif") return served(EncodeGif(picture), "image/gif");
  if (extension == "zip") {
    const std::string inside = name.substr(0, name.rfind('.')) + ".gif";
    return served(StoreZip(inside, EncodeGif(picture), offer.Time), "application/zip");
  }
  return served(EncodeTiff(picture, extension == "tif"), "image/tiff");
}

}  // namespace

const std::vector<TDemoArchive::TEntry>& TDemoArchive::Day(TDateTime day) {
  if (const auto known = days_.find(day); known != days_.end()) return known->second;
  if (days_.size() >= kMostDaysInMemory) days_.clear();
  std::vector<TEntry>& entries = days_[day];
  for (const TSource& source : Sources()) {
    if (source.Offers == nullptr) continue;
    for (TOffer& offer : source.Offers(day)) entries.push_back({&source, std::move(offer)});
  }
  return entries;
}

std::optional<TDemoArchive::TEntry> TDemoArchive::FindEntry(const std::string& path) {
  const TDateTime now = now_();
  std::optional<TEntry> newest;
  for (const TDateTime day : DaysOf(path, now)) {
    for (const TEntry& entry : Day(day)) {
      const TOffer& offer = entry.Offer;
      if (offer.Path != path || offer.Time > now || offer.Time < now - std::chrono::days(kDaysKept)) continue;
      if (!newest || offer.Time > newest->Offer.Time) newest = entry;
    }
  }
  return newest;
}

std::vector<TDemoArchive::TEntry> TDemoArchive::Recent(int days,
                                                       const std::function<bool(const TEntry&)>& wanted) {
  const TDateTime now = now_();
  std::vector<TEntry> found;
  for (int back = days - 1; back >= 0; --back) {
    for (const TEntry& entry : Day(now.Midnight() - std::chrono::days(back))) {
      if (entry.Offer.Time <= now && wanted(entry)) found.push_back(entry);
    }
  }
  return found;
}

std::optional<TServedFile> TDemoArchive::FindListing(const std::string& path) {
  const std::vector<TEntry> listed =
      Recent(kDaysListed, [&](const TEntry& entry) { return entry.Offer.ListedAt == path; });
  if (listed.empty()) return std::nullopt;
  std::vector<TOffer> offers;
  for (const TEntry& entry : listed) offers.push_back(entry.Offer);
  const TSource& source = *listed.front().Source;
  return TServedFile{std::make_shared<const std::string>(source.ListingPage(offers)), "text/html", now_(),
                     TFault::None, source.NeedsLogin};
}

std::optional<TServedFile> TDemoArchive::Find(const std::string& path) {
  if (path.empty() || path.size() > kLongestPath) return std::nullopt;
  const std::scoped_lock lock(making_);
  if (const auto kept = kept_.find(path); kept != kept_.end()) return kept->second;

  // A link of a listing page may have further parameters.
  const std::optional<TEntry> entry = FindEntry(path.substr(0, path.find('&')));
  if (!entry) return FindListing(path);
  const int hour = entry->Offer.Time.Parts().Hour;
  if (hour == 3) return std::nullopt;

  TServedFile file = Make(entry->Offer);
  file.NeedsLogin = entry->Source->NeedsLogin;
  if (hour == 9) file.Fault = TFault::Cut;
  if (hour == 21 && file.Type == "image/jpeg" && entry->Offer.Picture == TOffer::TPicture::Infrared)
    file.Fault = TFault::Stall;

  kept_bytes_ += file.Content->size();
  kept_order_.push_back(path);
  kept_.emplace(path, file);
  while (kept_bytes_ > kMostKeptBytes && kept_order_.size() > 1) {
    const auto oldest = kept_.find(kept_order_.front());
    kept_bytes_ -= oldest->second.Content->size();
    kept_.erase(oldest);
    kept_order_.pop_front();
  }
  return file;
}

std::optional<std::vector<std::string>> TDemoArchive::FolderNames(std::string_view folder) {
  const std::scoped_lock lock(making_);
  const std::string inside = std::string(folder) + (folder.ends_with('/') ? "" : "/");
  std::set<std::string> names;
  for (const TEntry& entry : Recent(kDaysListed + 1, [&](const TEntry& candidate) {
         return candidate.Source->Servers.front().Ftp && candidate.Offer.Path.starts_with(inside);
       })) {
    const std::string below = entry.Offer.Path.substr(inside.size());
    names.insert(below.substr(0, below.find('/')));
  }
  if (names.empty()) return std::nullopt;
  return std::vector<std::string>(names.begin(), names.end());
}

}  // namespace skyreel::demo
