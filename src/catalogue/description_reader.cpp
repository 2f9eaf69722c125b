#include "catalogue/description_reader.h"

#define TOML_EXCEPTIONS 0
#include <toml++/toml.h>

#include <algorithm>
#include <set>
#include <utility>

#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"
#include "catalogue/address.h"
#include "catalogue/description_rules.h"
#include "catalogue/matcher.h"
#include "catalogue/words.h"

namespace skyreel {

namespace {

using TSpan = TDateTime::TSpan;

constexpr std::int64_t kFormat = 1;
constexpr std::size_t kLargestFile = 64'000;
constexpr const char* kTooLarge = "larger than 64 KB";
constexpr std::size_t kMostValues = 1'000;
constexpr std::size_t kMostAlternates = 20;
constexpr const char* kDuration = "a duration such as \"1d6h\"";
constexpr const char* kSize = "a size such as \"60KB\"";
constexpr const char* kSignedDuration = "a duration such as \"+14m59s\" or \"-1m\"";

using TPlace = toml::source_position;

/// The problems of one file.
class TReport {
 public:
  explicit TReport(std::string file) : file_(std::move(file)) {}

  void Add(TPlace at, std::string text) { problems_.push_back({file_, at.line, at.column, std::move(text)}); }
  std::size_t Count() const { return problems_.size(); }
  std::vector<TProblem> Take() {
    std::ranges::stable_sort(problems_, {}, [](const TProblem& p) { return std::pair(p.Line, p.Column); });
    return std::move(problems_);
  }

 private:
  const std::string file_;
  std::vector<TProblem> problems_;
};

std::string Quoted(std::string_view text) {
  return "'" + std::string(text) + "'";
}

template <typename T>
constexpr const char* kTypeName = "a text";
template <>
constexpr const char* kTypeName<std::int64_t> = "a whole number";
template <>
constexpr const char* kTypeName<bool> = "true or false";
template <>
constexpr const char* kTypeName<toml::date> = "a date such as 2026-11-26";
template <>
constexpr const char* kTypeName<toml::date_time> = "a date and time such as 2026-11-26T00:00:00Z";
template <>
constexpr const char* kTypeName<toml::array> = "a list";
template <>
constexpr const char* kTypeName<toml::table> = "a table";

/// The place of a byte of a text; the text's beginning where escapes or line ends make that uncertain.
TPlace PlaceIn(const toml::value<std::string>& text, std::size_t offset) {
  const toml::source_region& region = text.source();
  TPlace place = region.begin;
  const bool as_written = region.end.line == region.begin.line &&
                          region.end.column - region.begin.column == Utf8Length(text.get()) + 2;
  if (as_written) {
    place.column +=
        static_cast<toml::source_index>(1 + Utf8Length(std::string_view(text.get()).substr(0, offset)));
  }
  return place;
}

/// One table of the file. Done() reports the words that nobody asked for.
class TWords {
 public:
  TWords(TReport& report, const toml::table& table, std::string name)
      : report_(report), table_(table), name_(std::move(name)) {}

  TReport& Report() const { return report_; }
  const toml::table& Table() const { return table_; }
  /// "[get]", or "" for the head of the file.
  const std::string& Name() const { return name_; }

  /// The word's value, null when it is not there.
  const toml::node* Find(std::string_view word) {
    known_.insert(std::string(word));
    return table_.get(word);
  }
  bool Known(std::string_view word) const { return known_.contains(std::string(word)); }
  /// The place of the word, of the table when it is not there.
  TPlace Place(std::string_view word) const {
    const auto found = table_.find(word);
    return found == table_.end() ? Place() : found->first.source().begin;
  }
  TPlace Place() const { return name_.empty() ? TPlace{1, 1} : table_.source().begin; }

  void Problem(std::string_view word, const std::string& text) { report_.Add(Place(word), text); }

  /// The word's value as T; null when it is not there or of another type.
  template <typename T>
  auto* Get(std::string_view word) {
    const toml::node* const node = Find(word);
    const auto* const value = node ? node->as<T>() : nullptr;
    if (node && !value) report_.Add(node->source().begin, Quoted(word) + " must be " + kTypeName<T>);
    if constexpr (std::is_same_v<T, std::string>) {
      if (value && HasControlCharacter(value->get())) {
        report_.Add(node->source().begin, Quoted(word) + " holds a control character");
        return static_cast<decltype(value)>(nullptr);
      }
    }
    return value;
  }

