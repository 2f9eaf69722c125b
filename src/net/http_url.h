#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace skyreel {

inline constexpr std::uint16_t kHttpPort = 80;

/// What a request URL names.
struct THttpUrl {
  std::string Url;                    ///< the URL itself; "/" is appended when it had no path
  std::string Path;                   ///< begins with "/"
  std::string Host;                   ///< empty: the URL names none ("/a.gif")
  std::optional<std::uint16_t> Port;  ///< the written one or the scheme's; empty without both
};

/// Reads "http://server[:port][/path]", "server[:port][/path]" or "/path". The scheme gopher means port 70,
/// ftp 21, any other (also a server name before ":") 80. Throws std::runtime_error: "Empty URL", "HTTP Secure
/// Socket is not supported", "Bad port in URL", "Control character in URL".
THttpUrl ParseHttpUrl(std::string_view url);

/// The URL to follow for a reply's Location. Without a server it gets the one that sent the reply.
std::string ResolveLocation(std::string_view location, std::string_view host, std::uint16_t port);

/// As application/x-www-form-urlencoded: letters, digits, "-._*" and the separators "=" and "&" stay, a blank
/// becomes "+", any other byte "%XX".
std::string UrlEncode(std::string_view data);

}  // namespace skyreel
