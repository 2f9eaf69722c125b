#pragma once

#include <string>
#include <vector>

#include "sources/job_context.h"

namespace skyreel {

/// What the "Eumetsat" page asks for.
struct TEuArchiveSettings {
  std::string OutputPath;          ///< with its trailing separator
  bool NewNaming = false;          ///< the server's naming since 9 November 2005
  int MsgName = 0;                 ///< 0 MSG1, 1 MSG2, 2 MSG3; any other counts as MSG1
  std::vector<std::string> Items;  ///< the ticked sectors, then the ticked products
};

/// The items of the page "Image sectors" and of the page "Products", in list order.
const std::vector<std::string>& EuArchiveSectorItems();
const std::vector<std::string>& EuArchiveProductItems();

/// The EUMETSAT image archive: half-hourly JPEG pictures of the sectors and products asked for, of today and
/// the days before, filed as <output>/yyyy/mm/dd/<item>_<slot>.jpg with slot 00 to 47.
class TEuArchiveJob {
 public:
  TEuArchiveJob(TJobContext& context, TEuArchiveSettings settings);
  /// Fetches what is missing; returns at the end or soon after a stop was requested. Every failure costs one
  /// file and is told in one status line.
  void Run();

 private:
  TJobContext& context_;
  TEuArchiveSettings settings_;
};

}  // namespace skyreel
