#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/date_time.h"
#include "catalogue/field_text.h"

namespace skyreel {

/// What is wrong in a description file.
struct TProblem {
  std::string File;
  unsigned Line = 0, Column = 0;  ///< counted from 1; 0 when the whole file is meant
  std::string Text;

  /// "file.toml:12:7: unknown word 'evry'"
  std::string Message() const;
};

struct TLicence {
  enum class TUse { Any, Personal, Ask };
  std::string Name;
  std::string Credit;  ///< shown under each picture
  TUse Use = TUse::Ask;
};

/// [time]. Spans are not negative.
struct TTimeRules {
  std::optional<TDateTime::TSpan> Every;  ///< divides a day; without it, slots are as they are found
  TDateTime::TSpan Offset{0};             ///< less than Every
  TDateTime::TSpan Zone{0};               ///< east of UTC
  TDateTime::TSpan Delay{0};
  TDateTime::TSpan Grace = std::chrono::hours(1);
  int WalkBack = 3;
  std::optional<TDateTime::TSpan> Kept;
  std::optional<TDateTime::TSpan> Stale;  ///< the default is filled in; empty: never late
};

/// Another time of a file: so much later than its slot.
struct TNamedTime {
  std::string Name;
  TDateTime::TSpan Later{0};
};

/// One value of a variable.
struct TRow {
  std::string Value;
  std::string Label;                   ///< the value, where the file gives none
  std::vector<std::string> Columns;    ///< in the order of TVariable::Columns
  std::optional<TDateTime::TSpan> At;  ///< wanted only in the slot at this time of the day
};

struct TVariable {
  std::string Name;
  std::string Title;
  std::string Control;  ///< object name of the control that chooses; empty without
  bool Many = true;     ///< several values may be chosen
  std::vector<std::string> Columns;
  std::vector<TRow> Rows;            ///< at least one
  std::vector<std::size_t> Default;  ///< rows, ascending
};

struct TAliasRow {
  std::string Value;
  std::optional<TDateTime> From;  ///< absent in the first row
};

/// A variable that depends on the slot: its last row that is not later holds.
struct TAlias {
  std::string Name;
  std::vector<TAliasRow> Rows;  ///< at least one

  const std::string& At(TDateTime slot) const;
};

enum class TFileType { Jpeg, Png, Gif, Tiff, Tar, NetCdf, Hdf5, Pdf };

/// [tiles]. Each text fills to a number for every combination.
struct TTiles {
  TFieldText Columns, Rows;  ///< 1 to 64
  TFieldText X, Y;           ///< of the first tile
  int Digits = 1;
};

/// A text that a document of kind Json gives besides the time.
struct TRead {
  std::string Name;
  TFieldText Pointer;
};

/// How the server is asked what it has.
struct TFind {
  enum class TKind { Listing, Json, S3, WmsTime };
  TKind Kind = TKind::Listing;
  TFieldText Url;
  TFieldText Prefix;            ///< S3
  TFieldText Layer;             ///< WmsTime
  TFieldText Match;             ///< what an entry looks like; empty for WmsTime
  bool MatchIsAddress = false;  ///< Match is the last part of the address, percent-encoded as that is
  TFieldText At;                ///< Json: pointer to the time
  bool EachEntry = true;        ///< the list has one text for each slot, not for the newest alone
  std::vector<TRead> Read;
  int Above = 0;  ///< ask only when more slots than this are wanted
};

/// Where the server's date of a file may lie, counted from its slot.
struct TModified {
  TDateTime::TSpan After{0}, Before{0};
};

/// One way to fetch a picture: [get] or an [[alternate]].
struct TWay {
  std::string Title;
  TFieldText Url;
  TFileType Type = TFileType::Jpeg;
  std::int64_t MinSize = 0;                 ///< bytes of one answer
  std::optional<std::int64_t> MaxSize;      ///< bytes of one answer
  std::optional<std::int64_t> TypicalSize;  ///< bytes of one picture
  std::optional<TModified> Modified;        ///< limits of Last-Modified minus slot
  std::vector<std::int64_t> Blank;          ///< sizes of "no image" pictures
  bool Optional = false;                    ///< a missing picture is no failure
  TDateTime::TSpan Gap{0};                  ///< between two requests to the host
  std::optional<TTiles> Tiles;
  std::optional<TFind> Find;
  std::optional<TLicence> Licence;  ///< of an alternate, where it differs from the source's
  /// For each variable the rows that this way serves; an empty list serves all.
  std::vector<std::vector<std::size_t>> Only;

  bool Serves(const TCombination& combination) const;
  /// The address holds no time and nothing found: the server's date of the file gives the slot.
  bool IsFixedName() const;
};

struct TKeep {
  TFieldText Folder;  ///< parts separated by "/"; may be empty
  TFieldText Name;
  std::optional<int> Days;  ///< suggested; nothing is deleted unless the user says so
};

struct TPageBinding {
  std::string Tab;
  std::string Output;  ///< object name of the edit of the output path
};

/// A source as a file describes it. Every rule of the format holds for it.
struct TDescription {
  std::string Id, Title, Provider, Home, Group;
  TLicence Licence;
  std::optional<TDateTime> Checked;  ///< a day
  std::int64_t Revision = 0;
  TTimeRules Time;
  std::vector<TNamedTime> Times;
  std::vector<TVariable> Variables;  ///< as they stand in the file
  std::vector<TAlias> Aliases;
  std::vector<TWay> Ways;  ///< [get], then the alternates
  TKeep Keep;
  std::optional<TPageBinding> Page;

  const TWay& Get() const { return Ways.front(); }
  bool IsFixedName() const { return Get().IsFixedName(); }
};

}  // namespace skyreel
