#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/descriptor.h"

namespace skyreel {

/// A file that received bytes go to. The constructor creates or empties it; a symbolic link of that name is
/// replaced, not followed. Each operation throws std::system_error with the file's name. A file that cannot
/// be written to its end is deleted, because a full disk needs the room.
class TFileSink {
 public:
  explicit TFileSink(std::string file_name);
  std::size_t Write(std::string_view chunk);  ///< writes all of it and returns its size
  void Close();                               ///< throws when the system lost something of it

 private:
  [[noreturn]] void GiveUp();

  std::string name_;
  TDescriptor file_;
};

}  // namespace skyreel
