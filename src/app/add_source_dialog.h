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
    std::string Id, Text;  ///< of a sound description, which can be kept; else empty
  };
  /// Reads and checks, and gives the answer to `done`, now or later.
  std::function<void(const std::string& file_or_address, std::function<void(const TChecked& checked)> done)>
      OnCheck;
  /// Keeps a sound description.
  std::function<void(const TChecked& checked)> OnKeep;

 private:
  void ButtonBrowseClick();
  void ButtonCheckClick();
  void Show(const TChecked& checked);

  QLineEdit* place_;
  QPushButton *check_, *keep_;
  QPlainTextEdit* shown_;
  TChecked checked_;
};

}  // namespace skyreel
