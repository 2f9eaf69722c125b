#include <fcntl.h>

#include <QApplication>
#include <QDir>
#include <QLoggingCategory>
#include <QMessageBox>
#include <QStandardPaths>
#include <csignal>
#include <cstdlib>

#include "app/command_line.h"
#include "app/main_form.h"
#include "app/program_folder.h"
#include "app/signal_watcher.h"
#include "app/terminal.h"
#include "base/descriptor.h"
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

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

/// Names the settings after the executable. Returns its path.
std::filesystem::path NameTheProgram() {
  std::filesystem::path executable = ToPath(QCoreApplication::applicationFilePath());
  QCoreApplication::setOrganizationName("Quenmoor");
  QCoreApplication::setApplicationName(executable.stem().string().c_str());
  QCoreApplication::setApplicationVersion(SKYREEL_VERSION);
  return executable;
}

std::filesystem::path FolderOf(const std::filesystem::path& executable) {
  return ProgramFolder(executable, ToPath(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation)));
}

/// Where a batch writes its document, if it is wanted.
class TDocument {
 public:
  explicit TDocument(std::string file) : file_(std::move(file)) {}
  std::function<void(const std::string&)> Writer() {
    if (file_.empty()) return nullptr;
    return [this](const std::string& document) { Write(document); };
  }
  /// Where the status lines go.
  int Lines() const { return file_ == "-" ? kStandardError : kStandardOutput; }
  bool IsLost() const { return lost_; }

 private:
  void Write(const std::string& document) {
    if (file_ == "-") return WriteLine(kStandardOutput, document);
    try {
      std::error_code ignored;
      // A pipe or a device must not be replaced by a file.
      if (std::filesystem::exists(file_, ignored) && !std::filesystem::is_regular_file(file_, ignored)) {
        const TDescriptor out(::open(file_.c_str(), O_WRONLY | O_CLOEXEC));
        if (!out.IsOpen() || !WriteAll(out.Get(), document + "\n")) ThrowErrno(file_);
      } else {
        WriteFileWhole(file_, document + "\n");
      }
    } catch (const std::exception& error) {
      lost_ = true;
      WriteLine(kStandardError, "Skyreel: " + file_ + " cannot be written: " + ReasonOf(error));
    }
  }

  const std::string file_;
  bool lost_ = false;
};

void WriteError(const std::string& line) {
  WriteLine(kStandardError, "Skyreel: " + line);
}

/// Carries out a command without a window. Returns the exit code.
int RunCommand(TSignalWatcher& signal_watcher, const TStartPlan& plan) {
  const std::filesystem::path executable = NameTheProgram();
  TDocument document(plan.Json);
  const TTerminal terminal{.SettingsFile = SettingsFile(executable),
                           .ProgramFolder = FolderOf(executable),
                           .JournalFile = StateFolder() / kJournalName,
                           .Home = ToPath(QDir::homePath()),
                           .Signals = signal_watcher,
                           .Variable = Variable,
                           .Output = [&](const std::string& line) { WriteLine(document.Lines(), line); },
                           .ErrorOutput = WriteError,
                           .Document = document.Writer()};
  try {
    const int code = RunOnTerminal(terminal, plan.Terminal, plan.Arguments);
    return document.IsLost() ? EXIT_FAILURE : code;
  } catch (const ERegistryError& error) {
    WriteError(error.what());
    return EXIT_FAILURE;
  }
}

/// Runs the form. Returns the exit code.
int Run(TSignalWatcher& signal_watcher, const TStartPlan& plan) {
  const std::filesystem::path executable = NameTheProgram();
  QGuiApplication::setDesktopFileName("skyreel");

  std::vector<std::string> arguments;
  for (const QString& argument : QCoreApplication::arguments().mid(1))
    arguments.push_back(argument.toStdString());
  const bool batch = !arguments.empty();
  const bool undrawn = QGuiApplication::platformName() == "offscreen";
  if (undrawn && !batch && !plan.Platforms.empty()) {
    WriteError(kNoDisplayText);
    return EXIT_FAILURE;
  }
  TDocument document(plan.Json);
  try {
    TRegistryStore store(SettingsFile(executable));
    TFormMain form({.Store = store,
                    .Executable = executable,
                    .AppPaths = AppPathsFile(),
                    .ProgramFolder = FolderOf(executable),
                    .JournalFile = StateFolder() / kJournalName,
                    .SourceFolders = SourceFolders(Variable),
                    .Arguments = arguments,
                    .Headless = undrawn && batch,
                    .Clock = nullptr,
                    .Bell = {},
                    .Output = [&](const std::string& line) { WriteLine(document.Lines(), line); },
                    .ErrorOutput = WriteError,
                    .Document = document.Writer()});
    signal_watcher.Start([&form] { form.CloseSoon(); });
    form.show();
    QApplication::exec();
    return document.IsLost() ? EXIT_FAILURE : static_cast<int>(form.ExitCode());
  } catch (const ERegistryError& error) {
    if (batch) {
      WriteError(error.what());
    } else {
      signal_watcher.Start([] { QApplication::closeAllWindows(); });
      QMessageBox::critical(nullptr, "Skyreel", QString::fromStdString(error.what()));
    }
    return EXIT_FAILURE;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const TStartPlan plan = PlanStart({argv + 1, argv + argc}, Variable);
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
  if (plan.Terminal.Kind == TTerminalCommand::TKind::Animate) {
    // The captions need fonts, but no display.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(count, left.data());
    return RunCommand(signal_watcher, plan);
  }
  if (plan.Terminal.Kind != TTerminalCommand::TKind::None) {
    const QCoreApplication application(argc, argv);
    return RunCommand(signal_watcher, plan);
  }
  const QApplication application(count, left.data());
  if (QGuiApplication::platformName() != "offscreen") QLoggingCategory::setFilterRules("");
  return Run(signal_watcher, plan);
}
