#pragma once

#include <QString>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "journal/journal.h"

namespace skyreel {

/// The columns of the table of files.
enum class TFileColumn { State, Time, Source, Product, Name, Size, Outcome, Reason };
inline constexpr int kFileColumns = 8;

/// By the journal's names of the sources. A source that is not in it has its name for a title.
using TTitles = std::map<std::string, std::string>;

/// A file of the journal as the table shows it.
struct TListedFile : TJournalRow {
  TListedFile(TJournalRow row, const TTitles& titles);
  QString Text(TFileColumn column) const;

  std::string Title;  ///< of the source
  std::string Key;    ///< all columns and the source's name in lower case, for the filter
};
/// Shared, so that a new order of many files costs little.
using TListedFiles = std::vector<std::shared_ptr<const TListedFile>>;

/// What the table is to show.
struct TFileQuery {
  std::filesystem::path Journal;
  std::shared_ptr<const TTitles> Titles;
  bool LatestRun = true;         ///< files of the latest run alone, else those since Since
  TDateTime Since{};             ///< UTC
  std::vector<QString> Words{};  ///< each must be in one of the columns
  bool ProblemsAlone = false;
  int SortColumn = -1;  ///< a TFileColumn; -1: the newest entries first
  bool Descending = false;
  TListedFiles Known{};  ///< of the last answer, to which new files are added; empty: reads all
  std::int64_t KnownRun = 0, LastId = 0;
};

struct TFileAnswer {
  TListedFiles All;    ///< the newest entries first
  TListedFiles Shown;  ///< filtered and sorted
  std::int64_t Run = 0, LastId = 0;
  std::string Problem;  ///< why the journal gives no files; empty when it does
  bool Busy = false;    ///< another program has locked the journal
};

/// The most files that are shown.
inline constexpr std::int64_t kMostFiles = 200'000;

/// Reads the journal, filters and sorts. It takes a while: call it on a worker thread.
TFileAnswer ListFiles(const TFileQuery& query);

}  // namespace skyreel
