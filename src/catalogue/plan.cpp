#include "catalogue/plan.h"

#include <algorithm>
#include <numeric>
#include <set>

#include "base/text.h"
#include "catalogue/combinations.h"
#include "catalogue/found_slots.h"
#include "catalogue/slot_grid.h"

namespace skyreel {

namespace {

using namespace std::chrono_literals;
using TKind = TFieldText::TKind;
using TSpan = TDateTime::TSpan;

constexpr TSpan kDay = 24h;
/// The newest slot alone is looked for no further back, however old the newest of a list is.
constexpr int kMostSteps = 10'000;

/// What an address has before its path.
TFieldText HostPart(const TFieldText& address) {
  TFieldText begin;
  std::ptrdiff_t slashes = 0;
  for (const TFieldText::TPart& part : address.Parts) {
    begin.Parts.push_back(part);
    if (part.Kind == TKind::Plain) slashes += std::ranges::count(part.Text, '/');
    if (slashes >= 3) break;
  }
  return begin;
}

bool DependsOnSlot(const TFind& find) {
  const auto depends = [](const TFieldText& text) { return text.Has(TKind::Time) || text.Has(TKind::Alias); };
  return depends(find.Url) || depends(find.Prefix) || depends(find.Layer) || depends(find.At) ||
         std::ranges::any_of(find.Read, [&](const TRead& read) { return depends(read.Pointer); });
}

TListRequest ListRequestOf(const TFind& find, const TFieldValues& values) {
  TListRequest request;
  request.Kind = find.Kind;
  TAddress address = FillAddress(find.Url, values);
  request.Problem = std::move(address.Problem);
  request.Address = std::move(address.Text);
  if (find.Kind == TFind::TKind::S3) {
    request.Address += request.Address.find('?') == std::string::npos ? '?' : '&';
    request.Address +=
        "list-type=2&prefix=" + PercentEncode(Fill(find.Prefix, values), "!\"#$%&'()*+,:;<=>?@[\\]^`{|}");
  }
  request.Layer = Fill(find.Layer, values);
  request.At = Fill(find.At, values);
  for (const TRead& read : find.Read) request.Read.push_back(Fill(read.Pointer, values));
  return request;
}

/// Plans the files of one combination.
class TCombinationPlanner {
 public:
  TCombinationPlanner(const TPlanRequest& request, std::size_t index, const TCombination& combination,
                      std::set<TListRequest>& lists)
      : request_(request),
        source_(request.Source),
        time_(request.Source.Time),
        index_(index),
        combination_(combination),
        lists_(lists) {
    for (std::size_t i = 0; i < source_.Ways.size(); ++i) {
      const TWay& way = source_.Ways[i];
      if (way.Serves(combination)) ways_.emplace_back(i, way, source_, combination);
    }
    for (std::size_t i = 0; i < combination.size(); ++i) {
      const auto& at = source_.Variables[i].Rows[combination[i]].At;
      if (at) at_.emplace_back(kDay, *at, time_.Zone);
    }
    if (request.Days) from_ = request.Now.Midnight() - std::chrono::days(*request.Days - 1);
    if (time_.Kept) oldest_ = request.Now - *time_.Kept;
  }

  std::vector<TPlannedFile> Plan() {
    if (source_.IsFixedName()) {
      PlanFixedName();
    } else if (time_.Every) {
      PlanGrid(Grid());
    } else {
      PlanList();
    }
    return std::move(files_);
  }

  std::vector<TPlannedFile> Due() {
    const TSlotGrid grid = Grid();
    const bool needs_list =
        std::ranges::all_of(ways_, [](const TWayState& way) { return way.Way.Url.NeedsFound(); });
    for (TDateTime slot = grid.AtOrBefore(request_.Now); !Ends(slot, 0); slot = slot - grid.Every()) {
      if (!IsAtItsTime(slot)) continue;
      TPlannedFile& file =
          files_.emplace_back(TPlannedFile{index_, slot, LocalPath(source_, combination_, slot)});
      if (slot < oldest_) {
        file.State = TPlanState::TooOld;
      } else if (request_.Now < slot + time_.Delay + time_.Grace) {
        file.State = TPlanState::NotYet;
      } else if (needs_list) {
        file.State = TPlanState::NeedsList;
      }
    }
    return std::move(files_);
  }

