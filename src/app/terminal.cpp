#include "app/terminal.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include "app/animation_export.h"
#include "app/background.h"
#include "app/batch_record.h"
#include "app/journal_recorder.h"
#include "app/live_settings.h"
#include "app/picture_list.h"
#include "app/program_folder.h"
#include "base/comma_text.h"
#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"
#include "catalogue/catalogue.h"
#include "catalogue/described_run.h"
#include "catalogue/description_reader.h"
#include "catalogue/terminal_text.h"
#include "net/http_parse.h"
#include "net/nm_ftp.h"
#include "net/nm_http.h"
#include "settings/registry_store.h"
#include "sources/source_table.h"
#include "transfer/transfer_ledger.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

/// The settings that all described sources share in a run.
class TTerminalSettings {
 private:
  TRegistryStore store_;

 public:
  explicit TTerminalSettings(const TTerminal& terminal) : store_(terminal.SettingsFile) {
    std::string output = Text("OutputPathLive");
    if (output.empty()) output = "~/Skyreel/Live";
    // cron and a terminal start the program in different folders. An absolute path stays as it is.
    OutputPath = terminal.Home / FromHome(output, terminal.Home);
    if (store_.HasValue("Timeout")) Shared.TimeoutSeconds = store_.ReadInteger("Timeout");
    if (store_.HasValue("UseProxy")) Shared.UseProxy = store_.ReadBoolean("UseProxy");
    Shared.ProxyServer = Text("ProxyServer");
    Shared.ProxyPort = Text("ProxyPort");
    CaFile = Text("CaFile");
    HostOverrides = Text("HostOverrides");
  }

  fs::path OutputPath;
  TSharedSettings Shared;
  std::string CaFile, HostOverrides;
  const TLiveSettings Live{store_};

 private:
  std::string Text(const char* name, const std::string& otherwise = "") {
    return store_.HasValue(name) ? store_.ReadString(name).toStdString() : otherwise;
  }
};

/// Writes the lines of a run to the terminal and keeps them for the report.
class TTerminalDisplay : public TStatusDisplay {
 public:
  explicit TTerminalDisplay(const std::function<void(const std::string&)>& output) : output_(output) {}

  void AddStatusLine(const std::string& text) override {
    Report += text + "\r\n";
    Fire(output_, text);
  }
  void BeginFile(const std::string&) override {}
  void EndFile(const TFileResult& result, const std::string& line) override {
    Fire(OnFile, result);
    if (!line.empty()) AddStatusLine(line);
  }
  void SetPanel(int, const std::string&) override {}
  void SetProgress(int) override {}
  void SetBytes(const std::string&, const std::string&) override {}
  void SetBusyCursor(bool) override {}

  std::function<void(const TFileResult& result)> OnFile;
  std::string Report;

 private:
  const std::function<void(const std::string&)> output_;
};

/// All that a run works with; a signal stops it.
class TTerminalRun : private TRunControl {
 public:
  TTerminalRun(const TTerminal& terminal, const TTerminalSettings& settings, const fs::path& journal_file,
               const fs::path& ledger_file)
      : Display(terminal.Output),
        ledger_(ledger_file),
        Recorder(journal_file, &clock_, Display),
        context_{Display, *this, clock_, ftp_, http_, notts_, https_, ledger_, record_, settings.Shared} {
    Display.OnFile = [this](const TFileResult& result) { Recorder.Record(result); };
    std::vector<std::string> problems;
    try {
      https_.SetSettings(ReadHttpsSettings(settings.CaFile, settings.HostOverrides, problems));
    } catch (const std::exception& error) {
      problems.push_back(std::string("The setting CaFile is not used: ") + error.what());
    }
    for (const std::string& problem : problems) Display.AddStatusLine(problem);
    terminal.Signals.Start([this] {
      if (Stopped) https_.Abort();
      Stopped = true;
    });
  }

  TDescribedRun Described(const fs::path& output) {
    return {.Context = context_, .Journal = Recorder.Journal(), .Output = output};
  }

  TTerminalDisplay Display;
  bool Stopped = false;

 private:
  bool StopRequested() const override { return Stopped; }
  void RestartWatchdog() override {}
  void StopWatchdog() override {}

  static void LetEventsThrough() { QCoreApplication::processEvents(); }

  TSystemClock clock_{LetEventsThrough};
  TNMFTP ftp_{LetEventsThrough};
  TNMHTTP http_{LetEventsThrough}, notts_{LetEventsThrough};
  THttpsClient https_{LetEventsThrough};
  TTransferLedger ledger_;
  TRunRecord record_;

