#include "catalogue/described_run.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <system_error>

#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"
#include "catalogue/combinations.h"
#include "catalogue/folder_scan.h"
#include "catalogue/found_slots.h"
#include "catalogue/json_list.h"
#include "catalogue/listing.h"
#include "catalogue/slot_grid.h"
#include "catalogue/whole_file.h"
#include "catalogue/xml_lists.h"
#include "image/image_file.h"
#include "image/tile_grid.h"
#include "journal/source_memory.h"
#include "transfer/folder_maker.h"
#include "transfer/http_header.h"
#include "transfer/transfer_progress.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

/// So many pictures of a source wait in the queue at once: enough for its hosts, few for the memory.
constexpr int kPicturesAtOnce = 6;
constexpr int kMostListPages = 1'000;
constexpr std::size_t kMostListEntries = 2'000'000;  ///< of all its pages
constexpr std::size_t kMostTimes = 100'000;

/// Reads one page of a list. `next_page` gets the token of the page after it, if there is one.
TListAnswer ReadAnswer(const TListRequest& request, const std::string& text, std::string& next_page) {
  TListAnswer answer;
  const auto take = [&answer](const TListed& listed) {
    answer.Entries.push_back({std::string(listed.Text), {}, std::string(listed.Stamp)});
  };
  switch (request.Kind) {
    case TFind::TKind::Listing:
      StartsWithText(request.Address, "ftp:") ? ReadFtpListing(text, take) : ReadHtmlListing(text, take);
      break;
    case TFind::TKind::Json:
      for (TJsonEntry& entry : ReadJsonList(text, request.At, request.Read))
        answer.Entries.push_back({std::move(entry.Time), std::move(entry.Read)});
      break;
    case TFind::TKind::S3:
      next_page = ReadS3List(text, take);
      break;
    case TFind::TKind::WmsTime:
      const auto ranges = ReadWmsTimes(text, request.Layer);
      answer.HasTime = [ranges](TDateTime time) { return skyreel::HasTime(ranges, time); };
      answer.TimesWithin = [ranges](TDateTime first, TDateTime last) {
        return skyreel::TimesWithin(ranges, first, last, kMostTimes);
      };
      break;
  }
  return answer;
}

/// Whether the name asks for another format than the picture has, so that it is written anew.
bool AsksForOtherFormat(const fs::path& path, TFileType type) {
  const std::string extension = LowerCase(path.extension().string());
  if (extension == ".png") return type != TFileType::Png;
  return (extension == ".jpg" || extension == ".jpeg") && type != TFileType::Jpeg;
}

// --- The plan of one source ------------------------------------------------------------------------------

/// The combinations of these files' products.
std::vector<TCombination> CombinationsOf(const TDescription& source, const std::vector<TPictureKey>& files) {
  std::set<std::string> products;
  for (const TPictureKey& file : files) products.insert(file.Product);
  std::vector<std::vector<std::size_t>> rows;
  for (const TVariable& variable : source.Variables) {
    // Few of the many combinations are wanted.
    std::vector<std::size_t>& possible = rows.emplace_back();
    for (std::size_t i = 0; i < variable.Rows.size(); ++i) {
      if (std::ranges::any_of(products, [&](const std::string& product) {
            return product.find(variable.Rows[i].Label) != product.npos;
          }))
        possible.push_back(i);
    }
  }
  std::vector<TCombination> combinations;
  ForEachCombination(rows, [&](const TCombination& combination) {
    if (products.contains(LabelOf(source, combination))) combinations.push_back(combination);
    return true;
  });
  return combinations;
}

/// Plans what a source fetches, by what is on the disk and in the journal.
class TPlanner {
 public:
  TPlanner(TJournal& journal, const fs::path& output, TDateTime now, const TWantedSource& wanted)
      : Memory(journal, wanted.Source.Id),
        OnDisk(output),
        source_(wanted.Source),
        wanted_(wanted),
        now_(now) {
    for (const TPictureKey& file : wanted.Again) {
      again_paths_.insert(file.Path.generic_string());
      if (!file.SlotTime.IsZero()) again_slots_.push_back(file.SlotTime);
    }
    std::ranges::sort(again_slots_);
    if (IsAgain()) return;
    const TDateTime since = now_ - std::chrono::days(wanted.Days.value_or(1) + 1);
    for (const TMissedSlot& slot : Memory.Missed(since))
      ask_again_[{slot.Product, slot.SlotTime}] = slot.AskAgainAt();
  }

