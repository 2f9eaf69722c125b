#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace skyreel {

/// What a reply's header says, as far as the client looks at it (RFC 1945; transfer encodings RFC 9112).
struct THttpReplyHeader {
  int Code = 0;          ///< 0 when the status line holds no number
  std::string Cookie;    ///< the last "Set-Cookie:" value
  std::string Location;  ///< the last "Location:" value
  /// The last "Content-Length:"; one too large for any body is held at the greatest number, one that is no
  /// number counts as none.
  std::optional<std::int64_t> ContentLength;
  std::string TransferEncoding;  ///< lower case; "" when the body comes as it is
};

/// The second blank-separated word of a status line; 0 if it is not a number up to 32767.
int ReplyCodeOf(std::string_view status_line);

/// Reads one header line, with or without its line end, into `header`. Unknown lines change nothing.
void ReadHeaderLine(std::string_view line, THttpReplyHeader& header);

/// The size that a chunk's first line announces (hexadecimal, an extension behind ";"); -1 for no such line.
std::int64_t ParseChunkSize(std::string_view line);

}  // namespace skyreel