 private:
  /// A way of this combination, and what its lists show.
  struct TWayState {
    TWayState(std::size_t index, const TWay& way, const TDescription& source, const TCombination& combination)
        : Index(index), Way(way) {
      if (way.Find) Shown.emplace(source, *way.Find, combination);
    }

    std::size_t Index;
    const TWay& Way;
    bool Asks = false;  ///< its list is asked in this run
    std::optional<TFoundSlots> Shown;
    std::map<TListRequest, const TListAnswer*> Answers;  ///< null: not asked yet

    bool Answered() const {
      return std::ranges::any_of(Answers,
                                 [](const auto& each) { return each.second && !each.second->Failed; });
    }
    bool Open() const {
      return std::ranges::any_of(Answers, [](const auto& each) { return !each.second; });
    }
  };

  /// A slot of the grid, and its file.
  struct TSeen {
    TDateTime Slot;
    std::string Path;
    bool Present;
  };

  /// How one way stands to a slot.
  enum class TChance { None, Try, Shown, Unknown };

  TFieldValues ValuesAt(TDateTime slot) const { return {source_, combination_, slot, time_.Zone}; }
  TSeen Look(TDateTime slot) const {
    TSeen seen{slot, LocalPath(source_, combination_, slot), false};
    seen.Present = request_.OnDisk && request_.OnDisk(seen.Path);
    return seen;
  }
  bool IsAtItsTime(TDateTime slot) const {
    const std::vector<TDateTime>& slots = request_.Slots;
    if (!slots.empty() && !std::ranges::binary_search(slots, slot)) return false;
    return std::ranges::all_of(at_, [slot](const TSlotGrid& grid) { return grid.Has(slot); });
  }
  bool IsResting(TDateTime slot) const {
    return request_.AskAgainAt && request_.Now < request_.AskAgainAt(combination_, slot);
  }

  /// Notes the list that tells of a slot, and takes its answer.
  void AskList(TWayState& way, TDateTime slot) {
    TListRequest list = ListRequestOf(*way.Way.Find, ValuesAt(slot));
    const auto [known, fresh] = way.Answers.try_emplace(std::move(list), nullptr);
    if (!fresh) return;
    known->second = request_.Lists ? request_.Lists(known->first) : nullptr;
    if (!known->second) {
      lists_.insert(known->first);
    } else if (!known->second->Failed) {
      way.Shown->Add(*known->second);
    }
  }

  TChance ChanceOf(const TWayState& way, TDateTime slot) const {
    if (way.Shown && way.Asks && way.Shown->Has(slot)) return TChance::Shown;
    const bool blind = !way.Way.Url.NeedsFound();
    if (!way.Asks) return blind ? TChance::Try : TChance::None;
    const auto answer = way.Answers.size() == 1
                            ? way.Answers.begin()
                            : way.Answers.find(ListRequestOf(*way.Way.Find, ValuesAt(slot)));
    const bool open = answer != way.Answers.end() && !answer->second;
    const bool failed = answer != way.Answers.end() && answer->second && answer->second->Failed;
    if (open && !blind) return TChance::Unknown;
    return (open || failed) && blind ? TChance::Try : TChance::None;
  }

  /// Makes the file of a slot that is not on disk, with the ways that may have it.
  TPlannedFile FileOf(TDateTime slot, std::string path, TDateTime last_call) const {
    TPlannedFile file{index_, slot, std::move(path)};
    bool unknown = false;
    for (const TWayState& way : ways_) {
      const TChance chance = ChanceOf(way, slot);
      unknown = unknown || chance == TChance::Unknown;
      if (chance != TChance::Try && chance != TChance::Shown) continue;
      const auto found = chance == TChance::Shown ? way.Shown->Of(slot) : std::nullopt;
      // The document names the newest picture alone.
      if (way.Way.Url.NeedsFound() && !found) continue;
      file.Ways.push_back({way.Index, way.Way.IsFixedName() ? std::nullopt : std::optional(slot), found});
    }
    if (slot < oldest_) {
      file.State = TPlanState::TooOld;
    } else if (IsResting(slot)) {
      file.State = TPlanState::Resting;
    } else if (unknown) {
      file.State = TPlanState::NeedsList;
    } else if (file.Ways.empty()) {
      file.State = request_.Now < last_call ? TPlanState::NotYet : TPlanState::Missing;
    }
    if (file.State != TPlanState::Wanted) file.Ways.clear();
    return file;
  }

  bool IsShown(TDateTime slot) const {
    return std::ranges::any_of(ways_,
                               [slot](const TWayState& way) { return way.Asks && way.Shown->Has(slot); });
  }

