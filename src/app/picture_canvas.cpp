#include "app/picture_canvas.h"

#include <QMouseEvent>
#include <QPainter>
#include <QVBoxLayout>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <limits>

#include "app/background.h"
#include "base/event.h"
#include "base/files.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

constexpr double kLargestScale = 16;
constexpr auto kDelay = std::chrono::milliseconds(80);
constexpr auto kCheckInterval = std::chrono::seconds(1);
constexpr std::int64_t kBytesPerPixel = 4;

/// Image pixels for each pixel of the picture.
double Resolution(const TPicture& picture) {
  return picture.Image.isNull() || picture.Region.isEmpty()
             ? 0
             : double(picture.Image.width()) / picture.Region.width();
}

}  // namespace

TPictureCanvas::TPictureCanvas(QWidget* parent) : QWidget(parent) {
  setObjectName("PictureCanvas");
  setAccessibleName("Picture");
  setFocusPolicy(Qt::StrongFocus);
  setMinimumSize(80, 60);
  message_ = new QLabel(this);
  message_->setObjectName("LabelPictureMessage");
  message_->setTextFormat(Qt::PlainText);
  message_->setWordWrap(true);
  message_->setMargin(6);
  message_->setAutoFillBackground(true);
  decode_ = new QPushButton("&Decode it", this);
  decode_->setObjectName("ButtonDecode");
  auto* layout = new QVBoxLayout(this);
  layout->addStretch();
  layout->addWidget(message_);
  layout->addWidget(decode_, 0, Qt::AlignHCenter);
  delay_.setSingleShot(true);
  delay_.setInterval(kDelay);
  check_.setInterval(kCheckInterval);
  delay_.callOnTimeout([this] { LoadMissing(); });
  check_.callOnTimeout([this] { CheckFile(); });
  connect(decode_, &QPushButton::clicked, this, [this] {
    agreed_ = true;
    setFocus();
    LoadMissing();
    ShowMessage();
  });
  ShowMessage();
}

TPictureCanvas::~TPictureCanvas() {
  *stop_ = true;
}

void TPictureCanvas::Show(const fs::path& path, const QImage& thumbnail) {
  if (path != path_) agreed_ = false;
  const QSize before = whole_.FullSize;
  path_ = path;
  thumbnail_ = thumbnail;
  *stop_ = true;
  loading_ = changed_file_ = gone_ = false;
  whole_ = part_ = {};
  whole_.FullSize = before;  // the place is kept until the size is known
  check_.start();
  ShowMessage();
  LoadMissing();
  update();
}

void TPictureCanvas::ShowFrame(const fs::path& path, const QImage& frame) {
  Clear();
  scale_ = 0;
  path_ = path;
  whole_ = {.Image = frame, .Region = frame.rect(), .FullSize = frame.size(), .Kind = "frame", .Problem = {}};
}

void TPictureCanvas::Clear() {
  *stop_ = true;
  path_.clear();
  thumbnail_ = {};
  whole_ = part_ = {};
  loading_ = changed_file_ = gone_ = false;
  check_.stop();
  ShowMessage();
  update();
}

QSizeF TPictureCanvas::Room() const {
  return QSizeF(size()) * devicePixelRatioF();
}

double TPictureCanvas::Scale() const {
  if (whole_.FullSize.isEmpty()) return 0;
  if (scale_ > 0) return scale_;
  const QSizeF room = Room();
  // A small picture is not enlarged.
  return std::min({1.0, room.width() / whole_.FullSize.width(), room.height() / whole_.FullSize.height()});
}

QRectF TPictureCanvas::PictureRect() const {
  const QSizeF size = QSizeF(whole_.FullSize) * Scale();
  const QSizeF room = Room();
  // A side that fits is centred; a longer one fills the view.
  const auto begin = [](double length, double space, double centre) {
    return length <= space ? (space - length) / 2 : std::clamp(space / 2 - centre, space - length, 0.0);
  };
  return {QPointF(begin(size.width(), room.width(), centre_.x() * Scale()),
                  begin(size.height(), room.height(), centre_.y() * Scale())),
          size};
}

