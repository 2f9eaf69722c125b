#include <QComboBox>
#include <QDesktopServices>
#include <QDir>
#include <QFileSystemWatcher>
#include <QLabel>
#include <QTimer>
#include <QUrl>

#include "app/add_source_dialog.h"
#include "app/background.h"
#include "app/live_sources.h"
#include "app/plan_dialog.h"
#include "app/program_folder.h"
#include "app/signal_watcher.h"
#include "app/source_page.h"
#include "app/worker_journal.h"
#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"
#include "catalogue/description_reader.h"
#include "catalogue/terminal_text.h"
#include "settings/persisted_controls.h"
#include "transfer/fetch_queue.h"
#include "ui_live.h"

namespace skyreel {

namespace {

/// What a first-time user fetches.
constexpr const char* kFirstSource = "gov.noaa.star.goes-east-fd";

/// A run that may be larger asks first.
constexpr std::int64_t kLargeRun = 1'000'000'000;
constexpr std::int64_t kLargestDescription = 64'000;

/// Links in the text about a source.
constexpr const char* kAccept = "accept-terms";
constexpr const char* kWithdraw = "withdraw-terms";

QString Html(const std::string& text) {
  return QString::fromStdString(text).toHtmlEscaped();
}

QString Link(const std::string& address, const std::string& text) {
  return "<a href=\"" + Html(address) + "\">" + Html(text) + "</a>";
}

class TLivePage : public TFormPage<Ui::TLivePage> {
 public:
  explicit TLivePage(const TPageContext& context) : TFormPage(context), sources_(context) {
    for (QSpinBox* spin : {ui_.SpinDays, ui_.SpinKeepDays}) KeepFromWheel(*spin);
    ui_.SplitterLive->setSizes({400, 600});
    // The page of the tab shows through, as on the other pages.
    for (QWidget* panel : {ui_.ScrollSource->viewport(), ui_.PanelSource})
      panel->setAutoFillBackground(false);
    ShowSource("");
    WireEvents();
  }
  ~TLivePage() override {
    // The tree outlives the members of this page.
    ui_.TreeSources->OnTick = nullptr;
    ui_.TreeSources->OnChoose = nullptr;
  }

  void FetchFirstPicture() override { Start({kFirstSource}); }
  bool Search() override {
    ui_.EditSearch->setFocus();
    ui_.EditSearch->selectAll();
    return true;
  }

  void CatalogueRead() override {
    ui_.TreeSources->Fill(sources_.Catalogue(), sources_.Settings.Ticked);
    ui_.TreeSources->Search(ui_.EditSearch->text());
    if (!to_choose_.empty()) ui_.TreeSources->Choose(std::exchange(to_choose_, ""));
    ShowHealth();
    Watch();
  }

  std::vector<TCoverageSource> CoverageSources() const override {
    if (!sources_.AreRead()) context_.Catalogue.ReadOnce();
    return sources_.CoverageSources(OutputPath(), healths_);
  }

 protected:
  bool ShowsDescriptions() const override { return true; }
  std::shared_ptr<const TDescription> Described(const std::string& id) override {
    return sources_.FindAccepted(id);
  }
  bool AcceptsTerms(const std::string& id) const override { return sources_.Settings.Terms.Accepts(id); }

 private:
  void WireEvents() {
    ui_.TreeSources->OnTick = [this](const std::string& id, bool ticked) {
      ticked ? static_cast<void>(sources_.Settings.Ticked.insert(id))
             : static_cast<void>(sources_.Settings.Ticked.erase(id));
    };
    ui_.TreeSources->OnChoose = [this](const std::string& id) { ShowSource(id); };
    connect(ui_.EditSearch, &QLineEdit::textChanged, ui_.TreeSources, &TLiveTree::Search);
    connect(ui_.SpinDays, &QSpinBox::valueChanged, this,
            [this](int days) { KeepNumber(sources_.Settings.Days, days); });
    connect(ui_.SpinKeepDays, &QSpinBox::valueChanged, this,
            [this](int days) { KeepNumber(sources_.Settings.KeepDays, days); });
    connect(ui_.LabelAbout, &QLabel::linkActivated, this, &TLivePage::LabelAboutLink);
    connect(ui_.ButtonRunLive, &QPushButton::clicked, this, &TLivePage::ButtonRunLiveClick);
    connect(ui_.ButtonOneSource, &QPushButton::clicked, this, [this] { Start({shown_}); });
    connect(ui_.ButtonPreview, &QPushButton::clicked, this, &TLivePage::ButtonPreviewClick);
    connect(ui_.ButtonAddSource, &QPushButton::clicked, this, &TLivePage::ButtonAddSourceClick);
    connect(ui_.ButtonEditSource, &QPushButton::clicked, this, &TLivePage::ButtonEditSourceClick);
    connect(ui_.ButtonRemoveSource, &QPushButton::clicked, this, &TLivePage::ButtonRemoveSourceClick);
    timer_reload_.setSingleShot(true);
    timer_reload_.setInterval(200);
    connect(&timer_reload_, &QTimer::timeout, this, [this] { context_.Catalogue.Read(); });
    connect(&watcher_, &QFileSystemWatcher::fileChanged, this, [this] { timer_reload_.start(); });
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, [this] { timer_reload_.start(); });
  }