  /// Takes a value of the type of `target`.
  template <typename T>
  void Take(std::string_view word, T& target) {
    if (const auto* const value = Get<T>(word)) target = value->get();
  }
  template <typename T>
  void Take(std::string_view word, std::optional<T>& target) {
    if (const auto* const value = Get<T>(word)) target = value->get();
  }
  /// Takes a text that `parse` understands. `expected` says what that is.
  template <typename TParse, typename T>
  void Take(std::string_view word, TParse parse, const char* expected, T& target) {
    const auto* const value = Get<std::string>(word);
    if (!value) return;
    if (auto parsed = parse(value->get())) {
      target = *parsed;
    } else {
      report_.Add(value->source().begin, Quoted(word) + " must be " + expected);
    }
  }
  /// Takes a whole number from `least` to `most`.
  template <typename T>
  void TakeNumber(std::string_view word, std::int64_t least, std::int64_t most, T& target) {
    const auto* const value = Get<std::int64_t>(word);
    if (!value) return;
    if (value->get() >= least && value->get() <= most) {
      target = static_cast<int>(value->get());
    } else {
      report_.Add(value->source().begin,
                  Quoted(word) + " must be from " + std::to_string(least) + " to " + std::to_string(most));
    }
  }

  /// Reports that the word is missing or empty.
  void Require(std::initializer_list<std::string_view> words) {
    for (const std::string_view word : words) {
      const toml::node* const node = Find(word);
      if (!node) report_.Add(Place(), (name_.empty() ? "" : name_ + " ") + Quoted(word) + " is missing");
      if (const auto* const text = node ? node->as_string() : nullptr; text && text->get().empty()) {
        report_.Add(node->source().begin, Quoted(word) + " is empty");
      }
    }
  }

  void Done() {
    for (auto&& [key, node] : table_) {
      if (Known(key.str())) continue;
      report_.Add(key.source().begin,
                  "unknown word " + Quoted(key.str()) + (name_.empty() ? "" : " in " + name_));
    }
  }

  /// The keys and values in the order of the file.
  std::vector<std::pair<const toml::key*, const toml::node*>> InOrder() const {
    std::vector<std::pair<const toml::key*, const toml::node*>> items;
    for (auto&& [key, node] : table_) items.emplace_back(&key, &node);
    std::ranges::sort(items, {}, [](const auto& item) {
      return std::pair(item.first->source().begin.line, item.first->source().begin.column);
    });
    return items;
  }

 private:
  TReport& report_;
  const toml::table& table_;
  const std::string name_;
  std::set<std::string> known_;
};

/// Nothing for a date that TDateTime does not know, such as one of the year 0.
std::optional<TDateTime> TimeOf(const toml::date& date, const toml::time& time) {
  try {
    return TDateTime::FromDate(date.year, date.month, date.day, time.hour, time.minute, time.second);
  } catch (const EConvertError&) {
    return std::nullopt;
  }
}

/// Reports what toml++ cannot bear outside of texts and comments: it recurses once for each part of a dotted
/// key, without a limit, and some characters that are not ASCII end in undefined behaviour. False when it
/// did.
bool CheckKeys(std::string_view text, TReport& report) {
  constexpr std::size_t kMostDots = 1'000;
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  std::size_t dots = 0;
  for (std::size_t i = text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '#') {
      i = std::min(text.find('\n', i), text.size());
    } else if (c == '"' || c == '\'') {
      const std::string_view quote = text.substr(i, text.substr(i, 3) == std::string(3, c) ? 3 : 1);
      const bool long_text = quote.size() == 3;
      i += quote.size();
      // The parser reports a text that does not end.
      while (i < text.size() && text.substr(i, quote.size()) != quote && (long_text || text[i] != '\n')) {
        i += c == '"' && text[i] == '\\' ? 2 : 1;
      }
      i += quote.size() - 1;
      // A long text may end with quotes of its own.
      while (long_text && i + 1 < text.size() && text[i + 1] == c) ++i;
    } else if ((c & 0x80) != 0 || (c == '.' && ++dots > kMostDots)) {
      const std::string_view before = text.substr(0, i);
      const std::size_t line = before.rfind('\n') + 1;  // 0 in the first line
      report.Add(
          {static_cast<toml::source_index>(std::ranges::count(before, '\n') + 1),
           static_cast<toml::source_index>(Utf8Length(before.substr(line)) + 1)},
          c == '.' ? "more than 1,000 dots in keys" : "only texts and comments may hold such a character");
      return false;
    }
  }
  return true;
}

/// Reads one file, whose TOML is sound.
class TReader {
 public:
  TReader(TReport& report, const toml::table& root) : report_(report), root_(report, root, "") {}

