#pragma once

#include <filesystem>
#include <vector>

#include "sources/server_roots.h"
#include "transfer/run_record.h"
#include "transfer/transfer_context.h"

namespace skyreel {

/// What a source's job is given for one run.
struct TJobContext : TTransferContext {
  TServerRoots Servers;
  /// Holds the optional lists of wanted names.
  std::filesystem::path ProgramFolder;
  /// Of a job that runs several sources: their records, in place of Record. It shows their lines itself.
  std::vector<TRunRecord> Records{};
};

}  // namespace skyreel