  /// Watches the user's files.
  void Watch() {
    QStringList paths;
    for (const std::filesystem::path& path : sources_.Watched())
      if (!path.empty()) paths += QString::fromStdString(path.string());
    const QStringList known = watcher_.files() + watcher_.directories();
    const std::set<QString> watched(known.begin(), known.end());
    paths.removeIf([&](const QString& path) { return watched.contains(path); });
    if (paths.isEmpty()) return;
    const auto not_watched = watcher_.addPaths(paths);
    // A new file may have changed after it was read.
    if (!watched.empty() && not_watched.size() < paths.size()) timer_reload_.start();
  }

  void ShowHealth() {
    if (!sources_.AreRead()) return;
    InBackground(this, sources_.HealthWork(),
                 [this, request = ++health_request_](const std::optional<THealths>& healths) {
                   if (request != health_request_) return;
                   if (!healths) {
                     QTimer::singleShot(kJournalRetry, this, [this, request] {
                       if (request == health_request_) ShowHealth();
                     });
                     return;
                   }
                   healths_ = *healths;
                   ui_.TreeSources->ShowHealth(healths_);
                 });
  }

  // --- The chosen source

  void ShowSource(const std::string& id) {
    shown_ = id;
    const TCatalogueEntry* const entry = id.empty() ? nullptr : sources_.Catalogue().Find(id);
    const TDescription* const source = entry && entry->Description ? &*entry->Description : nullptr;
    ui_.ButtonEditSource->setEnabled(entry);
    const bool users = entry && entry->OfUser;
    ui_.ButtonEditSource->setText(users ? "Edit cop&y" : "Edit a cop&y");
    ui_.ButtonRemoveSource->setEnabled(users);
    const std::string& title = entry && !entry->Title.empty() ? entry->Title : id;
    ui_.LabelTitle->setText(id.empty() ? "Choose a source on the left." : QString::fromStdString(title));
    for (QWidget* control :
         std::initializer_list<QWidget*>{ui_.LabelDays, ui_.SpinDays, ui_.LabelKeepDays, ui_.SpinKeepDays,
                                         ui_.ButtonPreview, ui_.ButtonOneSource})
      control->setVisible(source);
    qDeleteAll(ui_.PanelChoices->findChildren<QWidget*>(Qt::FindDirectChildrenOnly));
    if (!source) {
      ui_.LabelAbout->setText(ProblemsText(shown_));
      return;
    }
    ShowAbout();
    QWidget* before = ui_.LabelAbout;
    for (const TVariable& variable : source->Variables) {
      QWidget* control = AddChoice(*source, variable);
      setTabOrder(before, control);
      before = control;
    }
    const TWantedSource wanted = sources_.Settings.Wanted(*source);
    const QSignalBlocker no_days(ui_.SpinDays), no_keep_days(ui_.SpinKeepDays);
    ui_.SpinDays->setValue(wanted.Days.value_or(0));
    ui_.SpinKeepDays->setValue(wanted.KeepDays.value_or(0));
    ui_.SpinKeepDays->setSpecialValueText(
        source->Keep.Days ? QString("for ever (suggested: %1 days)").arg(*source->Keep.Days) : "for ever");
    // Otherwise it keeps the width of the text before.
    ui_.SpinKeepDays->updateGeometry();
  }

  /// What is wrong in the source's file; empty when all is well.
  QString ProblemsText(const std::string& id) const {
    if (id.empty()) return "";
    const TCatalogueEntry* const entry = sources_.Catalogue().Find(id);
    if (!entry) return "No description has this id any more.";
    QString text;
    for (const TProblem& problem : sources_.Catalogue().Problems)
      if (problem.File == entry->File) text += "<br>" + Html(problem.Message());
    return text.isEmpty() ? text : "Its description has errors:" + text;
  }

