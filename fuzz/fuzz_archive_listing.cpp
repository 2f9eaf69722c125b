// The archive's listing page. Whatever it holds, only images that were asked about are kept, in their order,
// and none when the page is not a list.

#include "require.h"
#include "sources/eu_archive.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view page = AsText(data, size);
  const auto all = skyreel::EuArchiveOldImages("C1D", skyreel::TDateTime::FromDate(2005, 11, 10));
  auto images = all;
  const bool listing =
      skyreel::KeepListedImages(page, "http://server", images) != skyreel::TEuArchiveList::None;
  Require(listing || images.empty());
  auto from = all.begin();
  for (const auto& image : images) {
    while (from != all.end() && from->RemoteName != image.RemoteName) ++from;
    Require(from != all.end());
    // The page need not hold the name in one piece: a '";' is taken out of its paths.
    Require(page.find("20051110") != page.npos || page.find("\";") != page.npos);
  }
  // Every name that stands in the page as a whole, from its first frame on, is found.
  if (!listing) return 0;
  const std::string_view kept = page.substr(page.find("frame0"));
  const std::string_view text = kept.substr(0, kept.find("number_of_images"));
  std::size_t whole = 0;
  for (const auto& image : all) whole += text.find(image.RemoteName) != std::string_view::npos;
  Require(whole <= images.size());
  return 0;
}
