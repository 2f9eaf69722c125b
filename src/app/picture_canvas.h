#pragma once

#include <QLabel>
#include <QPushButton>
#include <QThreadPool>
#include <QTimer>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <memory>

#include "view/picture.h"

namespace skyreel {

/// Shows one picture file: fitted to the widget, or at a scale that the user chooses. Dragging and the wheel
/// move and zoom. It decodes on worker threads, and only what the widget shows: the whole picture where that
/// takes little memory, else the visible part.
class TPictureCanvas : public QWidget {
 public:
  explicit TPictureCanvas(QWidget* parent = nullptr);
  ~TPictureCanvas() override;

  /// Shows a file. Until it is decoded, the thumbnail (or nothing, when it is null) stands for it. A picture
  /// of the same size as the one before keeps the scale and the place.
  void Show(const std::filesystem::path& path, const QImage& thumbnail);
  /// Shows a frame of an animation, which was made from the file.
  void ShowFrame(const std::filesystem::path& path, const QImage& frame);
  void Clear();
  /// The screen pixels that a fitted picture may use.
  QSize FrameRoom() const { return Room().toSize().expandedTo({1, 1}); }
  const std::filesystem::path& Path() const { return path_; }
  /// The state of the picture that is shown; its image may be a part.
  const TPicture& Picture() const { return whole_; }
  bool IsLoading() const { return loading_; }

  void Fit();
  void ZoomTo(double scale);  ///< screen pixels for each of the picture; the middle stays
  void ZoomBy(double factor);
  bool IsFitted() const { return scale_ == 0; }
  /// Screen pixels for each pixel of the picture, 0 when nothing is shown.
  double Scale() const;

  std::function<void()> OnReplaced;  ///< the file on the disk is another one now
  std::function<void()> OnLoaded;    ///< Picture has changed

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void showEvent(QShowEvent* event) override;

 private:
  /// What tells that a file has changed; -1 bytes: it is not there.
  struct TStamp {
    std::int64_t Bytes = -1, Time = 0;
    bool operator==(const TStamp&) const = default;
  };
  static TStamp StampOf(const std::filesystem::path& path);

  QSizeF Room() const;         ///< of the widget, in screen pixels
  QRectF PictureRect() const;  ///< of the full picture, in screen pixels
  QRect VisibleRegion() const;
  void ZoomAt(QPointF place, double scale);
  void Changed();  ///< repaints, and decodes what is missing
  void LoadMissing();
  void Load(const TPictureWish& wish);
  void Take(TPicture picture, TStamp stamp);
  void CheckFile();
  void ShowMessage();

  std::filesystem::path path_;
  TStamp stamp_;
  bool changed_file_ = false, gone_ = false;
  TPicture whole_;  ///< as it was decoded last, in any resolution
  TPicture part_;   ///< the visible part in full resolution
  QImage thumbnail_;
  bool agreed_ = false;  ///< the user agreed to the memory that the picture takes
  double scale_ = 0;     ///< 0: fitted
  QPointF centre_;       ///< of the widget, in pixels of the picture
  QPointF dragged_from_;

  bool loading_ = false;
  std::shared_ptr<std::atomic<bool>> stop_ = std::make_shared<std::atomic<bool>>(false);
  QTimer delay_;  ///< decodes once the user has stopped to resize and zoom
  QTimer check_;  ///< looks whether the file has changed
  bool checking_ = false;
  QLabel* message_ = nullptr;
  QPushButton* decode_ = nullptr;
  QThreadPool pool_;
};

}  // namespace skyreel
