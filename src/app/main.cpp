#include <QApplication>
#include <QLoggingCategory>
#include <QMessageBox>
#include <QStandardPaths>
#include <csignal>
#include <cstdlib>

#include "app/command_line.h"
#include "app/main_form.h"
#include "app/program_folder.h"
#include "app/signal_watcher.h"
#include "settings/registry_store.h"

using namespace skyreel;

namespace {

constexpr int kStandardOutput = 1;
constexpr int kStandardError = 2;

std::filesystem::path ToPath(const QString& text) {
  return text.toStdString();
}

int Run(QApplication& application, TSignalWatcher& signal_watcher, bool headless) {
  QCoreApplication::setOrganizationName("Quenmoor");
  QCoreApplication::setApplicationName(ToPath(application.applicationFilePath()).stem().string().c_str());
  QCoreApplication::setApplicationVersion(SKYREEL_VERSION);

  const std::filesystem::path executable = ToPath(QCoreApplication::applicationFilePath());
  std::vector<std::string> arguments;
  for (const QString& argument : QCoreApplication::arguments().mid(1))
    arguments.push_back(argument.toStdString());
  const bool batch = !arguments.empty();
  try {
    TRegistryStore store(SettingsFile(executable));
    TFormMain form(
        {.Store = store,
         .Executable = executable,
         .AppPaths = AppPathsFile(),
         .ProgramFolder = ProgramFolder(
             executable, ToPath(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation))),
         .JournalFile = StateFolder() / "Journal.sqlite",
         .Arguments = arguments,
         .Headless = headless,
         .Clock = nullptr,
         .Bell = {},
         .Output = [](const std::string& line) { WriteLine(kStandardOutput, line); },
         .ErrorOutput = [](const std::string& line) { WriteLine(kStandardError, "Skyreel: " + line); }});
    signal_watcher.Start([&form] { form.CloseSoon(); });
    form.show();
    return QApplication::exec();
  } catch (const ERegistryError& error) {
    if (batch) {
      WriteLine(kStandardError, std::string("Skyreel: ") + error.what());
    } else {
      signal_watcher.Start([] { QApplication::closeAllWindows(); });
      QMessageBox::critical(nullptr, "Skyreel", QString::fromStdString(error.what()));
    }
    return EXIT_FAILURE;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const TStartPlan plan = PlanStart({argv + 1, argv + argc}, [](const char* name) -> std::string {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
  });
  if (plan.Action != TStartPlan::TAction::Run) {
    const bool wanted = plan.Action == TStartPlan::TAction::ShowText;
    std::fputs(plan.Text.c_str(), wanted ? stdout : stderr);
    return wanted ? EXIT_SUCCESS : EXIT_FAILURE;
  }
  if (!plan.Platforms.empty()) {
    qputenv("QT_QPA_PLATFORM", plan.Platforms.c_str());
    // Otherwise cron would mail Qt's remarks about the missing display with every batch.
    QLoggingCategory::setFilterRules("*.warning=false\nqt.qpa.plugin.info=false");
  }
#ifdef SIGPIPE
  // The run goes on when the reader of the status lines is gone.
  std::signal(SIGPIPE, SIG_IGN);
#endif
  TSignalWatcher signal_watcher;
  QApplication application(argc, argv);
  const bool headless = !plan.Platforms.empty() && QGuiApplication::platformName() == "offscreen";
  if (!headless) QLoggingCategory::setFilterRules("");
  return Run(application, signal_watcher, headless);
}
