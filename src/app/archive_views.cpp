#include "app/archive_views.h"

#include <utility>

#include "app/journal_recorder.h"

namespace skyreel {

TArchiveViews::TArchiveViews(TLowerViews& lower, TSetup setup) : lower_(lower), setup_(std::move(setup)) {
  lower.Add(
      "Files", [this] { return MakeFiles(); }, [this] { files_->Find(); });
  lower.Add("Pictures", [this] { return MakePictures(); });
  lower.Add("Coverage", [this] { return MakeCoverage(); });
}

QWidget* TArchiveViews::MakeFiles() {
  // They tell which files can be fetched again.
  setup_.Catalogue.ReadOnce();
  files_ = new TFilesView(setup_.Files);
  files_->SetTitles(Titles());
  files_->SetRunning(setup_.Busy());
  return files_;
}

QWidget* TArchiveViews::MakePictures() {
  setup_.Catalogue.ReadOnce();
  pictures_ = new TPicturesView({.Journal = setup_.Files.Journal,
                                 .Describe = [this](const std::string& source) { return WordsOf(source); }});
  pictures_->Reload();
  return pictures_;
}

QWidget* TArchiveViews::MakeCoverage() {
  coverage_ = new TCoverageView(setup_.Coverage);
  coverage_->OnFetch = setup_.Files.FetchAgain;
  // The view of the pictures is made, at the latest, when its tab is shown.
  coverage_->OnShowPicture = [this](const TJournalEntry& picture) {
    lower_.Show("Pictures");
    pictures_->ShowPicture(PictureOf(picture));
  };
  coverage_->OnPlay = [this](const std::vector<TJournalEntry>& pictures) {
    lower_.Show("Pictures");
    pictures_->PlayFrom(PictureOf(pictures.front()), pictures.back().SlotTime);
  };
  return coverage_;
}

TPictureEntry TArchiveViews::PictureOf(const TJournalEntry& file) const {
  auto [title, credit] = WordsOf(file.Source);
  return {file.Source, std::move(title), file.Product, file.SlotTime, file.Path, std::move(credit)};
}

TPicturesView::TSourceWords TArchiveViews::WordsOf(const std::string& source) const {
  const TSharedCatalogue::TPtr catalogue = setup_.Catalogue.Current();
  const TCatalogueEntry* const entry = catalogue ? catalogue->Find(source) : nullptr;
  if (entry == nullptr) return {source, ""};
  return {entry->Title, entry->Description ? entry->Description->Licence.Credit : ""};
}

TTitles TArchiveViews::Titles() const {
  TTitles titles;
  const TSharedCatalogue::TPtr catalogue = setup_.Catalogue.Current();
  if (!catalogue) return titles;
  for (const TCatalogueEntry& entry : catalogue->Entries) titles[entry.Id] = entry.Title;
  return titles;
}

void TArchiveViews::CatalogueRead() {
  if (files_ != nullptr) files_->SetTitles(Titles());
  if (pictures_ != nullptr) pictures_->Reload();
  if (coverage_ != nullptr) coverage_->SourcesChanged();
}

void TArchiveViews::RunBegan() {
  if (files_ != nullptr) files_->SetRunning(true);
  if (coverage_ != nullptr) coverage_->RunChanged();
}

void TArchiveViews::FileEnded(const TFileResult& result) {
  if (coverage_ != nullptr) {
    coverage_->FileDone(result.Source, result.Product,
                        {result.SlotTime, JournalOutcome(result.State), result.Reason, result.Path});
  }
  const bool stored = result.State == TFileState::New || result.State == TFileState::Updated;
  if (pictures_ == nullptr || !stored) return;
  auto [title, credit] = WordsOf(result.Source);
  pictures_->ShowNewest(
      {result.Source, std::move(title), result.Product, result.SlotTime, result.Path, std::move(credit)});
}

void TArchiveViews::RunEnded() {
  if (files_ != nullptr) files_->SetRunning(false);
  if (pictures_ != nullptr) pictures_->Reload();
  if (coverage_ != nullptr) coverage_->RunChanged();
}

}  // namespace skyreel