  void ShowAbout() {
    const TDescription& source = *sources_.Find(shown_);
    QStringList lines;
    if (const QString problems = ProblemsText(shown_); !problems.isEmpty())
      lines += problems + "<br>Until they are mended, it works as before.";
    QString provider = Html(source.Provider);
    if (!source.Home.empty()) provider += (provider.isEmpty() ? "" : ", ") + Link(source.Home, source.Home);
    if (!provider.isEmpty()) lines += "Provider: " + provider;
    lines += "Licence: " + Html(TermsText(source.Licence));
    if (!source.Licence.Credit.empty()) lines += "Credit: " + Html(source.Licence.Credit);
    lines += WaysWithTermsLines(source);
    QString volume = Html(CadenceText(source.Time));
    if (const auto daily = DailyVolume(source, sources_.Settings.Wanted(source).Choices))
      volume += Html("; " + daily->DailyText());
    lines += "Pictures: " + volume;
    ui_.LabelAbout->setText(lines.join("<br>"));
  }

  /// The ways that have terms of their own, and whether they are used.
  QStringList WaysWithTermsLines(const TDescription& source) const {
    const TTermsAnswers& answers = sources_.Settings.Terms;
    QString answer;
    if (answers.Accepts(source.Id)) {
      answer = QString(". Accepted; <a href=\"%1\">withdraw</a>").arg(kWithdraw);
    } else if (answers.LetRun(source)) {
      answer = QString(". Not used until you <a href=\"%1\">accept</a> this").arg(kAccept);
    }
    QStringList lines;
    for (const TWay* way : WaysWithTerms(source)) {
      lines += "Licence of " + Html(way->Title) + ": " + Html(TermsText(*way->Licence)) + answer;
      if (!way->Licence->Credit.empty())
        lines += "Credit of " + Html(way->Title) + ": " + Html(way->Licence->Credit);
    }
    return lines;
  }

  void LabelAboutLink(const QString& link) {
    if (link != kAccept && link != kWithdraw) {
      WithSignalsLetThrough([&] { QDesktopServices::openUrl(link); });
      return;
    }
    sources_.Settings.Terms.Answer(shown_, link == kAccept);
    ShowAbout();
  }

  /// Adds a control for a variable. Returns it.
  QWidget* AddChoice(const TDescription& source, const TVariable& variable) {
    const auto number = static_cast<std::size_t>(&variable - source.Variables.data());
    const auto ticked = ChosenRows(source, sources_.Settings.Wanted(source).Choices)[number];
    const QString title = QString::fromStdString(variable.Title.empty() ? variable.Name : variable.Title);
    auto* label = new QLabel(title + ":", ui_.PanelChoices);
    label->setTextFormat(Qt::PlainText);
    ui_.ChoicesLayout->addWidget(label);
    QStringList labels;
    for (const TRow& row : variable.Rows) labels += QString::fromStdString(row.Label);
    QWidget* const control =
        variable.Many ? AddCheckList(variable, labels, ticked) : AddComboBox(variable, labels, ticked);
    control->setAccessibleName(title);
    label->setBuddy(control);
    ui_.ChoicesLayout->addWidget(control);
    return control;
  }

  QWidget* AddCheckList(const TVariable& variable, const QStringList& labels,
                        const std::vector<std::size_t>& ticked) {
    auto* list = new TCheckListBox(ui_.PanelChoices);
    list->SetItems(labels);
    for (const std::size_t row : ticked) list->item(static_cast<int>(row))->setCheckState(Qt::Checked);
    constexpr int kMostRows = 6;
    const int rows = std::clamp(list->count(), 2, kMostRows);
    list->setFixedHeight(rows * list->sizeHintForRow(0) + 2 * list->frameWidth());
    connect(list, &TCheckListBox::ClickCheck, this, [this, list, &variable] {
      std::vector<std::string> values;
      for (int i = 0; i < list->count(); ++i)
        if (list->item(i)->checkState() == Qt::Checked)
          values.push_back(variable.Rows[static_cast<std::size_t>(i)].Value);
      Choose(variable, std::move(values));
    });
    return list;
  }

  QWidget* AddComboBox(const TVariable& variable, const QStringList& labels,
                       const std::vector<std::size_t>& ticked) {
    auto* combo = new QComboBox(ui_.PanelChoices);
    combo->addItems(labels);
    combo->setCurrentIndex(ticked.empty() ? -1 : static_cast<int>(ticked.front()));
    combo->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
    KeepFromWheel(*combo);
    connect(combo, &QComboBox::activated, this, [this, &variable](int row) {
      Choose(variable, {variable.Rows[static_cast<std::size_t>(row)].Value});
    });
    return combo;
  }