  TPlan Plan() {
    TPlanRequest request{source_, now_};
    request.Choices = wanted_.Choices;
    request.Days = wanted_.Days;
    request.OnDisk = [this](std::string_view path) {
      return IsAgain() ? !again_paths_.contains(path) : OnDisk.Has(path);
    };
    if (IsAgain()) {
      request.Slots = again_slots_;
      request.Combinations = CombinationsOf(source_, wanted_.Again);
    }
    request.Lists = [this](const TListRequest& list) -> const TListAnswer* {
      const auto answer = Lists.find(list);
      return answer == Lists.end() ? nullptr : &answer->second;
    };
    request.AskAgainAt = [this](const TCombination& combination, TDateTime slot) {
      const auto missed = ask_again_.find({LabelOf(source_, combination), slot});
      return missed == ask_again_.end() ? TDateTime() : missed->second;
    };
    request.LastStamp = [this](const TCombination& combination, const std::string& address) {
      const auto last = IsAgain() ? std::nullopt : LastOf(LabelOf(source_, combination), address);
      return last ? last->Stamp : "";
    };
    request.Stopped = Stopped;
    return MakePlan(request);
  }

  /// Exactly the files of TWantedSource::Again are wanted.
  bool IsAgain() const { return !wanted_.Again.empty(); }

  /// What this product stored last from an address, if the file is still there.
  std::optional<TStoredFile> LastOf(const std::string& product, const std::string& address) {
    auto last = Memory.Last(product, address);
    if (last && FileSizeOf(last->Path) != last->Bytes) last.reset();
    return last;
  }

  TSourceMemory Memory;
  TFolderScan OnDisk;
  std::map<TListRequest, TListAnswer> Lists;  ///< the answers so far
  std::function<bool()> Stopped;              ///< see TPlanRequest

 private:
  const TDescription& source_;
  const TWantedSource& wanted_;
  const TDateTime now_;
  std::map<std::pair<std::string, TDateTime>, TDateTime> ask_again_;  ///< by product and slot
  std::set<std::string, std::less<>> again_paths_;
  std::vector<TDateTime> again_slots_;  ///< ascending
};

}  // namespace

// --- One source --------------------------------------------------------------------------------------------

/// One source in a run. Its callbacks come from the queue.
class TDescribedSourceRun {
 public:
  TDescribedSourceRun(TDescribedRun& run, TFetchQueue& queue, const TWantedSource& wanted)
      : run_(run),
        queue_(queue),
        wanted_(wanted),
        source_(wanted.Source),
        now_(run.Context.Clock.UtcNow()),
        context_{run.Context.Display,        run.Context.Run,     run.Context.Clock,
                 run.Context.NMFTP,          run.Context.NMHTTP,  run.Context.NMHTTPNotts,
                 run.Context.Https,          run.Context.Ledger,  record_,
                 run.Context.Shared,         run.Context.WinInet, wanted.Source.Id,
                 run.Context.LargestDownload},
        planner_(run.Journal, run.Output, now_, wanted),
        folders_(context_) {
    record_.Source = source_.Id;
    record_.Title = source_.Title;
    record_.Started = now_;
    record_.KeepsFiles = run.KeepsFiles;
    for (const TWay& way : source_.Ways) gap_ = std::max(gap_, way.Gap);
    // A long list and many choices take minutes, so a signal must come through.
    planner_.Stopped = [this] {
      context_.Clock.Sleep(std::chrono::milliseconds(0));
      return context_.Run.StopRequested();
    };
  }

  /// Plans, and asks for the lists or the first pictures.
  void Start() {
    for (;;) {
      plan_ = planner_.Plan();
      if (plan_.Lists.empty()) return Begin();
      for (const TListRequest& list : plan_.Lists) AskList(list);
      // Otherwise the last list to come goes on.
      if (!documents_.empty()) return;
    }
  }

  /// Ends the source when the queue has come to its end.
  TRunRecord End() {
    const bool stopped = context_.Run.StopRequested();
    if (stopped) {
      record_.End = TRunEnd::Stopped;
      record_.Reason = "stopped";
    } else if (list_failed_ && record_.Counts.New + record_.Counts.Present == 0) {
      ++record_.Counts.Failed;
    }
    if (!stopped && !list_failed_ && wanted_.KeepDays) DeleteOld(*wanted_.KeepDays);
    return std::move(record_);
  }

