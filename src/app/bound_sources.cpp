#include "app/bound_sources.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLayout>
#include <QRadioButton>
#include <algorithm>

#include "app/worker_journal.h"
#include "catalogue/described_run.h"

namespace skyreel {

namespace {

bool Serves(const std::vector<const TDescription*>& sources, const QString& control,
            const std::string& item) {
  for (const TDescription* source : sources) {
    for (const TVariable& variable : source->Variables) {
      if (QString::fromStdString(variable.Control) == control &&
          std::ranges::find(variable.Rows, item, &TRow::Value) != variable.Rows.end())
        return true;
    }
  }
  return false;
}

/// The values that a control chooses; nothing for a control without values.
std::optional<std::vector<std::string>> ValuesOf(const QWidget& control, const TVariable& variable) {
  if (const auto* list = qobject_cast<const TCheckListBox*>(&control)) return CheckedTexts(*list);
  if (const auto* combo = qobject_cast<const QComboBox*>(&control))
    return std::vector{combo->currentText().toStdString()};
  if (const auto* box = qobject_cast<const QCheckBox*>(&control)) {
    const std::size_t row = box->isChecked() && variable.Rows.size() > 1 ? 1 : 0;
    return std::vector{variable.Rows[row].Value};
  }
  for (const QRadioButton* button : control.findChildren<QRadioButton*>())
    if (button->isChecked()) return std::vector{button->text().remove('&').toStdString()};
  return std::nullopt;
}

}  // namespace

TChoices ChoicesOf(const QWidget& page, const TDescription& source) {
  TChoices choices;
  for (const TVariable& variable : source.Variables) {
    const auto* control = page.findChild<QWidget*>(QString::fromStdString(variable.Control));
    if (variable.Control.empty() || control == nullptr) continue;
    if (auto values = ValuesOf(*control, variable)) {
      // What no row has would count as the default.
      std::erase_if(*values, [&](const std::string& value) {
        return std::ranges::find(variable.Rows, value, &TRow::Value) == variable.Rows.end();
      });
      choices[variable.Name] = std::move(*values);
    }
  }
  return choices;
}

TBoundSources::TBoundSources(TSourcePage& page, const TPageEnvironment& environment)
    : page_(page), environment_(environment), line_(new QLabel(&page)) {
  line_->setObjectName("LabelProvider");
  line_->setWordWrap(true);
  line_->setOpenExternalLinks(true);
  line_->setTextInteractionFlags(Qt::TextBrowserInteraction);
  page.layout()->addWidget(line_);
  QString text = "The service of this tab has closed";
  if (page.Source().Bound) {
    Terms_.emplace(environment.Store, QString("TabTerms_") + page.Source().Page, "");
    answers_ = TTermsAnswers(Terms_->Value.toStdString());
  } else {
    text += " and has no known successor. The tab keeps its settings";
  }
  line_->setText(text + ".");
}

TBoundSources::~TBoundSources() {
  if (Terms_) Terms_->Value = QString::fromStdString(answers_.Text());
}

void TBoundSources::CatalogueRead() {
  if (!page_.Source().Bound) return;
  catalogue_ = environment_.Catalogue.Current();
  sources_.clear();
  QStringList providers;
  for (const TCatalogueEntry& entry : catalogue_->Entries) {
    const auto& source = entry.Description;
    if (!source || !source->Page || source->Page->Tab != page_.Source().Caption) continue;
    sources_.push_back(&*source);
    QString provider = QString::fromStdString(source->Provider).toHtmlEscaped();
    if (!source->Home.empty()) {
      provider =
          "<a href=\"" + QString::fromStdString(source->Home).toHtmlEscaped() + "\">" + provider + "</a>";
    }
    std::string terms = TermsText(source->Licence);
    for (const TWay* way : WaysWithTerms(*source))
      terms += "; " + way->Title + ": " + TermsText(*way->Licence);
    provider += " (" + QString::fromStdString(terms).toHtmlEscaped() + ")";
    if (!providers.contains(provider)) providers += provider;
  }
  bool some_off = false;
  for (TCheckListBox* list : page_.findChildren<TCheckListBox*>()) {
    const QSignalBlocker no_clicks(list);
    for (int i = 0; i < list->count(); ++i) {
      QListWidgetItem& item = *list->item(i);
      const bool served = Serves(sources_, list->objectName(), item.text().toStdString());
      item.setFlags(item.flags().setFlag(Qt::ItemIsEnabled, served));
      some_off |= !served;
    }
  }
  line_->setText("The service of this tab has closed. Today its pictures come from " +
                 providers.join(" and ") + "." + (some_off ? " Grey items have no known successor." : ""));
}

std::shared_ptr<const TDescription> TBoundSources::Find(const std::string& id) const {
  const auto found = std::ranges::find(sources_, id, &TDescription::Id);
  if (found == sources_.end() || !answers_.LetRun(**found)) return nullptr;
  return {catalogue_, *found};
}

std::vector<TWantedSource> TBoundSources::Wanted() const {
  std::vector<TWantedSource> wanted;
  for (const TDescription* source : sources_) {
    TChoices choices = ChoicesOf(page_, *source);
    if (std::ranges::any_of(choices, [](const auto& choice) { return choice.second.empty(); })) continue;
    wanted.push_back({*source, std::move(choices)});
    wanted.back().AcceptsTerms = answers_.Accepts(source->Id);
  }
  return wanted;
}

void TBoundSources::Run(const TStart& start) {
  // During a run the press stops it. In a batch nobody answers.
  if (page_.IsBusy() || page_.IsUnattended()) return start([this](TJobContext& context) { RunJob(context); });
  environment_.Catalogue.WhenRead([this, start] {
    if (page_.IsBusy()) return;
    AskAboutTerms(page_, Wanted(), answers_, "",
                  [this, start] { start([this](TJobContext& context) { RunJob(context); }); });
  });
}

std::function<TPreview()> TBoundSources::PreviewMaker(const TJobPlanRequest& request) const {
  std::vector<TWantedSource> all = Wanted();
  for (TWantedSource& each : all) each.Days = request.Shared.BackDays;
  return [catalogue = catalogue_, all = std::move(all), now = request.Now, file = environment_.JournalFile,
          output = std::filesystem::path(page_.OutputPath())] {
    TWorkerJournal worker(file);
    std::vector<TDescribedPlan> plans;
    for (const TWantedSource& each : all)
      plans.push_back({each, PlanOffline(worker.Journal, output, now, each)});
    return PreviewOf(plans, output);
  };
}

std::vector<TCoverageSource> TBoundSources::CoverageSources() const {
  std::vector<TCoverageSource> sources;
  for (const TWantedSource& each : Wanted())
    sources.push_back(CoverageOf({catalogue_, &each.Source}, each.Choices, page_.OutputPath(), {}));
  return sources;
}

void TBoundSources::RunJob(TJobContext& context) const {
  if (!environment_.Catalogue.Await([&context] { return context.Run.StopRequested(); })) return;
  // A run lets events through, and the descriptions may be read anew meanwhile.
  const TSharedCatalogue::TPtr kept = catalogue_;
  std::vector<TWantedSource> wanted;
  for (TWantedSource& each : Wanted()) {
    if (answers_.LetRun(each.Source)) {
      each.Days = context.Shared.BackDays;
      wanted.push_back(std::move(each));
      continue;
    }
    TRunRecord& record = context.Records.emplace_back();
    record.Source = each.Source.Id;
    record.Title = each.Source.Title;
    record.Started = context.Clock.UtcNow();
    record.End = TRunEnd::NotStarted;
    record.Reason = kTermsNotAccepted;
    context.Display.AddStatusLine(record.Line());
  }
  if (wanted.empty()) return;
  TDescribedRun run{.Context = context,
                    .Journal = environment_.Journal,
                    .Output = page_.OutputPath(),
                    .KeepsFiles = context.Record.KeepsFiles};
  std::ranges::move(RunDescribedSources(run, wanted), std::back_inserter(context.Records));
}

}  // namespace skyreel
