#pragma once

#include <QDialog>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "settings/registry_variable.h"
#include "sources/source_table.h"

class QLabel;
class QLineEdit;

namespace skyreel {

/// What is wrong with a server as the user typed it, in one sentence; empty when it is right. An HTTP root is
/// "http://host[:port]" or "https://host[:port]", an FTP root "host[:port]"; empty text means the built-in
/// server and is right.
std::string ServerRootProblem(const std::string& text, bool ftp);

/// The servers that the user chose for all sources.
class TServerSettings {
 public:
  struct TChoice {
    TServerSetting Server;
    std::unique_ptr<TRegistryString> Root;  ///< empty: the built-in one
  };
  explicit TServerSettings(TRegistryStore& store);

  /// In the order of the sources.
  const std::vector<TChoice>& Choices() const { return choices_; }
  /// The roots for a run of this source. A choice that is wrong gives the built-in root, and `tell` a line.
  TServerRoots Roots(const TSource& source, const std::function<void(const std::string& line)>& tell) const;

 private:
  std::vector<TChoice> choices_;
};

/// Tools, Servers: one edit per server; empty for the built-in one, which the edit shows in grey. OK changes
/// the settings if all edits are right; "host" is taken as "http://host".
class TServersDialog : public QDialog {
 public:
  /// The settings outlive the dialog.
  TServersDialog(QWidget* parent, TServerSettings& settings);

  void accept() override;

 private:
  /// What is wrong in the edit of this choice; empty when it is right.
  std::string ProblemOf(std::size_t i) const;
  void AskForBuiltIn();

  TServerSettings& settings_;
  std::vector<QLineEdit*> edits_;  ///< in the order of the choices
  QLabel* problem_;
  QLineEdit* wrong_ = nullptr;  ///< the edit that problem_ tells about
};

}  // namespace skyreel
