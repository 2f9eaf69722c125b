#include <QComboBox>
#include <QDesktopServices>
#include <QDir>
#include <QFileSystemWatcher>
#include <QLabel>
#include <QTimer>
#include <QUrl>

#include "app/add_source_dialog.h"
#include "app/live_sources.h"
#include "app/plan_dialog.h"
#include "app/program_folder.h"
#include "app/signal_watcher.h"
#include "app/source_page.h"
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

QString Html(const std::string& text) {
  return QString::fromStdString(text).toHtmlEscaped();
}

QString Link(const std::string& address, const std::string& text) {
  return "<a href=\"" + Html(address) + "\">" + Html(text) + "</a>";
}

class TLivePage : public TFormPage<Ui::TLivePage> {
 public:
  explicit TLivePage(const TPageContext& context)
      : TFormPage(context), sources_(context.Store, context.SourceFolders, context.Journal) {
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

 protected:
  std::shared_ptr<const TDescription> Described(const std::string& id) override {
    LoadOnce();
    return sources_.FindAccepted(id);
  }
  void paintEvent(QPaintEvent* event) override {
    TSourcePage::paintEvent(event);
    // The window shows itself before it reads the descriptions.
    if (!std::exchange(painted_, true)) QTimer::singleShot(0, this, [this] { LoadOnce(); });
  }

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
    connect(ui_.ButtonRunLive, &QPushButton::clicked, this, &TLivePage::ButtonRunLiveClick);
    connect(ui_.ButtonOneSource, &QPushButton::clicked, this, [this] { Start({shown_}); });
    connect(ui_.ButtonPreview, &QPushButton::clicked, this, &TLivePage::ButtonPreviewClick);
    connect(ui_.ButtonAddSource, &QPushButton::clicked, this, &TLivePage::ButtonAddSourceClick);
    connect(ui_.ButtonEditSource, &QPushButton::clicked, this, &TLivePage::ButtonEditSourceClick);
    connect(ui_.ButtonRemoveSource, &QPushButton::clicked, this, &TLivePage::ButtonRemoveSourceClick);
    timer_reload_.setSingleShot(true);
    timer_reload_.setInterval(200);
    connect(&timer_reload_, &QTimer::timeout, this, [this] { Load(); });
    connect(&watcher_, &QFileSystemWatcher::fileChanged, this, [this] { timer_reload_.start(); });
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, [this] { timer_reload_.start(); });
  }

  void LoadOnce() {
    if (!std::exchange(loaded_, true)) Load();
  }

  void Load() {
    sources_.Load();
    ui_.TreeSources->Fill(sources_.Catalogue(), sources_.Settings.Ticked);
    ui_.TreeSources->Search(ui_.EditSearch->text());
    ShowHealth();
    if (!watcher_.files().isEmpty()) watcher_.removePaths(watcher_.files());
    for (const std::filesystem::path& path : sources_.Watched())
      if (!path.empty()) watcher_.addPath(QString::fromStdString(path.string()));
  }

  void ShowHealth() {
    ui_.TreeSources->ShowHealth([this](const std::string& id) {
      const TDescription* const source = sources_.Find(id);
      return source ? std::optional(sources_.Health(*source)) : std::nullopt;
    });
  }

  // --- The chosen source

  void ShowSource(const std::string& id) {
    shown_ = id;
    const TCatalogueEntry* const entry = id.empty() ? nullptr : sources_.Catalogue().Find(id);
    const TDescription* const source = entry && entry->Description ? &*entry->Description : nullptr;
    ui_.ButtonEditSource->setEnabled(entry && !entry->File.empty());
    const bool users = entry && entry->OfUser;
    ui_.ButtonEditSource->setText(users ? "Edit cop&y" : "Edit a cop&y");
    ui_.ButtonRemoveSource->setEnabled(users);
    ui_.LabelTitle->setText(entry ? QString::fromStdString(entry->Title.empty() ? id : entry->Title)
                                  : "Choose a source on the left.");
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
  }

  /// What is wrong in the source's file; empty when all is well.
  QString ProblemsText(const std::string& id) const {
    if (id.empty()) return "";
    const std::string& file = sources_.Catalogue().Find(id)->File;
    if (file.empty()) return "No description has this id any more.";
    QString text;
    for (const TProblem& problem : sources_.Catalogue().Problems)
      if (problem.File == file) text += "<br>" + Html(problem.Message());
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
    QString volume = Html(CadenceText(source.Time));
    if (const auto daily = DailyVolume(source, sources_.Settings.Wanted(source).Choices))
      volume += Html("; " + daily->DailyText());
    lines += "Pictures: " + volume;
    ui_.LabelAbout->setText(lines.join("<br>"));
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
    auto* dialog =
        new TPlanDialog(this, QString::fromStdString(source.Title),
                        [preview = PreviewOf(sources_.Settings.Wanted(source),
                                             sources_.Plan(source, OutputPath(), context_.UtcNow()),
                                             OutputPath())] { return preview; });
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
    LoadOnce();
    if (const auto sources = sources_.NotAccepted(ids); !sources.empty()) {
      std::string text = "These sources have terms of use:\n";
      for (const TDescription* source : sources)
        text += "\n" + source->Title + ": " + TermsText(source->Licence) + ".\n";
      return Ask(text + "\nDo you accept them?", [this, ids] {
        for (const TDescription* source : sources_.NotAccepted(ids))
          sources_.Settings.Accepted.insert(source->Id);
        StartAccepted(ids);
      });
    }
    StartAccepted(ids);
  }

  void StartAccepted(const std::vector<std::string>& ids) {
    const TVolume volume = sources_.Volume(ids, OutputPath(), context_.UtcNow());
    if (volume.Bytes <= kLargeRun) return Run(ids);
    Ask("This run may fetch " + volume.Text() + ". Go on?", [this, ids] { Run(ids); });
  }

  void Ask(const std::string& question, const std::function<void()>& yes) {
    Fire(OnAsk, Source().Caption, question, [this, yes] {
      // Another job may have begun meanwhile, and a run would stop it.
      if (!IsBusy()) yes();
    });
  }

  void Run(const std::vector<std::string>& ids) {
    RunJob([this, ids](TJobContext& context) {
      LoadOnce();
      sources_.Run(context, ids, OutputPath());
      if (ids.empty()) {
        context.Record.End = TRunEnd::NotStarted;
        context.Record.Reason = "no source is ticked";
      }
    });
    if (loaded_) ShowHealth();
  }

  // --- The user's own descriptions

  /// Reads and checks a description for the dialog.
  TAddSourceDialog::TChecked Check(const std::string& place) {
    TReadDescription read;
    if (StartsWithText(place, "https://")) {
      if (IsBusy()) return {"A job is running. Check again after it."};
      std::string why = "not fetched";
      RunJob([&](TJobContext& context) { why = FetchDescription(context, place); });
      if (!why.empty()) return {place + ": " + why};
    } else {
      try {
        added_text_ = ReadWholeFile(FromHome(place, QDir::homePath().toStdString()), kLargestDescription);
      } catch (const std::exception& error) {
        return {place + ": " + ReasonOf(error)};
      }
    }
    read = ReadDescription(added_text_, place);
    std::string shown;
    for (const TProblem& problem : read.Problems) shown += problem.Message() + "\n";
    if (!read.Description) return {shown};
    added_id_ = read.Id;
    const TDateTime now = context_.UtcNow();
    shown = "It asks these hosts:";
    for (const std::string& host : HostsOf(*read.Description, now)) shown += " " + host;
    shown += "\nIts files go below: " + OutputPath();
    shown += "\nIts terms: " + TermsText(read.Description->Licence);
    if (const TCatalogueEntry* known = sources_.Catalogue().Find(read.Id); known && !known->File.empty())
      shown += "\nIt replaces the source \"" + known->Title + "\", which has the same id.";
    shown += "\n\n" + CheckSourceText(*read.Description, now);
    return {shown, true};
  }

  /// Returns why there is no text; empty when there is one.
  std::string FetchDescription(TJobContext& context, const std::string& address) {
    std::string why = "stopped";
    TFetchQueue queue(context);
    TFetchRequest request;
    request.Url = address;
    request.Limit = kLargestDescription;
    request.Tries = 1;
    request.Done = [&](const TFetchAnswer& answer) {
      added_text_ = answer.Text;
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
    LoadOnce();
    auto* dialog = new TAddSourceDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->OnCheck = [this](const std::string& place) { return Check(place); };
    dialog->OnKeep = [this] {
      if (KeepOwn(added_id_, added_text_).empty()) return;
      ui_.EditSearch->clear();
      Load();
      ui_.TreeSources->Choose(added_id_);
    };
    dialog->open();
  }

  /// Stores a description; returns its file, or tells the user why that failed.
  std::filesystem::path KeepOwn(const std::string& id, const std::string& text) {
    try {
      return sources_.Keep(id, text);
    } catch (const std::exception& error) {
      Fire(OnMessage, Source().Caption, "The description cannot be stored: " + ReasonOf(error));
      return {};
    }
  }

  void ButtonEditSourceClick() {
    std::filesystem::path file = sources_.UsersFile(shown_);
    if (file.empty()) {
      file = KeepOwn(shown_, sources_.TextOf(shown_));
      if (file.empty()) return;
      Load();
    }
    bool opened = false;
    const QUrl url = QUrl::fromLocalFile(QString::fromStdString(file.string()));
    WithSignalsLetThrough([&] { opened = QDesktopServices::openUrl(url); });
    if (!opened)
      Fire(OnMessage, Source().Caption, "No editor could be opened. The description is " + file.string());
  }

  void ButtonRemoveSourceClick() {
    const std::filesystem::path file = sources_.UsersFile(shown_);
    Fire(OnAsk, Source().Caption, "Delete the description " + file.string() + "? The pictures stay.",
         [this, file] {
           std::error_code error;
           if (!std::filesystem::remove(file, error) && error)
             Fire(OnMessage, Source().Caption, "It cannot be deleted: " + error.message());
           Load();
         });
  }

  TLiveSources sources_;
  QFileSystemWatcher watcher_;
  QTimer timer_reload_;                ///< an editor changes a file in several steps
  std::string added_id_, added_text_;  ///< of the description that was checked last
  std::string shown_;                  ///< id; empty: none
  bool painted_ = false, loaded_ = false;
};

}  // namespace

std::unique_ptr<TSourcePage> MakeLivePage(const TPageContext& context) {
  return std::make_unique<TLivePage>(context);
}

}  // namespace skyreel
