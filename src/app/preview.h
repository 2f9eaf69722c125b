#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "catalogue/described_run.h"
#include "transfer/fetch_plan.h"

namespace skyreel {

/// What the next run of a source would do, in words.
struct TPreview {
  struct TRow {
    std::string State;  ///< "wanted", "present"
    std::string Slot;
    std::string File;                   ///< below the output folder
    std::optional<std::int64_t> Bytes;  ///< nothing: not known
  };
  std::string Summary;  ///< counts, bytes, room on the disk, what the server must be asked first
  std::vector<TRow> Rows;
};

/// A described source and its plan.
struct TDescribedPlan {
  TWantedSource Wanted;
  TPlan Plan;
};

/// The preview of described sources. It looks for files on the disk.
TPreview PreviewOf(const std::vector<TDescribedPlan>& plans, const std::filesystem::path& output);
/// The preview of a built-in source. It looks for files on the disk.
TPreview PreviewOf(const TFetchPlan& plan, const std::filesystem::path& output);

/// "3 wanted, 12 present"; of no rows, that no file is planned yet.
std::string CountsText(const std::vector<TPreview::TRow>& rows);
/// "12.3 GB are free on the disk." of a folder that may not exist yet; empty when it is not known.
std::string FreeText(std::filesystem::path folder);

}  // namespace skyreel
