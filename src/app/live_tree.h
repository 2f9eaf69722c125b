#pragma once

#include <QTreeWidget>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "catalogue/catalogue.h"
#include "journal/journal.h"

namespace skyreel {

/// The described sources by group, each with a tick box and a sign of its health.
class TLiveTree : public QTreeWidget {
 public:
  explicit TLiveTree(QWidget* parent = nullptr);

  /// Shows the sources of a catalogue, and ticked ids that it does not have, so that the user can untick
  /// them. The chosen one stays chosen; without one the first that is ticked is chosen, or else the first.
  void Fill(const TCatalogue& catalogue, const std::set<std::string>& ticked);
  void Choose(const std::string& id);
  /// Shows only the sources whose title, group, provider and id hold all words of the text.
  void Search(const QString& text);
  /// Shows the health of each source, by id; nothing is known of a source with a wrong description.
  void ShowHealth(const std::map<std::string, TSourceHealth>& healths);

  std::function<void(const std::string& id, bool ticked)> OnTick;
  /// The user has come to a source, or to a group (empty id).
  std::function<void(const std::string& id)> OnChoose;

 private:
  void ForEachSource(const std::function<void(QTreeWidgetItem& item)>& take);
};

/// What the sign of a health means, for people.
QString HealthSentence(TSourceHealth health);

}  // namespace skyreel
