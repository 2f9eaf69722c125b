#include "sources/wanted_names.h"

#include <exception>
#include <stdexcept>

#include "base/comma_text.h"
#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"

namespace skyreel {

namespace {

constexpr std::int64_t kLargestList = 4 * 1024 * 1024;

}  // namespace

TWantedNames::TWantedNames(std::string_view comma_text) {
  // Some text editors write this mark at the start of a file.
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (comma_text.starts_with(kByteOrderMark)) comma_text.remove_prefix(kByteOrderMark.size());
  for (const std::string& name : FromCommaText(comma_text)) {
    if (!name.empty()) names_.insert(UpperCase(name));
  }
}

TWantedNames TWantedNames::FromFile(const std::filesystem::path& file, TStatusDisplay& display) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(file, error);
  if (status.type() == std::filesystem::file_type::not_found) return {};
  try {
    if (exists(status) && !is_regular_file(status)) throw std::runtime_error("not a regular file");
    const std::string text = ReadWholeFile(file, kLargestList);
    if (text.find('\0') != std::string::npos) throw std::runtime_error("not a text file");
    return TWantedNames(text);
  } catch (const ERangeError&) {
    display.AddStatusLine(file.filename().string() + " - not used: too large");
  } catch (const std::exception& failure) {
    display.AddStatusLine(file.filename().string() + " - not used: " + ReasonOf(failure));
  }
  return {};
}

bool TWantedNames::Wants(std::string_view name) const {
  return names_.empty() || names_.contains(UpperCase(name));
}

}  // namespace skyreel