  TSlotGrid Grid() const {
    return at_.empty() ? TSlotGrid(*time_.Every, time_.Offset, time_.Zone) : at_.front();
  }

  void PlanGrid(const TSlotGrid& grid) {
    std::vector<TSeen> due_slots = AskListsOfGrid(grid);
    auto known = due_slots.begin();
    const bool listed = std::ranges::any_of(ways_, &TWayState::Asks);
    const TDateTime newest = grid.AtOrBefore(listed ? request_.Now + kDay : request_.Now);
    std::optional<TPlannedFile> not_there;
    int steps = 0, tries = 0;
    for (TDateTime slot = newest; !Ends(slot, steps++); slot = slot - grid.Every()) {
      if (!IsAtItsTime(slot)) continue;
      const bool asked = slot + time_.Delay <= request_.Now || IsShown(slot);
      if (!asked && slot > request_.Now) continue;
      while (known != due_slots.end() && known->Slot > slot) ++known;
      TSeen seen = known != due_slots.end() && known->Slot == slot ? std::move(*known) : Look(slot);
      if (seen.Present) {
        files_.push_back({index_, slot, std::move(seen.Path), TPlanState::Present});
        if (!request_.Days) break;
        continue;
      }
      if (!asked) {
        if (request_.Days) files_.push_back({index_, slot, std::move(seen.Path), TPlanState::NotYet});
        continue;
      }
      TPlannedFile file = FileOf(slot, std::move(seen.Path), slot + time_.Delay + time_.Grace);
      const bool there = file.State != TPlanState::NotYet && file.State != TPlanState::Missing;
      if (request_.Days || there) {
        files_.push_back(std::move(file));
      } else if (!not_there) {
        not_there = std::move(file);
      }
      if (there && ++tries > time_.WalkBack && !request_.Days) break;
    }
    if (files_.empty() && not_there) files_.push_back(std::move(*not_there));
  }

  /// Whether a walk back through the grid has come to its end.
  bool Ends(TDateTime slot, int steps) const {
    return request_.Days ? slot < from_ : steps == kMostSteps || (slot < oldest_ && steps > 0);
  }

  /// Asks the lists of those ways for which enough slots are wanted. Returns the slots that it looked at,
  /// newest first.
  std::vector<TSeen> AskListsOfGrid(const TSlotGrid& grid) {
    std::vector<TSeen> slots;
    if (std::ranges::none_of(ways_, [](const TWayState& way) { return way.Way.Find.has_value(); }))
      return slots;
    std::vector<TDateTime> wanted;
    int steps = 0;
    for (TDateTime slot = grid.AtOrBefore(request_.Now - time_.Delay); !Ends(slot, steps);
         slot = slot - grid.Every()) {
      if (!request_.Days && steps++ > time_.WalkBack) break;
      if (slot < oldest_ || !IsAtItsTime(slot)) continue;
      const TSeen& seen = slots.emplace_back(Look(slot));
      if (!seen.Present && !IsResting(slot)) wanted.push_back(slot);
      if (seen.Present && !request_.Days) break;
    }
    for (TWayState& way : ways_) {
      if (!way.Way.Find || way.Way.IsFixedName() || wanted.empty()) continue;
      const bool many = wanted.size() > static_cast<std::size_t>(way.Way.Find->Above);
      way.Asks = many || way.Way.Url.NeedsFound();
      if (!way.Asks) continue;
      for (const TDateTime slot : wanted) {
        AskList(way, slot);
        if (!DependsOnSlot(*way.Way.Find)) break;
      }
    }
    return slots;
  }

  void PlanList() {
    const TDateTime from = from_.value_or(std::max(request_.Now - kDay, oldest_));
    for (TWayState& way : ways_) {
      way.Asks = way.Way.Find && !way.Way.IsFixedName();
      if (way.Asks) AskListsOfPeriod(way, from);
    }
    // An earlier way decides the slots, so its answer must be there first.
    const auto way =
        std::ranges::find_if(ways_, [](const TWayState& each) { return each.Open() || each.Answered(); });
    if (way == ways_.end() || way->Open()) return;
    const TDateTime first = std::max(from_.value_or(TDateTime::FromDate(1970, 1, 1)), oldest_);
    std::vector<TDateTime> slots = way->Shown->Within(first, request_.Now + kDay);
    std::ranges::sort(slots, std::greater());
    slots.erase(std::unique(slots.begin(), slots.end()), slots.end());
    int tries = 0;
    for (const TDateTime slot : slots) {
      if (!IsAtItsTime(slot)) continue;
      TSeen seen = Look(slot);
      if (seen.Present) {
        files_.push_back({index_, slot, std::move(seen.Path), TPlanState::Present});
        if (!request_.Days) return;
        continue;
      }
      files_.push_back(FileOf(slot, std::move(seen.Path), slot));
      if (!request_.Days && ++tries > time_.WalkBack) return;
    }
  }

