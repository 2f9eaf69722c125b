#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

/// Ends the process, which the fuzzer takes for a find, unless what a target promises holds.
inline void Require(bool holds) {
  if (!holds) std::abort();
}

/// A target's input as text.
inline std::string_view AsText(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}