  TDescription Read() {
    ReadHead();
    if (newer_) return std::move(result_);
    const std::size_t before = report_.Count();
    ReadTime();
    ReadVariables();
    ReadAliases();
    names_are_sound_ = report_.Count() == before;
    ReadWays();
    CheckTime();
    ReadKeep();
    ReadPage();
    root_.Done();
    return std::move(result_);
  }

 private:
  using TValue = toml::value<std::string>;

  /// The table that a word of `words` holds, with what to do with it.
  template <typename TRead>
  void InTable(TWords& words, std::string_view word, const std::string& name, TRead read) {
    const auto* const table = words.Get<toml::table>(word);
    if (!table) return;
    TWords inner(report_, *table, name);
    read(inner);
    inner.Done();
  }

  void ReadHead() {
    root_.Require({"format"});
    std::int64_t format = kFormat;
    root_.Take("format", format);
    newer_ = format > kFormat;
    if (newer_) return root_.Problem("format", "this file needs a newer Skyreel");
    root_.Require({"id", "title", "licence"});
    if (format < kFormat) root_.Problem("format", "'format' must be 1");
    root_.Take(
        "id", [](const std::string& id) { return IsSourceId(id) ? std::optional(id) : std::nullopt; },
        "a reverse domain name of letters, digits, dots and hyphens", result_.Id);
    root_.Take("title", result_.Title);
    root_.Take("provider", result_.Provider);
    root_.Take(
        "home",
        [](const std::string& home) {
          return AddressProblem(home).empty() ? std::optional(home) : std::nullopt;
        },
        "an address such as \"https://example.org/\"", result_.Home);
    root_.Take("group", result_.Group);
    root_.Take("revision", result_.Revision);
    if (result_.Revision < 0) root_.Problem("revision", "'revision' must not be negative");
    if (const auto* const date = root_.Get<toml::date>("checked")) {
      result_.Checked = TimeOf(date->get(), {});
      if (!result_.Checked)
        report_.Add(date->source().begin, "'checked' must be a date of the years 1 to 9999");
    }
    ReadLicence(root_, result_.Licence);
  }

  void ReadLicence(TWords& words, TLicence& licence) {
    InTable(words, "licence", "licence", [&](TWords& inner) {
      inner.Require({"name", "use"});
      inner.Take("name", licence.Name);
      licence.Credit = result_.Provider;
      inner.Take("credit", licence.Credit);
      inner.Take("use", ParseUse, "\"any\", \"personal\" or \"ask\"", licence.Use);
    });
  }

