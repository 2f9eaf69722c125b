#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace skyreel {

/// A server's list that cannot be read. The message is for the user.
class EListError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One entry of a server's list.
struct TListed {
  std::string_view
      Text;  ///< the file's name; never empty, "." or "..", without slashes and control characters
  /// Date and size as the list writes them, "" when it shows no date. The same stamp means the same file; it
  /// tells no time, because such a date has no zone.
  std::string_view Stamp;
};
/// Receives the entries one by one, in the list's order; the texts end with the call.
using TTakeListed = std::function<void(const TListed&)>;

/// The last part of an address's or key's path, percent-decoded; "" when that part is no file name (TListed).
std::string LastPart(std::string_view path);

/// Reads an HTML page of links, as nginx, Apache and IIS list a folder: the last part of each link, without
/// query and fragment. A date before or after the link, in the same row, becomes the stamp. Throws
/// EListError when the page holds no link.
void ReadHtmlListing(std::string_view page, const TTakeListed& take);

/// Reads the answer to FTP LIST (Unix or MS-DOS form; folders are left out) or NLST, recognised line by line.
void ReadFtpListing(std::string_view text, const TTakeListed& take);

/// Throws EListError when a server's answer is an HTML page. `wanted` is what it should be: "a JSON
/// document".
void RefuseHtmlPage(std::string_view document, const char* wanted);

}  // namespace skyreel
