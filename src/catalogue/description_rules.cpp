#include "catalogue/description_rules.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "base/text.h"
#include "catalogue/address.h"
#include "catalogue/combinations.h"
#include "catalogue/matcher.h"

namespace skyreel {

namespace {

using namespace std::chrono_literals;
using TKind = TFieldText::TKind;

std::vector<std::size_t> AllRows(const TVariable& variable) {
  std::vector<std::size_t> rows(variable.Rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) rows[i] = i;
  return rows;
}

/// Calls `check` with each combination of the variables that `text` uses, at each time when its aliases
/// change, until one has a problem. Returns that problem. The other variables have their first value.
std::string FirstProblem(const TDescription& source, const TFieldText& text,
                         const std::function<std::string(const TFieldValues&)>& check) {
  std::vector<std::vector<std::size_t>> rows(source.Variables.size(), {0});
  for (const TFieldText::TPart& part : text.Parts) {
    if (part.Kind == TKind::Variable) rows[part.Index] = AllRows(source.Variables[part.Index]);
  }
  const std::vector<TDateTime> epochs = AliasEpochs(source, text);
  std::string problem;
  std::size_t left = kMostCombinations;
  ForEachCombination(rows, [&](const TCombination& combination) {
    for (const TDateTime epoch : epochs) {
      if (left-- == 0) problem = "more than 100,000 combinations of values and aliases";
      if (problem.empty()) problem = check({source, combination, epoch});
    }
    return problem.empty();
  });
  return problem;
}

bool FitsIntoName(std::string_view text) {
  return text.find_first_of("/\\:") == std::string_view::npos && !HasControlCharacter(text);
}

/// A value or a time of `text` that brings a character which no file name may have.
std::string UnfitProblem(const TDescription& source, const TFieldText& text, bool slash_is_fit) {
  const auto unfit = [](const std::string& what) {
    return "\"" + what + "\" has a character that does not fit into a file name";
  };
  for (const TFieldText::TPart& part : text.Parts) {
    if (part.Kind == TKind::Variable) {
      for (const TRow& row : source.Variables[part.Index].Rows) {
        const std::string& value = part.Column == 0 ? row.Value : row.Columns[part.Column - 1];
        if (!FitsIntoName(value)) return unfit(value);
      }
    } else if (part.Kind == TKind::Alias) {
      for (const TAliasRow& row : source.Aliases[part.Index].Rows) {
        if (!FitsIntoName(row.Value)) return unfit(row.Value);
      }
    } else if (part.Kind == TKind::Plain) {
      if (!FitsIntoName(slash_is_fit ? ReplaceAll(part.Text, "/", "") : part.Text)) return unfit(part.Text);
    }
  }
  return "";
}

std::string ExtensionOf(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? "" : LowerCase(std::string_view(name).substr(dot));
}

bool IsPicture(TFileType type) {
  return type == TFileType::Jpeg || type == TFileType::Png || type == TFileType::Gif ||
         type == TFileType::Tiff;
}

/// The extensions of each type, the usual one first.
constexpr std::pair<TFileType, const char*> kExtensions[] = {
    {TFileType::Jpeg, ".jpg"}, {TFileType::Jpeg, ".jpeg"}, {TFileType::Png, ".png"},
    {TFileType::Gif, ".gif"},  {TFileType::Tiff, ".tif"},  {TFileType::Tiff, ".tiff"},
    {TFileType::Tar, ".tar"},  {TFileType::NetCdf, ".nc"}, {TFileType::NetCdf, ".nc4"},
    {TFileType::Hdf5, ".h5"},  {TFileType::Hdf5, ".hdf5"}, {TFileType::Pdf, ".pdf"}};

/// Whether files of a type have this extension of their own.
bool HasExtension(TFileType type, const std::string& extension) {
  return std::ranges::any_of(
      kExtensions, [&](const auto& each) { return each.first == type && each.second == extension; });
}

std::string UsualExtension(const TWay& way) {
  if (way.Tiles) return ".jpg or .png";
  return std::ranges::find(kExtensions, way.Type, &std::pair<TFileType, const char*>::first)->second;
}

/// The paths of a source's combinations, and whether one of them can be the path of another.
class TPathsSeen {
 public:
  explicit TPathsSeen(const TFieldText& path) : path_(path) {}

  std::string Check(const TFieldValues& values) {
    constexpr char kTime = '\1';
    std::string exact, shape;
    for (const TFieldText::TPart& part : path_.Parts) {
      const std::string text = LowerCase(FillPart(part, values));
      exact += part.Kind == TKind::Time ? std::string(text.size(), kTime) : text;
      for (const char c : text) shape += IsDigit(c) ? '0' : IsLetterOrDigit(c) ? 'a' : c;
    }
    const bool first = seen_[*values.Slot].insert(exact).second;
    std::string times = exact;
    for (char& c : times) c = c == kTime ? c : ' ';
    const auto [other, fresh] = times_.emplace(shape, times);
    if (first && other->second == times) return "";
    return "two combinations of values can have the same folder and name, such as \"" + Fill(path_, values) +
           "\"";
  }