 private:
  /// Files that are tried one after the other until one is whole; the index is that in the plan.
  using TChain = std::deque<std::size_t>;

  /// A picture on its way.
  struct TPicture {
    TPicture(TChain chain, const TPlannedFile& file) : Chain(std::move(chain)), File(file) {}
    ~TPicture() { DropTemporary(); }
    void DropTemporary() {
      std::error_code ignored;
      if (!Temporary.Name.empty()) fs::remove(Temporary.Name, ignored);
      Temporary = {};
    }

    TChain Chain;  ///< what to try when this one is not whole
    const TPlannedFile& File;
    std::size_t Way = 0;  ///< the one that is tried, in File.Ways
    TFileResult Result;
    std::string FailedWhy, RefusedWhy, AbsentWhy;  ///< of the ways so far; empty: none ended so
    bool LeftOut = false;                          ///< not asked, and the queue says so
    TTemporary Temporary;
    TPictureAddresses Addresses;  ///< of the way
    std::unique_ptr<TTileGrid> Tiles;
    int TilesMissing = 0;
  };
  using TPicturePtr = std::shared_ptr<TPicture>;

  // --- Lists

  void AskList(const TListRequest& list) {
    if (!list.Problem.empty()) return ListFailed(list, list.Problem);
    std::vector<TListRequest>& waiting = documents_[list.Address];
    waiting.push_back(list);
    if (waiting.size() == 1) AskPage(list.Address, list.Address, 1);
  }

  void AskPage(const std::string& list, const std::string& address, int page) {
    TFetchRequest request;
    request.Url = address;
    request.Gap = gap_;
    request.Tries = run_.Tries;
    request.Done = [this, list, page](const TFetchAnswer& answer) { ListArrived(list, page, answer); };
    queue_.Add(std::move(request));
  }

  void ListArrived(const std::string& address, int page, const TFetchAnswer& answer) {
    Fire(run_.OnAnswer, answer);
    const std::string why = WhyNoBody(answer);
    std::string next_page;
    for (const TListRequest& list : documents_[address]) {
      try {
        if (!why.empty()) throw EListError(why);
        TListAnswer read = ReadAnswer(list, answer.Text, next_page);
        std::vector<TListEntry>& entries = planner_.Lists[list].Entries;
        if (page == kMostListPages && !next_page.empty())
          throw EListError("the bucket's list has more than 1,000 pages");
        if (entries.size() + read.Entries.size() > kMostListEntries)
          throw EListError("the list has too many entries");
        entries.insert(entries.end(), std::make_move_iterator(read.Entries.begin()),
                       std::make_move_iterator(read.Entries.end()));
        planner_.Lists[list].HasTime = std::move(read.HasTime);
        planner_.Lists[list].TimesWithin = std::move(read.TimesWithin);
      } catch (const std::exception& error) {
        if (answer.End != TFetchEnd::Stopped) ListFailed(list, error.what());
      }
    }
    if (!next_page.empty() && !planner_.Lists[documents_[address].front()].Failed) {
      return AskPage(address, address + "&continuation-token=" + PercentEncode(next_page, "+/=&?#%"),
                     page + 1);
    }
    documents_.erase(address);
    if (documents_.empty() && answer.End != TFetchEnd::Stopped) Start();
  }

  void ListFailed(const TListRequest& list, const std::string& why) {
    planner_.Lists[list] = {.Failed = true};
    list_failed_ = true;
    if (told_lists_.insert(list.Address).second)
      context_.Display.AddStatusLine(source_.Title + ": the list " + list.Address +
                                     " cannot be used: " + why);
  }

  /// Why an answer brought nothing; reports a server that cannot be reached.
  std::string WhyNoBody(const TFetchAnswer& answer) {
    if (!answer.ServerProblem.empty()) ReportServerProblem(context_, answer.Url, answer.ServerProblem);
    if (answer.End != TFetchEnd::Answered) return answer.Reason.empty() ? "not asked" : answer.Reason;
    return answer.Code == 200 ? "" : "the server answered " + std::to_string(answer.Code);
  }

  // --- Pictures

