#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "catalogue/listing.h"

namespace skyreel {

/// One time of a JSON list and the further texts that belong to it, in the order of their pointers.
struct TJsonEntry {
  std::string Time;
  std::vector<std::string> Read;
};

/// The texts of a JSON document (RFC 8259) at pointers (RFC 6901: "/radar/past/0/time"), in which "*" stands
/// for each entry of an array. A number counts as its digits. The n-th "*" of a `read` pointer is the same
/// entry as the n-th of `at`; an entry that lacks one of the texts is left out. Throws EListError for a
/// document that is damaged, an HTML page, deeper than 100 levels, without the array or the text that `at`
/// names, or with more than 1,000,000 texts at the pointers.
std::vector<TJsonEntry> ReadJsonList(std::string_view document, std::string_view at,
                                     const std::vector<std::string>& read = {});

}  // namespace skyreel
