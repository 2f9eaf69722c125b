#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "sources/job_context.h"
#include "sources/source_table.h"
#include "transfer/ftp_fetch.h"

namespace skyreel {

/// A file that a built-in source had to fetch.
struct TAgainFile {
  std::string Product;
  TDateTime SlotTime;
  std::string Address;
  std::filesystem::path Path;
};

/// Why this file of a source cannot be fetched anew by its address; empty when it can.
std::string WhyNotAgain(const TSource& source, const TAgainFile& file);

/// Fetches files of a built-in source anew, each one for which WhyNotAgain is empty. A file that is there
/// stays until the new one is whole. `login` is the user's; its Server is not used.
void FetchAgain(TJobContext& context, const TSource& source, TFtpLogin login,
                const std::vector<TAgainFile>& files);

}  // namespace skyreel
