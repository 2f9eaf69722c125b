// A server's list of links and an FTP folder. Whatever they hold, each entry is a file name with a short
// stamp.

#include "base/text.h"
#include "catalogue/listing.h"
#include "require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = AsText(data, size);
  const auto take = [&](const skyreel::TListed& listed) {
    Require(!listed.Text.empty() && listed.Text != "." && listed.Text != "..");
    Require(!skyreel::HasControlCharacter(listed.Text) && listed.Text.find('/') == std::string_view::npos);
    Require(listed.Text.size() <= size && listed.Stamp.size() <= size);
  };
  try {
    skyreel::ReadHtmlListing(text, take);
  } catch (const skyreel::EListError&) {
  }
  skyreel::ReadFtpListing(text, take);
  return 0;
}
