#include "sources/job_plan.h"

#include <exception>
#include <unordered_set>
#include <utility>

#include "base/exceptions.h"
#include "net/https_client.h"
#include "net/nm_ftp.h"
#include "net/nm_http.h"
#include "transfer/run_record.h"
#include "transfer/transfer_ledger.h"

namespace skyreel {

namespace {

/// Keeps the status lines, and shows nothing.
class TNotesDisplay : public TStatusDisplay {
 public:
  explicit TNotesDisplay(std::vector<std::string>& notes) : notes_(notes) {}
  void AddStatusLine(const std::string& text) override { notes_.push_back(text); }
  void BeginFile(const std::string&) override {}
  void EndFile(const TFileResult&, const std::string&) override {}
  void SetPanel(int, const std::string&) override {}
  void SetProgress(int) override {}
  void SetBytes(const std::string&, const std::string&) override {}
  void SetBusyCursor(bool) override {}

 private:
  std::vector<std::string>& notes_;
};

class TPlanControl : public TRunControl {
 public:
  explicit TPlanControl(std::stop_token stop) : stop_(std::move(stop)) {}
  bool StopRequested() const override { return stop_.stop_requested(); }
  void RestartWatchdog() override {}
  void StopWatchdog() override {}

 private:
  const std::stop_token stop_;
};

/// Stands still: the pauses of a job take no time.
class TStillClock : public TClock {
 public:
  explicit TStillClock(TDateTime now) : now_(now) {}
  TDateTime UtcNow() const override { return now_; }
  void Sleep(std::chrono::milliseconds) override {}

 private:
  const TDateTime now_;
};

}  // namespace

TFetchPlan PlanOfJob(const TJobPlanRequest& request, const std::function<void(TJobContext& context)>& job,
                     std::stop_token stop) {
  TFetchPlan plan;
  plan.Notes = request.Notes;
  TNotesDisplay display(plan.Notes);
  TPlanControl control(std::move(stop));
  TStillClock clock(request.Now);
  TNMFTP ftp;
  TNMHTTP http, http_notts;
  THttpsClient https;
  TTransferLedger ledger = TTransferLedger::ToRead(request.LedgerFile);
  TRunRecord record;
  const TTransferContext transfer{
      display, control, clock, ftp, http, http_notts, https, ledger, record, request.Shared, request.WinInet};
  TJobContext context{transfer, request.Servers, request.ProgramFolder};
  context.Plan = &plan;
  try {
    job(context);
  } catch (const std::exception& error) {
    plan.Notes.push_back(ReasonOf(error));
  }
  // A job may want one picture for two reasons, and one list for each day.
  std::unordered_set<std::string> files, lists;
  std::erase_if(plan.Files, [&](const TWantedFile& file) { return !files.insert(file.Address).second; });
  std::erase_if(plan.Lists, [&](const std::string& list) { return !lists.insert(list).second; });
  return plan;
}

}  // namespace skyreel