 public:
  TJournalRecorder Recorder;

 private:
  TTransferContext context_;
};

TCatalogue Catalogue(const TTerminal& terminal) {
  TCatalogue catalogue = LoadCatalogue(EmbeddedDescriptions(), SourceFolders(terminal.Variable));
  for (const TProblem& problem : catalogue.Problems) Fire(terminal.ErrorOutput, problem.Message());
  return catalogue;
}

void Print(const TTerminal& terminal, const std::string& text) {
  ForEachLine(text, [&](std::string_view line) { Fire(terminal.Output, std::string(line)); });
}

int ListSources(const TTerminal& terminal) {
  const TCatalogue catalogue = Catalogue(terminal);
  const TTerminalSettings settings(terminal);
  const TSystemClock clock({});
  std::optional<TJournal> journal;
  // A list makes no journal.
  if (FileSizeOf(terminal.JournalFile) >= 0) journal.emplace(terminal.JournalFile, clock);
  const auto ticked = [&](const std::string& id) { return settings.Live.Ticked.contains(id); };
  const auto health = [&](const std::string& id) {
    if (!journal) return HealthText(TSourceHealth::NeverRun);
    const TDescription& source = *catalogue.Find(id)->Description;
    return HealthText(journal->Health(id, source.Time.Stale.value_or(TDateTime::TSpan{0})));
  };
  Print(terminal, SourceListText(catalogue, ticked, health));
  return 0;
}

/// The description in a file; nothing when it is wrong; its problems are written then.
std::optional<TDescription> ReadFromFile(const TTerminal& terminal, const std::string& file) {
  TReadDescription read = ReadDescriptionFile(file);
  for (const TProblem& problem : read.Problems) Fire(terminal.ErrorOutput, problem.Message());
  return std::move(read.Description);
}

int CheckSource(const TTerminal& terminal, const std::string& file) {
  const auto source = ReadFromFile(terminal, file);
  if (!source) return static_cast<int>(TExitCode::NotStarted);
  Print(terminal, CheckSourceText(*source, TSystemClock({}).UtcNow()));
  return 0;
}

/// The description that an id names; nothing when no usable description has it; the reason is written then.
const TDescription* FindSource(const TTerminal& terminal, const TCatalogue& catalogue,
                               const std::string& id) {
  const TCatalogueEntry* const entry = catalogue.Find(id);
  if (entry && entry->Description) return &*entry->Description;
  Fire(terminal.ErrorOutput, "\"" + id + (entry ? "\" has a wrong description" : "\" is no source") +
                                 "; see Skyreel --list-sources");
  return nullptr;
}

/// What a server answered, for --try-source.
std::string AnswerText(const TFetchAnswer& answer) {
  std::string text = "GET " + answer.Url + "\n";
  if (answer.Code != 0) text += "  status: " + std::to_string(answer.Code) + "\n";
  for (const char* const name : {"Content-Type", "Last-Modified", "ETag", "Retry-After"}) {
    const std::string value = WithoutControls(HeaderValue(answer.Header, name));
    if (!value.empty()) text += "  " + std::string(name) + ": " + value + "\n";
  }
  text += "  size: " + std::to_string(answer.Bytes) + " bytes\n";
  if (!answer.Reason.empty()) text += "  " + answer.Reason + "\n";
  return text;
}

int TrySource(const TTerminal& terminal, const std::string& name) {
  const TCatalogue catalogue = Catalogue(terminal);
  std::optional<TDescription> source;
  if (FileSizeOf(name) >= 0) {
    source = ReadFromFile(terminal, name);
  } else if (const TDescription* const found = FindSource(terminal, catalogue, name)) {
    source = *found;
  }
  if (!source) return static_cast<int>(TExitCode::NotStarted);
  // One picture is enough.
  source->Time.WalkBack = 0;
  TWantedSource wanted{*source};
  for (const TVariable& variable : source->Variables)
    wanted.Choices[variable.Name] = {
        variable.Rows[variable.Default.empty() ? 0 : variable.Default.front()].Value};

  const QTemporaryDir temporary;
  const fs::path place = temporary.path().toStdString();
  TTerminalRun run(terminal, TTerminalSettings(terminal), place / "journal", place / "ledger");
  TDescribedRun described = run.Described(place / "out");
  described.Tries = 1;
  described.OnAnswer = [&terminal](const TFetchAnswer& answer) { Print(terminal, AnswerText(answer)); };
  const std::vector<TRunRecord> records = RunDescribedSources(described, {wanted});
  if (!records[0].ServerProblems.empty()) return static_cast<int>(TExitCode::ServerProblem);
  return static_cast<int>(records[0].Counts.New > 0 ? TExitCode::Done : TExitCode::FileFailed);
}

