#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/date_time.h"
#include "catalogue/address.h"
#include "catalogue/description.h"

namespace skyreel {

/// A server's list that a plan needs. Several requests may have one address, which is asked once a run.
struct TListRequest {
  TFind::TKind Kind = TFind::TKind::Listing;
  std::string Address;            ///< for S3 with the query of the first page
  std::string Problem;            ///< why the address must not be asked; else empty
  std::string Layer;              ///< WmsTime
  std::string At;                 ///< Json: pointer to the time
  std::vector<std::string> Read;  ///< Json: pointers, in the order of TFind::Read
  auto operator<=>(const TListRequest&) const = default;
};

/// One text of a server's list.
struct TListEntry {
  std::string Text;
  std::vector<std::string> Read = {};  ///< in the order of TListRequest::Read
  std::string Stamp = {};              ///< date and size as a listing shows them; empty without
};

/// What a server answered.
struct TListAnswer {
  bool Failed = false;
  std::vector<TListEntry> Entries = {};  ///< of every kind but WmsTime
  /// WmsTime: whether the layer has a time, and its times from `first` to `last`, newest first.
  std::function<bool(TDateTime time)> HasTime = {};
  std::function<std::vector<TDateTime>(TDateTime first, TDateTime last)> TimesWithin = {};
};

/// The ticked values of each variable. A variable that is not there, or of which no ticked value exists any
/// more, has its default; one with an empty list has nothing ticked.
using TChoices = std::map<std::string, std::vector<std::string>>;

/// The rows of each variable that the choices tick.
std::vector<std::vector<std::size_t>> ChosenRows(const TDescription& source, const TChoices& choices);

/// All rows of each variable.
std::vector<std::vector<std::size_t>> AllRows(const TDescription& source);

/// What a plan is made from.
struct TPlanRequest {
  const TDescription& Source;
  TDateTime Now;
  TChoices Choices = {};
  /// Today (UTC) and so many days less one before it; without, the newest slot alone.
  std::optional<int> Days = {};
  /// Whether there is a file at a path below the output folder ("a/b.jpg").
  std::function<bool(std::string_view path)> OnDisk = {};
  /// The answer to a list; null while the server has not been asked.
  std::function<const TListAnswer*(const TListRequest&)> Lists = {};
  /// When to ask again for a file that was missing; zero for any other.
  std::function<TDateTime(const TCombination& combination, TDateTime slot)> AskAgainAt = {};
  /// The stamp that a listing showed when the file of a fixed name was last fetched; empty without.
  std::function<std::string(const TCombination& combination, const std::string& address)> LastStamp = {};
  /// Only these slots, ascending; empty: every slot of the days.
  std::vector<TDateTime> Slots = {};
  /// In place of the combinations that the choices give, unless empty.
  std::vector<TCombination> Combinations = {};
  /// Asked before each combination, if set. True ends the plan, which then lacks the rest.
  std::function<bool()> Stopped = {};
};

enum class TPlanState {
  Present,    ///< on disk
  Wanted,     ///< to be asked for
  NeedsList,  ///< to be asked for, once the server's list tells its name
  NotYet,     ///< not on the server, and it is not late
  Missing,    ///< not on the server
  Resting,    ///< was missing; to be asked for again later
  TooOld,     ///< older than the server keeps
  Unchanged,  ///< fixed name: the listing shows the file that was fetched last
};

/// A way to fetch one file.
struct TPlannedWay {
  std::size_t Way = 0;            ///< in TDescription::Ways
  std::optional<TDateTime> Slot;  ///< none: the server's date of the file gives it (SlotOfFixedName)
  std::optional<TFound> Found = {};
};

struct TPlannedFile {
  std::size_t Combination = 0;    ///< in TPlan::Combinations
  std::optional<TDateTime> Slot;  ///< none for a source with a fixed name
  std::string Path;               ///< below the output folder; empty without a slot
  TPlanState State = TPlanState::Wanted;
  std::vector<TPlannedWay> Ways = {};  ///< of a wanted file, in the order in which they are tried
};

struct TPlan {
  bool NewestAlone = false;                ///< each combination wants one file; the others are in reserve
  std::vector<TCombination> Combinations;  ///< the chosen ones, in their order
  /// Newest slot first, then by combination. When only the newest slot is wanted, each combination has the
  /// slots to be tried one after the other until one is whole; a file that is present ends them.
  std::vector<TPlannedFile> Files;
  /// The lists that must be asked first: then make the plan anew.
  std::vector<TListRequest> Lists;
};

/// Works out which files are wanted and how to fetch them. Asks nothing itself. Slots more than a day ahead
/// of now are left out: no picture has such a time.
TPlan MakePlan(const TPlanRequest& request);

/// The files that a source with `every` should have by its times alone, of today (UTC) and `days` less one
/// days before it, newest first: Wanted, NotYet, TooOld, or NeedsList where only a list tells the address.
/// Looks neither at the disk nor at lists, so no file is Present.
std::vector<TPlannedFile> FilesDue(const TDescription& source, const TCombination& combination, TDateTime now,
                                   int days);

/// The addresses of one picture: one, or its tiles row by row.
struct TPictureAddresses {
  int Columns = 1, Rows = 1;
  std::vector<TAddress> Addresses;
};
/// A way without a slot has the aliases of `now`; without that, "?" stands for what depends on the slot.
TPictureAddresses AddressesOf(const TDescription& source, const TCombination& combination,
                              const TPlannedWay& way, std::optional<TDateTime> now);

/// The hosts that a source may ask, whatever is ticked: "host" or "host:81". "?" stands for a text that only
/// a server knows. `now` chooses the aliases.
std::vector<std::string> HostsOf(const TDescription& source, TDateTime now);

/// The path of a file below the output folder; "?" stands for an unknown slot.
std::string LocalPath(const TDescription& source, const TCombination& combination,
                      std::optional<TDateTime> slot);

/// The labels of a combination: "GeoColor, 678x678".
std::string LabelOf(const TDescription& source, const TCombination& combination);

}  // namespace skyreel
