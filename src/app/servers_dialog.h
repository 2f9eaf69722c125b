#pragma once

#include <QDialog>
#include <array>
#include <functional>
#include <string>

#include "sources/server_roots.h"

class QLabel;
class QLineEdit;

namespace skyreel {

/// What is wrong with a server as the user typed it, in one sentence; empty when it is right. An HTTP root is
/// "http://host[:port]", an FTP root "host[:port]"; empty text (the built-in server) is right.
std::string ServerRootProblem(const std::string& text, bool ftp);

/// Tools, Servers: one edit per server, empty for the built-in one (which the edit shows in grey).
class TServersDialog : public QDialog {
 public:
  using TRoots = std::array<QString, kServerRootSettings.size()>;

  /// Shows `roots`, in the order of kServerRootSettings.
  TServersDialog(QWidget* parent, const TRoots& roots);

  /// Given the new roots when the user pressed OK and all of them are right.
  std::function<void(const TRoots& roots)> OnAccepted;

  void accept() override;

 private:
  std::array<QLineEdit*, kServerRootSettings.size()> edits_{};
  QLabel* problem_;
};

}  // namespace skyreel
