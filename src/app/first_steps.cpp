#include "app/first_steps.h"

#include <QAbstractItemView>
#include <QEvent>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "base/event.h"

namespace skyreel {

TFirstSteps::TFirstSteps(QAbstractItemView& log) : QWidget(log.viewport()), log_(log) {
  setObjectName("FirstSteps");
  auto* text = new QLabel(
      "Skyreel fetches weather pictures, charts and data files and files them by date. Tick sources on the "
      "page Live and press Run, or begin with one picture:");
  text->setWordWrap(true);
  auto* fetch = new QPushButton("&Fetch a first picture");
  fetch->setObjectName("ButtonFirstPicture");
  fetch->setToolTip("Fetch the newest full disc of GOES-East");
  auto* open = new QPushButton("Open &its folder");
  open->setObjectName("ButtonFirstFolder");
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(text);
  for (QPushButton* button : {fetch, open}) layout->addWidget(button, 0, Qt::AlignLeft);
  layout->addStretch();
  connect(fetch, &QPushButton::clicked, this, [this] { Fire(OnFetch); });
  connect(open, &QPushButton::clicked, this, [this] { Fire(OnOpenFolder); });
  connect(log.model(), &QAbstractItemModel::rowsInserted, this, &QWidget::hide);
  log.viewport()->installEventFilter(this);
  Cover();
}

bool TFirstSteps::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Resize) Cover();
  return QWidget::eventFilter(watched, event);
}

void TFirstSteps::Cover() {
  setGeometry(log_.viewport()->rect());
}

}  // namespace skyreel
