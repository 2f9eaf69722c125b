#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "catalogue/listing.h"
#include "catalogue/time_list.h"

namespace skyreel {

/// Reads one page of an S3 bucket's list (ListObjectsV2: ListBucketResult with Contents, Key, Size,
/// LastModified): the last part of each key. Returns the token that asks for the next page, "" for the last
/// one. Throws EListError, also with the server's own words for an Error document, and for a page that says
/// that others follow but gives no token.
std::string ReadS3List(std::string_view document, const TTakeListed& take);

/// The times of a layer in a WMS capabilities document (versions 1.1.1 and 1.3.0): its dimension "time" or
/// that of the layer around it. `layer` may have a workspace ("mtg_fd:rgb") that the document leaves out, and
/// the other way round. Throws EListError for any other document (a page of HTML, say), and when it does not
/// have the layer or its times.
std::vector<TTimeRange> ReadWmsTimes(std::string_view document, std::string_view layer);

}  // namespace skyreel
