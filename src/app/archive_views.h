#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "app/coverage_view.h"
#include "app/files_view.h"
#include "app/lower_views.h"
#include "app/pictures_view.h"
#include "app/shared_catalogue.h"
#include "journal/journal.h"
#include "transfer/file_result.h"

namespace skyreel {

/// The views of what was fetched, in the lower half of the window: files, pictures and coverage. They are
/// made when their tabs are first shown, and follow the runs from then on.
class TArchiveViews {
 public:
  struct TSetup {
    TFilesView::TSetup Files;
    TCoverageEnvironment Coverage;
    TSharedCatalogue& Catalogue;
    std::function<bool()> Busy;  ///< a job is running
  };
  /// Adds the tabs. `lower` and the catalogue outlive the object.
  TArchiveViews(TLowerViews& lower, TSetup setup);

  /// There are new descriptions.
  void CatalogueRead();
  void RunBegan();
  void FileEnded(const TFileResult& result);
  void RunEnded();

 private:
  QWidget* MakeFiles();
  QWidget* MakePictures();
  TTitles Titles() const;
  QWidget* MakeCoverage();
  TPicturesView::TSourceWords WordsOf(const std::string& source) const;

  TPictureEntry PictureOf(const TJournalEntry& file) const;

  TLowerViews& lower_;
  const TSetup setup_;
  // Null until they are made.
  TFilesView* files_ = nullptr;
  TPicturesView* pictures_ = nullptr;
  TCoverageView* coverage_ = nullptr;
};

}  // namespace skyreel