QRect TPictureCanvas::VisibleRegion() const {
  const QRectF picture = PictureRect();
  const double scale = Scale();
  if (!(scale > 0)) return {};
  const QRectF seen = picture & QRectF(QPointF(), Room());
  return QRectF((seen.topLeft() - picture.topLeft()) / scale, seen.size() / scale).toAlignedRect() &
         QRect(QPoint(), whole_.FullSize);
}

void TPictureCanvas::Fit() {
  scale_ = 0;
  Changed();
}

void TPictureCanvas::ZoomTo(double scale) {
  ZoomAt(QRectF(QPointF(), Room()).center(), scale);
}

void TPictureCanvas::ZoomBy(double factor) {
  ZoomTo(Scale() * factor);
}

void TPictureCanvas::ZoomAt(QPointF place, double scale) {
  if (whole_.FullSize.isEmpty()) return;
  const QRectF before = PictureRect();
  const QPointF pixel = (place - before.topLeft()) / Scale();
  const QSizeF room = Room();
  const double least = std::min(
      {1.0, room.width() / whole_.FullSize.width() / 2, room.height() / whole_.FullSize.height() / 2});
  scale_ = std::clamp(scale, least, kLargestScale);
  centre_ = pixel + (QRectF(QPointF(), room).center() - place) / scale_;
  Changed();
}

void TPictureCanvas::Changed() {
  // Beyond the edge the centre would not follow the next drag at once.
  if (scale_ > 0) centre_ = (QRectF(QPointF(), Room()).center() - PictureRect().topLeft()) / scale_;
  update();
  if (!path_.empty()) delay_.start();
}

void TPictureCanvas::LoadMissing() {
  if (path_.empty() || loading_ || !isVisible()) return;
  TPictureWish wish{.Room = FrameRoom()};
  if (agreed_) wish.MostBytes = std::numeric_limits<std::int64_t>::max();
  // The first decoding tells the size.
  if (whole_.Kind.empty()) return Load(wish);
  if (whole_.FullSize.isEmpty() || (whole_.NeededBytes > 0 && !agreed_)) return;

  const double scale = std::min(1.0, Scale());
  constexpr double kEnough = 0.99;
  const QRect seen = VisibleRegion();
  if (Resolution(whole_) >= scale * kEnough) {
    part_ = {};
    return;
  }
  if (part_.Region.contains(seen) && Resolution(part_) >= scale * kEnough) return;
  const auto bytes = [](QSizeF size) { return size.width() * size.height() * kBytesPerPixel; };
  const QSizeF all = QSizeF(whole_.FullSize) * scale;
  const double most = TPictureWish::kMostBytes;
  if (bytes(all) <= most) {
    wish.Room = QSize(qCeil(all.width()), qCeil(all.height()));
  } else if (agreed_) {
    // Each part would take the time and memory of the whole.
    const QSizeF largest = all * std::sqrt(most / bytes(all));
    if (Resolution(whole_) * kEnough >= largest.width() / whole_.FullSize.width() * kEnough * kEnough) return;
    wish.Room = largest.toSize();
  } else {
    const QPoint margin(seen.width() / 2, seen.height() / 2);
    wish.Region =
        QRect(seen.topLeft() - margin, seen.bottomRight() + margin) & QRect(QPoint(), whole_.FullSize);
    const QSizeF part = QSizeF(wish.Region.size()) * scale;
    wish.Room = QSize(qCeil(part.width()), qCeil(part.height()));
  }
  Load(wish);
}

void TPictureCanvas::Load(const TPictureWish& wish) {
  stop_ = std::make_shared<std::atomic<bool>>(false);
  loading_ = true;
  TPictureWish stoppable = wish;
  stoppable.Stop = stop_;
  InBackground(
      this, &pool_,
      [path = path_, stoppable] {
        const TStamp stamp = StampOf(path);
        return std::pair(LoadPicture(path, stoppable), stamp);
      },
      [this, stop = stop_](std::pair<TPicture, TStamp> loaded) {
        if (!*stop) Take(std::move(loaded.first), loaded.second);
      });
}

