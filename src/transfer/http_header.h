#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "base/date_time.h"

namespace skyreel {

/// The status of a reply that holds only a part of the file. The program never asks for a part; a server or a
/// proxy may still send one.
inline constexpr int kPartialContent = 206;
inline constexpr int kUnauthorized = 401;

/// Whether an HTTP status says that there is no such file.
constexpr bool IsAbsent(int status) {
  return status == 404 || status == 410;
}

/// Reads Content-Length (bytes, signed 32-bit) and Last-Modified out of a response header, whose lines may
/// end in CR LF, LF or CR. Format: RFC 1945, "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT"; the time is
/// taken as written, whatever the zone word says. Keys match in any letter case, at the start of a line only,
/// and the last occurrence of a key wins. A missing key leaves its variable as it was. False when a number
/// (also one beyond 32 bits) or a date cannot be read; the variables then hold what was read before it. Never
/// throws.
bool ParseHttpHeader(std::string_view header, std::int32_t& content_length, TDateTime& last_modified);

/// What the header of a reply says about its body.
struct TBodyHeader {
  /// Bytes. 0: the server does not say. Empty: a Content-Length cannot be read, or it contradicts another one
  /// or a Content-Range that names more bytes.
  std::optional<std::int64_t> Length = 0;
  bool Encoded = false;  ///< the server compressed the body (Content-Encoding)
};

/// Reads Content-Length, Content-Range and Content-Encoding (RFC 9110, 9112) of the last reply in `header`;
/// interim replies may come before it. Blanks before a colon, folded lines and equal repeats ("5, 5") are
/// allowed. A number beyond 64 bits becomes the greatest one.
TBodyHeader ReadBodyHeader(std::string_view header);

/// A time as HTTP writes it, "Sun, 06 Nov 1994 08:49:37 GMT"; nothing for another text.
std::optional<TDateTime> ParseHttpDate(std::string_view value);

/// The wait of a Retry-After value (RFC 9110), seconds or a time; never negative. Nothing for another text.
std::optional<std::chrono::seconds> ParseRetryAfter(std::string_view value, TDateTime now);

/// A Content-Range value (RFC 9110): "bytes 5-9/10", "bytes 5-9/*", or "bytes */10" when no part is sent.
struct TContentRange {
  std::optional<std::int64_t> First;  ///< position of the part's first byte
  std::optional<std::int64_t> Total;  ///< bytes of the whole
};
/// Leaves out what cannot be read.
TContentRange ParseContentRange(std::string_view value);

/// The month, 1 to 12, that a text of exactly three letters abbreviates in English, in any letter case; 0 for
/// a text of any other length. Throws ERangeError "Bad month" for an unknown abbreviation.
int MonthNumber(std::string_view text);

/// Whether a body with this beginning is an HTML page; a byte-order mark and an XML prolog may come before
/// it. A page that comes for a picture is most likely an error message.
bool IsHtmlPage(std::string_view beginning);

}  // namespace skyreel
