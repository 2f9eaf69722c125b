#include "app/batch_record.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace skyreel {

namespace {

using json = nlohmann::ordered_json;

const char* EndText(TRunEnd end) {
  switch (end) {
    case TRunEnd::Done:
      return "done";
    case TRunEnd::Stopped:
      return "stopped";
    case TRunEnd::NotStarted:
      return "not_started";
    case TRunEnd::NoLogin:
      return "no_login";
    case TRunEnd::Broken:
      break;
  }
  return "broken";
}

const char* StateText(TFileState state) {
  switch (state) {
    case TFileState::New:
      return "new";
    case TFileState::Updated:
      return "updated";
    case TFileState::NotYet:
      return "not_yet";
    case TFileState::Missing:
      return "missing";
    case TFileState::Refused:
      return "refused";
    case TFileState::Failed:
      break;
  }
  return "failed";
}

/// Null for a time that is not known.
json TimeJson(TDateTime time) {
  if (time.IsZero()) return nullptr;
  return FormatDateTime("yyyy-mm-dd'T'hh':'nn':'ss'Z'", time);
}

json CountsJson(const TRunCounts& counts) {
  return {{"new", counts.New},         {"present", counts.Present}, {"not_yet", counts.NotYet},
          {"missing", counts.Missing}, {"failed", counts.Failed},   {"bytes", counts.Bytes},
          {"seconds", counts.Seconds}};
}

json FileJson(const TFileResult& file) {
  return {{"product", file.Product}, {"slot", TimeJson(file.SlotTime)},  {"name", file.Name},
          {"address", file.Address}, {"path", file.Path.string()},       {"bytes", file.Bytes},
          {"seconds", file.Seconds}, {"outcome", StateText(file.State)}, {"reason", file.Reason}};
}

json RunJson(const TRunRecord& run) {
  json files = json::array();
  for (const TFileResult& file : run.Files) files.push_back(FileJson(file));
  return {{"source", run.Source},
          {"started", TimeJson(run.Started)},
          {"counts", CountsJson(run.Counts)},
          {"end", EndText(run.End)},
          {"reason", run.Reason},
          {"server_problems", run.ServerProblems},
          {"files", std::move(files)}};
}

}  // namespace

TRunCounts TBatchRecord::Total() const {
  TRunCounts total;
  double longest = 0;
  for (const TRunRecord& run : Runs) {
    total += run.Counts;
    longest = std::max(longest, run.Counts.Seconds);
  }
  if (SideBySide) total.Seconds = longest;
  return total;
}

TExitCode TBatchRecord::ExitCode() const {
  const auto any = [this](auto applies) { return std::ranges::any_of(Runs, applies); };
  if (Signal) return TExitCode::Signal;
  if (any([](const TRunRecord& run) { return run.End == TRunEnd::NotStarted; })) return TExitCode::NotStarted;
  if (!UnknownArguments.empty()) return TExitCode::UnknownArgument;
  if (any([](const TRunRecord& run) { return run.End == TRunEnd::NoLogin || !run.ServerProblems.empty(); }))
    return TExitCode::ServerProblem;
  if (any([](const TRunRecord& run) { return run.End == TRunEnd::Broken || run.Counts.Failed > 0; }))
    return TExitCode::FileFailed;
  return TExitCode::Done;
}

std::string TBatchRecord::Json(TDateTime ended) const {
  json runs = json::array();
  for (const TRunRecord& run : Runs) runs.push_back(RunJson(run));
  const json document = {{"program", "Skyreel"},
                         {"version", SKYREEL_VERSION},
                         {"started", TimeJson(Started)},
                         {"ended", TimeJson(ended)},
                         {"exit_code", static_cast<int>(ExitCode())},
                         {"unknown_arguments", UnknownArguments},
                         {"total", CountsJson(Total())},
                         {"runs", std::move(runs)}};
  // A server's text need not be UTF-8.
  return document.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

}  // namespace skyreel
