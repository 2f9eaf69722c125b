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

  /// Adds a line that stays as it is. A line that stands for a transfer stays the newest.
  void Add(const std::string& text);
  /// Adds a line that stands for a transfer, until End puts its outcome in its place.
  void Begin(const std::string& text);
  /// Adds the line where no transfer was begun.
  void End(const std::string& text);

  bool IsEmpty() const { return lines_.Lines().empty(); }
  const std::vector<std::string>& Lines() const { return lines_.Lines(); }
  /// The whole log, every line ended by CR LF.
  std::string Report() const;

  /// Given each line once it is final: at Add and at End; what was only begun, at the next Begin or at Flush.
  std::function<void(const std::string& line)> OnFinalLine;
  /// A transfer that was begun does not end any more: its line is final.
  void Flush();

 private:
  void Insert(std::size_t row, const std::string& line);

  QTableView& view_;
  const std::size_t maximum_;
  TStatusLines lines_;
  std::size_t dropped_ = 0;
  bool begun_ = false;  ///< the newest line stands for a transfer
};

}  // namespace skyreel