int RunSources(const TTerminal& terminal, const TTerminalCommand& command,
               const std::vector<std::string>& unknown) {
  const TCatalogue catalogue = Catalogue(terminal);
  const TTerminalSettings settings(terminal);
  TBatchRecord batch;
  batch.UnknownArguments = unknown;
  for (const std::string& argument : unknown)
    Fire(terminal.ErrorOutput, "\"" + argument + "\" does not go with --run; see Skyreel --help");
  // "--dryrun" must not fetch.
  const auto is_option = [](const std::string& argument) { return argument.starts_with("--"); };
  if (std::ranges::any_of(unknown, is_option)) return static_cast<int>(TExitCode::UnknownArgument);
  std::vector<TWantedSource> wanted;
  for (const std::string& id : FromCommaText(command.Argument)) {
    const TDescription* const source = FindSource(terminal, catalogue, id);
    if (source == nullptr) {
      TRunRecord& record = batch.Runs.emplace_back();
      record.Source = id;
      record.End = TRunEnd::NotStarted;
      record.Reason = "no such source";
    } else if (std::ranges::find(wanted, source, [](const TWantedSource& each) { return &each.Source; }) ==
               wanted.end()) {
      wanted.push_back(settings.Live.Wanted(*source));
      // Who names a source accepts its terms.
      wanted.back().AcceptsTerms = true;
      wanted.back().Days = command.Days;
    }
  }
  TTerminalRun run(terminal, settings, terminal.JournalFile, terminal.ProgramFolder / kLedgerName);
  TDescribedRun described = run.Described(settings.OutputPath);
  described.KeepsFiles = terminal.Document != nullptr;
  const TSystemClock clock({});
  if (command.DryRun) {
    for (const TWantedSource& each : wanted) {
      Print(terminal, each.Source.Title + " (" + each.Source.Id + ")");
      const TPlan plan = PlanOffline(described.Journal, described.Output, clock.UtcNow(), each);
      Print(terminal, PlanText(each.Source, plan, clock.UtcNow()));
    }
    return static_cast<int>(batch.ExitCode());
  }
  batch.Started = clock.UtcNow();
  run.Recorder.BeginRun("--run " + command.Argument);
  const std::vector<TRunRecord> records = RunDescribedSources(described, wanted);
  batch.Runs.insert(batch.Runs.end(), records.begin(), records.end());
  batch.Signal = run.Stopped;
  batch.SideBySide = true;
  run.Recorder.EndRun(records, batch.ExitCode());
  run.Display.AddStatusLine(batch.Line());
  run.Display.AddStatusLine(std::string("Skyreel - V") + SKYREEL_VERSION);
  try {
    WriteFileWhole(terminal.ProgramFolder / kReportName, run.Display.Report);
  } catch (const std::exception& error) {
    Fire(terminal.ErrorOutput, std::string("The report cannot be written: ") + error.what());
  }
  Fire(terminal.Document, batch.Json(clock.UtcNow()));
  return static_cast<int>(batch.ExitCode());
}

/// The title of a source as the journal has it: a tab's caption, in any letter case, or an id.
std::string SourceName(const std::string& name) {
  for (const TSource& source : Sources())
    if (SameText(source.Caption, name)) return source.Caption;
  return name;
}

/// What --animate names.
struct TWantedPictures {
  std::string Source;
  std::vector<TArrival> Files;
};

/// The stored files that "SOURCE" or "SOURCE/PRODUCT" names, deleted ones too.
TWantedPictures StoredPictures(TJournal& journal, const std::string& name) {
  constexpr std::int64_t kMost = 100'000;
  const auto all = [&journal](const std::string& source, const std::string& product) {
    return source.empty() ? std::vector<TArrival>() : journal.Arrivals(source, product, kMost);
  };
  TWantedPictures found{SourceName(name), all(SourceName(name), "")};
  // A source and a product may have slashes in their names.
  for (auto slash = name.find('/'); found.Files.empty() && slash != std::string::npos;
       slash = name.find('/', slash + 1)) {
    found.Source = SourceName(name.substr(0, slash));
    found.Files = all(found.Source, name.substr(slash + 1));
  }
  return found;
}