  /// Says when nothing in a list fits: the description then most likely has a wrong name.
  void ReportUnfitLists() {
    constexpr std::size_t kEnough = 1'000;
    for (const auto& [list, answer] : planner_.Lists) {
      if (answer.Entries.empty() ||
          Fits({.Entries = {answer.Entries.begin(),
                            answer.Entries.begin() +
                                static_cast<std::ptrdiff_t>(std::min(kEnough, answer.Entries.size()))}}))
        continue;
      context_.Display.AddStatusLine(source_.Title + ": no name in the list " + list.Address + " fits (" +
                                     std::to_string(answer.Entries.size()) + " names, such as \"" +
                                     WithoutControls(answer.Entries.front().Text) + "\")");
    }
  }
  bool Fits(const TListAnswer& answer) const {
    for (const TWay& way : source_.Ways) {
      if (!way.Find) continue;
      for (const TCombination& combination : plan_.Combinations) {
        TFoundSlots found(source_, *way.Find, combination);
        found.Add(answer);
        if (!found.Within(TDateTime::FromDate(1970, 1, 1), now_ + std::chrono::days(1)).empty()) return true;
      }
    }
    return false;
  }

  void Begin() {
    if (!source_.IsFixedName()) ReportUnfitLists();
    std::map<std::size_t, TChain> chains;
    for (std::size_t i = 0; i < plan_.Files.size(); ++i) {
      if (wanted_.Days) {
        waiting_.push_back({i});
      } else {
        chains[plan_.Files[i].Combination].push_back(i);
      }
    }
    for (auto& [combination, chain] : chains) waiting_.push_back(std::move(chain));
    context_.Run.ExpectFiles(
        std::ranges::count_if(waiting_, [this](const TChain& chain) { return WillAsk(chain); }));
    const auto gone = std::ranges::count(plan_.Files, TPlanState::TooOld, &TPlannedFile::State);
    if (planner_.IsAgain() && gone > 0) {
      context_.Display.AddStatusLine(source_.Title + ": " + std::to_string(gone) +
                                     " files are older than the server keeps them");
    }
    StartMore();
  }

  void StartMore() {
    // A picture that ends at once comes here again.
    if (std::exchange(starting_, true)) return;
    while (active_ < kPicturesAtOnce && !waiting_.empty() && !context_.Run.StopRequested()) {
      TChain chain = std::move(waiting_.front());
      waiting_.pop_front();
      GoOn(std::move(chain));
    }
    starting_ = false;
  }

  /// Whether the next file of the chain that counts is one to be asked for.
  bool WillAsk(const TChain& chain) const {
    for (const std::size_t i : chain) {
      const TPlanState state = plan_.Files[i].State;
      if (state == TPlanState::Wanted) return true;
      if (state == TPlanState::Present || state == TPlanState::Unchanged) return false;
    }
    return false;
  }

  /// Takes the next file of a chain.
  void GoOn(TChain chain) {
    while (!chain.empty()) {
      const TPlannedFile& file = plan_.Files[chain.front()];
      chain.pop_front();
      switch (file.State) {
        case TPlanState::Present:
        case TPlanState::Unchanged:
          if (planner_.IsAgain()) return;
          return CountPresent(file.Slot);
        case TPlanState::NotYet:
          ++record_.Counts.NotYet;
          break;
        case TPlanState::Missing:
        case TPlanState::Resting:
          ++record_.Counts.Missing;
          break;
        case TPlanState::TooOld:
        case TPlanState::NeedsList:
          break;
        case TPlanState::Wanted:
          ++active_;
          return TryWay(std::make_shared<TPicture>(std::move(chain), file));
      }
    }
  }

  void CountPresent(std::optional<TDateTime> slot) {
    ++record_.Counts.Present;
    if (slot) record_.NewestPresent = std::max(record_.NewestPresent, *slot);
  }

  const TCombination& CombinationOf(const TPicture& picture) const {
    return plan_.Combinations[picture.File.Combination];
  }
  const TPlannedWay& PlannedOf(const TPicture& picture) const { return picture.File.Ways[picture.Way]; }
  const TWay& WayOf(const TPicture& picture) const { return source_.Ways[PlannedOf(picture).Way]; }

