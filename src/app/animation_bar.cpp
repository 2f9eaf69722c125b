#include "app/animation_bar.h"

#include <QHBoxLayout>
#include <QSignalBlocker>
#include <algorithm>

#include "app/animation_dialog.h"
#include "app/background.h"
#include "base/text.h"

namespace skyreel {

namespace {

QString TimeText(TDateTime time) {
  return QString::fromStdString(FormatDateTime("yyyy-mm-dd hh:nn", time));
}

}  // namespace

TAnimationBar::TAnimationBar(TEnvironment environment, QWidget* parent)
    : QWidget(parent),
      environment_(std::move(environment)),
      play_(new QPushButton("Play")),
      position_(new QSlider(Qt::Horizontal)),
      speed_(new QSpinBox),
      loop_(new QCheckBox("Loop")),
      gaps_(new QCheckBox("Gaps")),
      hold_(new QSpinBox),
      period_(new QComboBox),
      save_(new QPushButton("Save animation…")),
      state_(new QLabel) {
  setObjectName("AnimationBar");
  const TAnimationStyle style;
  play_->setObjectName("ButtonPlay");
  play_->setToolTip("Play or pause (Space)");
  position_->setObjectName("SliderPosition");
  position_->setAccessibleName("Position in the animation");
  position_->setEnabled(false);
  position_->setMinimumWidth(80);
  speed_->setObjectName("SpinSpeed");
  speed_->setAccessibleName("Pictures a second");
  speed_->setToolTip("Pictures a second");
  speed_->setRange(1, TAnimationStyle::kMostFramesPerSecond);
  speed_->setValue(style.FramesPerSecond);
  speed_->setSuffix(" a second");
  loop_->setObjectName("CheckLoop");
  loop_->setToolTip("Begin again after the last picture");
  loop_->setChecked(style.Loops);
  gaps_->setObjectName("CheckGaps");
  gaps_->setToolTip("Keep missing pictures as time: the last one stays. Otherwise they are passed over");
  gaps_->setChecked(style.KeepsGaps);
  hold_->setObjectName("SpinHold");
  hold_->setAccessibleName("Seconds that the last picture stays");
  hold_->setToolTip(hold_->accessibleName());
  hold_->setRange(0, TAnimationStyle::kLongestHold);
  hold_->setValue(style.HoldSeconds);
  hold_->setPrefix("Hold ");
  hold_->setSuffix(" s");
  period_->setObjectName("ComboPeriod");
  period_->setAccessibleName("Period of the animation");
  period_->setToolTip("Up to the newest picture");
  for (const int hours : {6, 24, 72}) period_->addItem(QString("Last %1 hours").arg(hours), hours);
  period_->setCurrentIndex(1);
  save_->setObjectName("ButtonSaveAnimation");
  state_->setObjectName("LabelAnimation");
  state_->setTextFormat(Qt::PlainText);
  timer_.setSingleShot(true);
  timer_.setTimerType(Qt::PreciseTimer);

  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(play_);
  layout->addWidget(position_, 1);
  for (QWidget* widget : std::initializer_list<QWidget*>{state_, period_, speed_, loop_, hold_, gaps_, save_})
    layout->addWidget(widget);
  WireEvents();
}

void TAnimationBar::WireEvents() {
  connect(play_, &QPushButton::clicked, this, [this] { PlayOrPause(); });
  connect(save_, &QPushButton::clicked, this, [this] { Save(); });
  connect(period_, &QComboBox::currentIndexChanged, this, [this] { Forget(); });
  connect(position_, &QSlider::valueChanged, this, [this](int step) {
    if (!player_) return;
    player_->GoTo(step);
    Turn();
  });
  connect(position_, &QSlider::sliderReleased, this, [this] {
    if (player_ && !player_->Playing()) Pause();
  });
  const auto restyle = [this] {
    if (!player_) return;
    player_->SetStyle(Style());
    Turn();
  };
  for (QSpinBox* box : {speed_, hold_}) connect(box, &QSpinBox::valueChanged, this, restyle);
  for (QCheckBox* box : {loop_, gaps_}) connect(box, &QCheckBox::toggled, this, restyle);
  timer_.callOnTimeout([this] { Turn(); });
}

TAnimationStyle TAnimationBar::Style() const {
  return {.FramesPerSecond = speed_->value(),
          .Loops = loop_->isChecked(),
          .HoldSeconds = hold_->value(),
          .KeepsGaps = gaps_->isChecked()};
}

void TAnimationBar::PlayOrPause() {
  if (IsPlaying()) return Pause();
  if (player_) {
    player_->Play(std::chrono::steady_clock::now());
    return Turn();
  }
  WithFiles([this](std::vector<TFrameFile> files) { Start(std::move(files)); });
}

void TAnimationBar::PlayRange(TDateTime from, TDateTime to) {
  Forget();
  range_ = {from, to};
  constexpr int kRange = 3;
  const QSignalBlocker quiet(period_);
  if (period_->count() == kRange) period_->addItem({});
  period_->setItemText(kRange, TimeText(from) + " to " + TimeText(to));
  period_->setCurrentIndex(kRange);
  PlayOrPause();
}

void TAnimationBar::Forget() {
  player_.reset();
  ++question_;
  timer_.stop();
  play_->setText("Play");
  state_->clear();
  const QSignalBlocker quiet(position_);
  position_->setValue(0);
  position_->setEnabled(false);
}

void TAnimationBar::WithFiles(std::function<void(std::vector<TFrameFile> files)> then) {
  const int question = ++question_;
  const int hours = period_->currentData().toInt();
  state_->setText("Looking for pictures…");
  InBackground(
      this,
      [job = environment_.MakeFileJob(), hours, range = range_] {
        const std::vector<TFrameFile> files = job();
        return hours == 0 && range ? FramesBetween(files, range->first, range->second)
                                   : FramesOfLast(files, std::chrono::hours(hours));
      },
      [this, question, then = std::move(then)](std::vector<TFrameFile> files) {
        if (question != question_) return;
        state_->setText(files.empty() ? "There are no pictures in this period" : "");
        if (!files.empty()) then(std::move(files));
      });
}

void TAnimationBar::Start(std::vector<TFrameFile> files) {
  const auto current = std::ranges::find(files, environment_.Current(), &TFrameFile::Path);
  const auto frame = static_cast<std::size_t>(current - files.begin());
  room_ = environment_.Room();
  player_.emplace(std::move(files), Style(), LoadForView(room_));
  player_->GoToFrame(frame + 1 < player_->Loader().Files().size() ? frame : 0);
  player_->Play(std::chrono::steady_clock::now());
  Turn();
}

void TAnimationBar::Turn() {
  if (!player_) return;
  if (const QSize room = environment_.Room(); room != room_) {
    room_ = room;
    player_->SetLoad(LoadForView(room));
  }
  const bool played = player_->Playing();
  const auto shown = player_->Tick(std::chrono::steady_clock::now());
  if (shown) environment_.Show(player_->Loader().Files()[shown->Frame], shown->Picture);
  ShowState();
  if (played && !player_->Playing()) return Pause();
  const auto now = std::chrono::steady_clock::now();
  if (const auto next = player_->NextTick(now))
    timer_.start(std::chrono::ceil<std::chrono::milliseconds>(*next - now));
}

void TAnimationBar::Pause() {
  timer_.stop();
  player_->Pause();
  ShowState();
  if (const auto frame = player_->ShownFrame()) environment_.Paused(player_->Loader().Files()[*frame]);
}

void TAnimationBar::ShowState() {
  play_->setText(player_->Playing() ? "Pause" : "Play");
  const QSignalBlocker quiet(position_);
  position_->setRange(0, player_->Steps() - 1);
  position_->setEnabled(true);
  position_->setValue(player_->Step());
  const auto broken = player_->Loader().Broken();
  QString text = QString::fromStdString(Count(std::ssize(player_->Loader().Files()), "picture"));
  if (!broken.empty()) text += QString(", %1 left out").arg(broken.size());
  state_->setText(text);
  QStringList reasons;
  constexpr int kMostReasons = 10;
  for (const auto& [frame, reason] : broken) {
    if (reasons.size() == kMostReasons) break;
    const auto name = player_->Loader().Files()[frame].Path.filename().string();
    reasons << QString::fromStdString(name + ": " + reason).toHtmlEscaped();
  }
  state_->setToolTip(reasons.join("<br>"));
}

void TAnimationBar::Save() {
  if (IsPlaying()) Pause();
  WithFiles([this](std::vector<TFrameFile> files) {
    auto* dialog = new TAnimationDialog(this, std::move(files), Style());
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->open();
  });
}

}  // namespace skyreel
