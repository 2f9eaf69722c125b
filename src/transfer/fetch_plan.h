#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "base/date_time.h"

namespace skyreel {

/// A file that a job wants.
struct TWantedFile {
  std::string Product;         ///< the item that the user chose
  TDateTime SlotTime;          ///< of the picture, UTC; zero when only the server knows it
  std::filesystem::path Path;  ///< empty when only the server knows it
  std::string Address = {};    ///< URL, or the server and the remote path; without user name and password
};

/// What a job would do now. See TTransferContext::Plan.
struct TFetchPlan {
  enum class TState {
    Present,  ///< it is there and good, so it is not asked for
    Wanted,   ///< to be asked for
    IfNew,    ///< the server's date and size of the file tell whether to fetch it
  };
  struct TFile : TWantedFile {
    TState State = TState::Wanted;
  };

  std::vector<TFile> Files;        ///< in the order of a run
  std::vector<std::string> Lists;  ///< addresses of pages that a run asks first: they tell what there is
  std::vector<std::string> Notes;  ///< what a run would tell the user, a line each
};

}  // namespace skyreel
