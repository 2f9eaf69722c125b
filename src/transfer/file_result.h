#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "base/date_time.h"

namespace skyreel {

enum class TFileOutcome {
  Saved,       ///< the whole file is stored
  Incomplete,  ///< fewer bytes came than a whole file has
  Refused,     ///< the server answered with an error or a page
  TimedOut,    ///< nothing came, or the connection broke
  NotSaved,    ///< this computer could not keep what came
  NotAsked,    ///< the request could not be sent (a bad address, say)
  NotDecoded,  ///< saved as it came, but not uncompressed or re-encoded
};

/// How a run counts a file.
enum class TFileState {
  New,      ///< stored by this run
  Updated,  ///< stored by this run over other bytes
  NotYet,   ///< it may still come, or another copy of the program is fetching it
  Missing,  ///< the server does not have it
  Failed,   ///< it could not be fetched whole or not be stored
  Refused,  ///< its name, address or size is against the rules
};

/// What became of one file that was asked for.
struct TFileResult {
  std::string Source;   ///< the tab's caption: "GOES"
  std::string Product;  ///< the item that the user chose: "GOES-E conus vis"
  TDateTime SlotTime;   ///< of the picture, UTC; zero when it is not known
  std::string Name;     ///< begins the status line
  std::string Address;  ///< URL, or the server and the remote path; without user name and password
  std::filesystem::path Path;
  std::int64_t Bytes = 0;  ///< received
  double Seconds = 0;      ///< from the request to the end
  TFileOutcome Outcome = TFileOutcome::TimedOut;
  std::string Reason;                  ///< why the file is not stored whole; empty when it is
  std::string ETag{}, LastModified{};  ///< as the server sent them; of described sources alone
  /// What a file that is not stored counts as. EndFile makes it New for the others, unless it is Updated.
  TFileState State = TFileState::Failed;
};

/// The reason of a file that was given up after `limit` bytes.
std::string TooLargeReason(std::int64_t limit);

/// The status line of a picture fetched over HTTP: the name and " - OK", " - missing or incomplete",
/// " - timed out", or " - not saved: ", " - not fetched: ", " - saved as it came, not re-encoded: " and the
/// reason.
std::string PictureLine(const TFileResult& result);

}  // namespace skyreel
