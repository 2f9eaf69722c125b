#include "app/bound_sources.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLayout>
#include <QRadioButton>
#include <algorithm>

#include "app/live_sources.h"
#include "base/comma_text.h"
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
  if (page.Source().Bound) {
    Accepted_.emplace(environment.Store, QString("TabTerms_") + page.Source().Page, "");
  } else {
    line_->setText(
        "The service of this tab has closed and has no known successor. The tab keeps its settings.");
  }
}

void TBoundSources::Load() {
  if (catalogue_ || !page_.Source().Bound) return;
  catalogue_ =
      std::make_shared<TCatalogue>(LoadCatalogue(EmbeddedDescriptions(), environment_.SourceFolders));
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
    provider += " (" + QString::fromStdString(TermsText(source->Licence)).toHtmlEscaped() + ")";
    if (!providers.contains(provider)) providers += provider;
  }
  bool some_off = false;
  for (TCheckListBox* list : page_.findChildren<TCheckListBox*>()) {
    for (int i = 0; i < list->count(); ++i) {
      QListWidgetItem& item = *list->item(i);
      if (Serves(sources_, list->objectName(), item.text().toStdString())) continue;
      item.setFlags(item.flags() & ~Qt::ItemIsEnabled);
      some_off = true;
    }
  }
  line_->setText("The service of this tab has closed. Today its pictures come from " +
                 providers.join(" and ") + "." + (some_off ? " Grey items have no known successor." : ""));
}

bool TBoundSources::MustAsk(const TDescription& source) const {
  const std::vector<std::string> accepted = FromCommaText(Accepted_->Value.toStdString());
  return source.Licence.Use != TLicence::TUse::Any &&
         std::ranges::find(accepted, source.Id) == accepted.end();
}

std::shared_ptr<const TDescription> TBoundSources::Find(const std::string& id) {
  Load();
  const auto found = std::ranges::find(sources_, id, &TDescription::Id);
  if (found == sources_.end() || MustAsk(**found)) return nullptr;
  return {catalogue_, *found};
}

void TBoundSources::Run(const std::function<void(const TSourcePage::TJob& job)>& start) {
  Load();
  const auto run = [this, start] { start([this](TJobContext& context) { RunJob(context); }); };
  std::vector<std::string> accepted = FromCommaText(Accepted_->Value.toStdString());
  std::string terms;
  for (const TDescription* source : sources_) {
    if (!MustAsk(*source)) continue;
    accepted.push_back(source->Id);
    terms += "\n\n" + source->Title + ": " + TermsText(source->Licence);
  }
  // During a run the press stops it.
  if (terms.empty() || page_.IsBusy() || page_.IsUnattended()) return run();
  page_.OnAsk(page_.Source().Caption, "These pictures have terms. Do you accept them?" + terms,
              [this, accepted, run] {
                Accepted_->Value = QString::fromStdString(ToCommaText(accepted));
                run();
              });
}

void TBoundSources::RunJob(TJobContext& context) const {
  // A wait lets events through; the descriptions must outlive it.
  const std::shared_ptr<const TCatalogue> kept = catalogue_;
  std::vector<TWantedSource> wanted;
  for (const TDescription* source : sources_) {
    TChoices choices = ChoicesOf(page_, *source);
    if (std::ranges::any_of(choices, [](const auto& choice) { return choice.second.empty(); })) continue;
    if (MustAsk(*source)) {
      TRunRecord& record = context.Records.emplace_back();
      record.Source = source->Id;
      record.Title = source->Title;
      record.Started = context.Clock.UtcNow();
      record.End = TRunEnd::NotStarted;
      record.Reason = "not run, since its terms were not accepted; run it once in the window";
      context.Display.AddStatusLine(record.Line());
      continue;
    }
    wanted.push_back({*source, std::move(choices), context.Shared.BackDays});
  }
  if (wanted.empty()) return;
  TDescribedRun run{.Context = context,
                    .Journal = environment_.Journal,
                    .Output = page_.OutputPath(),
                    .KeepsFiles = context.Record.KeepsFiles};
  std::ranges::move(RunDescribedSources(run, wanted), std::back_inserter(context.Records));
}

}  // namespace skyreel
