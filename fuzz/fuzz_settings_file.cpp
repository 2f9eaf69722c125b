#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>

#include "base/files.h"
#include "require.h"
#include "settings/registry_store.h"

using namespace skyreel;

namespace {

/// One folder for the whole run. The library remembers files by name, size and a coarse time, so each input
/// gets file names of its own, one to write and one to read.
std::filesystem::path Folder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "skyreel-fuzz-XXXXXX").string();
  Require(::mkdtemp(pattern.data()) != nullptr);
  return pattern;
}

}  // namespace

// The first bytes (their count in the first byte) are the UTF-16 units of a value, the rest is a settings
// file. However damaged the file is, the value comes back as it was written.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::filesystem::path folder = Folder();
  static int count = 0;
  const std::string bytes(AsText(data, size));
  const std::size_t value_size = size == 0 ? 0 : std::min<std::size_t>(data[0] & ~1u, size - 1);
  QString value(static_cast<qsizetype>(value_size / 2), QChar(0));
  if (size > 0) std::memcpy(value.data(), data + 1, value_size / 2 * 2);

  const std::filesystem::path file = folder / (std::to_string(++count) + ".conf");
  WriteFileWhole(file, size == 0 ? std::string() : bytes.substr(1 + value_size));
  {
    TRegistryStore store(file);
    store.WriteString("Value name", value);
    Require(store.Flush());
  }
  const std::filesystem::path written = folder / (std::to_string(count) + ".written.conf");
  std::filesystem::rename(file, written);
  // Half a surrogate pair becomes the replacement character.
  Require(TRegistryStore(written).ReadString("Value name") == QString::fromUtf8(value.toUtf8()));
  std::filesystem::remove(written);
  std::filesystem::remove(std::filesystem::path(file) += ".damaged");
  std::filesystem::remove(std::filesystem::path(file) += ".lock");
  return 0;
}
