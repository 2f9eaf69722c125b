#include "catalogue/json_list.h"

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>

#include "base/text.h"

namespace skyreel {

namespace {

using TJson = nlohmann::json;

constexpr std::size_t kDeepest = 100;
constexpr std::size_t kMostTexts = 1'000'000;

/// A pointer, and what the document has there.
struct TPointer {
  explicit TPointer(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = std::min(text.find('/', at + 1), text.size());
      Parts.push_back(ReplaceAll(ReplaceAll(text.substr(at + 1, end - at - 1), "~1", "/"), "~0", "~"));
      at = end;
    }
    for (const std::string& part : Parts) Stars += part == "*" ? 1 : 0;
  }

  std::vector<std::string> Parts;
  std::size_t Stars = 0;
  bool IsThere = false;  ///< the text, or the array whose entries a "*" stands for
  /// By the numbers of the entries that the "*" stand for.
  std::map<std::vector<std::uint64_t>, std::string> Texts;
};

/// Keeps what stands at the pointers and nothing else of the document, which may be large.
class TCollector : public nlohmann::json_sax<TJson> {
 public:
  explicit TCollector(std::vector<TPointer>& pointers) : pointers_(pointers) {}
  std::string Error;

  bool null() override { return Next(); }
  bool boolean(bool) override { return Next(); }
  bool number_integer(number_integer_t value) override { return Text(std::to_string(value)); }
  bool number_unsigned(number_unsigned_t value) override { return Text(std::to_string(value)); }
  bool number_float(number_float_t, const string_t& digits) override { return Text(digits); }
  bool string(string_t& value) override { return Text(value); }
  bool binary(binary_t&) override { return Next(); }
  bool start_object(std::size_t) override { return Open(false); }
  bool start_array(std::size_t) override { return Open(true); }
  bool end_object() override { return Close(); }
  bool end_array() override { return Close(); }
  bool key(string_t& name) override {
    levels_.back().Key = name;
    return true;
  }
  bool parse_error(std::size_t position, const std::string&, const TJson::exception&) override {
    return Fail("the JSON document is damaged at byte " + std::to_string(position));
  }

 private:
  struct TLevel {
    bool IsArray = false;
    std::uint64_t Index = 0;
    std::string Key;
  };

  bool Fail(const std::string& error) {
    Error = error;
    return false;
  }
  /// Counts a value that has ended.
  bool Next() {
    if (!levels_.empty()) ++levels_.back().Index;
    return true;
  }
  bool Close() {
    levels_.pop_back();
    return Next();
  }
  bool Open(bool array) {
    if (levels_.size() == kDeepest) return Fail("the JSON document has more than 100 levels");
    for (TPointer& pointer : pointers_) {
      const std::size_t depth = levels_.size();
      if (array && depth < pointer.Parts.size() && pointer.Parts[depth] == "*" && IsAt(pointer, depth))
        pointer.IsThere = true;
    }
    levels_.push_back({array, 0, {}});
    return true;
  }
  bool IsAt(const TPointer& pointer, std::size_t depth) const {
    for (std::size_t i = 0; i < depth; ++i) {
      const std::string& part = pointer.Parts[i];
      const TLevel& level = levels_[i];
      if (level.IsArray ? part != "*" && part != std::to_string(level.Index) : part != level.Key)
        return false;
    }
    return true;
  }
  bool Text(std::string text) {
    for (TPointer& pointer : pointers_) {
      if (pointer.Parts.size() != levels_.size() || !IsAt(pointer, levels_.size())) continue;
      std::vector<std::uint64_t> entries;
      for (std::size_t i = 0; i < levels_.size(); ++i) {
        if (levels_[i].IsArray && pointer.Parts[i] == "*") entries.push_back(levels_[i].Index);
      }
      if (entries.size() != pointer.Stars) continue;  // an object has the key "*"
      if (++texts_ > kMostTexts) return Fail("the JSON document has too many entries");
      pointer.IsThere = true;
      pointer.Texts[std::move(entries)] = text;
    }
    return Next();
  }

  std::vector<TPointer>& pointers_;
  std::vector<TLevel> levels_;
  std::size_t texts_ = 0;
};

}  // namespace

std::vector<TJsonEntry> ReadJsonList(std::string_view document, std::string_view at,
                                     const std::vector<std::string>& read) {
  RefuseHtmlPage(document, "a JSON document");
  std::vector<TPointer> pointers = {TPointer(at)};
  for (const std::string& pointer : read) pointers.emplace_back(pointer);
  TCollector collector(pointers);
  if (!TJson::sax_parse(document, &collector)) throw EListError(collector.Error);
  const TPointer& times = pointers.front();
  if (!times.IsThere) throw EListError("the JSON document has no " + std::string(at));

  std::vector<TJsonEntry> found;
  for (const auto& [entries, time] : times.Texts) {
    TJsonEntry entry{time, {}};
    for (std::size_t i = 1; i < pointers.size() && pointers[i].Stars <= entries.size(); ++i) {
      const auto stars = entries.begin() + static_cast<std::ptrdiff_t>(pointers[i].Stars);
      const auto text = pointers[i].Texts.find({entries.begin(), stars});
      if (text == pointers[i].Texts.end()) break;
      entry.Read.push_back(text->second);
    }
    if (entry.Read.size() == read.size()) found.push_back(std::move(entry));
  }
  return found;
}

}  // namespace skyreel
