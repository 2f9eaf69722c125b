#pragma once

#include <filesystem>

#include "sources/server_roots.h"
#include "transfer/transfer_context.h"

namespace skyreel {

/// What a source's job is given for one run.
struct TJobContext : TTransferContext {
  TServerRoots Servers;
  /// Holds the optional lists of wanted names.
  std::filesystem::path ProgramFolder;
};

}  // namespace skyreel
