#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace skyreel {

/// A text that is not the number, date or time it should be.
class EConvertError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A value outside what an operation takes.
class ERangeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Throws std::system_error for errno. `what` is the file or thing that it is about.
[[noreturn]] inline void ThrowErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// Why something failed, short enough for a status line: of a system error the system's words alone ("No
/// space left on device"), since the line names the file already.
inline std::string ReasonOf(const std::exception& error) {
  const auto* const system = dynamic_cast<const std::system_error*>(&error);
  return system ? system->code().message() : error.what();
}

}  // namespace skyreel
