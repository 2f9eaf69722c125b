#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace skyreel {

/// A text or value that is not a valid number, date or time.
class EConvertError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A value outside what an operation takes.
class ERangeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Throws std::system_error for errno. `what` names the file.
[[noreturn]] inline void ThrowErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// Why something failed, short enough for a status line. For a system error only the system's words ("No
/// space left on device"): the status line already names the file.
inline std::string ReasonOf(const std::exception& error) {
  const auto* const system = dynamic_cast<const std::system_error*>(&error);
  return system ? system->code().message() : error.what();
}

}  // namespace skyreel
