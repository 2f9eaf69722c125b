#include "transfer/run_record.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <utility>

#include "base/text.h"
#include "transfer/http_fetch.h"
#include "transfer/transfer_context.h"

namespace skyreel {

namespace {

/// "http://host:81" of "http://host:81/path".
std::string RootOf(const std::string& address) {
  const std::string shown = UrlForDisplay(address);
  const std::size_t scheme = shown.find("//");
  return shown.substr(0, shown.find('/', scheme == std::string::npos ? 0 : scheme + 2));
}

TFileState StateOf(const TFileResult& result, TDateTime now) {
  if (result.Outcome == TFileOutcome::Saved)
    return result.State == TFileState::Updated ? TFileState::Updated : TFileState::New;
  const bool may_come = !result.SlotTime.IsZero() && result.SlotTime + kMayStillCome > now;
  return result.State == TFileState::Missing && may_come ? TFileState::NotYet : result.State;
}

std::int64_t& CountOf(TRunCounts& counts, TFileState state) {
  switch (state) {
    case TFileState::New:
    case TFileState::Updated:
      return counts.New;
    case TFileState::NotYet:
      return counts.NotYet;
    case TFileState::Missing:
      return counts.Missing;
    case TFileState::Failed:
    case TFileState::Refused:
      break;
  }
  return counts.Failed;
}

}  // namespace

TRunCounts& TRunCounts::operator+=(const TRunCounts& other) {
  New += other.New;
  Present += other.Present;
  NotYet += other.NotYet;
  Missing += other.Missing;
  Failed += other.Failed;
  Bytes += other.Bytes;
  Seconds += other.Seconds;
  return *this;
}

std::string TRunCounts::Text() const {
  char work[64];
  std::snprintf(work, sizeof work, "; %.1f MB in %lld s", static_cast<double>(Bytes) / 1e6,
                std::llround(Seconds));
  return std::to_string(New) + " new, " + std::to_string(Present) + " present, " + std::to_string(NotYet) +
         " not yet, " + std::to_string(Missing) + " missing, " + std::to_string(Failed) + " failed" + work;
}

std::string TRunRecord::Line() const {
  std::string reason = Reason;
  if (reason.empty() && !Counts.HasFiles() && ServerProblems.empty()) reason = "nothing was chosen or due";
  return Name() + ": " + Counts.Text() + (reason.empty() ? "" : "; " + reason);
}

void EndFile(TTransferContext& context, TFileResult result, const std::string& line) {
  result.State = StateOf(result, context.Clock.UtcNow());
  CountFile(context, std::move(result), line);
}

void CountFile(TTransferContext& context, TFileResult result, const std::string& line) {
  TRunRecord& record = context.Record;
  ++CountOf(record.Counts, result.State);
  record.Counts.Bytes += result.Bytes;
  context.Display.EndFile(result, line);
  if (record.KeepsFiles) record.Files.push_back(std::move(result));
}

void CountPresent(TTransferContext& context, TWantedFile file) {
  ++context.Record.Counts.Present;
  if (context.Plan) context.Plan->Files.push_back({std::move(file), TFetchPlan::TState::Present});
}

void ReportFailure(TTransferContext& context, const std::string& line) {
  ++context.Record.Counts.Failed;
  context.Display.AddStatusLine(line);
}

void ReportServerProblem(TTransferContext& context, const std::string& address, const std::string& what) {
  const std::string problem = RootOf(address) + " " + WithoutControls(what);
  std::vector<std::string>& known = context.Record.ServerProblems;
  if (std::ranges::find(known, problem) != known.end()) return;
  known.push_back(problem);
  context.Display.AddStatusLine(context.Record.Name() + ": " + problem);
}

}  // namespace skyreel
