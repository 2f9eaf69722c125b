// The order page of the PDUS station. Whatever it holds, no entry leads off the server or out of the folder.

#include "base/text.h"
#include "require.h"
#include "sources/dundee_pdus.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view page = AsText(data, size);
  const skyreel::TPdusOrder order =
      skyreel::ParseOrderPage(page, "http://station", {"0200, IODC, Visible", "0000, GMS, Infra-Red", "GMS"});
  Require(order.Refused.size() <= order.RefusedCount);
  for (const auto& refusal : order.Refused) Require(refusal.Link.size() <= 1000 && !refusal.Reason.empty());
  for (const auto& entry : order.Entries) {
    Require(entry.Url.starts_with("http://station/") && entry.Url.find(' ') == std::string::npos &&
            !skyreel::HasControlCharacter(entry.Url));
    Require(skyreel::IsSafeFileName(entry.Name + ".pdu"));
    const std::filesystem::path path = skyreel::PdusLocalPath("/out/", entry.Name + ".pdu");
    Require(path.lexically_normal() == path && path.string().starts_with("/out/"));
    Require(path.filename() == entry.Name + ".pdu");
  }
  return 0;
}
