#pragma once

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QTimer>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <optional>
#include <utility>

#include "view/animation.h"

namespace skyreel {

/// The controls of an animation: they play it in a view, and save it.
class TAnimationBar : public QWidget {
 public:
  using TJob = std::function<std::vector<TFrameFile>()>;
  struct TEnvironment {
    /// Gives a job for a worker thread that looks up the files of which the user may want an animation, in
    /// the order of time.
    std::function<TJob()> MakeFileJob;
    std::function<QSize()> Room;  ///< of the view, in pixels of the screen
    std::function<void(const TFrameFile& file, const QImage& picture)> Show;
    /// The animation has paused at this file.
    std::function<void(const TFrameFile& file)> Paused;
    std::function<std::filesystem::path()> Current;  ///< the file that the view shows
  };
  explicit TAnimationBar(TEnvironment environment, QWidget* parent = nullptr);

  /// Plays, from the picture that the view shows if that is possible, or pauses.
  void PlayOrPause();
  /// Plays the slots from `from` to `to`, both included.
  void PlayRange(TDateTime from, TDateTime to);
  /// Stops: the view shows something else.
  void Forget();
  bool IsPlaying() const { return player_ && player_->Playing(); }
  /// Of the last animation: "12 pictures, 2 left out".
  QString StateText() const { return state_->text(); }

 private:
  void WireEvents();
  TAnimationStyle Style() const;
  /// Looks up the files of the period and hands them to `then`; shows it when there is no file.
  void WithFiles(std::function<void(std::vector<TFrameFile> files)> then);
  void Start(std::vector<TFrameFile> files);
  void Turn();
  void Pause();
  void ShowState();
  void Save();

  const TEnvironment environment_;
  std::optional<TAnimationPlayer> player_;
  QSize room_;        ///< that the pictures of the player were made for
  int question_ = 0;  ///< the answer to an earlier one is not wanted
  std::optional<std::pair<TDateTime, TDateTime>> range_;
  QTimer timer_;

  QPushButton* const play_;
  QSlider* const position_;
  QSpinBox* const speed_;
  QCheckBox* const loop_;
  QCheckBox* const gaps_;
  QSpinBox* const hold_;
  QComboBox* const period_;
  QPushButton* const save_;
  QLabel* const state_;
};

}  // namespace skyreel