  void Choose(const TVariable& variable, std::vector<std::string> values) {
    sources_.Settings.Choices[shown_][variable.Name] = std::move(values);
    ShowAbout();
  }

  /// 0 stands for no number.
  void KeepNumber(std::map<std::string, int>& numbers, int number) {
    if (number > 0) {
      numbers[shown_] = number;
    } else {
      numbers.erase(shown_);
    }
  }

  // --- Runs

  void ButtonPreviewClick() {
    const TDescription& source = *sources_.Find(shown_);
    auto* dialog = new TPlanDialog(this, QString::fromStdString(source.Title),
                                   sources_.PreviewWork(source, OutputPath(), context_.UtcNow()));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->open();
  }

  void ButtonRunLiveClick() {
    const std::set<std::string>& ticked = sources_.Settings.Ticked;
    Start({ticked.begin(), ticked.end()});
  }

  /// Runs the sources once the user has answered what must be asked.
  void Start(const std::vector<std::string>& ids) {
    // A press during a job asks that job to stop.
    if (IsBusy() || IsUnattended()) return Run(ids);
    if (ids.empty())
      return Fire(
          OnMessage, Source().Caption,
          "No source is ticked. Tick those that Run shall fetch, or fetch one by \"Run this source\".");
    context_.Catalogue.WhenRead([this, ids] { Estimate(ids); });
  }

  /// Finds out how much the run may fetch, and then asks what must be asked. A newer press counts instead.
  void Estimate(const std::vector<std::string>& ids) {
    const auto work = sources_.VolumeWork(ids, OutputPath(), context_.UtcNow());
    setCursor(Qt::BusyCursor);
    InBackground(this, work, [this, ids, request = ++run_request_](const TVolume& volume) {
      if (request != run_request_) return;
      unsetCursor();
      const std::string large = volume.Bytes > kLargeRun ? "This run may fetch " + volume.Text() + "." : "";
      // Queued: a run would keep this call open until its end.
      QMetaObject::invokeMethod(
          this, [this, ids, large] { AskAndRun(ids, large); }, Qt::QueuedConnection);
    });
  }

  void AskAndRun(const std::vector<std::string>& ids, const std::string& large) {
    // A job that has begun meanwhile would be stopped.
    if (IsBusy()) return;
    AskAboutTerms(*this, sources_.Wanted(ids), sources_.Settings.Terms, large, [this, ids] {
      if (sources_.Find(shown_)) ShowAbout();
      Run(ids);
    });
  }

  void Run(const std::vector<std::string>& ids) {
    RunJob([this, ids](TJobContext& context) {
      sources_.Run(context, ids, OutputPath());
      if (ids.empty()) {
        context.Record.End = TRunEnd::NotStarted;
        context.Record.Reason = "no source is ticked";
      }
    });
    ShowHealth();
  }

  // --- The user's own descriptions

  using TChecked = TAddSourceDialog::TChecked;

  /// Reads and checks a description for the dialog.
  void Check(const std::string& place, std::function<void(const TChecked& checked)> done) {
    std::function<std::string()> read = [place] {
      return ReadWholeFile(FromHome(place, QDir::homePath().toStdString()), kLargestDescription);
    };
    if (StartsWithText(place, "https://")) {
      if (IsBusy()) return done({"A job is running. Check again after it.", "", ""});
      std::string why = "not fetched", text;
      RunJob([&](TJobContext& context) { why = FetchDescription(context, place, text); });
      if (!why.empty()) return done({place + ": " + why, "", ""});
      read = [text] { return text; };
    }
    InBackground(
        this,
        [read, place, output = OutputPath(), now = context_.UtcNow(),
         catalogue = context_.Catalogue.Current()]() -> TChecked {
          try {
            return CheckText(read(), place, output, now, catalogue);
          } catch (const std::exception& error) {
            return {place + ": " + ReasonOf(error), "", ""};
          }
        },
        std::move(done));
  }

  static TChecked CheckText(const std::string& text, const std::string& place, const std::string& output,
                            TDateTime now, const TSharedCatalogue::TPtr& catalogue) {
    const TReadDescription read = ReadDescription(text, place);
    std::string shown;
    for (const TProblem& problem : read.Problems) shown += problem.Message() + "\n";
    if (!read.Description) return {shown, "", ""};
    shown = "It asks these hosts:";
    for (const std::string& host : HostsOf(*read.Description, now)) shown += " " + host;
    shown += "\nIts files go below: " + output;
    shown += "\nIts terms: " + TermsText(read.Description->Licence);
    for (const TWay* way : WaysWithTerms(*read.Description))
      shown += "\nThe terms of " + way->Title + ": " + TermsText(*way->Licence);
    if (const TCatalogueEntry* known = catalogue ? catalogue->Find(read.Id) : nullptr)
      shown += "\nIt replaces the source \"" + known->Title + "\", which has the same id.";
    shown += "\n\n" + CheckSourceText(*read.Description, now);
    return {shown, read.Id, text};
  }

