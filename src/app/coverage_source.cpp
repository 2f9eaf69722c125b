#include "app/coverage_source.h"

#include <algorithm>
#include <utility>

#include "catalogue/combinations.h"
#include "transfer/run_record.h"

namespace skyreel {

namespace fs = std::filesystem;

TCoverageSource CoverageOf(std::shared_ptr<const TDescription> source, TChoices choices, fs::path output,
                           std::optional<int> keep_days) {
  const auto products = [source, choices] {
    std::vector<std::string> labels;
    ForEachCombination(ChosenRows(*source, choices), [&](const TCombination& combination) {
      labels.push_back(LabelOf(*source, combination));
      return true;
    });
    return labels;
  };
  const auto expect = [source, choices, keep_days](const std::string& product, TDateTime now, int days) {
    TExpectation expected;
    ForEachCombination(ChosenRows(*source, choices), [&](const TCombination& combination) {
      const bool found = LabelOf(*source, combination) == product;
      if (found) expected = ExpectationOf(*source, combination, now, days, keep_days);
      return !found;
    });
    return expected;
  };
  return {source->Id, source->Title, std::move(output), products, expect, source};
}

TCoverageSource CoverageOf(const std::string& source, TJobPlanRequest request,
                           std::function<void(TJobContext& context)> job, fs::path output,
                           std::stop_token stop) {
  const auto plan = [request = std::move(request), job = std::move(job), stop = std::move(stop)](
                        TDateTime now, int days) {
    TJobPlanRequest of_days = request;
    of_days.Now = now;
    of_days.Shared.BackDays = days;
    return PlanOfJob(of_days, job, stop).Files;
  };
  const auto products = [plan, now = request.Now] {
    std::vector<std::string> seen;
    for (const TWantedFile& file : plan(now, 1))
      if (std::ranges::find(seen, file.Product) == seen.end()) seen.push_back(file.Product);
    return seen;
  };
  const auto expect = [plan](const std::string& product, TDateTime now, int days) {
    TExpectation expected;
    for (const TWantedFile& file : plan(now, days)) {
      if (file.Product != product || file.SlotTime.IsZero() || file.Path.empty()) continue;
      const bool may_come = now < file.SlotTime + kMayStillCome;
      expected.Files.push_back({file.SlotTime, file.Path.string(),
                                may_come ? TCellState::NotYet : TCellState::Missing, file.Address});
    }
    return expected;
  };
  return {source, source, std::move(output), products, expect, nullptr};
}

}  // namespace skyreel
