#pragma once

#include <QDialog>
#include <functional>
#include <string>

class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace skyreel {

/// Asks for the file or the address of a source description, and shows what the source would do before it is
/// kept.
class TAddSourceDialog : public QDialog {
 public:
  explicit TAddSourceDialog(QWidget* parent);

  /// What a file or an address holds.
  struct TChecked {
    std::string Shown;     ///< what the source would do, or what is wrong
    bool IsSound = false;  ///< it can be kept
  };
  /// Reads and checks. It may let events through.
  std::function<TChecked(const std::string& file_or_address)> OnCheck;
  /// Keeps what was checked last.
  std::function<void()> OnKeep;

 private:
  void ButtonBrowseClick();
  void ButtonCheckClick();

  QLineEdit* place_;
  QPushButton *check_, *keep_;
  QPlainTextEdit* shown_;
};

}  // namespace skyreel
