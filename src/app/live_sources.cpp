#include "app/live_sources.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "app/worker_journal.h"

namespace skyreel {

TLiveSources::TLiveSources(const TPageEnvironment& environment)
    : Settings(environment.Store), environment_(environment) {}

TLiveSources::~TLiveSources() {
  Settings.Save(environment_.Store);
}

const TDescription* TLiveSources::Find(const std::string& id) const {
  const TCatalogueEntry* const entry = Catalogue().Find(id);
  return entry && entry->Description ? &*entry->Description : nullptr;
}

std::vector<TWantedSource> TLiveSources::Wanted(const std::vector<std::string>& ids) const {
  std::vector<TWantedSource> wanted;
  for (const std::string& id : ids)
    if (const TDescription* const source = Find(id)) wanted.push_back(Settings.Wanted(*source));
  return wanted;
}

std::function<std::optional<THealths>()> TLiveSources::HealthWork() const {
  return [catalogue = environment_.Catalogue.Current(),
          file = environment_.JournalFile]() -> std::optional<THealths> {
    TWorkerJournal worker(file);
    const bool has_file = worker.Journal.FileExists();
    bool unusable = false;
    worker.Journal.SetOnProblem([&unusable](const std::string&) { unusable = true; });
    THealths healths;
    for (const TCatalogueEntry& entry : catalogue->Entries) {
      const auto& source = entry.Description;
      if (!source || source->Page) continue;
      healths[entry.Id] =
          has_file ? worker.Journal.Health(source->Id, source->Time.Stale.value_or(TDateTime::TSpan{0}))
                   : TSourceHealth::NeverRun;
      if (has_file && !worker.Journal.Answered() && !unusable) return std::nullopt;
    }
    return healths;
  };
}

std::function<TPreview()> TLiveSources::PreviewWork(const TDescription& source,
                                                    const std::filesystem::path& output,
                                                    TDateTime now) const {
  return [catalogue = environment_.Catalogue.Current(), file = environment_.JournalFile,
          wanted = Settings.Wanted(source), output, now] {
    TWorkerJournal worker(file);
    return PreviewOf({{wanted, PlanOffline(worker.Journal, output, now, wanted)}}, output);
  };
}

std::function<TVolume()> TLiveSources::VolumeWork(const std::vector<std::string>& ids,
                                                  const std::filesystem::path& output, TDateTime now) const {
  return [catalogue = environment_.Catalogue.Current(), file = environment_.JournalFile, all = Wanted(ids),
          output, now] {
    TWorkerJournal worker(file);
    TVolume sum;
    for (const TWantedSource& wanted : all) {
      const TPlan plan = PlanOffline(worker.Journal, output, now, wanted);
      sum += VolumeOf(wanted.Source, plan, wanted.Days);
    }
    return sum;
  };
}

std::vector<TCoverageSource> TLiveSources::CoverageSources(const std::filesystem::path& output,
                                                           const THealths& healths) const {
  std::vector<TCoverageSource> sources;
  const TSharedCatalogue::TPtr& catalogue = environment_.Catalogue.Current();
  if (!catalogue) return sources;
  for (const TCatalogueEntry& entry : catalogue->Entries) {
    if (!entry.Description || entry.Description->Page) continue;
    const auto health = healths.find(entry.Id);
    const bool has_run = health != healths.end() && health->second != TSourceHealth::NeverRun;
    if (!has_run && !Settings.Ticked.contains(entry.Id)) continue;
    const TWantedSource wanted = Settings.Wanted(*entry.Description);
    sources.push_back(CoverageOf({catalogue, &*entry.Description}, wanted.Choices, output, wanted.KeepDays));
  }
  return sources;
}

std::filesystem::path TLiveSources::UsersFile(const std::string& id) const {
  const TCatalogueEntry* const entry = Catalogue().Find(id);
  return entry && entry->OfUser ? entry->File : "";
}

std::filesystem::path TLiveSources::FileToKeep(const std::string& id) const {
  const std::filesystem::path file = UsersFile(id);
  return file.empty() ? environment_.Catalogue.Folders().User / (id + ".toml") : file;
}

std::vector<std::filesystem::path> TLiveSources::Watched() const {
  std::vector<std::filesystem::path> paths = {environment_.Catalogue.Folders().User};
  for (const TCatalogueEntry& entry : Catalogue().Entries)
    if (entry.OfUser) paths.push_back(entry.File);
  return paths;
}

std::shared_ptr<const TDescription> TLiveSources::FindAccepted(const std::string& id) const {
  const TDescription* const source = AreRead() ? Find(id) : nullptr;
  if (!source || !Settings.Terms.LetRun(*source)) return nullptr;
  return {environment_.Catalogue.Current(), source};
}

std::string TLiveSources::WhyNotRun(const TCatalogueEntry* entry) const {
  if (!entry) return "no such source";
  if (!entry->Description) return "its description is wrong";
  return Settings.Terms.LetRun(*entry->Description) ? "" : kTermsNotAccepted;
}

void TLiveSources::Run(TJobContext& context, const std::vector<std::string>& ids,
                       const std::filesystem::path& output) {
  if (!environment_.Catalogue.Await([&context] { return context.Run.StopRequested(); })) return;
  // A run lets events through, and the user may add a source meanwhile.
  const TSharedCatalogue::TPtr catalogue = environment_.Catalogue.Current();
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
  TDescribedRun run{.Context = context,
                    .Journal = environment_.Journal,
                    .Output = output,
                    .KeepsFiles = context.Record.KeepsFiles};
  std::ranges::move(RunDescribedSources(run, wanted), std::back_inserter(context.Records));
}

}  // namespace skyreel
