#pragma once

#include <QAbstractListModel>
#include <functional>
#include <string>
#include <vector>

class QTableView;

namespace skyreel {

/// The lines of the log as a list view shows them: one row per line, the newest at the bottom.
class TStatusLines : public QAbstractListModel {
 public:
  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;

  const std::vector<std::string>& Lines() const { return lines_; }
  void Append(std::string line) { Insert(Lines().size(), std::move(line)); }
  void Insert(std::size_t row, std::string line);
  /// There is at least one line.
  void ReplaceLast(std::string line);
  void RemoveFirst(std::size_t count);

 private:
  std::vector<std::string> lines_;
};

/// The log of this run of the program: one line per event, never cleared. Shown by a table of one column,
/// which takes a new line in the same time however long the log is (a list view lays out all its lines
/// again). The newest line is selected, so that the view scrolls to it. Control characters in a line become
/// blanks, a line of more than 4,000 bytes is cut. Of a log that grows beyond 200,000 lines the oldest go,
/// and the report says how many.
class TStatusLog {
 public:
  /// `view` shows the log and outlives it.
  explicit TStatusLog(QTableView& view, std::size_t maximum = 200'000);
  ~TStatusLog();
  TStatusLog(const TStatusLog&) = delete;
  TStatusLog& operator=(const TStatusLog&) = delete;

  void Add(const std::string& text);
  /// Puts `text` in the place of the newest line, for good; adds it when there is none.
  void ReplaceLast(const std::string& text);
  /// Adds a line that is not the job's own. One that the job has still to replace stays the newest.
  void AddAside(const std::string& text);

  bool IsEmpty() const { return lines_.Lines().empty(); }
  const std::vector<std::string>& Lines() const { return lines_.Lines(); }
  /// The whole log, every line ended by CR LF.
  std::string Report() const;

  /// Given each line once it is final: when the next one comes, or at Flush.
  std::function<void(const std::string& line)> OnFinalLine;
  /// The newest line will not be replaced any more.
  void Flush();

 private:
  void MakeRoom();
  void ShowNewest();

  QTableView& view_;
  const std::size_t maximum_;
  TStatusLines lines_;
  std::size_t dropped_ = 0;
  bool newest_is_open_ = false;  ///< the newest line may still be replaced and was not given to OnFinalLine
};

}  // namespace skyreel
