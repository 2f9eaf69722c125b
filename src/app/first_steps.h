#pragma once

#include <QWidget>
#include <functional>

class QAbstractItemView;
class QPushButton;

namespace skyreel {

/// What a first-time user sees in an empty log: what the program does, a button that fetches a first picture,
/// and one that opens its folder. It hides when the log gets a line, and stays hidden.
class TFirstSteps : public QWidget {
 public:
  explicit TFirstSteps(QAbstractItemView& log);

  std::function<void()> OnFetch;
  std::function<void()> OnOpenFolder;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void Cover();

  QAbstractItemView& log_;
};

}  // namespace skyreel
