#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "transfer/transfer_context.h"

namespace skyreel {

/// Makes the folders that a run files into, each once.
class TFolderMaker {
 public:
  explicit TFolderMaker(TTransferContext& context) : context_(context) {}
  /// Creates the folder with missing parents, unless it did so before. False when nothing can be filed there;
  /// one status line says why the first time, and counts as one failure. For a plan it only looks whether
  /// that would work.
  bool Make(const std::filesystem::path& folder);

 private:
  TTransferContext& context_;
  std::map<std::string, bool, std::less<>> made_;
};

}  // namespace skyreel