  /// Returns why there is no text; empty when there is one.
  static std::string FetchDescription(TJobContext& context, const std::string& address, std::string& text) {
    std::string why = "stopped";
    TFetchQueue queue(context);
    TFetchRequest request;
    request.Url = address;
    request.Limit = kLargestDescription;
    request.Tries = 1;
    request.Done = [&](const TFetchAnswer& answer) {
      text = answer.Text;
      why = answer.End != TFetchEnd::Answered ? answer.Reason
            : answer.Code == 200              ? ""
                                              : "the server answered " + std::to_string(answer.Code);
    };
    queue.Add(std::move(request));
    queue.Run();
    context.Record.Reason = why.empty() ? "fetched the description " + address : address + ": " + why;
    return why;
  }

  void ButtonAddSourceClick() {
    auto* dialog = new TAddSourceDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->OnCheck = [this](const std::string& place, std::function<void(const TChecked&)> done) {
      Check(place, std::move(done));
    };
    dialog->OnKeep = [this](const TChecked& checked) {
      context_.Catalogue.WhenRead([this, checked] {
        KeepOwn(
            checked.Id, [text = checked.Text] { return text; },
            [this, id = checked.Id](const std::filesystem::path&) {
              ui_.EditSearch->clear();
              to_choose_ = id;
            });
      });
    };
    dialog->open();
  }

  /// Stores a description, reads all anew, and calls `then` with its file; or tells the user why that failed.
  void KeepOwn(const std::string& id, std::function<std::string()> text,
               std::function<void(const std::filesystem::path& file)> then) {
    const std::filesystem::path file = sources_.FileToKeep(id);
    InBackground(
        this,
        [file, text = std::move(text)]() -> std::string {
          try {
            ForceDirectories(file.parent_path());
            WriteFileWhole(file, text());
            return "";
          } catch (const std::exception& error) {
            return ReasonOf(error);
          }
        },
        [this, file, then = std::move(then)](const std::string& why) {
          if (!why.empty())
            return Fire(OnMessage, Source().Caption, "The description cannot be stored: " + why);
          then(file);
          context_.Catalogue.Read();
        });
  }

  void ButtonEditSourceClick() {
    const std::filesystem::path file = sources_.UsersFile(shown_);
    if (!file.empty()) return OpenInEditor(file);
    const std::string name = sources_.Catalogue().Find(shown_)->File;
    KeepOwn(
        shown_, [name] { return DescriptionText(name); },
        [this](const std::filesystem::path& copy) { OpenInEditor(copy); });
  }

  void OpenInEditor(const std::filesystem::path& file) {
    bool opened = false;
    const QUrl url = QUrl::fromLocalFile(QString::fromStdString(file.string()));
    WithSignalsLetThrough([&] { opened = QDesktopServices::openUrl(url); });
    if (!opened)
      Fire(OnMessage, Source().Caption, "No editor could be opened. The description is " + file.string());
  }

  void ButtonRemoveSourceClick() {
    const std::filesystem::path file = sources_.UsersFile(shown_);
    const auto remove = [file] {
      std::error_code error;
      std::filesystem::remove(file, error);
      return error;
    };
    Fire(
        OnAsk, Source().Caption, "Delete the description " + file.string() + "? The pictures stay.",
        [this, remove] {
          InBackground(this, remove, [this](const std::error_code& error) {
            if (error) Fire(OnMessage, Source().Caption, "It cannot be deleted: " + error.message());
            context_.Catalogue.Read();
          });
        },
        nullptr);
  }

  TLiveSources sources_;
  QFileSystemWatcher watcher_;
  QTimer timer_reload_;                       ///< an editor changes a file in several steps
  std::string shown_;                         ///< id; empty: none
  std::string to_choose_;                     ///< the id of a new source
  THealths healths_;                          ///< as they were read last
  int health_request_ = 0, run_request_ = 0;  ///< an answer to an older one is dropped
};

}  // namespace

std::unique_ptr<TSourcePage> MakeLivePage(const TPageContext& context) {
  return std::make_unique<TLivePage>(context);
}

}  // namespace skyreel
