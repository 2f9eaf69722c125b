#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "catalogue/plan.h"
#include "journal/journal.h"
#include "transfer/fetch_plan.h"
#include "transfer/fetch_queue.h"
#include "transfer/run_record.h"
#include "transfer/transfer_context.h"

namespace skyreel {

/// Identifies one file of a described source.
struct TPictureKey {
  std::string Product;         ///< see LabelOf
  TDateTime SlotTime;          ///< zero when it is not known
  std::filesystem::path Path;  ///< below the output folder: "2026/a.jpg"; empty when it is not known
};

/// A described source, and what the user wants of it.
struct TWantedSource {
  const TDescription& Source;
  TChoices Choices = {};
  std::optional<int> Days = {};  ///< see TPlanRequest; without, the newest slot alone
  /// Deletes its stored pictures of slots that are older than so many days; without, keeps all.
  std::optional<int> KeepDays = {};
  /// The user accepts the terms of alternates that have a licence of their own; otherwise those that do not
  /// allow any use are passed over.
  bool AcceptsTerms = false;
  /// Unless empty, fetches exactly these files, whether they are there or not.
  std::vector<TPictureKey> Again = {};
};

/// What fetches files of a source anew. A file that is there stays until the new one is whole. `now` is the
/// time of the run, which is to follow at once.
TWantedSource WantedAgain(const TDescription& source, std::vector<TPictureKey> files, TDateTime now);

/// What a run of described sources works with. All of it outlives the run.
struct TDescribedRun {
  TTransferContext& Context;
  TJournal& Journal;
  std::filesystem::path Output;  ///< the sources' folders are below it
  bool KeepsFiles = false;       ///< the records hold each file
  int Tries = 3;                 ///< see TFetchRequest
  /// Gets each answer of a server.
  std::function<void(const TFetchAnswer& answer)> OnAnswer = {};
};

/// The plan of a source as far as no server is asked. The sources' folders are below `output`.
TPlan PlanOffline(TJournal& journal, const std::filesystem::path& output, TDateTime now,
                  const TWantedSource& wanted);

/// Fetches what is wanted of these sources, several hosts side by side, and gives each source's record in
/// their order. A source asks its lists first. A picture is tried in its ways one after the other, and judged
/// before it is stored: under a temporary name, stamped with its slot, then renamed. Each file ends at the
/// display, also one that the server does not have. Throws nothing for a failed file.
std::vector<TRunRecord> RunDescribedSources(TDescribedRun& run, const std::vector<TWantedSource>& sources);

}  // namespace skyreel
