#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace skyreel {

// Reads what FTP servers write (RFC 959), without a socket.

/// Whether another line of the same reply follows: `line` begins with a blank, or its fourth character is '-'
/// ("226-...").
bool IsReplyContinuation(std::string_view line);

/// Whether the line begins with three digits, as every last line of a reply does.
bool HasReplyCode(std::string_view line);

/// Finds the last line of a reply. Some servers leave out the code in the middle of a reply that began with
/// "226-".
class TReplyEnd {
 public:
  /// Takes the lines of one reply in turn. True for the last one.
  bool IsAt(std::string_view line);

 private:
  bool many_lines_ = false;
};

/// The port in a reply to PASV, "227 ... (h1,h2,h3,h4,p1,p2)": p1 * 256 + p2. It ignores the host numbers;
/// the brackets may be missing. Empty unless there are six fields, the last two are 0 to 255, and the port is
/// not 0.
std::optional<std::uint16_t> PasvPort(std::string_view reply);

/// The size in bytes that a reply announces: the number before the first "byte", in any letter case.
/// "150 Opening BINARY mode data connection for a.bin (123456 bytes)." gives 123456. Returns 0 when the reply
/// announces no size, and the greatest number for a size beyond 64 bits.
std::int64_t SizeFromReply(std::string_view reply);

/// A line of a name listing without its line end: CR LF, or a single last character.
/// kept: a line of two characters or fewer stays as it is.
std::string_view ListingName(std::string_view line);

/// Where an FTP server is.
struct TFtpAddress {
  std::string Host;
  std::uint16_t Port = 21;
};

/// Reads "host" or "host:port", with or without "ftp://" before it and "/" after it. Throws EConvertError
/// with a line for the user when the host is empty or holds anything but letters, digits, '-', '.' and '_',
/// or the port is not 1 to 65535.
TFtpAddress ParseFtpAddress(std::string_view root);

}  // namespace skyreel
