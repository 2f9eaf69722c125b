#include "net/http_url.h"

#include <stdexcept>

#include "base/text.h"

namespace skyreel {

namespace {

constexpr std::size_t kMaxPath = 256;

/// Where the server's name begins: after "//" at the start or after the scheme; npos if the URL has neither.
std::size_t AuthorityStart(std::string_view url) {
  const std::size_t slash = url.find('/');
  if (slash == std::string_view::npos || url.substr(slash, 2) != "//") return std::string_view::npos;
  return slash == 0 || url[slash - 1] == ':' ? slash + 2 : std::string_view::npos;
}

std::uint16_t ParsePort(std::string_view text) {
  const std::uint16_t port = ParseNumber<std::uint16_t>(text).value_or(0);
  if (port == 0) throw std::runtime_error("Bad port in URL");
  return port;
}

}  // namespace

THttpUrl ParseHttpUrl(std::string_view url) {
  if (url.empty()) throw std::runtime_error("Empty URL");
  if (HasControlCharacter(url)) throw std::runtime_error("Control character in URL");
  THttpUrl parsed;
  parsed.Url = url;

  const std::size_t authority = AuthorityStart(url);
  const std::size_t slash = url.find('/', authority == std::string_view::npos ? 0 : authority);
  if (slash != std::string_view::npos) {
    // kept: a path after "//server" is cut at 256 characters.
    parsed.Path = url.substr(slash, authority == std::string_view::npos ? url.size() : kMaxPath);
  }

  // A ":" after the first "/" belongs to the path.
  if (const std::size_t colon = url.find(':'); colon < url.find('/')) {
    const std::string scheme = LowerCase(url.substr(0, colon));
    if (scheme == "https") throw std::runtime_error("HTTP Secure Socket is not supported");
    parsed.Port = scheme == "gopher" ? 70 : scheme == "ftp" ? 21 : kHttpPort;
  }

  std::string_view host = url.substr(0, slash);
  if (authority != std::string_view::npos) host.remove_prefix(authority);
  if (const std::size_t colon = host.find(':'); colon != std::string_view::npos) {
    if (colon + 1 < host.size()) parsed.Port = ParsePort(host.substr(colon + 1));
    host = host.substr(0, colon);
  }
  parsed.Host = host;

  if (parsed.Path.empty()) {
    parsed.Path = "/";
    parsed.Url += "/";
  }
  return parsed;
}

std::string ResolveLocation(std::string_view location, std::string_view host, std::uint16_t port) {
  const std::size_t slash = location.find('/');
  if (location.substr(0, 2) == "//") return "http:" + std::string(location);
  if (slash != std::string_view::npos && slash != 0) return std::string(location);
  std::string url = "http://" + std::string(host);
  if (port != kHttpPort) url += ":" + std::to_string(port);
  if (slash == std::string_view::npos) url += "/";
  return url + std::string(location);
}

std::string UrlEncode(std::string_view data) {
  constexpr char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : data) {
    const auto byte = static_cast<unsigned char>(c);
    if (IsLetterOrDigit(c) || std::string_view("-._*=&").find(c) != std::string_view::npos) {
      encoded += c;
    } else if (c == ' ') {
      encoded += '+';
    } else {
      encoded += {'%', kHex[byte >> 4], kHex[byte & 0xF]};
    }
  }
  return encoded;
}

}  // namespace skyreel