  void ReadTime() {
    InTable(root_, "time", "[time]", [&](TWords& words) {
      TTimeRules& time = result_.Time;
      const std::size_t before = report_.Count();
      words.Take("every", ParseDuration, kDuration, time.Every);
      words.Take("offset", ParseDuration, kDuration, time.Offset);
      words.Take("zone", ParseZone, "\"UTC\" or from \"-12:00\" to \"+14:00\"", time.Zone);
      words.Take("delay", ParseDuration, kDuration, time.Delay);
      words.Take("grace", ParseDuration, kDuration, time.Grace);
      words.TakeNumber("walk_back", 0, 1'000, time.WalkBack);
      words.Take("kept", ParseDuration, kDuration, time.Kept);
      words.Take("stale", ParseDuration, kDuration, time.Stale);
      time_is_sound_ = report_.Count() == before;
      if (time.Every && (time.Every->count() == 0 || std::chrono::days(1) % *time.Every != TSpan(0))) {
        words.Problem("every", "'every' must divide a day: \"10m\", \"6h\", \"1d\"");
        time_is_sound_ = false;
      } else if (time.Every && time.Offset >= *time.Every) {
        words.Problem("offset", "'offset' must be below 'every'");
      }
      if (time.Every && !time.Stale) time.Stale = *time.Every * 3 + time.Delay;
      every_place_ = words.Place("every");
      grace_place_ = words.Place(words.Find("grace") ? "grace" : "every");
      ReadTimes(words);
    });
  }

  void ReadTimes(TWords& time) {
    const auto* const table = time.Get<toml::table>("times");
    if (!table) return;
    TWords words(report_, *table, "times");
    for (const auto& [key, node] : words.InOrder()) {
      ClaimName(*key);
      result_.Times.push_back({std::string(key->str()), TSpan(0)});
      words.Take(key->str(), ParseSignedDuration, kSignedDuration, result_.Times.back().Later);
    }
  }

  /// Takes the name of a new variable, alias or time; reports one that may not be used.
  void ClaimName(const toml::key& key) {
    if (NameIsFree(key)) names_.insert(std::string(key.str()));
  }
  bool NameIsFree(const toml::key& key) {
    const std::string name(key.str());
    if (!IsFieldName(name)) {
      report_.Add(key.source().begin, Quoted(name) + " is no name: letters, digits and '_', a letter first");
    } else if (name == "found" || name == "x" || name == "y") {
      report_.Add(key.source().begin, "the name " + Quoted(name) + " has a meaning of its own");
    } else if (names_.contains(name)) {
      report_.Add(key.source().begin, "the name " + Quoted(name) + " is defined twice");
    } else {
      return true;
    }
    return false;
  }

  void ReadVariables() {
    const auto* const vary = root_.Get<toml::table>("vary");
    if (!vary) return;
    TWords all(report_, *vary, "[vary]");
    for (const auto& [key, node] : all.InOrder()) {
      ClaimName(*key);
      InTable(all, key->str(), "[vary." + std::string(key->str()) + "]",
              [&, name = key->str()](TWords& words) {
                TVariable variable;
                variable.Name = variable.Title = name;
                ReadVariable(words, variable);
                result_.Variables.push_back(std::move(variable));
              });
    }
    if (CountCombinations(result_) > kMostCombinations) {
      root_.Problem("vary", "more than 100,000 combinations of values");
    }
  }

  void ReadVariable(TWords& words, TVariable& variable) {
    words.Require({"values"});
    words.Take("title", variable.Title);
    words.Take("many", variable.Many);
    words.Take("control", variable.Control);
    if (!variable.Control.empty() && !root_.Find("page")) words.Problem("control", "'control' needs [page]");
    const auto* const values = words.Get<toml::array>("values");
    if (values && values->empty()) report_.Add(values->source().begin, "'values' is empty");
    if (values && values->size() > kMostValues) {
      report_.Add(values->source().begin, "a variable has at most 1,000 values");
    } else if (values) {
      ReadRows(*values, variable);
    }
    if (variable.Rows.empty()) variable.Rows.emplace_back().Value = "x";
    variable.Default = {0};
    const toml::node* const chosen = words.Find("default");
    if (!chosen) return;
    if (const auto* const text = chosen->as_string(); text && text->get() == "all") {
      variable.Default.resize(variable.Rows.size());
      for (std::size_t i = 0; i < variable.Default.size(); ++i) variable.Default[i] = i;
    } else if (const auto* const list = chosen->as_array()) {
      variable.Default = RowsOf(*list, variable);
    } else {
      report_.Add(chosen->source().begin, "'default' must be a list of values or \"all\"");
    }
    if (!variable.Many && variable.Default.size() != 1) {
      report_.Add(chosen->source().begin, "'default' must be one value, since 'many' is false");
    }
  }

  void ReadRows(const toml::array& values, TVariable& variable) {
    std::set<std::string> seen;
    for (const toml::node& node : values) {
      TRow row;
      std::vector<std::string> columns;
      if (const auto* const text = node.as_string()) {
        row.Value = row.Label = text->get();
        if (HasControlCharacter(row.Value))
          report_.Add(node.source().begin, "a value holds a control character");
      } else if (const auto* const table = node.as_table()) {
        TWords words(report_, *table, "a row");
        words.Require({"value"});
        words.Take("value", row.Value);
        row.Label = row.Value;
        words.Take("label", row.Label);
        words.Take("at", ParseTimeOfDay, "a time of the day such as \"0300\"", row.At);
        CheckSlotOfDay(words, row);
        for (auto&& [key, column] : *table) {
          if (words.Known(key.str())) continue;
          if (!IsFieldName(key.str())) {
            report_.Add(key.source().begin,
                        Quoted(key.str()) + " is no name: letters, digits and '_', a letter first");
          }
          columns.emplace_back(key.str());
          words.Take(key.str(), row.Columns.emplace_back());
        }
      } else {
        report_.Add(node.source().begin,
                    "a value must be a text or a row such as { value = \"13\", label = \"Infra-red\" }");
        continue;
      }
      if (!seen.insert(LowerCase(row.Value)).second) {
        report_.Add(node.source().begin, "the value " + Quoted(row.Value) + " stands here twice");
      }
      if (variable.Rows.empty()) variable.Columns = columns;
      if (columns != variable.Columns) {
        report_.Add(node.source().begin, "this row has other columns than the first row");
        row.Columns.resize(variable.Columns.size());
      }
      variable.Rows.push_back(std::move(row));
    }
  }

  void CheckSlotOfDay(TWords& words, const TRow& row) {
    const TTimeRules& time = result_.Time;
    if (row.At && time_is_sound_ && time.Every && (*row.At - time.Offset) % *time.Every != TSpan(0)) {
      words.Problem("at", "there is no slot at this time of the day");
    }
  }

  /// The rows that a list of values means, ascending. Reports what is not a value.
  std::vector<std::size_t> RowsOf(const toml::array& values, const TVariable& variable) {
    std::set<std::size_t> rows;
    for (const toml::node& node : values) {
      const auto* const text = node.as_string();
      const auto row =
          text ? std::ranges::find(variable.Rows, text->get(), &TRow::Value) : variable.Rows.end();
      if (row == variable.Rows.end()) {
        report_.Add(node.source().begin,
                    text ? "the variable " + Quoted(variable.Name) + " has no value " + Quoted(text->get())
                         : "a value must be a text");
      } else if (!rows.insert(static_cast<std::size_t>(row - variable.Rows.begin())).second) {
        report_.Add(node.source().begin, "the value " + Quoted(text->get()) + " stands here twice");
      }
    }
    return {rows.begin(), rows.end()};
  }

  void ReadAliases() {
    const auto* const table = root_.Get<toml::table>("alias");
    if (!table) return;
    TWords words(report_, *table, "[alias]");
    for (const auto& [key, node] : words.InOrder()) {
      ClaimName(*key);
      TAlias alias;
      alias.Name = key->str();
      const auto* const rows = words.Get<toml::array>(key->str());
      if (rows && (rows->empty() || rows->size() > kMostValues)) {
        report_.Add(rows->source().begin, "an alias has 1 to 1,000 rows");
      } else if (rows) {
        for (const toml::node& row : *rows) alias.Rows.push_back(ReadAliasRow(row, alias.Rows.empty()));
      }
      if (alias.Rows.empty()) alias.Rows.emplace_back().Value = "x";
      result_.Aliases.push_back(std::move(alias));
    }
  }

  TAliasRow ReadAliasRow(const toml::node& node, bool first) {
    TAliasRow row;
    const auto* const table = node.as_table();
    if (!table) {
      report_.Add(node.source().begin,
                  "an alias has rows such as { value = \"19\", from = 2025-04-07T00:00:00Z }");
      return row;
    }
    TWords words(report_, *table, "a row");
    words.Require({"value"});
    words.Take("value", row.Value);
    if (const auto* const from = words.Get<toml::date_time>("from")) row.From = UtcOf(*from);
    if (first == (words.Find("from") != nullptr)) {
      report_.Add(node.source().begin, first ? "the first row has no 'from'" : "this row needs 'from'");
    }
    words.Done();
    return row;
  }

  std::optional<TDateTime> UtcOf(const toml::value<toml::date_time>& value) {
    const toml::date_time& from = value.get();
    const auto time = TimeOf(from.date, from.time);
    if (time && from.offset) return *time - std::chrono::minutes(from.offset->minutes);
    report_.Add(value.source().begin, "'from' must be a date and time with 'Z' or an offset");
    return std::nullopt;
  }

  /// Reads a text with fields. False when the word is not there.
  bool TakeFields(TWords& words, std::string_view word, const TFieldNames& names, TFieldText& target) {
    const auto* const text = words.Get<std::string>(word);
    if (text) target = Fields(*text, names);
    return text != nullptr;
  }
  TFieldText Fields(const TValue& text, const TFieldNames& names) {
    return ParseFieldText(text.get(), names, [&](std::size_t offset, const std::string& problem) {
      report_.Add(PlaceIn(text, offset), problem);
    });
  }

  void ReadWays() {
    const auto* const get = root_.Get<toml::table>("get");
    if (!root_.Find("get")) report_.Add({1, 1}, "[get] is missing");
    if (get) {
      TWords words(report_, *get, "[get]");
      ReadWay(words, root_, "[tiles]", "[find]");
      words.Done();
    }
    const auto* const alternates = root_.Get<toml::array>("alternate");
    if (!alternates || !get) return;
    if (alternates->size() > kMostAlternates) return root_.Problem("alternate", "more than 20 alternates");
    for (const toml::node& node : *alternates) {
      if (const auto* const table = node.as_table()) {
        TWords words(report_, *table, "[[alternate]]");
        ReadWay(words, words, "tiles", "find");
        ReadAlternate(words);
        words.Done();
      } else {
        report_.Add(node.source().begin, "an alternate must be a table, [[alternate]]");
      }
    }
  }

  /// Reads the words of [get]. `around` is the table that holds the way's tiles and find.
  void ReadWay(TWords& words, TWords& around, const std::string& tiles, const std::string& find) {
    TWay& way = result_.Ways.emplace_back();
    words.Require({"url", "type"});
    words.Take("type", ParseFileType,
               "image/jpeg, image/png, image/gif, image/tiff, application/x-tar, application/x-netcdf, "
               "application/x-hdf5 or application/pdf",
               way.Type);
    words.Take("min_size", ParseSize, kSize, way.MinSize);
    words.Take("max_size", ParseSize, kSize, way.MaxSize);
    words.Take("typical", ParseSize, kSize, way.TypicalSize);
    if (way.MaxSize && *way.MaxSize < way.MinSize)
      words.Problem("max_size", "'max_size' is below 'min_size'");
    InTable(words, "modified", "modified", [&](TWords& inner) {
      inner.Require({"after", "before"});
      TModified& modified = way.Modified.emplace();
      inner.Take("after", ParseSignedDuration, kSignedDuration, modified.After);
      inner.Take("before", ParseSignedDuration, kSignedDuration, modified.Before);
      if (modified.After > modified.Before) inner.Problem("after", "'after' is later than 'before'");
    });
    if (const auto* const blank = words.Get<toml::array>("blank")) {
      for (const toml::node& node : *blank) {
        const auto* const size = node.as_integer();
        if (size && size->get() > 0) {
          way.Blank.push_back(size->get());
        } else {
          report_.Add(node.source().begin, "'blank' must be a list of sizes in bytes");
        }
      }
    }
    words.Take("optional", way.Optional);
    words.Take("gap", ParseDuration, kDuration, way.Gap);
    InTable(around, "tiles", tiles, [&](TWords& inner) { ReadTiles(inner, way.Tiles.emplace()); });
    // What is read must be known before the address, and the address before the default of match.
    InTable(around, "find", find, [&](TWords& inner) {
      ReadFind(inner, way.Find.emplace());
      ReadUrl(words, way);
      ReadMatch(inner, words, way);
    });
    if (!way.Find) ReadUrl(words, way);
  }

  void ReadUrl(TWords& words, TWay& way) {
    const TFind* const find = way.Find ? &*way.Find : nullptr;
    const std::size_t before = report_.Count();
    TakeAddress(words, {result_, find, true, way.Tiles.has_value(), false}, way.Url);
    urls_are_sound_ = urls_are_sound_ && report_.Count() == before;
  }

  /// Takes "url", an address with fields.
  void TakeAddress(TWords& words, const TFieldNames& names, TFieldText& target) {
    if (!TakeFields(words, "url", names, target)) return;
    // A faulty variable says nothing of the scheme.
    if (!names_are_sound_ && !target.Empty() && target.Parts.front().Kind != TFieldText::TKind::Plain) return;
    const std::string problem = AddressStartProblem(result_, target);
    if (!problem.empty()) report_.Add(words.Find("url")->source().begin, problem);
  }

  void ReadTiles(TWords& words, TTiles& tiles) {
    words.Require({"columns", "rows"});
    TakeTileNumber(words, "columns", 1, kMostTiles, tiles.Columns);
    TakeTileNumber(words, "rows", 1, kMostTiles, tiles.Rows);
    TakeTileNumber(words, "x", 0, kLargestTile, tiles.X);
    TakeTileNumber(words, "y", 0, kLargestTile, tiles.Y);
    words.TakeNumber("digits", 1, 9, tiles.Digits);
  }

  /// Takes a number, or a text that fills to one for every combination.
  void TakeTileNumber(TWords& words, std::string_view word, int least, int most, TFieldText& target) {
    target.Parts.emplace_back().Text = std::to_string(least);
    const toml::node* const node = words.Find(word);
    if (!node) return;
    const std::size_t before = report_.Count();
    if (node->is_integer()) {
      target.Parts.front().Text = std::to_string(node->as_integer()->get());
    } else if (const auto* const text = node->as_string()) {
      TFieldNames names{result_};
      names.Times = false;
      target = Fields(*text, names);
    } else {
      report_.Add(node->source().begin, Quoted(word) + " must be a number or a text");
    }
    if (node->is_string() && (!names_are_sound_ || report_.Count() != before)) return;
    const std::string problem = NumberProblem(result_, target, least, most);
    if (!problem.empty()) report_.Add(node->source().begin, Quoted(word) + problem);
  }

  void ReadFind(TWords& words, TFind& find) {
    words.Require({"kind", "url"});
    words.Take("kind", ParseFindKind, "\"listing\", \"json\", \"s3\" or \"wms-time\"", find.Kind);
    const TFieldNames names{result_};
    TakeAddress(words, names, find.Url);
    words.TakeNumber("above", 0, 1'000'000, find.Above);
    if (find.Above > 0 && !result_.Time.Every && time_is_sound_)
      words.Problem("above", "'above' needs [time] every");
    OnlyFor(words, find.Kind == TFind::TKind::S3, "prefix", "s3");
    TakeFields(words, "prefix", names, find.Prefix);
    if (OnlyFor(words, find.Kind == TFind::TKind::WmsTime, "layer", "wms-time")) words.Require({"layer"});
    TakeFields(words, "layer", names, find.Layer);
    const bool json = OnlyFor(words, find.Kind == TFind::TKind::Json, "at", "json");
    if (json) words.Require({"at", "match"});
    if (TakeFields(words, "at", names, find.At)) CheckPointer(words, "at", true);
    const toml::node* const at = words.Find("at");
    const bool star = at && at->is_string() && at->as_string()->get().find('*') != std::string::npos;
    find.EachEntry = !json || star;
    OnlyFor(words, json, "read", "json");
    const auto* const read = words.Get<toml::table>("read");
    if (!read) return;
    TWords reads(report_, *read, "read");
    for (const auto& [key, node] : reads.InOrder()) {
      if (!NameIsFree(*key)) continue;
      TRead& item = find.Read.emplace_back();
      item.Name = key->str();
      if (!TakeFields(reads, key->str(), names, item.Pointer)) continue;
      CheckPointer(reads, key->str(), star);
    }
  }

  /// Reports a word that this kind of find does not take.
  bool OnlyFor(TWords& words, bool fits, std::string_view word, std::string_view kind) {
    if (!fits && words.Table().contains(word)) {
      words.Problem(word, Quoted(word) + " is for the kind \"" + std::string(kind) + "\" alone");
    }
    return fits;
  }

  void CheckPointer(TWords& words, std::string_view word, bool may_have_star) {
    const TValue& value = *words.Get<std::string>(word);
    const std::string& text = value.get();
    if (!text.starts_with('/')) report_.Add(value.source().begin, Quoted(word) + " must begin with \"/\"");
    if (!may_have_star && text.find('*') != std::string::npos) {
      report_.Add(value.source().begin, Quoted(word) + " has a '*' and 'at' has none");
    }
  }

  void ReadMatch(TWords& words, TWords& get, TWay& way) {
    TFind& find = *way.Find;
    TPlace place = words.Place("match");
    if (find.Kind == TFind::TKind::WmsTime) {
      if (words.Find("match")) report_.Add(place, "'match' is not for the kind \"wms-time\"");
      return;
    }
    const std::size_t before = report_.Count();
    const TFieldNames names{result_, nullptr, true, false, true};
    const bool given = words.Find("match") != nullptr;
    if (!TakeFields(words, "match", names, find.Match)) {
      if (given || find.Kind == TFind::TKind::Json || way.Url.Empty()) return;
      find.Match = LastPart(way.Url);
      find.MatchIsAddress = true;
      place = get.Place("url");
    }
    if (report_.Count() != before || way.IsFixedName()) return;
    if (find.MatchIsAddress && (find.Match.NeedsFound() || find.Match.Has(TFieldText::TKind::TileX) ||
                                find.Match.Has(TFieldText::TKind::TileY))) {
      report_.Add(place, "'match' is missing, and the last part of 'url' cannot stand for it");
    } else if (!TMatcher::DatedTime(find.Match)) {
      report_.Add(place, find.MatchIsAddress ? "'match' is missing, and the last part of 'url' holds no date"
                                             : "the time in 'match' must hold a date");
    }
  }

  void ReadAlternate(TWords& words) {
    TWay& way = result_.Ways.back();
    words.Take("title", way.Title);
    if (words.Find("licence")) ReadLicence(words, way.Licence.emplace());
    const auto* const only = words.Get<toml::table>("only");
    if (!only) return;
    way.Only.resize(result_.Variables.size());
    TWords table(report_, *only, "only");
    for (const auto& [key, node] : table.InOrder()) {
      const auto variable = std::ranges::find(result_.Variables, key->str(), &TVariable::Name);
      if (variable == result_.Variables.end()) {
        report_.Add(key->source().begin, "there is no variable " + Quoted(key->str()));
      } else if (const auto* const values = table.Get<toml::array>(key->str())) {
        if (values->empty()) report_.Add(node->source().begin, "this way serves no value");
        way.Only[static_cast<std::size_t>(variable - result_.Variables.begin())] = RowsOf(*values, *variable);
      }
    }
  }

  /// The rules of [time] that depend on the ways.
  void CheckTime() {
    if (result_.Ways.empty() || result_.Get().Url.Empty() || !time_is_sound_ || !urls_are_sound_) return;
    const TTimeRules& time = result_.Time;
    const bool fixed = result_.IsFixedName();
    const bool listed =
        std::ranges::any_of(result_.Ways, [](const TWay& way) { return way.Find.has_value(); });
    if (!time.Every && !fixed && !listed) {
      report_.Add(every_place_, "[time] 'every' is missing: neither a list nor a fixed name gives the slots");
    }
    if (time.Every && fixed && time.Grace >= *time.Every) {
      report_.Add(grace_place_,
                  "for a fixed name 'grace' (" + DurationText(time.Grace) + ") must be below 'every'");
    }
  }

  void ReadKeep() {
    if (!root_.Find("keep")) report_.Add({1, 1}, "[keep] is missing");
    InTable(root_, "keep", "[keep]", [&](TWords& words) {
      words.Require({"name"});
      const std::size_t before = report_.Count();
      const TFieldNames names{result_};
      TKeep& keep = result_.Keep;
      TakeFields(words, "folder", names, keep.Folder);
      TakeFields(words, "name", names, keep.Name);
      words.TakeNumber("days", 1, 36'500, keep.Days);
      if (keep.Name.Empty()) return;
      const std::string folder = FolderProblem(result_), name = NameProblem(result_);
      if (!folder.empty()) words.Problem("folder", folder);
      if (!name.empty()) words.Problem("name", name);
      if (report_.Count() != before || !names_are_sound_) return;
      for (const std::string& problem : {time_is_sound_ ? SlotsProblem(result_) : "",
                                         CombinationsProblem(result_), FormatProblem(result_)}) {
        if (!problem.empty()) words.Problem("name", problem);
      }
    });
  }

  void ReadPage() {
    InTable(root_, "page", "[page]", [&](TWords& words) {
      TPageBinding& page = result_.Page.emplace();
      words.Require({"tab"});
      words.Take("tab", page.Tab);
      words.Take("output", page.Output);
    });
  }

  TReport& report_;
  TWords root_;
  TDescription result_;
  std::set<std::string> names_;
  TPlace every_place_{1, 1}, grace_place_{1, 1};
  bool newer_ = false;
  bool time_is_sound_ = true;
  bool names_are_sound_ = true;
  bool urls_are_sound_ = true;
};

}  // namespace

TReadDescription ReadDescription(std::string_view text, const std::string& file) {
  TReadDescription read;
  TReport report(file);
  if (text.size() > kLargestFile) {
    read.Problems = {{file, 0, 0, kTooLarge}};
    return read;
  }
  if (!CheckKeys(text, report)) {
    read.Problems = report.Take();
    return read;
  }
  const toml::parse_result parsed = toml::parse(text);
  if (!parsed) {
    const std::string_view problem = parsed.error().description();
    report.Add(parsed.error().source().begin, std::string(problem.substr(0, problem.find(" (TOML_"))));
    read.Problems = report.Take();
    return read;
  }
  TDescription description = TReader(report, parsed.table()).Read();
  read.Id = description.Id;
  read.Title = description.Title;
  read.Problems = report.Take();
  if (read.Problems.empty()) read.Description = std::move(description);
  return read;
}

TReadDescription ReadDescriptionFile(const std::filesystem::path& file) {
  std::string problem;
  try {
    return ReadDescription(ReadWholeFile(file, kLargestFile), file.string());
  } catch (const ERangeError&) {
    problem = kTooLarge;
  } catch (const std::exception& error) {
    problem = ReasonOf(error);
  }
  TReadDescription read;
  read.Problems = {{file.string(), 0, 0, problem}};
  return read;
}

}  // namespace skyreel
