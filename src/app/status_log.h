#pragma once

#include <QAbstractListModel>
#include <functional>
#include <string>
#include <vector>

class QTableView;

namespace skyreel {

/// The lines of the log as a list view shows them: one row per line, the newest at the bottom. A sign stands
/// before the line of a file with a problem.
class TStatusLines : public QAbstractListModel {
 public:
  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;

  const std::vector<std::string>& Lines() const { return lines_; }
  void Insert(std::size_t row, std::string line, bool problem = false);
  /// There is at least one line.
  void ReplaceLast(std::string line, bool problem);
  void RemoveFirst(std::size_t count);

 private:
  std::vector<std::string> lines_;
  std::vector<bool> problems_;  ///< of each line
};

/// The log of this run of the program: one line per event. A table of one column shows it, since a list view
/// lays out all lines again for each new one. The newest line is selected, so that the view scrolls to it.
/// Control characters in a line become blanks; a line of more than 4,000 bytes is cut. The log keeps
/// at least its latest 200,000 lines; it drops older ones, and the report says how many.
class TStatusLog {
 public:
  /// `view` shows the log and outlives it.
  explicit TStatusLog(QTableView& view, std::size_t kept = 200'000);
  ~TStatusLog();
  TStatusLog(const TStatusLog&) = delete;
  TStatusLog& operator=(const TStatusLog&) = delete;

  /// Adds a line. The line of a transfer stays the newest.
  void Add(const std::string& text);
  /// Adds the line of a transfer. End replaces it.
  void Begin(const std::string& text);
  /// Replaces the line of the transfer by its outcome, or adds the outcome if none was begun. The outcome of
  /// a file with a `problem` gets a sign.
  void End(const std::string& text, bool problem = false);

  bool IsEmpty() const { return lines_.Lines().empty(); }
  const std::vector<std::string>& Lines() const { return lines_.Lines(); }
  /// The whole log, every line ended by CR LF.
  std::string Report() const;

  /// Gets each line once it is final: at Add, at End, or, if a transfer has no end, at the next Begin or
  /// Flush.
  std::function<void(const std::string& line)> OnFinalLine;
  /// The transfer that was begun has no end: its line is final.
  void Flush();

 private:
  void Insert(std::size_t row, const std::string& line, bool problem = false);

  QTableView& view_;
  const std::size_t kept_;
  TStatusLines lines_;
  std::size_t dropped_ = 0;
  bool begun_ = false;  ///< the newest line is that of a transfer
};

}  // namespace skyreel
