#include "transfer/file_result.h"

namespace skyreel {

std::string TooLargeReason(std::int64_t limit) {
  return "given up: larger than " + std::to_string(limit >> 20) + " MiB";
}

std::string PictureLine(const TFileResult& result) {
  switch (result.Outcome) {
    case TFileOutcome::Saved:
      return result.Name + " - OK";
    case TFileOutcome::Incomplete:
    case TFileOutcome::Refused:
      return result.Name + " - missing or incomplete";
    case TFileOutcome::TimedOut:
      return result.Name + " - timed out";
    case TFileOutcome::NotSaved:
      return result.Name + " - not saved: " + result.Reason;
    case TFileOutcome::NotAsked:
      return result.Name + " - not fetched: " + result.Reason;
    case TFileOutcome::NotDecoded:
      break;
  }
  return result.Name + " - saved as it came, not re-encoded: " + result.Reason;
}

}  // namespace skyreel