  /// Asks the lists of every minute from `from` to now, or of longer steps where the lists' texts have no
  /// minutes.
  void AskListsOfPeriod(TWayState& way, TDateTime from) {
    for (const TDateTime slot : request_.Slots) AskList(way, slot);
    if (!request_.Slots.empty()) return;
    const TFind& find = *way.Way.Find;
    TSpan step = kDay;
    if (DependsOnSlot(find)) {
      std::string words =
          find.Url.TimeWords() + find.Prefix.TimeWords() + find.Layer.TimeWords() + find.At.TimeWords();
      for (const TRead& read : find.Read) words += read.Pointer.TimeWords();
      step = words.find_first_of("MSs") != words.npos ? 1min : 1h;
    } else {
      from = request_.Now;
    }
    for (TDateTime time = request_.Now.RoundedDown(1min); time > from - step; time = time - step)
      AskList(way, time);
  }

  void PlanFixedName() {
    TPlannedFile file{index_, {}, ""};
    for (TWayState& way : ways_) {
      if (way.Way.IsFixedName()) {
        file.Ways.push_back({way.Index, {}});
      } else if (time_.Every && !way.Way.Url.NeedsFound()) {
        const TSlotGrid grid(*time_.Every, time_.Offset, time_.Zone);
        file.Ways.push_back({way.Index, grid.AtOrBefore(request_.Now - time_.Delay)});
      }
    }
    if (!ways_.empty() && ways_.front().Way.Find && ways_.front().Way.Find->Kind == TFind::TKind::Listing) {
      TWayState& way = ways_.front();
      AskList(way, request_.Now);
      if (IsUnchanged(way)) {
        file.State = TPlanState::Unchanged;
        file.Ways.clear();
      }
    }
    files_.push_back(std::move(file));
  }

  /// Whether the listing shows the file that was fetched last.
  bool IsUnchanged(const TWayState& way) const {
    const TListAnswer* const answer = way.Answers.begin()->second;
    if (!answer || !request_.LastStamp) return false;
    const TMatcher matcher(way.Way.Find->Match, ValuesAt(request_.Now), way.Way.Find->MatchIsAddress);
    const auto entry = std::ranges::find_if(
        answer->Entries, [&](const TListEntry& each) { return matcher.SlotOf(each.Text).has_value(); });
    if (entry == answer->Entries.end() || entry->Stamp.empty()) return false;
    return entry->Stamp ==
           request_.LastStamp(combination_, FillAddress(way.Way.Url, ValuesAt(request_.Now)).Text);
  }