/// Saves an animation on a worker thread while this one takes signals.
TAnimationResult SaveAndWatch(const TTerminal& terminal, const TAnimationOrder& order) {
  const auto progress = std::make_shared<TAnimationProgress>();
  terminal.Signals.Start([progress] { progress->Stop = true; });
  QEventLoop loop;
  QTimer timer;
  int told = 0;
  QObject::connect(&timer, &QTimer::timeout, [&] {
    if (const int frames = progress->Frames; std::exchange(told, frames) != frames)
      Fire(terminal.Output, std::to_string(frames) + " of " + Count(std::ssize(order.Files), "picture"));
  });
  timer.start(std::chrono::seconds(5));
  TAnimationResult result;
  InBackground(
      &loop, [&] { return SaveAnimation(order, progress); },
      [&](TAnimationResult saved) {
        result = std::move(saved);
        loop.quit();
      });
  loop.exec();
  return result;
}

int Animate(const TTerminal& terminal, const TTerminalCommand& command,
            const std::vector<std::string>& unknown) {
  for (const std::string& argument : unknown)
    Fire(terminal.ErrorOutput, "\"" + argument + "\" does not go with --animate; see Skyreel --help");
  if (!unknown.empty()) return static_cast<int>(TExitCode::UnknownArgument);
  const auto not_started = [&](const std::string& reason) {
    Fire(terminal.ErrorOutput, reason);
    return static_cast<int>(TExitCode::NotStarted);
  };
  TAnimationOrder order;
  order.Output = fs::absolute(command.Output);
  order.Ffmpeg = FindFfmpeg();
  order.Style.KeepsGaps = true;
  if (NeedsFfmpeg(order.Output) && order.Ffmpeg.empty()) return not_started(kNoFfmpegText);

  const TSystemClock clock({});
  std::optional<TJournal> journal;
  // A question makes no journal.
  if (FileSizeOf(terminal.JournalFile) >= 0) journal.emplace(terminal.JournalFile, clock);
  const TWantedPictures wanted = journal ? StoredPictures(*journal, command.Argument) : TWantedPictures{};
  if (wanted.Files.empty())
    return not_started("The journal names no picture of \"" + command.Argument +
                       "\"; name a tab, or an id of Skyreel --list-sources");
  std::set<std::string> products;
  std::string credit;
  if (const TCatalogueEntry* const entry = Catalogue(terminal).Find(wanted.Source);
      entry && entry->Description)
    credit = entry->Description->Licence.Credit;
  for (const TArrival& file : wanted.Files)
    if (MayBePicture(file.Path)) products.insert(file.Product);
  order.Files = FramesOf(wanted.Files, credit);
  if (order.Files.empty())
    return not_started("None of the " + Count(std::ssize(wanted.Files), "picture") + " of \"" +
                       command.Argument + "\" is on the disk any more");
  if (products.size() > 1) {
    std::string names;
    for (const std::string& product : products)
      names += (names.empty() ? "" : ", ") + wanted.Source + "/" + product;
    return not_started("\"" + command.Argument + "\" has several products; name one of " + names);
  }
  order.Files = FramesOfLast(order.Files, command.Last.value_or(std::chrono::hours(24)));
  order.Style.FramesPerSecond = command.FramesPerSecond.value_or(order.Style.FramesPerSecond);
  order.LongestSide = command.LongestSide.value_or(order.LongestSide);

  const TAnimationResult result = SaveAndWatch(terminal, order);
  for (const auto& [frame, reason] : result.LeftOut)
    Fire(terminal.ErrorOutput, order.Files[frame].Path.string() + " is left out: " + reason);
  if (result.Stopped) return static_cast<int>(TExitCode::Signal);
  if (!result.Problem.empty()) {
    Fire(terminal.ErrorOutput, result.Problem);
    return static_cast<int>(TExitCode::FileFailed);
  }
  Fire(terminal.Output, command.Output + ": " + SavedText(result));
  return static_cast<int>(TExitCode::Done);
}

}  // namespace

int RunOnTerminal(const TTerminal& terminal, const TTerminalCommand& command,
                  const std::vector<std::string>& unknown) {
  switch (command.Kind) {
    case TTerminalCommand::TKind::ListSources:
      return ListSources(terminal);
    case TTerminalCommand::TKind::CheckSource:
      return CheckSource(terminal, command.Argument);
    case TTerminalCommand::TKind::TrySource:
      return TrySource(terminal, command.Argument);
    case TTerminalCommand::TKind::Animate:
      return Animate(terminal, command, unknown);
    default:
      return RunSources(terminal, command, unknown);
  }
}

}  // namespace skyreel