void TPictureCanvas::Take(TPicture picture, TStamp stamp) {
  loading_ = false;
  const bool first = whole_.Kind.empty();
  if (first) stamp_ = stamp;
  if (!first && stamp != stamp_) return CheckFile();  // do not mix parts of two files
  if (first && picture.FullSize != whole_.FullSize) scale_ = 0;
  if (picture.Kind.empty()) picture.Kind = "unknown";
  if (picture.Region == QRect(QPoint(), picture.FullSize) || first || picture.Image.isNull()) {
    whole_ = std::move(picture);
    part_ = {};
  } else {
    part_ = std::move(picture);
  }
  gone_ = stamp.Bytes < 0;
  ShowMessage();
  update();
  Fire(OnLoaded);
  delay_.start();  // the user may have zoomed since
}

TPictureCanvas::TStamp TPictureCanvas::StampOf(const fs::path& path) {
  return {FileSizeOf(path), GetFileDateTime(path).Milliseconds()};
}

void TPictureCanvas::CheckFile() {
  // A slow network mount must not collect checks.
  if (checking_ || loading_ || path_.empty() || !isVisible()) return;
  checking_ = true;
  InBackground(
      this, &pool_, [path = path_] { return std::pair(path, StampOf(path)); },
      [this](const std::pair<fs::path, TStamp>& found) {
        checking_ = false;
        if (found.first != path_ || loading_ || found.second == stamp_) return;
        const bool gone = found.second.Bytes < 0;
        if (gone && gone_) return;
        if (gone) {
          gone_ = true;
          ShowMessage();
        } else {
          const double scale = scale_;
          const QPointF centre = centre_;
          Fire(OnReplaced);
          Show(path_, {});
          changed_file_ = true;
          scale_ = scale;
          centre_ = centre;
        }
      });
}

void TPictureCanvas::ShowMessage() {
  QString text = QString::fromStdString(whole_.Problem);
  if (gone_ && !whole_.Image.isNull()) text = "This file has been deleted or moved";
  if (changed_file_ && text.isEmpty()) text = "The file was replaced; this is the new picture";
  if (agreed_ && loading_ && whole_.NeededBytes > 0) text = "Decoding the picture…";
  message_->setText(text);
  message_->setVisible(!text.isEmpty());
  decode_->setVisible(whole_.NeededBytes > 0 && !agreed_);
}

void TPictureCanvas::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.fillRect(rect(), palette().color(QPalette::Dark));
  const double ratio = devicePixelRatioF();
  painter.scale(1 / ratio, 1 / ratio);
  if (whole_.Image.isNull()) {
    if (thumbnail_.isNull()) return;
    const QSizeF size = QSizeF(thumbnail_.size()).scaled(Room(), Qt::KeepAspectRatio);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(
        QRectF(QPointF((Room().width() - size.width()) / 2, (Room().height() - size.height()) / 2), size),
        thumbnail_);
    return;
  }
  const QRectF target = PictureRect();
  const double scale = Scale();
  const auto draw = [&](const TPicture& picture) {
    if (picture.Image.isNull()) return;
    // Enlarged pixels stay sharp squares.
    painter.setRenderHint(QPainter::SmoothPixmapTransform, scale <= 1);
    painter.drawImage(QRectF(target.topLeft() + QPointF(picture.Region.topLeft()) * scale,
                             QSizeF(picture.Region.size()) * scale),
                      picture.Image);
  };
  draw(whole_);
  draw(part_);
}

void TPictureCanvas::resizeEvent(QResizeEvent*) {
  Changed();
}

void TPictureCanvas::showEvent(QShowEvent*) {
  if (!path_.empty()) delay_.start();
}

void TPictureCanvas::wheelEvent(QWheelEvent* event) {
  ZoomAt(event->position() * devicePixelRatioF(), Scale() * std::pow(1.25, event->angleDelta().y() / 120.0));
  event->accept();
}

void TPictureCanvas::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return;
  dragged_from_ = event->position();
  setCursor(Qt::ClosedHandCursor);
}

void TPictureCanvas::mouseMoveEvent(QMouseEvent* event) {
  if ((event->buttons() & Qt::LeftButton) == 0 || scale_ == 0) return;
  centre_ -= (event->position() - dragged_from_) * devicePixelRatioF() / scale_;
  dragged_from_ = event->position();
  Changed();
}

void TPictureCanvas::mouseReleaseEvent(QMouseEvent*) {
  unsetCursor();
}

}  // namespace skyreel