 private:
  const TFieldText& path_;
  std::map<TDateTime, std::unordered_set<std::string>> seen_;
  /// Where the times stand in paths with digits and letters in the same places. Paths whose times stand
  /// elsewhere can be the same for two slots: "{a}{%H}{b}" is 1122 for 1, 22 at 12 h and for 11, 2 at 22 h.
  std::unordered_map<std::string, std::string> times_;
};

TFieldText PathOf(const TKeep& keep) {
  TFieldText path = keep.Folder;
  path.Parts.emplace_back().Text = "/";
  path.Parts.insert(path.Parts.end(), keep.Name.Parts.begin(), keep.Name.Parts.end());
  return path;
}

/// A text that has the variables of all of the source.
TFieldText WithAllVariables(const TDescription& source, TFieldText text) {
  for (std::size_t i = 0; i < source.Variables.size(); ++i) {
    TFieldText::TPart& part = text.Parts.emplace_back();
    part.Kind = TKind::Variable;
    part.Index = i;
  }
  return text;
}

}  // namespace

std::size_t CountCombinations(const TDescription& source) {
  std::size_t count = 1;
  for (const TVariable& variable : source.Variables) {
    count = std::min(count * variable.Rows.size(), kMostCombinations + 1);
  }
  return count;
}

std::string AddressStartProblem(const TDescription& source, const TFieldText& url) {
  // The beginning up to the host's end, or to the first text of the server.
  TFieldText start;
  std::string plain;
  for (const TFieldText::TPart& part : url.Parts) {
    if (part.Kind == TKind::Found || part.Kind == TKind::Read) break;
    start.Parts.push_back(part);
    plain += part.Kind == TKind::Plain ? part.Text : "x";
    const std::size_t host = plain.find("://");
    if (host != std::string::npos && plain.find('/', host + 3) != std::string::npos) break;
  }
  if (start.Empty()) return url.Empty() ? "an address is empty" : "";
  return FirstProblem(source, start,
                      [&](const TFieldValues& values) { return FillAddress(start, values).Problem; });
}

std::string NumberProblem(const TDescription& source, const TFieldText& text, int least, int most) {
  return FirstProblem(source, text, [&](const TFieldValues& values) -> std::string {
    const std::string filled = Fill(text, values);
    const int number = ParseNumber<int>(filled).value_or(-1);
    if (number >= least && number <= most) return "";
    return " must be from " + std::to_string(least) + " to " + std::to_string(most) + ", not \"" + filled +
           "\"";
  });
}

std::string FolderProblem(const TDescription& source) {
  const TFieldText& folder = source.Keep.Folder;
  if (folder.Empty()) return "";
  if (std::string problem = UnfitProblem(source, folder, true); !problem.empty()) return problem;
  return FirstProblem(source, folder, [&](const TFieldValues& values) -> std::string {
    const std::string filled = Fill(folder, values) + "/";
    if (filled.starts_with('/') || filled.ends_with("//")) return "'folder' begins or ends with \"/\"";
    for (std::size_t at = 0; at < filled.size();) {
      const std::size_t slash = filled.find('/', at);
      const std::string part = filled.substr(at, slash - at);
      if (part == "..") return "the folder leaves the output folder";
      if (!IsSafeFileName(part)) return "\"" + part + "\" is no name for a folder";
      at = slash + 1;
    }
    return "";
  });
}

std::string NameProblem(const TDescription& source) {
  const TFieldText& name = source.Keep.Name;
  if (std::string problem = UnfitProblem(source, name, false); !problem.empty()) return problem;
  return FirstProblem(source, name, [&](const TFieldValues& values) -> std::string {
    const std::string filled = Fill(name, values);
    return IsSafeFileName(filled) ? "" : "\"" + filled + "\" is no name for a file";
  });
}

std::string SlotsProblem(const TDescription& source) {
  const std::string words = PathOf(source.Keep).TimeWords();
  const auto has = [&words](char word) { return words.find(word) != std::string::npos; };
  if (has('s')) return "";
  const bool once_a_day = std::ranges::any_of(source.Variables, [](const TVariable& variable) {
    return std::ranges::all_of(variable.Rows, [](const TRow& row) { return row.At.has_value(); });
  });
  const TDateTime::TSpan every = once_a_day ? 24h : source.Time.Every.value_or(1s);
  const auto finer_than = [every](TDateTime::TSpan span) { return every % span != TDateTime::TSpan(0); };
  const char* missing = !HoldsDate(words)               ? "date, such as {%Y%m%d}"
                        : finer_than(24h) && !has('H')  ? "hour, %H"
                        : finer_than(1h) && !has('M')   ? "minute, %M"
                        : finer_than(1min) && !has('S') ? "second, %S"
                                                        : nullptr;
  if (!missing) return "";
  return std::string("two slots have the same folder and name, since neither holds the ") + missing;
}

std::string CombinationsProblem(const TDescription& source) {
  const TFieldText path = PathOf(source.Keep);
  TPathsSeen seen(path);
  return FirstProblem(source, WithAllVariables(source, path),
                      [&seen](const TFieldValues& values) { return seen.Check(values); });
}

std::string FormatProblem(const TDescription& source) {
  std::set<std::pair<const TWay*, std::string>> sound;
  return FirstProblem(source, WithAllVariables(source, source.Keep.Name), [&](const TFieldValues& values) {
    const std::string extension = ExtensionOf(Fill(source.Keep.Name, values));
    for (const TWay& way : source.Ways) {
      if (!way.Serves(values.Rows) || !sound.insert({&way, extension}).second) continue;
      const bool anew = IsPicture(way.Type) && (extension == ".jpg" || extension == ".png");
      if (anew || (HasExtension(way.Type, extension) && !way.Tiles)) continue;
      if (extension.empty()) return "the name has no extension; add " + UsualExtension(way);
      return "the extension \"" + extension + "\" does not fit " +
             (way.Tiles ? "joined tiles, which are .jpg or .png" : "the type of the file");
    }
    return std::string();
  });
}

}  // namespace skyreel
