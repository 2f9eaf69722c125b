#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace skyreel {

/// The lines of a reply's header that the client uses (RFC 1945; transfer encodings RFC 9112).
struct THttpReplyHeader {
  int Code = 0;          ///< 0 when the status line holds no number
  std::string Cookie;    ///< the last "Set-Cookie:" value
  std::string Location;  ///< the last "Location:" value
  /// The last "Content-Length:" value. A number beyond 64 bits becomes the largest one; other text counts as
  /// no length.
  std::optional<std::int64_t> ContentLength;
  std::string TransferEncoding;  ///< lower case; "": none
};

/// The second word of a status line; 0 if it is not a number up to 32767.
int ReplyCodeOf(std::string_view status_line);

/// Reads one header line, with or without its line end, into `header`. Unknown lines change nothing.
void ReadHeaderLine(std::string_view line, THttpReplyHeader& header);

/// The value of the last line of that name in a header, trimmed; "" when it has no such line.
std::string HeaderValue(std::string_view header, std::string_view name);

/// The size in a chunk's first line (hexadecimal, an extension may follow a ";"); -1 for any other line.
std::int64_t ParseChunkSize(std::string_view line);

}  // namespace skyreel