  void TryWay(const TPicturePtr& picture) {
    picture->Tiles.reset();
    if (picture->Way == picture->File.Ways.size()) return EndWithout(*picture);
    const TPlannedWay& planned = PlannedOf(*picture);
    const TWay& way = WayOf(*picture);
    picture->Addresses = AddressesOf(source_, CombinationOf(*picture), planned, now_);
    picture->DropTemporary();
    picture->Result.Address = picture->Addresses.Addresses.front().Text;
    if (way.Licence && way.Licence->Use != TLicence::TUse::Any && !wanted_.AcceptsTerms)
      return Absent(picture, "the terms of \"" + way.Title + "\" were not accepted");
    for (const TAddress& address : picture->Addresses.Addresses) {
      if (!address.Problem.empty()) return Refuse(picture, address.Problem);
    }
    if (way.IsFixedName() && !source_.IsFixedName()) {
      // A name that is always the same gives one picture. Ask again only for the slot that it has.
      const auto [known, fresh] = slots_of_names_.try_emplace(picture->Result.Address);
      if (!fresh && known->second != picture->File.Slot)
        return Absent(picture, "the picture is of another slot");
    }
    if (way.Tiles) return FetchTiles(picture);
    FetchOne(picture, way);
  }
  void NextWay(const TPicturePtr& picture) {
    ++picture->Way;
    TryWay(picture);
  }
  void Fail(const TPicturePtr& picture, const std::string& why) {
    picture->FailedWhy = why;
    NextWay(picture);
  }
  void Refuse(const TPicturePtr& picture, const std::string& why) {
    picture->RefusedWhy = why;
    NextWay(picture);
  }
  void Absent(const TPicturePtr& picture, const std::string& why) {
    picture->AbsentWhy = why;
    NextWay(picture);
  }

  TFetchRequest RequestOf(const TWay& way, const std::string& address) const {
    TFetchRequest request;
    request.Url = address;
    request.Limit = way.MaxSize.value_or(0);
    request.Gap = way.Gap;
    request.Tries = run_.Tries;
    return request;
  }

  void FetchOne(const TPicturePtr& picture, const TWay& way) {
    const fs::path path = run_.Output / picture->File.Path;
    if (picture->File.Slot && !folders_.Make(path.parent_path())) return Leave(*picture);
    // What a killed run leaves here the next one finds, whatever folders that fills.
    if (!folders_.Make(run_.Output)) return Leave(*picture);
    TFetchRequest request = RequestOf(way, picture->Result.Address);
    try {
      picture->Temporary = MakeTemporary(run_.Output / "picture");
    } catch (const std::system_error& error) {
      return Fail(picture, "not saved: " + ReasonOf(error));
    }
    request.File = picture->Temporary.Name;
    if (way.IsFixedName() && !planner_.IsAgain()) {
      if (const auto last = planner_.LastOf(LabelOf(source_, CombinationOf(*picture)), request.Url)) {
        request.ETag = last->ETag;
        request.LastModified = last->LastModified;
      }
    }
    request.Done = [this, picture](const TFetchAnswer& answer) { PictureArrived(picture, answer); };
    queue_.Add(std::move(request));
  }

  /// Judges what the code of an answer says. True: there is a body, which must be judged.
  bool HasBody(const TPicturePtr& picture, const TFetchAnswer& answer) {
    Fire(run_.OnAnswer, answer);
    TFileResult& result = picture->Result;
    result.Bytes += answer.Bytes;
    result.Seconds += answer.Seconds;
    result.ETag = answer.ETag;
    result.LastModified = answer.LastModified;
    const std::string why = WhyNoBody(answer);
    if (why.empty()) return true;
    if (answer.End == TFetchEnd::Stopped) {
      Leave(*picture);
    } else if (answer.End == TFetchEnd::Answered && IsGone(answer.Code)) {
      Absent(picture, why);
    } else if (answer.End == TFetchEnd::NotKept && answer.TooLarge) {
      Refuse(picture, why);
    } else {
      picture->LeftOut = answer.End == TFetchEnd::LeftOut;
      Fail(picture, why);
    }
    return false;
  }
  static bool IsGone(int code) { return IsAbsent(code) || code == 403 || code == 204; }

