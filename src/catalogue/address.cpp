#include "catalogue/address.h"

#include <algorithm>

#include "base/text.h"

namespace skyreel {

namespace {

/// Where the host begins, behind "://"; npos without.
std::size_t HostStart(std::string_view address) {
  const std::size_t mark = address.find("://");
  return mark == std::string_view::npos ? mark : mark + 3;
}

std::size_t HostEnd(std::string_view address) {
  return std::min(address.find_first_of("/?#", HostStart(address)), address.size());
}

}  // namespace

std::string AddressProblem(std::string_view address) {
  const std::size_t start = HostStart(address);
  const std::string scheme = LowerCase(address.substr(0, address.find(':')));
  if (start == std::string_view::npos || scheme.size() + 3 != start ||
      (scheme != "https" && scheme != "http" && scheme != "ftp")) {
    return "an address begins with https://, http:// or ftp://";
  }
  const std::string_view host = address.substr(start, HostEnd(address) - start);
  if (host.find('@') != host.npos) return "an address holds no user name";
  const auto fits = [](char c) {
    return IsLetterOrDigit(c) || std::string_view(".-_:[]").find(c) != std::string_view::npos;
  };
  if (host.empty() || host.starts_with(':') || !std::ranges::all_of(host, fits))
    return "no host in the address";
  return "";
}

TAddress FillAddress(const TFieldText& text, const TFieldValues& values, bool found_is_decoded) {
  using TKind = TFieldText::TKind;
  TAddress address;
  std::size_t own = std::string::npos;  // so many bytes come before the first text of the server
  for (const TFieldText::TPart& part : text.Parts) {
    const bool found = part.Kind == TKind::Found;
    if (own == std::string::npos && (found || part.Kind == TKind::Read)) own = address.Text.size();
    address.Text +=
        PercentEncode(FillPart(part, values), found && values.Found && found_is_decoded ? "%?#" : "");
  }
  address.Problem = AddressProblem(address.Text);
  if (!address.Problem.empty() || own == std::string::npos) return address;
  if (own == 0 && !StartsWithText(address.Text, "https:")) {
    address.Problem = "an address that the server gives must begin with https://";
  } else if (own != 0 && HostEnd(address.Text) > own) {
    address.Problem = "the server's list must not change the host";
  }
  return address;
}

TFieldText LastPart(const TFieldText& address) {
  TFieldText last;
  for (TFieldText::TPart part : address.Parts) {
    const std::size_t slash = part.Text.rfind('/');
    if (slash != std::string::npos) {
      last.Parts.clear();
      part.Text.erase(0, slash + 1);
    }
    if (part.Kind != TFieldText::TKind::Plain || !part.Text.empty()) last.Parts.push_back(std::move(part));
  }
  return last;
}

std::string PercentEncode(std::string_view text, std::string_view unsafe) {
  constexpr char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > 0x20 && byte < 0x7F && unsafe.find(c) == std::string_view::npos) {
      encoded += c;
    } else {
      encoded += {'%', kHex[byte >> 4], kHex[byte & 0xF]};
    }
  }
  return encoded;
}

std::string PercentDecode(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = text[i] == '%' && i + 2 < text.size()
                          ? ParseNumber<unsigned char>(text.substr(i + 1, 2), 16)
                          : std::nullopt;
    decoded += byte ? static_cast<char>(*byte) : text[i];
    if (byte) i += 2;
  }
  return decoded;
}

}  // namespace skyreel