  const TPlanRequest& request_;
  const TDescription& source_;
  const TTimeRules& time_;
  const std::size_t index_;
  const TCombination& combination_;
  std::set<TListRequest>& lists_;
  std::vector<TWayState> ways_;
  std::vector<TSlotGrid> at_;  ///< the times of the day of its rows
  std::optional<TDateTime> from_;
  TDateTime oldest_ = TDateTime::FromDate(1, 1, 2);
  std::vector<TPlannedFile> files_;
};

}  // namespace

std::vector<std::vector<std::size_t>> ChosenRows(const TDescription& source, const TChoices& choices) {
  std::vector<std::vector<std::size_t>> chosen;
  for (const TVariable& variable : source.Variables) {
    std::vector<std::size_t>& rows = chosen.emplace_back();
    const auto choice = choices.find(variable.Name);
    for (std::size_t i = 0; choice != choices.end() && i < variable.Rows.size(); ++i) {
      if (std::ranges::find(choice->second, variable.Rows[i].Value) != choice->second.end())
        rows.push_back(i);
    }
    const bool nothing_ticked = choice != choices.end() && choice->second.empty();
    if (rows.empty() && !nothing_ticked) rows = variable.Default;
    if (!variable.Many && rows.size() > 1) rows = {rows.front()};
  }
  return chosen;
}

std::vector<std::vector<std::size_t>> AllRows(const TDescription& source) {
  std::vector<std::vector<std::size_t>> rows;
  for (const TVariable& variable : source.Variables) {
    rows.emplace_back(variable.Rows.size());
    std::iota(rows.back().begin(), rows.back().end(), std::size_t{0});
  }
  return rows;
}

TPlan MakePlan(const TPlanRequest& request) {
  TPlan plan;
  std::set<TListRequest> lists;
  plan.Combinations = request.Combinations;
  if (plan.Combinations.empty()) {
    ForEachCombination(ChosenRows(request.Source, request.Choices), [&](const TCombination& combination) {
      plan.Combinations.push_back(combination);
      return true;
    });
  }
  for (std::size_t i = 0; i < plan.Combinations.size(); ++i) {
    if (request.Stopped && request.Stopped()) break;
    auto files = TCombinationPlanner(request, i, plan.Combinations[i], lists).Plan();
    std::ranges::move(files, std::back_inserter(plan.Files));
  }
  std::ranges::stable_sort(plan.Files, std::greater(), &TPlannedFile::Slot);
  plan.Lists.assign(lists.begin(), lists.end());
  plan.NewestAlone = !request.Days;
  return plan;
}

std::vector<TPlannedFile> FilesDue(const TDescription& source, const TCombination& combination, TDateTime now,
                                   int days) {
  TPlanRequest request{source, now};
  request.Days = days;
  std::set<TListRequest> no_lists;
  return TCombinationPlanner(request, 0, combination, no_lists).Due();
}

TPictureAddresses AddressesOf(const TDescription& source, const TCombination& combination,
                              const TPlannedWay& planned, std::optional<TDateTime> now) {
  const TWay& way = source.Ways[planned.Way];
  TFieldValues values{source, combination, planned.Slot ? planned.Slot : now, source.Time.Zone};
  values.Found = planned.Found ? &*planned.Found : nullptr;
  TPictureAddresses picture;
  int first_x = 0, first_y = 0;
  if (way.Tiles) {
    const auto number = [&values](const TFieldText& text) { return ToInteger(Fill(text, values)); };
    picture.Columns = number(way.Tiles->Columns);
    picture.Rows = number(way.Tiles->Rows);
    first_x = number(way.Tiles->X);
    first_y = number(way.Tiles->Y);
    values.TileDigits = way.Tiles->Digits;
  }
  // The names in listings and buckets are decoded; a document's texts are as the server writes them.
  const bool decoded = way.Find && way.Find->Kind != TFind::TKind::Json;
  for (int y = 0; y < picture.Rows; ++y) {
    for (int x = 0; x < picture.Columns; ++x) {
      values.TileX = first_x + x;
      values.TileY = first_y + y;
      picture.Addresses.push_back(FillAddress(way.Url, values, decoded));
    }
  }
  return picture;
}

std::vector<std::string> HostsOf(const TDescription& source, TDateTime now) {
  std::vector<TFieldText> begins;
  for (const TWay& way : source.Ways) {
    begins.push_back(HostPart(way.Url));
    if (way.Find) begins.push_back(HostPart(way.Find->Url));
  }
  std::set<std::string> hosts;
  ForEachCombination(AllRows(source), [&](const TCombination& combination) {
    for (const TFieldText& begin : begins) {
      const std::string address = Fill(begin, {source, combination, now, source.Time.Zone});
      const std::size_t scheme = address.find("://"), host = scheme == address.npos ? 0 : scheme + 3;
      // A "?" at the beginning stands for what only a server knows.
      hosts.insert(address.substr(host, address.find_first_of("/?#", host + 1) - host));
    }
    return std::ranges::any_of(begins, [](const TFieldText& begin) { return begin.Has(TKind::Variable); });
  });
  return {hosts.begin(), hosts.end()};
}

std::string LocalPath(const TDescription& source, const TCombination& combination,
                      std::optional<TDateTime> slot) {
  const TFieldValues values{source, combination, slot};
  std::string folder = Fill(source.Keep.Folder, values);
  return (folder.empty() ? "" : std::move(folder) + "/") + Fill(source.Keep.Name, values);
}

std::string LabelOf(const TDescription& source, const TCombination& combination) {
  std::string label;
  for (std::size_t i = 0; i < combination.size(); ++i) {
    label += (i == 0 ? "" : ", ") + source.Variables[i].Rows[combination[i]].Label;
  }
  return label;
}

}  // namespace skyreel
