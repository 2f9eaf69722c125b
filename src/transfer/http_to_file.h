#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "transfer/transfer_context.h"

namespace skyreel {

/// What a server says about a file before it is fetched.
struct THttpFileInfo {
  int ReplyCode = 0;               ///< HTTP status, 0 when the reply had none
  bool Readable = false;           ///< the header holds no number or date that is none
  std::int32_t ContentLength = 0;  ///< bytes; 0 when the server does not say
  TDateTime LastModified;          ///< zero when the server does not say
};

/// Asks NMHTTP's server for the header of `url`. An error reply is an answer too. Throws std::exception when
/// there is no answer; ESockError when that is the network's fault.
THttpFileInfo AskHttpFileInfo(TTransferContext& context, const std::string& url);

/// A page that is kept in memory.
struct THttpPage {
  int ReplyCode = 0;   ///< HTTP status, 0 when there was no reply
  std::string Text;    ///< at most 64 MiB
  std::string Reason;  ///< why there is no good reply, for a status line; empty for a good one
};

/// Fetches a page with NMHTTP, under the time-out, proxy and credentials that it has, guarded by the
/// watchdog, with progress display and `detail` in the second panel. Throws nothing for a failed transfer.
THttpPage GetHttpPage(TTransferContext& context, const std::string& url, const std::string& detail);

enum class THttpSaveOutcome {
  Whole,     ///< the file is there, no shorter than its header and its reply announced
  Cut,       ///< the server closed early or sent only a part; what came is kept, noted as cut
  Refused,   ///< an error reply, a page in place of the file, or one without end; nothing of it is kept
  TimedOut,  ///< no answer, or a failure on the way; what came is kept, noted as cut
  NotSaved,  ///< the file cannot be written; what was written is kept, noted as cut
};

struct THttpSaveResult {
  THttpSaveOutcome Outcome = THttpSaveOutcome::TimedOut;
  std::string Reason;  ///< for a status line; empty when whole
};

/// Fetches `url` with NMHTTP, under the time-out, proxy and credentials that it has, straight into the file
/// `path`, whose folder is created. What is written is noted in the transfer ledger until it is whole.
/// A file of at least `good_size` bytes that is there already, and not noted as cut, is given up only for a
/// whole one: until then the new one stands beside it under the name with ".part" added.
/// `announced`: the size from the file's header. A reply that is shorter is cut, whatever it announces
/// itself: a server's excuse, or a file that is just being replaced. `time`: stamped on the whole file,
/// unless zero. Progress and bytes label are reset at both ends. Throws nothing for a failed transfer.
THttpSaveResult SaveHttpFile(TTransferContext& context, const std::string& url,
                             const std::filesystem::path& path, std::int64_t good_size,
                             std::int64_t announced, TDateTime time = {});

}  // namespace skyreel
