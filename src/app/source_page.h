#pragma once

#include <QWidget>
#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "app/coverage_source.h"
#include "app/preview.h"
#include "app/shared_catalogue.h"
#include "base/event.h"
#include "journal/journal.h"
#include "settings/check_list_box.h"
#include "settings/registry_store.h"
#include "sources/job_plan.h"
#include "sources/source_table.h"
#include "transfer/ftp_fetch.h"

class QComboBox;
class QLineEdit;
class QPushButton;
class QTimeEdit;

namespace skyreel {

class TBoundSources;

/// What all pages are made from.
struct TPageEnvironment {
  TRegistryStore& Store;  ///< outlives the page
  std::filesystem::path ProgramFolder;
  bool HasWinInet;    ///< the operating system's Internet library is there
  TJournal& Journal;  ///< outlives the page
  std::filesystem::path JournalFile;
  TSharedCatalogue& Catalogue;  ///< outlives the page
  std::function<TDateTime()> UtcNow;
};

/// What one page is made from.
struct TPageContext : TPageEnvironment {
  const TSource& Source;
};

/// What a press of a Run button does: start the job, stop it, or abort the file that the stop waits for.
enum class TRunState { Run, Stop, Wait };

/// The page of one source in its tab. A descendant fills its item lists, keeps the settings that no persisted
/// control keeps, and makes the job. What all pages have is found by its name: "ButtonRun...",
/// "ButtonBrowse...", "EditOutputPath...", "...Username", "...Password", "...UseWinInet". A button
/// "ButtonPreview..." joins each Run button whose page has nothing of its own for that.
class TSourcePage : public QWidget {
 public:
  using TJob = std::function<void(TJobContext& context)>;

  ~TSourcePage() override;

  const TSource& Source() const { return context_.Source; }
  QPushButton& RunButton() const { return *run_; }
  QLineEdit& OutputPathEdit() const { return *output_path_; }
  /// The output folder; "~/" at its beginning is the home folder. Empty when none is chosen.
  std::string OutputPath() const;
  /// Shows the state as the Run button's text and tool tip, and to screen readers.
  void ShowRunState(TRunState state);
  /// nullptr on a page without a login.
  QLineEdit* UserNameEdit() const;
  QLineEdit* PasswordEdit() const;

  /// Fetches one picture that needs no choice. Only the page of described sources can.
  virtual void FetchFirstPicture() {}

  /// Lets the user search among the page's sources. False on a page with nothing to search.
  virtual bool Search() { return false; }

  /// Why the page cannot fetch this file of the journal anew; empty when it can.
  std::string WhyNotAgain(const TJournalEntry& file);
  /// Whether the page runs this source, the tab's or a described one.
  bool Runs(const std::string& source);
  /// Fetches such files of this page's sources anew, as a run of the page.
  void FetchAgain(const std::vector<TJournalEntry>& files);

  /// The shared catalogue has new descriptions.
  virtual void CatalogueRead();

  /// Selects an item where none is selected. Called once the persisted controls show their settings.
  virtual void SelectMissingItems() {}

  /// The sources of the page whose coverage can be shown. Of described ones, those that are read by now.
  virtual std::vector<TCoverageSource> CoverageSources() const;

  /// From now on the page takes part in the layout while it is hidden, too. Before that it is as good as
  /// empty: to measure all pages takes half of the window's start.
  void Measure();
  QSize sizeHint() const override { return IsMeasured() ? QWidget::sizeHint() : QSize(); }
  QSize minimumSizeHint() const override { return IsMeasured() ? QWidget::minimumSizeHint() : QSize(); }

  /// The page was painted for the first time.
  std::function<void()> OnPainted;
  /// Runs the page's job.
  std::function<void(const TJob& job)> OnRun;
  /// What a run of the page would work with now.
  std::function<TJobPlanRequest()> PlanRequest;
  /// Tells the user something about a subject.
  std::function<void(const std::string& subject, const std::string& text)> OnMessage;
  /// Asks the user, and calls `yes` or `no` later; `no` may be empty.
  std::function<void(const std::string& subject, const std::string& text, const std::function<void()>& yes,
                     const std::function<void()>& no)>
      OnAsk;
  std::function<bool()> IsBusy;        ///< a job is running
  std::function<bool()> IsUnattended;  ///< a batch is running: nobody answers a question

 protected:
  explicit TSourcePage(TPageContext context);
  /// Call it once the controls are there.
  void PrepareControls();

  /// A described source of the page by its id; null without one, and while its terms are not
  /// accepted.
  virtual std::shared_ptr<const TDescription> Described(const std::string& id);
  /// The user accepts the terms that an alternate of this source has of its own.
  virtual bool AcceptsTerms(const std::string& id) const;
  /// What the source's server wants to know.
  virtual TFtpLogin Login() const;

  void RunJob(const TJob& job) const { Fire(OnRun, job); }
  /// The job for what the page of a built-in source shows now. It refers to nothing of the page.
  virtual TJob MakeJob() const { return {}; }
  /// Makes the checked items of a plain list a setting, as comma text.
  void KeepChecked(TCheckListBox& list, const char* name, const char* default_items) const;
  /// Makes a time of day a setting: "17:32".
  void KeepTime(QTimeEdit& picker, const char* name, const char* default_time) const;

  const TPageContext context_;
  /// Keeps the trailing separator of the output folder.
  bool eventFilter(QObject* watched, QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  /// The page shows described sources, which it reads when it is first seen.
  virtual bool ShowsDescriptions() const { return bound_ != nullptr; }

 private:
  bool IsMeasured() const { return measured_ || isVisibleTo(parentWidget()); }
  void AddPreviewButton();
  void ButtonBrowseClick();
  void ButtonRunClick();
  void ButtonPreviewClick();
  void EditOutputPathChange();

  bool painted_ = false, measured_ = false;
  QPushButton* run_ = nullptr;
  QLineEdit* output_path_ = nullptr;
  std::unique_ptr<TBoundSources> bound_;  ///< of a service that has closed
  std::stop_source stop_;                 ///< of the coverage's plans
};

/// A page with the controls of its form file; it needs no code of its own when it has no job.
template <typename TUi>
class TFormPage : public TSourcePage {
 public:
  explicit TFormPage(const TPageContext& context) : TSourcePage(context) {
    ui_.setupUi(this);
    PrepareControls();
  }

 protected:
  TUi ui_;
};

/// Makes the page of a source from the files of its name in pages/. Throws std::logic_error if that page is
/// missing.
std::unique_ptr<TSourcePage> MakePage(const TPageContext& context);

void SetItems(TCheckListBox& list, const std::vector<std::string>& items);
/// Adds them after the items from the form file.
void AddItems(QComboBox& combo, const std::vector<std::string>& items);
void SelectIfNone(QComboBox& combo, int index);
std::vector<std::string> CheckedTexts(const TCheckListBox& list);

}  // namespace skyreel