  void PictureArrived(const TPicturePtr& picture, const TFetchAnswer& answer) {
    if (answer.End == TFetchEnd::Answered && answer.Code == 304) {
      // Only a fixed name's request allows this answer, and the file may be gone since.
      const auto last = planner_.LastOf(LabelOf(source_, CombinationOf(*picture)), picture->Result.Address);
      if (last && WayOf(*picture).IsFixedName()) {
        Fire(run_.OnAnswer, answer);
        CountPresent(last->SlotTime);
        return Leave(*picture);
      }
    }
    if (!HasBody(picture, answer)) return;
    const auto modified = ParseHttpDate(answer.LastModified);
    const bool fixed = WayOf(*picture).IsFixedName();
    if (fixed && !modified) return Fail(picture, "the server names no date, which would be the slot");
    if (fixed && *modified > now_ + std::chrono::days(1))
      return Fail(picture, "the server dates the file ahead of now");
    const TDateTime slot = fixed ? SlotOfFixedName(source_.Time, *modified) : *picture->File.Slot;
    if (fixed) slots_of_names_[picture->Result.Address] = slot;
    if (picture->File.Slot && slot != *picture->File.Slot)
      return Absent(picture, "the picture is of another slot");
    try {
      const TVerdict verdict = JudgeFile(picture->Temporary.Name, WayOf(*picture),
                                         {answer.Length, modified.value_or(TDateTime()), slot});
      if (Accept(picture, verdict)) Store(picture, slot);
    } catch (const std::exception& error) {
      Fail(picture, "not saved: " + ReasonOf(error));
    }
  }

  bool Accept(const TPicturePtr& picture, const TVerdict& verdict) {
    switch (verdict.Kind) {
      case TVerdictKind::Whole:
        return true;
      case TVerdictKind::NoPicture:
        Absent(picture, verdict.Reason);
        break;
      case TVerdictKind::Refused:
        Refuse(picture, verdict.Reason);
        break;
      case TVerdictKind::Damaged:
        Fail(picture, verdict.Reason);
        break;
    }
    return false;
  }

  void Store(const TPicturePtr& picture, TDateTime slot) {
    const std::string product = LabelOf(source_, CombinationOf(*picture));
    const fs::path path = run_.Output / LocalPath(source_, CombinationOf(*picture), slot);
    picture->Result.Path = path;
    picture->Result.SlotTime = slot;
    const std::string hash = FileHash(picture->Temporary.Name);
    TFileState state = TFileState::New;
    const bool there = FileSizeOf(path) >= 0;
    if (source_.IsFixedName() || planner_.IsAgain()) {
      const auto last = planner_.LastOf(product, picture->Result.Address);
      const auto owner = planner_.Memory.At(path);
      if (there && owner && owner->Source != source_.Id)
        return Refuse(picture, "another source stored that file");
      if (last && last->Hash == hash && !planner_.IsAgain()) {
        CountPresent(last->SlotTime);
        return Leave(*picture);
      }
      if (there && FileHash(path) == hash) {
        // The journal was lost, or cannot be used.
        Remember(*picture, hash);
        CountPresent(slot);
        return Leave(*picture);
      }
      // What this program stores has the slot's date.
      if (there && !owner && GetFileDateTime(path) != slot)
        return Refuse(picture, "a file that Skyreel did not store has this name");
      if (there) state = TFileState::Updated;
      if (!folders_.Make(path.parent_path())) return Leave(*picture);
    } else if (there) {
      // Another copy of the program was faster.
      CountPresent(slot);
      return Leave(*picture);
    }
    const TFileType type = WayOf(*picture).Type;
    if (AsksForOtherFormat(path, type)) {
      TExtBitmap bitmap(TPixelFormat::Bits24);
      LoadImageFromMemory(bitmap, ExtensionOf(type), ReadWholeFile(picture->Temporary.Name));
      SaveImage(bitmap, path);
      SetFileDateTime(path, slot);
    } else {
      SetFileDateTime(picture->Temporary.File.Get(), slot);
      MoveFileWhole(picture->Temporary.File.Get(), picture->Temporary.Name, path);
    }
    Stored(*picture, state, hash);
  }

  // --- Tiles

  void FetchTiles(const TPicturePtr& picture) {
    if (!folders_.Make((run_.Output / picture->File.Path).parent_path())) return Leave(*picture);
    const TPictureAddresses& all = picture->Addresses;
    picture->Tiles = std::make_unique<TTileGrid>(all.Columns, all.Rows);
    picture->TilesMissing = all.Columns * all.Rows;
    // The first tile comes alone: it tells whether the server has the picture.
    FetchTile(picture, 0);
  }

  void FetchTile(const TPicturePtr& picture, int index) {
    const std::vector<TAddress>& addresses = picture->Addresses.Addresses;
    TFetchRequest request = RequestOf(WayOf(*picture), addresses[static_cast<std::size_t>(index)].Text);
    request.Group = addresses.front().Text;
    // The picture may have been given up for another tile.
    request.IsWanted = [picture, attempt = picture->Way] {
      return picture->Way == attempt && picture->Tiles != nullptr;
    };
    request.Done = [this, picture, index, wanted = request.IsWanted](const TFetchAnswer& answer) {
      if (wanted()) TileArrived(picture, index, answer);
    };
    queue_.Add(std::move(request));
  }

