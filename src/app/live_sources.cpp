#include "app/live_sources.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/files.h"

namespace skyreel {

TLiveSources::TLiveSources(TRegistryStore& store, TSourceFolders folders, TJournal& journal)
    : Settings(store), store_(store), folders_(std::move(folders)), journal_(journal) {}

TLiveSources::~TLiveSources() {
  Settings.Save(store_);
}

void TLiveSources::Load() {
  auto loaded = std::make_shared<TCatalogue>(LoadCatalogue(EmbeddedDescriptions(), folders_));
  const std::vector<TCatalogueEntry> none;
  const std::vector<TCatalogueEntry>& before = catalogue_ ? catalogue_->Entries : none;
  const auto keep_old = [&](const TCatalogueEntry& entry) {
    const auto same = std::ranges::find(loaded->Entries, entry.Id, &TCatalogueEntry::Id);
    if (same == loaded->Entries.end()) {
      loaded->Entries.push_back(entry);
    } else {
      *same = entry;
    }
  };
  for (const TProblem& problem : loaded->Problems) {
    const auto of_file = [&](const TCatalogueEntry& entry) { return entry.File == problem.File; };
    const auto old = std::ranges::find_if(before, of_file);
    if (old != before.end() && old->Description) {
      keep_old(*old);
    } else if (std::ranges::none_of(loaded->Entries, of_file)) {
      // Its id cannot be read, but the user must see it.
      const std::filesystem::path path = problem.File;
      loaded->Entries.push_back({problem.File,
                                 path.filename().string(),
                                 problem.File,
                                 path.parent_path() == folders_.User,
                                 false,
                                 {}});
    }
  }
  // A tick whose file is gone is shown, so that the user can remove it.
  for (const std::string& id : Settings.Ticked) {
    if (!loaded->Find(id)) loaded->Entries.push_back({id, id, "", false, false, {}});
  }
  catalogue_ = std::move(loaded);
}

std::filesystem::path TLiveSources::UsersFile(const std::string& id) const {
  const TCatalogueEntry* const entry = catalogue_->Find(id);
  return entry && entry->OfUser ? entry->File : "";
}

std::filesystem::path TLiveSources::Keep(const std::string& id, const std::string& text) const {
  std::filesystem::path file = UsersFile(id);
  if (file.empty()) file = folders_.User / (id + ".toml");
  ForceDirectories(file.parent_path());
  WriteFileWhole(file, text);
  return file;
}

std::string TLiveSources::TextOf(const std::string& id) const {
  const std::string& file = catalogue_->Find(id)->File;
  for (const TEmbeddedDescription& embedded : EmbeddedDescriptions())
    if (embedded.Name == file) return std::string(embedded.Text);
  return ReadWholeFile(file);
}

std::vector<std::filesystem::path> TLiveSources::Watched() const {
  std::vector<std::filesystem::path> paths = {folders_.User};
  for (const TCatalogueEntry& entry : catalogue_->Entries)
    if (entry.OfUser) paths.push_back(entry.File);
  return paths;
}

const TDescription* TLiveSources::Find(const std::string& id) const {
  const TCatalogueEntry* const entry = catalogue_->Find(id);
  return entry && entry->Description ? &*entry->Description : nullptr;
}

std::shared_ptr<const TDescription> TLiveSources::FindAccepted(const std::string& id) const {
  const TDescription* const source = Find(id);
  if (!source || !IsAccepted(*source)) return nullptr;
  return {catalogue_, source};
}

TSourceHealth TLiveSources::Health(const TDescription& source) const {
  if (!journal_.FileExists()) return TSourceHealth::NeverRun;
  return journal_.Health(source.Id, source.Time.Stale.value_or(TDateTime::TSpan{0}));
}

TPlan TLiveSources::Plan(const TDescription& source, const std::filesystem::path& output,
                         TDateTime now) const {
  return PlanOffline(journal_, output, now, Settings.Wanted(source));
}

TVolume TLiveSources::Volume(const std::vector<std::string>& ids, const std::filesystem::path& output,
                             TDateTime now) const {
  TVolume sum;
  for (const std::string& id : ids) {
    const TDescription* const source = Find(id);
    if (!source) continue;
    sum += VolumeOf(*source, Plan(*source, output, now), Settings.Wanted(*source).Days);
  }
  return sum;
}

bool TLiveSources::IsAccepted(const TDescription& source) const {
  return source.Licence.Use == TLicence::TUse::Any || Settings.Accepted.contains(source.Id);
}

std::vector<const TDescription*> TLiveSources::NotAccepted(const std::vector<std::string>& ids) const {
  std::vector<const TDescription*> sources;
  for (const std::string& id : ids) {
    const TDescription* const source = Find(id);
    if (source && !IsAccepted(*source)) sources.push_back(source);
  }
  return sources;
}

std::string TLiveSources::WhyNotRun(const TCatalogueEntry* entry) const {
  if (!entry || entry->File.empty()) return "no such source";
  if (!entry->Description) return "its description is wrong";
  return IsAccepted(*entry->Description)
             ? ""
             : "not run, since its terms were not accepted; run it once in the window";
}

void TLiveSources::Run(TJobContext& context, const std::vector<std::string>& ids,
                       const std::filesystem::path& output) {
  // A run lets events through, and the user may add a source meanwhile.
  const std::shared_ptr<const TCatalogue> catalogue = catalogue_;
  std::vector<TWantedSource> wanted;
  for (const std::string& id : ids) {
    const TCatalogueEntry* const entry = catalogue->Find(id);
    const std::string why = WhyNotRun(entry);
    if (why.empty()) {
      wanted.push_back(Settings.Wanted(*entry->Description));
      continue;
    }
    TRunRecord& record = context.Records.emplace_back();
    record.Source = id;
    if (entry) record.Title = entry->Title;
    record.Started = context.Clock.UtcNow();
    record.End = TRunEnd::NotStarted;
    record.Reason = why;
    context.Display.AddStatusLine(record.Line());
  }
  if (wanted.empty()) return;
  TDescribedRun run{
      .Context = context, .Journal = journal_, .Output = output, .KeepsFiles = context.Record.KeepsFiles};
  std::ranges::move(RunDescribedSources(run, wanted), std::back_inserter(context.Records));
}

std::string TermsText(const TLicence& licence) {
  switch (licence.Use) {
    case TLicence::TUse::Any:
      return licence.Name;
    case TLicence::TUse::Personal:
      return licence.Name + "; for personal use only: do not sell the pictures or pass them on";
    case TLicence::TUse::Ask:
      break;
  }
  return licence.Name + "; ask the provider before you use the pictures";
}

}  // namespace skyreel
