#pragma once

#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "sources/job_context.h"
#include "transfer/fetch_plan.h"

namespace skyreel {

/// What the plan of a job is made from.
struct TJobPlanRequest {
  TDateTime Now;
  TSharedSettings Shared;
  TServerRoots Servers;
  std::filesystem::path ProgramFolder;  ///< holds the optional lists of wanted names
  std::filesystem::path LedgerFile;
  TWinInetTransfer* WinInet = nullptr;  ///< see TTransferContext; never called
  std::vector<std::string> Notes{};     ///< the first of the plan
};

/// What a run of this job would fetch now, each address once. Reads the disk, changes nothing there, and asks
/// no server. A job that refers to nothing outside itself may be planned on any thread. Throws nothing. A
/// stop leaves the rest out.
TFetchPlan PlanOfJob(const TJobPlanRequest& request, const std::function<void(TJobContext& context)>& job,
                     std::stop_token stop = {});

}  // namespace skyreel
