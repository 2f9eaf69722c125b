#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "catalogue/plan.h"
#include "demo/archive.h"

namespace skyreel::demo {

/// A picture, or a tile of it, as a description asks for it.
struct TStandInFile {
  const TDescription& Source;
  const TWay& Way;
  TCombination Combination;
  TDateTime Slot;
  std::string Address;
  int Column = 0, Row = 0;    ///< of the tile
  int Columns = 1, Rows = 1;  ///< tiles of the picture
};

/// Stands in for the servers of described sources. It has all files of the last three days that the
/// descriptions ask for, and the lists that name them, and makes both from the descriptions alone. A file
/// comes as late as its description says. Several threads may use it.
class TStandIn {
 public:
  /// Makes the content and the type of a file; nothing when the server does not have it. Several threads call
  /// it at once.
  using TMake = std::function<std::optional<TServedFile>(const TStandInFile& file)>;

  TStandIn(TDemoArchive::TNow now, TMake make) : now_(std::move(now)), make_(std::move(make)) {}

  /// Adds the servers of one way of a source (an index in its Ways), for these rows of its variables. The
  /// source outlives this.
  void Add(const TDescription& source, std::size_t way, std::vector<std::vector<std::size_t>> rows);
  /// Forgets all sources.
  void Clear();

  /// The file or list at a host's path, with its query.
  std::optional<TServedFile> Find(const std::string& host, const std::string& path);

 private:
  struct TServedWay {
    const TDescription& Source;
    std::size_t Way;
    std::vector<std::vector<std::size_t>> Rows;
  };
  /// Its entries: names; or times by layer; or texts by JSON pointer.
  struct TList {
    TFind::TKind Kind = TFind::TKind::Listing;
    std::map<std::string, std::string> Entries;

    std::string Document() const;
  };
  void AddSlots(const TServedWay& way);
  TFound AddToList(const TWay& way, const TFieldValues& values, int age);

  const TDemoArchive::TNow now_;
  const TMake make_;
  std::mutex mutex_;
  std::vector<TServedWay> ways_;
  TDateTime made_;  ///< when the rest was made, in whole minutes; zero: not yet
  std::map<std::string, TStandInFile> files_;
  std::map<std::string, TList> lists_;
};

/// Adds the hosts that a stand-in for this source serves.
void AddStandInHosts(const TDescription& source, TDateTime now, std::set<std::string>& hosts);

}  // namespace skyreel::demo
