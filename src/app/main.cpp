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
#include "base/exceptions.h"
#include "base/files.h"
#include "settings/registry_store.h"

using namespace skyreel;

namespace {

constexpr int kStandardOutput = 1;
constexpr int kStandardError = 2;

std::filesystem::path ToPath(const QString& text) {
  return text.toStdString();
}

/// Runs the form. Returns the exit code.
int Run(QApplication& application, TSignalWatcher& signal_watcher, const TStartPlan& plan) {
  QCoreApplication::setOrganizationName("Quenmoor");
  QCoreApplication::setApplicationName(ToPath(application.applicationFilePath()).stem().string().c_str());
  QCoreApplication::setApplicationVersion(SKYREEL_VERSION);
  QGuiApplication::setDesktopFileName("skyreel");

  const std::filesystem::path executable = ToPath(QCoreApplication::applicationFilePath());
  std::vector<std::string> arguments;
  for (const QString& argument : QCoreApplication::arguments().mid(1))
    arguments.push_back(argument.toStdString());
  const bool batch = !arguments.empty();
  const bool undrawn = QGuiApplication::platformName() == "offscreen";
  if (undrawn && !batch && !plan.Platforms.empty()) {
    WriteLine(kStandardError, std::string("Skyreel: ") + kNoDisplayText);
    return EXIT_FAILURE;
  }
  const int lines_to = plan.Json == "-" ? kStandardError : kStandardOutput;
  bool document_lost = false;
  const auto write_document = [&](const std::string& document) {
    if (plan.Json == "-") return WriteLine(kStandardOutput, document);
    try {
      WriteFileWhole(plan.Json, document + "\n");
    } catch (const std::exception& error) {
      document_lost = true;
      WriteLine(kStandardError, "Skyreel: " + plan.Json + " cannot be written: " + ReasonOf(error));
    }
  };
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
         .Headless = undrawn && batch,
         .Clock = nullptr,
         .Bell = {},
         .Output = [=](const std::string& line) { WriteLine(lines_to, line); },
         .ErrorOutput = [](const std::string& line) { WriteLine(kStandardError, "Skyreel: " + line); },
         .Document = plan.Json.empty() ? nullptr : std::function<void(const std::string&)>(write_document)});
    signal_watcher.Start([&form] { form.CloseSoon(); });
    form.show();
    QApplication::exec();
    return document_lost ? EXIT_FAILURE : static_cast<int>(form.ExitCode());
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
  if (!plan.Platforms.empty()) qputenv("QT_QPA_PLATFORM", plan.Platforms.c_str());
  // Otherwise cron would mail Qt's remarks about the missing display with every batch.
  QLoggingCategory::setFilterRules("*.warning=false\nqt.qpa.plugin.info=false");
#ifdef SIGPIPE
  // The run goes on when the reader of the status lines is gone.
  std::signal(SIGPIPE, SIG_IGN);
#endif
#ifdef SIGXFSZ
  // A file beyond the size limit of the user fails alone, with EFBIG.
  std::signal(SIGXFSZ, SIG_IGN);
#endif
  TSignalWatcher signal_watcher;
  // Qt keeps the array and takes its own options out of it.
  std::vector<char*> left = {argv[0]};
  for (const std::string& argument : plan.Arguments) left.push_back(const_cast<char*>(argument.c_str()));
  int count = static_cast<int>(left.size());
  left.push_back(nullptr);
  QApplication application(count, left.data());
  if (QGuiApplication::platformName() != "offscreen") QLoggingCategory::setFilterRules("");
  return Run(application, signal_watcher, plan);
}
