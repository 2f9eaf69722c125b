#include "base/exceptions.h"
#include "net/ftp_parse.h"
#include "require.h"
#include "transfer/ftp_fetch.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace skyreel;
  const std::string_view text = AsText(data, size);
  Require(PasvPort(text).value_or(1) != 0);
  Require(SizeFromReply(text) >= 0);
  Require(!IsReplyContinuation(text) || !text.empty());
  Require(!HasReplyCode(text) || size >= 3);
  Require(text.starts_with(ListingName(text)));
  Require(FilterListItem(text).find_first_of("/\\:\r\n") == std::string::npos);
  try {
    const TFtpAddress address = ParseFtpAddress(text);
    Require(!address.Host.empty() && address.Port != 0);
  } catch (const EConvertError&) {
    // Not an address: said so.
  }
  return 0;
}
