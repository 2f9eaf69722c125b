#pragma once

#include <stdexcept>

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

}  // namespace skyreel
