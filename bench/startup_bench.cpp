// Shows a window, prints when it was first painted (nanoseconds since 1970), waits for a second, and prints
// the memory of the process in KiB. "empty" is a main window with a tab bar, "form" the program's window.
// bench/startup.sh runs both in turn and compares them.

#include <QApplication>
#include <QMainWindow>
#include <QTabWidget>
#include <QTimer>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

#include "app/main_form.h"

namespace {

/// Prints the time of the first paint, and the memory a second later; then ends the program.
class TFirstPaint : public QObject {
 public:
  explicit TFirstPaint(QMainWindow& window) : window_(window) { qApp->installEventFilter(this); }

  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() == QEvent::Paint && watched == window_.centralWidget()) {
      qApp->removeEventFilter(this);
      // After this paint and those of the children.
      QTimer::singleShot(0, this, [] {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        std::printf("%lld\n", static_cast<long long>(std::chrono::nanoseconds(now).count()));
        QTimer::singleShot(1'000, qApp, [] {
          std::ifstream memory("/proc/self/smaps_rollup");
          for (std::string word; memory >> word;) {
            if (word == "Pss:" && memory >> word) std::printf("%s\n", word.c_str());
          }
          QApplication::exit();
        });
      });
    }
    return false;
  }

 private:
  QMainWindow& window_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const QApplication application(argc, argv);
  if (std::string(argv[1]) == "empty") {
    QMainWindow window;
    auto* tabs = new QTabWidget;
    for (const skyreel::TSource& source : skyreel::Sources()) tabs->addTab(new QWidget, source.Caption);
    window.setCentralWidget(tabs);
    window.resize(860, 680);
    const TFirstPaint first_paint(window);
    window.show();
    return QApplication::exec();
  }
  const std::filesystem::path folder = argv[2];
  skyreel::TRegistryStore store(folder / "Skyreel.conf");
  skyreel::TFormMain form({.Store = store,
                           .Executable = folder / "Skyreel",
                           .AppPaths = folder / "App Paths.conf",
                           .ProgramFolder = folder,
                           .JournalFile = folder / "Journal.sqlite",
                           .SourceFolders = {},
                           .Arguments = {},
                           .Headless = false,
                           .Clock = nullptr,
                           .Bell = {},
                           .Output = {},
                           .ErrorOutput = {},
                           .Document = {}});
  const TFirstPaint first_paint(form);
  form.show();
  return QApplication::exec();
}
