#include "app/journal_recorder.h"

namespace skyreel {

TJournalOutcome JournalOutcome(TFileState state) {
  switch (state) {
    case TFileState::New:
      return TJournalOutcome::New;
    case TFileState::Updated:
      return TJournalOutcome::Updated;
    case TFileState::NotYet:
      return TJournalOutcome::NotYet;
    case TFileState::Missing:
      return TJournalOutcome::Missing;
    case TFileState::Refused:
      return TJournalOutcome::Refused;
    case TFileState::Failed:
      break;
  }
  return TJournalOutcome::Failed;
}

TJournalRecorder::TJournalRecorder(const std::filesystem::path& file, const TClock* clock,
                                   TStatusDisplay& display)
    : journal_(file, clock != nullptr ? *clock : own_clock_) {
  journal_.SetOnProblem([&display](const std::string& text) { display.AddStatusLine(text); });
  // The last rows before a long wait are not lost when the program is killed in it.
  flush_timer_.setInterval(std::chrono::seconds(2));
  flush_timer_.callOnTimeout([this] { journal_.Flush(); });
}

void TJournalRecorder::BeginRun(const std::string& what) {
  journal_.BeginRun(what);
  flush_timer_.start();
}

void TJournalRecorder::Record(const TFileResult& result) {
  journal_.Add({.Source = result.Source,
                .Product = result.Product,
                .SlotTime = result.SlotTime,
                .Address = result.Address,
                .Path = result.Path,
                .Bytes = result.Bytes,
                .Seconds = result.Seconds,
                .Outcome = JournalOutcome(result.State),
                .Reason = result.Reason,
                .ETag = result.ETag,
                .LastModified = result.LastModified});
}

void TJournalRecorder::EndRun(const std::vector<TRunRecord>& records, TExitCode code) {
  flush_timer_.stop();
  for (const TRunRecord& record : records) {
    // It took no part in the run, so the run says nothing about its health.
    if (record.End == TRunEnd::NotStarted) continue;
    journal_.CountPresent(record.Source, record.Counts.Present, record.NewestPresent);
  }
  journal_.EndRun(static_cast<int>(code));
}

}  // namespace skyreel