  void TileArrived(const TPicturePtr& picture, int index, const TFetchAnswer& answer) {
    if (!HasBody(picture, answer)) return;
    const TWay& way = WayOf(*picture);
    const int columns = picture->Addresses.Columns;
    const TDateTime modified = ParseHttpDate(answer.LastModified).value_or(TDateTime());
    try {
      const TVerdict verdict = JudgeBytes(answer.Text, way, {answer.Length, modified, *picture->File.Slot});
      if (!Accept(picture, verdict)) return;
      picture->Tiles->Put(index % columns, index / columns, ExtensionOf(way.Type), answer.Text);
      if (--picture->TilesMissing == 0) return StoreTiles(*picture);
    } catch (const std::exception& error) {
      return Fail(picture, ReasonOf(error));
    }
    if (index != 0) return;
    for (int other = 1; other < columns * picture->Addresses.Rows; ++other) FetchTile(picture, other);
  }

  void StoreTiles(TPicture& picture) {
    const fs::path path = run_.Output / picture.File.Path;
    picture.Result.Path = path;
    picture.Result.SlotTime = *picture.File.Slot;
    const bool there = FileSizeOf(path) >= 0;
    if (there && !planner_.IsAgain()) {
      // Another copy of the program was faster.
      CountPresent(picture.File.Slot);
      return Leave(picture);
    }
    SaveImage(picture.Tiles->Picture(), path);
    SetFileDateTime(path, *picture.File.Slot);
    picture.Tiles.reset();
    Stored(picture, there ? TFileState::Updated : TFileState::New, "");
  }

  // --- The end of a picture

  void Stored(TPicture& picture, TFileState state, const std::string& hash) {
    picture.Result.Outcome = TFileOutcome::Saved;
    Remember(picture, hash);
    EndPicture(picture, state, "");
    Finish(picture);
  }

  void Remember(const TPicture& picture, const std::string& hash) {
    const TFileResult& result = picture.Result;
    planner_.Memory.Remember({.Product = LabelOf(source_, CombinationOf(picture)),
                              .SlotTime = result.SlotTime,
                              .Address = result.Address,
                              .Path = result.Path,
                              .Bytes = FileSizeOf(result.Path),
                              .Hash = hash,
                              .ETag = result.ETag,
                              .LastModified = result.LastModified,
                              .Stamp = StampOf(picture)});
  }

  /// What the listing shows for a fixed name; see TPlanRequest::LastStamp.
  std::string StampOf(const TPicture& picture) const {
    const TWay& way = WayOf(picture);
    if (!source_.IsFixedName() || !way.Find) return "";
    for (const auto& [list, answer] : planner_.Lists) {
      const std::string name =
          PercentDecode(picture.Result.Address.substr(picture.Result.Address.rfind('/') + 1));
      for (const TListEntry& entry : answer.Entries) {
        if (entry.Text == name) return entry.Stamp;
      }
    }
    return "";
  }

  /// Every way has ended without a whole picture.
  void EndWithout(TPicture& picture) {
    TFileState state = TFileState::Missing;
    std::string why = picture.AbsentWhy;
    if (!picture.FailedWhy.empty()) {
      state = TFileState::Failed;
      why = picture.FailedWhy;
    } else if (!picture.RefusedWhy.empty()) {
      state = TFileState::Refused;
      why = picture.RefusedWhy;
    } else if (picture.File.Slot && source_.Time.Every &&
               context_.Clock.UtcNow() < *picture.File.Slot + source_.Time.Delay + source_.Time.Grace) {
      state = TFileState::NotYet;
    }
    if (picture.File.Slot) {
      picture.Result.SlotTime = *picture.File.Slot;
      picture.Result.Path = run_.Output / picture.File.Path;
    }
    EndPicture(picture, state, why);
    TChain chain = std::move(picture.Chain);
    if (WillAsk(chain)) context_.Run.ExpectFiles(1);
    --active_;
    GoOn(std::move(chain));
    StartMore();
  }

