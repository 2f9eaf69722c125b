// Shows a window, prints when it was first painted (nanoseconds since 1970), waits for a second, and prints
// the memory of the process in KiB. "empty" is a main window with a tab bar, "form" the program's window.
// bench/startup.sh runs both in turn and compares them. "tree" prints how many milliseconds the page Live
// needs for 500 sources: to read them on two threads, to show them with their health, and to search.

#include <QApplication>
#include <QMainWindow>
#include <QTabWidget>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "app/live_tree.h"
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

/// Milliseconds that `work` takes, with the painting that follows: the middle of nine times.
template <typename TWork>
double MillisecondsOf(TWork work) {
  std::vector<double> times(9);
  for (double& time : times) {
    const auto start = std::chrono::steady_clock::now();
    work();
    QApplication::processEvents();
    time = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  }
  std::ranges::sort(times);
  return times[times.size() / 2];
}

/// 500 sources in `folder`, made from the program's own.
void WriteSources(const std::filesystem::path& folder) {
  std::vector<std::string> texts;
  for (const auto& embedded : skyreel::EmbeddedDescriptions())
    if (embedded.Text.find("[page]") == embedded.Text.npos) texts.emplace_back(embedded.Text);
  for (int i = 0; i < 500; ++i) {
    const std::string number = std::to_string(i);
    std::string text = texts[static_cast<std::size_t>(i) % texts.size()];
    text.insert(text.find('"', text.find("\nid")) + 1, "n" + number + ".");
    std::ofstream(folder / (number + ".toml")) << text;
  }
}

void MeasureTree(const std::filesystem::path& folder) {
  WriteSources(folder);
  skyreel::TCatalogue catalogue;
  const double read = MillisecondsOf([&] { catalogue = skyreel::LoadCatalogue({}, {{}, folder}); });
  std::map<std::string, skyreel::TSourceHealth> healths;
  for (const skyreel::TCatalogueEntry& entry : catalogue.Entries)
    if (entry.Description) healths[entry.Id] = skyreel::TSourceHealth::Fresh;
  skyreel::TLiveTree tree;
  tree.resize(400, 600);
  tree.show();
  QApplication::processEvents();
  const double show = MillisecondsOf([&] {
    tree.Fill(catalogue, {});
    tree.ShowHealth(healths);
  });
  double search = 0;
  for (const char* text : {"s", "su", "sur", "goes", "", "geostationary noaa", "q"})
    search = std::max(search, MillisecondsOf([&] { tree.Search(text); }));
  std::printf("%zu %.1f %.1f %.1f\n", healths.size(), read, show, search);
}

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
  if (std::string(argv[1]) == "tree") {
    MeasureTree(folder);
    return 0;
  }
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
