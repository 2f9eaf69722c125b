#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "settings/ini_text.h"

using skyreel::TIniText;

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

// The first bytes (their count in the first byte) are the UTF-16 units of a value, the rest is a settings
// file. Writing the value changes nothing else, and reading the result gives everything back.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::size_t value_size = size == 0 ? 0 : std::min<std::size_t>(data[0] & ~1u, size - 1);
  QString value(static_cast<qsizetype>(value_size / 2), QChar(0));
  if (size > 0) std::memcpy(value.data(), data + 1, value_size / 2 * 2);
  const TIniText original(size == 0 ? std::string() : bytes.substr(1 + value_size));

  for (const QString& name : {QString("Value name"), value,
                              original.Values().isEmpty() ? QString() : original.Values().firstKey()}) {
    if (name.isEmpty()) continue;
    TIniText changed = original;
    changed.Set(name, value);
    const TIniText again(changed.Text());
    Require(again.Values() == changed.Values());
    Require(again.Values().value(name) == value);
    Require(again.Text() == changed.Text());
    changed.Remove(name);
    Require(!TIniText(changed.Text()).Values().contains(name));
  }
  return 0;
}
