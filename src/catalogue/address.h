#pragma once

#include <string>
#include <string_view>

#include "catalogue/field_text.h"

namespace skyreel {

/// An address, or why it must not be asked for.
struct TAddress {
  std::string Text;
  std::string Problem;  ///< empty when all is well
};

/// Why an address must not be asked for: its scheme is not http, https or ftp, it names no host, or it holds
/// a user name. Empty when all is well.
std::string AddressProblem(std::string_view address);

/// Fills an address. Spaces, control and non-ASCII characters become "%XX"; so do "%", "?" and "#" in {found}
/// when `found_is_decoded`. A text that came from a server may choose scheme and host only where the address
/// begins with it, and then the scheme must be https.
TAddress FillAddress(const TFieldText& text, const TFieldValues& values, bool found_is_decoded = false);

/// What follows the last "/" of an address, with its fields.
TFieldText LastPart(const TFieldText& address);

/// The bytes of `text` with each that `unsafe` holds, and each that no address may hold, as "%XX".
std::string PercentEncode(std::string_view text, std::string_view unsafe = "");
/// "%XX" as the byte that it stands for; a "%" without two hexadecimal digits stays.
std::string PercentDecode(std::string_view text);

}  // namespace skyreel
