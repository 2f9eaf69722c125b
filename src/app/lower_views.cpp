#include "app/lower_views.h"

#include <QTabBar>
#include <QToolButton>
#include <QVBoxLayout>
#include <utility>

#include "base/event.h"

namespace skyreel {

namespace {

/// The page of a tab. It makes its view when it is first shown.
class TLatePage : public QWidget {
 public:
  TLatePage(std::function<QWidget*()> make, std::function<void()> made)
      : make_(std::move(make)), made_(std::move(made)) {}

 protected:
  void showEvent(QShowEvent* event) override {
    QWidget::showEvent(event);
    if (!make_) return;
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins({});
    layout->addWidget(std::exchange(make_, nullptr)());
    made_();
  }

 private:
  std::function<QWidget*()> make_;
  const std::function<void()> made_;
};

}  // namespace

TLowerViews::TLowerViews(QTabWidget& tabs, TRegistryStore& store, std::function<void()> find_in_log)
    : tabs_(tabs), LowerTab_(store, "LowerTab", ""), finds_{std::move(find_in_log)} {
  // After a click on a tab, the key for Find belongs to its view.
  tabs_.tabBar()->setFocusPolicy(Qt::StrongFocus);
  // There are few tabs, so these are never shown.
  for (QToolButton* button : tabs_.tabBar()->findChildren<QToolButton*>())
    button->setFocusPolicy(Qt::NoFocus);
}

void TLowerViews::Add(const QString& title, std::function<QWidget*()> make, std::function<void()> find) {
  finds_.push_back(std::move(find));
  tabs_.addTab(new TLatePage(std::move(make), [this] { Fire(OnMade); }), title);
}

void TLowerViews::Find() const {
  Fire(finds_[static_cast<std::size_t>(tabs_.currentIndex())]);
}

void TLowerViews::Show(const QString& title) {
  for (int i = 0; i < tabs_.count(); ++i)
    if (tabs_.tabText(i) == title) tabs_.setCurrentIndex(i);
}

void TLowerViews::RememberCurrent() {
  LowerTab_.Value = tabs_.tabText(tabs_.currentIndex());
}

}  // namespace skyreel
