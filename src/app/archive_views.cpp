#include "app/archive_views.h"

#include <utility>

namespace skyreel {

TArchiveViews::TArchiveViews(TLowerViews& lower, TSetup setup) : setup_(std::move(setup)) {
  lower.Add(
      "Files", [this] { return MakeFiles(); }, [this] { files_->Find(); });
  lower.Add("Pictures", [this] { return MakePictures(); });
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
}

void TArchiveViews::RunBegan() {
  if (files_ != nullptr) files_->SetRunning(true);
}

void TArchiveViews::FileEnded(const TFileResult& result) {
  const bool stored = result.State == TFileState::New || result.State == TFileState::Updated;
  if (pictures_ == nullptr || !stored) return;
  auto [title, credit] = WordsOf(result.Source);
  pictures_->ShowNewest(
      {result.Source, std::move(title), result.Product, result.SlotTime, result.Path, std::move(credit)});
}

void TArchiveViews::RunEnded() {
  if (files_ != nullptr) files_->SetRunning(false);
  if (pictures_ != nullptr) pictures_->Reload();
}

}  // namespace skyreel
