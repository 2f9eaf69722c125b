#pragma once

#include <filesystem>

#include "sources/server_roots.h"
#include "transfer/transfer_context.h"

namespace skyreel {

/// What a source's job is given for one run.
struct TJobContext : TTransferContext {
  TServerRoots Servers;
  /// Where the optional lists of wanted names are looked for.
  std::filesystem::path ProgramFolder;
};

}  // namespace skyreel
