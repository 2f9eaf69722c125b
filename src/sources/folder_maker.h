#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "transfer/transfer_context.h"

namespace skyreel {

/// Makes the folders that a run files into, each once.
class TFolderMaker {
 public:
  explicit TFolderMaker(TStatusDisplay& display) : display_(display) {}
  /// Creates the folder with missing parents, unless it did so before. False when nothing can be filed there;
  /// one status line says why the first time.
  bool Make(const std::filesystem::path& folder);

 private:
  TStatusDisplay& display_;
  std::map<std::string, bool, std::less<>> made_;
};

}  // namespace skyreel
