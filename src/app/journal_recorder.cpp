#include "app/journal_recorder.h"

namespace skyreel {

namespace {

/// The exit code of a batch in which a file failed.
constexpr int kFileFailed = 3;

TJournalOutcome JournalOutcome(TFileOutcome outcome) {
  switch (outcome) {
    case TFileOutcome::Saved:
    case TFileOutcome::NotDecoded:
      return TJournalOutcome::New;
    case TFileOutcome::Refused:
      return TJournalOutcome::Missing;
    case TFileOutcome::NotAsked:
      return TJournalOutcome::Refused;
    case TFileOutcome::Incomplete:
    case TFileOutcome::TimedOut:
    case TFileOutcome::NotSaved:
      break;
  }
  return TJournalOutcome::Failed;
}

}  // namespace

TJournalRecorder::TJournalRecorder(const std::filesystem::path& file, const TClock* clock,
                                   TStatusDisplay& display)
    : journal_(file, clock != nullptr ? *clock : own_clock_) {
  journal_.SetOnProblem([&display](const std::string& text) { display.AddStatusLine(text); });
  // The last rows before a long wait are not lost when the program is killed in it.
  flush_timer_.setInterval(std::chrono::seconds(2));
  flush_timer_.callOnTimeout([this] { journal_.Flush(); });
}

void TJournalRecorder::BeginRun(const TSource& source) {
  failed_ = false;
  journal_.BeginRun(source.Caption);
  journal_.CountPresent(source.Caption, 0);
  flush_timer_.start();
}

void TJournalRecorder::Record(const TFileResult& result) {
  const TJournalOutcome outcome = JournalOutcome(result.Outcome);
  failed_ = failed_ || outcome == TJournalOutcome::Failed || outcome == TJournalOutcome::Refused;
  journal_.Add({.Source = result.Source,
                .Product = result.Product,
                .SlotTime = result.SlotTime,
                .Address = result.Address,
                .Path = result.Path,
                .Bytes = result.Bytes,
                .Seconds = result.Seconds,
                .Outcome = outcome,
                .Reason = result.Reason});
}

void TJournalRecorder::EndRun() {
  flush_timer_.stop();
  journal_.EndRun(failed_ ? kFileFailed : 0);
}

}  // namespace skyreel
