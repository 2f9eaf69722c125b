#include "app/file_list.h"

#include <algorithm>
#include <utility>

#include "app/signs.h"
#include "app/worker_journal.h"
#include "base/text.h"
#include "catalogue/volume.h"

namespace skyreel {

namespace {

/// A text that sorts as the column does.
std::string SortKey(const TListedFile& file, TFileColumn column) {
  switch (column) {
    case TFileColumn::State:
      return std::to_string(static_cast<int>(SignOf(file.Outcome)));
    case TFileColumn::Time:
      return FormatDateTime("yyyymmddhhnnss", file.SlotTime);
    case TFileColumn::Size:
      return Digits(std::max<std::int64_t>(file.Bytes, 0), 19);
    default:
      return file.Text(column).toLower().toStdString();
  }
}

void Sort(TListedFiles& files, TFileColumn column, bool descending) {
  std::vector<std::pair<std::string, std::shared_ptr<const TListedFile>>> keyed;
  keyed.reserve(files.size());
  for (auto& file : files) keyed.emplace_back(SortKey(*file, column), std::move(file));
  if (descending) {
    std::ranges::stable_sort(keyed, std::greater(), &decltype(keyed)::value_type::first);
  } else {
    std::ranges::stable_sort(keyed, std::less(), &decltype(keyed)::value_type::first);
  }
  for (std::size_t i = 0; i < files.size(); ++i) files[i] = std::move(keyed[i].second);
}

bool IsWanted(const TListedFile& file, const TFileQuery& query, const std::vector<std::string>& words) {
  if (query.ProblemsAlone && SignOf(file.Outcome) != TSign::Problem) return false;
  return std::ranges::all_of(
      words, [&](const std::string& word) { return file.Key.find(word) != std::string::npos; });
}

/// Adds what is new in the journal to the known files.
TFileAnswer Read(const TFileQuery& query) {
  TFileAnswer answer;
  TWorkerJournal worker(query.Journal);
  TJournal& journal = worker.Journal;
  // A question would make the file.
  if (!journal.FileExists()) return answer;
  journal.SetOnProblem([&](const std::string& text) { answer.Problem = text; });
  const auto failed = [&] {
    if (journal.Answered()) return false;
    answer.Busy = answer.Problem.empty();
    if (answer.Busy) answer.Problem = kJournalBusy;
    answer.All = query.Known;
    answer.Run = query.KnownRun;
    answer.LastId = query.LastId;
    return true;
  };
  answer.Run = journal.NewestRun();
  if (failed()) return answer;
  TJournalQuery rows{.Since = query.Since, .Limit = kMostFiles};
  if (query.LatestRun) rows.Run = answer.Run;
  const bool goes_on = query.LastId > 0 && (!query.LatestRun || answer.Run == query.KnownRun);
  if (goes_on) rows.AfterId = answer.LastId = query.LastId;
  std::vector<TJournalRow> found = journal.Rows(rows);
  if (failed()) return answer;
  for (TJournalRow& row : found) {
    answer.LastId = std::max(answer.LastId, row.Id);
    answer.All.push_back(std::make_shared<TListedFile>(std::move(row), *query.Titles));
  }
  if (goes_on) answer.All.insert(answer.All.end(), query.Known.begin(), query.Known.end());
  if (answer.All.size() > kMostFiles) answer.All.resize(kMostFiles);
  return answer;
}

}  // namespace

TListedFile::TListedFile(TJournalRow row, const TTitles& titles) : TJournalRow(std::move(row)) {
  ETag.clear();
  LastModified.clear();
  const auto title = titles.find(Source);
  Title = title == titles.end() ? Source : title->second;
  QString all = QString::fromStdString(Source) + '\n';
  for (int column = 0; column < kFileColumns; ++column) all += Text(static_cast<TFileColumn>(column)) + '\n';
  Key = all.toLower().toStdString();
}

QString TListedFile::Text(TFileColumn column) const {
  switch (column) {
    case TFileColumn::State:
      return SignText(SignOf(Outcome));
    case TFileColumn::Time:
      return SlotTime.IsZero() ? QString()
                               : QString::fromStdString(FormatDateTime("yyyy-mm-dd hh':'nn", SlotTime));
    case TFileColumn::Source:
      return QString::fromStdString(Title);
    case TFileColumn::Product:
      return QString::fromStdString(Product);
    case TFileColumn::Name:
      return QString::fromStdString(Path.empty() ? Address.substr(Address.rfind('/') + 1)
                                                 : Path.filename().string());
    case TFileColumn::Size:
      return Bytes > 0 ? QString::fromStdString(SizeText(Bytes)) : QString();
    case TFileColumn::Outcome:
      return QString::fromStdString(std::string(OutcomeWord(Outcome)));
    case TFileColumn::Reason:
      break;
  }
  return QString::fromStdString(Reason);
}

TFileAnswer ListFiles(const TFileQuery& query) {
  TFileAnswer answer = Read(query);
  std::vector<std::string> words;
  for (const QString& word : query.Words) words.push_back(word.toLower().toStdString());
  std::ranges::copy_if(answer.All, std::back_inserter(answer.Shown),
                       [&](const auto& file) { return IsWanted(*file, query, words); });
  if (query.SortColumn >= 0) Sort(answer.Shown, static_cast<TFileColumn>(query.SortColumn), query.Descending);
  return answer;
}

}  // namespace skyreel
