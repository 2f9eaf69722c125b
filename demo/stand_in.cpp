#include "demo/stand_in.h"

#include <nlohmann/json.hpp>

#include "base/text.h"
#include "catalogue/combinations.h"
#include "catalogue/slot_grid.h"

namespace skyreel::demo {

namespace {

using namespace std::chrono_literals;
using enum TFind::TKind;

/// The host of files whose address begins with a text from a list.
constexpr const char* kFoundHost = "found.example";

}  // namespace

std::string TStandIn::TList::Document() const {
  if (Kind == Json) return nlohmann::json(Entries).unflatten().dump();
  std::string text;
  for (const auto& [name, times] : Entries) {
    switch (Kind) {
      case S3:
        text += "<Contents><Key>" + name + "</Key></Contents>\n";
        break;
      case WmsTime:
        text +=
            "<Layer><Name>" + name + "</Name><Dimension name=\"time\">" + times + "</Dimension></Layer>\n";
        break;
      default:
        text += "<a href=\"" + name + "\">" + name + "</a>\n";
    }
  }
  if (Kind == S3) return "<ListBucketResult>\n" + text + "</ListBucketResult>\n";
  if (Kind == WmsTime)
    return "<WMS_Capabilities><Capability>\n" + text + "</Capability></WMS_Capabilities>\n";
  return "<html><body>\n" + text + "</body></html>\n";
}

void TStandIn::Add(const TDescription& source, std::size_t way, std::vector<std::vector<std::size_t>> rows) {
  const std::lock_guard lock(mutex_);
  ways_.push_back({source, way, std::move(rows)});
  made_ = {};
}

void TStandIn::Clear() {
  const std::lock_guard lock(mutex_);
  ways_.clear();
  made_ = {};
}

std::optional<TServedFile> TStandIn::Find(const std::string& host, const std::string& path) {
  std::unique_lock lock(mutex_);
  const TDateTime now = now_().RoundedDown(1min);
  if (made_ != now) {
    files_.clear();
    lists_.clear();
    for (const TServedWay& way : ways_) AddSlots(way);
    made_ = now;
  }
  const std::string address = "https://" + host + path;
  if (const auto found = files_.find(address); found != files_.end()) {
    const TStandInFile file = found->second;
    lock.unlock();
    std::optional<TServedFile> served = make_(file);
    if (served) served->Modified = file.Slot + file.Source.Time.Delay;
    return served;
  }
  // One page holds all names of a bucket, whatever their prefix.
  const auto list = lists_.find(address.substr(0, address.find("?list-type=2&prefix=")));
  if (list == lists_.end()) return std::nullopt;
  return TServedFile{std::make_shared<const std::string>(list->second.Document()),
                     list->second.Kind == Json      ? "application/json"
                     : list->second.Kind == Listing ? "text/html"
                                                    : "text/xml",
                     now};
}

void TStandIn::AddSlots(const TServedWay& served) {
  const TDescription& source = served.Source;
  const TWay& way = source.Ways[served.Way];
  const TTimeRules& time = source.Time;
  const TSlotGrid grid(time.Every.value_or(1h), time.Offset, time.Zone);
  const TDateTime newest = grid.AtOrBefore(now_() - time.Delay);
  ForEachCombination(served.Rows, [&](const TCombination& combination) {
    int age = 0;
    for (TDateTime slot = newest; slot > newest - 72h && way.Serves(combination);
         slot = slot - grid.Every(), ++age) {
      TFound found;
      if (way.Find) found = AddToList(way, {source, combination, slot, time.Zone}, age);
      const TPictureAddresses picture = AddressesOf(source, combination, {served.Way, slot, found}, slot);
      for (int i = 0; const TAddress& address : picture.Addresses) {
        // Of one name the newest file counts.
        files_.try_emplace(address.Text, source, way, combination, slot, address.Text, i % picture.Columns,
                           i / picture.Columns, picture.Columns, picture.Rows);
        ++i;
      }
    }
    return true;
  });
}

/// Adds the entry of a slot, the newest first: `age` is 0 for that. Returns what the list then says of it.
TFound TStandIn::AddToList(const TWay& way, const TFieldValues& values, int age) {
  const TFind& find = *way.Find;
  TList& list = lists_[Fill(find.Url, values)];
  list.Kind = find.Kind;
  TFound found{ReplaceAll(Fill(find.Match, values), "{*}", "x"), {}};
  const auto pointer = [&](const TFieldText& text) {
    return ReplaceAll(Fill(text, values), "*", std::to_string(age));
  };
  for (std::size_t i = 0; i < find.Read.size(); ++i) {
    const TFieldText::TPart& begin = way.Url.Parts.front();
    const bool is_host = begin.Kind == TFieldText::TKind::Read && begin.Index == i;
    found.Read.push_back(is_host ? std::string("https://") + kFoundHost : "/" + found.Text);
    list.Entries.emplace(pointer(find.Read[i].Pointer), found.Read.back());
  }
  if (find.Kind == WmsTime) {
    list.Entries[Fill(find.Layer, values)] += FormatDateTime("yyyy-mm-dd'T'hh:nn:ss'Z,'", *values.Slot);
  } else {
    list.Entries.emplace(find.Kind == Json ? pointer(find.At) : Fill(find.Prefix, values) + found.Text,
                         found.Text);
  }
  return found;
}

void AddStandInHosts(const TDescription& source, TDateTime now, std::set<std::string>& hosts) {
  for (const std::string& host : HostsOf(source, now)) hosts.insert(host == "?" ? kFoundHost : host);
}

}  // namespace skyreel::demo
