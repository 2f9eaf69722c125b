#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

/// Ends the process unless a promise of the target holds; the fuzzer keeps the input then.
inline void Require(bool holds) {
  if (!holds) std::abort();
}

/// A target's input as text.
inline std::string_view AsText(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}
