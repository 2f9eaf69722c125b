#include "app/signs.h"

#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>

#include "app/journal_recorder.h"

namespace skyreel {

namespace {

class TSignEngine : public QIconEngine {
 public:
  explicit TSignEngine(TSign sign) : sign_(sign) {}

  QIconEngine* clone() const override { return new TSignEngine(sign_); }
  QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
    QPixmap picture(size);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    paint(&painter, picture.rect(), mode, state);
    return picture;
  }

  /// Paints in a square of 16 by 16 units.
  void paint(QPainter* painter, const QRect& rect, QIcon::Mode, QIcon::State) override {
    const double side = std::min(rect.width(), rect.height());
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->translate(QRectF(rect).center());
    painter->scale(side / 16, side / 16);
    painter->setPen(Qt::NoPen);
    switch (sign_) {
      case TSign::Ok:
        Disc(*painter, QColor(0x2e, 0x9a, 0x44));
        painter->setPen(Pen(Qt::white));
        painter->drawPolyline(QPolygonF({{-3.2, 0.2}, {-0.9, 2.6}, {3.4, -2.4}}));
        break;
      case TSign::NotYet:
        Disc(*painter, QColor(0x7d, 0x86, 0x90));
        painter->setPen(Pen(Qt::white));
        painter->drawPolyline(QPolygonF({{0, -4}, {0, 0.4}, {2.8, 2}}));
        break;
      case TSign::Problem:
        painter->setBrush(QColor(0xd0, 0x30, 0x2b));
        painter->drawPolygon(QPolygonF({{0, -7}, {7.4, 6.4}, {-7.4, 6.4}}));
        painter->setPen(Pen(Qt::white));
        painter->drawLine(QPointF(0, -2), QPointF(0, 1.8));
        painter->drawPoint(QPointF(0, 4.4));
        break;
      case TSign::Running:
        painter->setBrush(QColor(0x2a, 0x7b, 0xd6));
        painter->drawPolygon(QPolygonF({{-4.5, -6}, {6.5, 0}, {-4.5, 6}}));
        break;
    }
    painter->restore();
  }

 private:
  static void Disc(QPainter& painter, const QColor& colour) {
    painter.setBrush(colour);
    painter.drawEllipse(QPointF(0, 0), 6.5, 6.5);
  }
  static QPen Pen(const QColor& colour) { return {colour, 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin}; }

  const TSign sign_;
};

}  // namespace

QIcon SignIcon(TSign sign) {
  return QIcon(new TSignEngine(sign));
}

QString SignText(TSign sign) {
  switch (sign) {
    case TSign::Ok:
      return "ok";
    case TSign::NotYet:
      return "not yet";
    case TSign::Problem:
      return "problem";
    case TSign::Running:
      break;
  }
  return "running";
}

TSign SignOf(TJournalOutcome outcome) {
  if (outcome <= TJournalOutcome::Present) return TSign::Ok;
  return outcome == TJournalOutcome::NotYet ? TSign::NotYet : TSign::Problem;
}

TSign SignOf(TFileState state) {
  return SignOf(JournalOutcome(state));
}

}  // namespace skyreel