  /// Counts the picture and writes its line.
  void EndPicture(TPicture& picture, TFileState state, const std::string& why) {
    TFileResult& result = picture.Result;
    result.Source = source_.Id;
    result.Product = LabelOf(source_, CombinationOf(picture));
    result.State = state;
    result.Reason = why;
    result.Name = result.Path.empty() ? result.Address : result.Path.filename().string();
    if (result.Outcome != TFileOutcome::Saved) result.Outcome = TFileOutcome::Refused;
    std::string line;
    if (state == TFileState::New || state == TFileState::Updated) {
      line = result.Name + (state == TFileState::New ? " - OK" : " - updated");
    } else if (state == TFileState::Missing) {
      line = result.Name + " - missing: " + why;
    } else if (state != TFileState::NotYet && !picture.LeftOut) {
      line = result.Name + (state == TFileState::Failed ? " - failed: " : " - refused: ") + why;
    }
    CountFile(context_, result, line);
  }

  /// The picture needs nothing more, and no file has ended at the display.
  void Leave(TPicture& picture) {
    context_.Run.ExpectFiles(-1);
    Finish(picture);
  }
  void Finish(TPicture& picture) {
    picture.Tiles.reset();
    picture.DropTemporary();
    --active_;
    StartMore();
  }

  // --- Retention

  void DeleteOld(int days) {
    const TDateTime limit = now_ - std::chrono::days(days);
    std::int64_t deleted = 0;
    for (;;) {
      const std::vector<TStoredFile> old = planner_.Memory.Before(limit, 1'000);
      for (const TStoredFile& file : old) {
        // A file that somebody changed is not the one that was stored.
        std::error_code error;
        if (IsBelowOutput(file.Path) && FileSizeOf(file.Path) == file.Bytes && fs::remove(file.Path, error))
          ++deleted;
        planner_.Memory.Forget(file.Path);
      }
      // While the journal cannot be written, the same files would come again.
      if (old.size() < 1'000 || !run_.Journal.Flush()) break;
    }
    if (deleted > 0) {
      context_.Display.AddStatusLine(source_.Title + ": deleted " + Count(deleted, "file") +
                                     " of slots before " + FormatDateTime("yyyy-mm-dd hh':'nn", limit));
    }
  }
  bool IsBelowOutput(const fs::path& path) const {
    const fs::path relative = path.lexically_normal().lexically_relative(run_.Output.lexically_normal());
    return !relative.empty() && *relative.begin() != "..";
  }

  TDescribedRun& run_;
  TFetchQueue& queue_;
  const TWantedSource& wanted_;
  const TDescription& source_;
  const TDateTime now_;
  TRunRecord record_;
  TTransferContext context_;  ///< the run's, with this source's record
  TPlanner planner_;
  TFolderMaker folders_;
  std::chrono::milliseconds gap_{0};
  TPlan plan_;
  std::map<std::string, std::vector<TListRequest>> documents_;  ///< being asked for, by address
  std::set<std::string> told_lists_;
  bool list_failed_ = false;
  std::map<std::string, std::optional<TDateTime>> slots_of_names_;  ///< by address; empty: not known yet
  std::deque<TChain> waiting_;
  int active_ = 0;
  bool starting_ = false;
};

// --- The run -----------------------------------------------------------------------------------------------

TWantedSource WantedAgain(const TDescription& source, std::vector<TPictureKey> files, TDateTime now) {
  TDateTime oldest = now;
  for (const TPictureKey& file : files)
    if (!file.SlotTime.IsZero()) oldest = std::min(oldest, file.SlotTime);
  const auto days = std::chrono::duration_cast<std::chrono::days>(now.Midnight() - oldest.Midnight());
  return {.Source = source, .Days = static_cast<int>(days.count()) + 1, .Again = std::move(files)};
}

TPlan PlanOffline(TJournal& journal, const fs::path& output, TDateTime now, const TWantedSource& wanted) {
  return TPlanner(journal, output, now, wanted).Plan();
}

std::vector<TRunRecord> RunDescribedSources(TDescribedRun& run, const std::vector<TWantedSource>& sources) {
  TFetchQueue queue(run.Context);
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::unique_ptr<TDescribedSourceRun>> running;
  for (const TWantedSource& wanted : sources) {
    running.push_back(std::make_unique<TDescribedSourceRun>(run, queue, wanted));
    running.back()->Start();
  }
  queue.Run();
  std::vector<TRunRecord> records;
  for (const auto& source : running) {
    records.push_back(source->End());
    records.back().Counts.Seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.Context.Display.AddStatusLine(records.back().Line());
  }
  return records;
}

}  // namespace skyreel
