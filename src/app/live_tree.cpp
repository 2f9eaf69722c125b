#include "app/live_tree.h"

#include <QPainter>
#include <QSignalBlocker>

#include "base/event.h"
#include "settings/check_list_box.h"

namespace skyreel {

namespace {

constexpr int kId = Qt::UserRole;
constexpr int kSearchText = Qt::UserRole + 1;

std::string IdOf(const QTreeWidgetItem* item) {
  return item ? item->data(0, kId).toString().toStdString() : "";
}

/// Shape and colour both tell the health. On a selected row a white disc keeps the colour legible.
QPixmap PaintSign(TSourceHealth health, bool selected) {
  constexpr int kSize = 16, kScale = 2;
  QPixmap picture(kSize * kScale, kSize * kScale);
  picture.setDevicePixelRatio(kScale);
  picture.fill(Qt::transparent);
  QPainter painter(&picture);
  painter.setRenderHint(QPainter::Antialiasing);
  if (selected) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::white);
    painter.drawEllipse(QRectF(0, 0, kSize, kSize));
  }
  const auto draw_with = [&painter](QColor colour, bool filled) {
    painter.setPen(QPen(colour, 2));
    painter.setBrush(filled ? QBrush(colour) : QBrush(Qt::NoBrush));
  };
  switch (health) {
    case TSourceHealth::NeverRun:
      draw_with(QColor(0x8a, 0x8a, 0x8a), false);
      painter.drawEllipse(QRectF(4, 4, 8, 8));
      break;
    case TSourceHealth::Fresh:
      draw_with(QColor(0x2e, 0x9e, 0x4f), true);
      painter.drawEllipse(QRectF(4, 4, 8, 8));
      break;
    case TSourceHealth::Late:
      draw_with(QColor(0xd9, 0x8e, 0x04), true);
      painter.drawPolygon(QPolygonF({{8, 3.5}, {13, 12.5}, {3, 12.5}}));
      break;
    case TSourceHealth::Failing:
      draw_with(QColor(0xd1, 0x34, 0x38), false);
      painter.setPen(QPen(painter.pen().color(), 3));
      painter.drawLine(QPointF(4, 4), QPointF(12, 12));
      painter.drawLine(QPointF(12, 4), QPointF(4, 12));
      break;
  }
  return picture;
}

QIcon SignOf(TSourceHealth health) {
  QIcon sign(PaintSign(health, false));
  sign.addPixmap(PaintSign(health, true), QIcon::Selected);
  return sign;
}

}  // namespace

QString HealthSentence(TSourceHealth health) {
  switch (health) {
    case TSourceHealth::NeverRun:
      return "Not fetched yet";
    case TSourceHealth::Fresh:
      return "Fresh: the newest picture is as new as it should be";
    case TSourceHealth::Late:
      return "Late: at the last run the newest picture was older than it should be";
    case TSourceHealth::Failing:
      break;
  }
  return "Failing: the last three runs failed";
}

TLiveTree::TLiveTree(QWidget* parent) : QTreeWidget(parent) {
  setHeaderHidden(true);
  setUniformRowHeights(true);
  MakeChecksVisible(*this);
  connect(this, &QTreeWidget::itemChanged, this,
          [this](QTreeWidgetItem* item) { Fire(OnTick, IdOf(item), item->checkState(0) == Qt::Checked); });
  connect(this, &QTreeWidget::currentItemChanged, this,
          [this](QTreeWidgetItem* item) { Fire(OnChoose, IdOf(item)); });
}

void TLiveTree::Fill(const TCatalogue& catalogue, const std::set<std::string>& ticked) {
  const std::string chosen = IdOf(currentItem());
  QTreeWidgetItem* current = nullptr;
  // Outside the tree, an item and its changes cost less.
  std::map<QString, QTreeWidgetItem*> groups;
  const auto add = [&](const TCatalogueEntry& entry) {
    const TDescription* const source = entry.Description ? &*entry.Description : nullptr;
    const QString group = QString::fromStdString(!source                 ? "With errors"
                                                 : source->Group.empty() ? "Other"
                                                                         : source->Group);
    QTreeWidgetItem*& parent = groups[group];
    if (!parent) {
      parent = new QTreeWidgetItem({group});
      parent->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
    }
    const QString id = QString::fromStdString(entry.Id), title = QString::fromStdString(entry.Title);
    auto* item = new QTreeWidgetItem(parent, {title.isEmpty() ? id : title});
    if (entry.Id == chosen) current = item;
    item->setData(0, kId, id);
    const QString provider = source ? QString::fromStdString(source->Provider) : "";
    item->setData(0, kSearchText, QStringList{title, id, group, provider}.join(' ').toCaseFolded());
    // A wrong description can only be unticked.
    if (source || ticked.contains(entry.Id))
      item->setCheckState(0, ticked.contains(entry.Id) ? Qt::Checked : Qt::Unchecked);
  };
  for (const TCatalogueEntry& entry : catalogue.Entries) {
    // A bound description runs from its tab.
    if (!entry.Description || !entry.Description->Page) add(entry);
  }
  for (const std::string& id : ticked)
    if (!catalogue.Find(id)) add({id, "", "", false, false, {}});
  {
    const QSignalBlocker no_ticks(this);
    clear();
    for (const auto& [name, group] : groups) addTopLevelItem(group);
    sortItems(0, Qt::AscendingOrder);
    expandAll();
  }
  ForEachSource([&](QTreeWidgetItem& item) {
    if (!current && item.checkState(0) == Qt::Checked) current = &item;
  });
  if (!current && topLevelItemCount() > 0) current = topLevelItem(0)->child(0);
  setCurrentItem(current);
  if (!current) Fire(OnChoose, "");
}

void TLiveTree::ForEachSource(const std::function<void(QTreeWidgetItem& item)>& take) {
  for (int i = 0; i < topLevelItemCount(); ++i)
    for (int k = 0; k < topLevelItem(i)->childCount(); ++k) take(*topLevelItem(i)->child(k));
}

void TLiveTree::Choose(const std::string& id) {
  ForEachSource([&](QTreeWidgetItem& item) {
    if (IdOf(&item) == id) setCurrentItem(&item);
  });
}

void TLiveTree::Search(const QString& text) {
  const QStringList words = text.toCaseFolded().split(' ', Qt::SkipEmptyParts);
  std::set<QTreeWidgetItem*> groups_with_hits;
  ForEachSource([&](QTreeWidgetItem& item) {
    const QString searched = item.data(0, kSearchText).toString();
    const bool hit = std::ranges::all_of(words, [&](const QString& word) { return searched.contains(word); });
    item.setHidden(!hit);
    if (hit) groups_with_hits.insert(item.parent());
  });
  for (int i = 0; i < topLevelItemCount(); ++i)
    topLevelItem(i)->setHidden(!groups_with_hits.contains(topLevelItem(i)));
}

void TLiveTree::ShowHealth(const std::map<std::string, TSourceHealth>& healths) {
  const QSignalBlocker no_ticks(this);
  std::map<TSourceHealth, QIcon> signs;
  ForEachSource([&](QTreeWidgetItem& item) {
    const auto known = healths.find(IdOf(&item));
    const bool wrong = known == healths.end();
    const TSourceHealth shown = wrong ? TSourceHealth::Failing : known->second;
    if (!signs.contains(shown)) signs[shown] = SignOf(shown);
    item.setIcon(0, signs[shown]);
    item.setToolTip(0, wrong ? "There is no description without errors" : HealthSentence(shown));
    item.setData(0, Qt::AccessibleDescriptionRole, wrong ? "wrong description" : HealthText(shown));
  });
}

}  // namespace skyreel
