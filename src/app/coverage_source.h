#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "catalogue/coverage.h"
#include "sources/job_plan.h"

namespace skyreel {

/// A source whose coverage can be shown. Its functions run on a worker thread, must not throw, and refer to
/// nothing that may go meanwhile.
struct TCoverageSource {
  std::string Id;  ///< as the journal names it
  std::string Title;
  std::filesystem::path Output;
  std::function<std::vector<std::string>()> Products;  ///< as the journal names them
  std::function<TExpectation(const std::string& product, TDateTime now, int days)> Expect;
  std::shared_ptr<const TDescription> Description;  ///< null for a built-in source
};

/// The coverage of a described source. `keep_days` as in TWantedSource.
TCoverageSource CoverageOf(std::shared_ptr<const TDescription> source, TChoices choices,
                           std::filesystem::path output, std::optional<int> keep_days);

/// The coverage of a built-in source: a plan of its job tells what should be there. `request`, `job`
/// and `stop` as for PlanOfJob.
TCoverageSource CoverageOf(const std::string& source, TJobPlanRequest request,
                           std::function<void(TJobContext& context)> job, std::filesystem::path output,
                           std::stop_token stop);

}  // namespace skyreel
