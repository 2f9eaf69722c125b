#include "app/shared_catalogue.h"

#include <QCoreApplication>
#include <algorithm>
#include <utility>

#include "app/background.h"
#include "base/event.h"

namespace skyreel {

namespace {

TSharedCatalogue::TPtr ReadAll(const TSourceFolders& folders, const TSharedCatalogue::TPtr& before) {
  auto loaded = std::make_shared<TCatalogue>(LoadCatalogue(EmbeddedDescriptions(), folders));
  const std::vector<TCatalogueEntry> none;
  const std::vector<TCatalogueEntry>& old_entries = before ? before->Entries : none;
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
    const auto old = std::ranges::find_if(old_entries, of_file);
    if (old != old_entries.end() && old->Description) {
      keep_old(*old);
    } else if (std::ranges::none_of(loaded->Entries, of_file)) {
      // Its id cannot be read, but the user must see it.
      const std::filesystem::path path = problem.File;
      loaded->Entries.push_back({problem.File,
                                 path.filename().string(),
                                 problem.File,
                                 path.parent_path() == folders.User,
                                 false,
                                 {}});
    }
  }
  return loaded;
}

}  // namespace

void TSharedCatalogue::Read() {
  again_ = reading_;
  if (std::exchange(reading_, true)) return;
  InBackground(
      this, [folders = folders_, before = current_] { return ReadAll(folders, before); },
      [this](TPtr read) {
        reading_ = false;
        // The files have changed meanwhile.
        if (again_) return Read();
        Take(std::move(read));
      });
}

void TSharedCatalogue::ReadOnce() {
  if (!current_ && !reading_) Read();
}

void TSharedCatalogue::WhenRead(std::function<void()> next) {
  next_ = std::move(next);
  if (current_) return CallNext();
  ReadOnce();
}

bool TSharedCatalogue::Await(const std::function<bool()>& stopped) {
  if (!current_ && !reading_) Take(ReadAll(folders_, nullptr));
  while (!current_ && !stopped()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  return current_ != nullptr;
}

void TSharedCatalogue::Take(TPtr read) {
  current_ = std::move(read);
  Fire(OnRead);
  CallNext();
}

void TSharedCatalogue::CallNext() {
  if (auto next = std::exchange(next_, nullptr))
    QMetaObject::invokeMethod(this, std::move(next), Qt::QueuedConnection);
}

}  // namespace skyreel
