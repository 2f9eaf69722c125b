#include "catalogue/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <functional>
#include <set>

#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"
#include "transfer/http_header.h"

namespace skyreel {

namespace {

using namespace std::string_view_literals;

/// Servers fill the last block with zeros or end a file with a line break: so many bytes at most.
constexpr std::int64_t kMostPadding = 1024;
/// What the directories of a real TIFF take is far below.
constexpr std::int64_t kMostDirectoryBytes = 64 << 20;

/// A file, in memory or on the disk.
struct TContent {
  std::int64_t Size = 0;
  /// `count` bytes from `at`; fewer at the file's end.
  std::function<std::string(std::int64_t at, std::int64_t count)> Read;
};

/// The last bytes of the file without padding.
std::string Tail(const TContent& file) {
  const std::int64_t start = std::max<std::int64_t>(0, file.Size - kMostPadding);
  std::string tail = file.Read(start, file.Size - start);
  tail.resize(tail.find_last_not_of("\0\t\n\r "sv) + 1);
  return tail;
}

bool EndsWith(const TContent& file, std::string_view mark) {
  return Tail(file).ends_with(mark);
}

bool JpegEnds(const TContent& file) {
  return EndsWith(file, "\xFF\xD9");
}
bool PngEnds(const TContent& file) {
  return EndsWith(file, "\0\0\0\0IEND\xAE\x42\x60\x82"sv);
}
/// The mark follows the empty block that ends a picture or an extension.
bool GifEnds(const TContent& file) {
  return EndsWith(file, "\0;"sv);
}
bool PdfEnds(const TContent& file) {
  return Tail(file).find("%%EOF") != std::string::npos;
}

/// Follows the directories of a TIFF (TIFF 6.0) or BigTIFF file. Header: "II" or "MM" (byte order), 42 or 43,
/// the place of the first directory. A directory: number of entries, the entries (tag, type, count, value or
/// its place), the place of the next directory.
class TTiff {
 public:
  explicit TTiff(const TContent& file) : file_(file) {}

  bool IsWhole() {
    const std::string header = Take(0, 16);
    if (header.size() < 8) return false;
    little_ = header[0] == 'I';
    big_ = Number(header, 2, 2) == 43;
    wide_ = big_ ? 8 : 4;
    std::uint64_t directory = header.size() < 16 && big_ ? 0 : Number(header, big_ ? 8 : 4, wide_);
    std::set<std::uint64_t> seen;
    while (directory != 0) {
      if (!seen.insert(directory).second || !ReadDirectory(directory)) return false;
    }
    return !seen.empty();
  }

 private:
  static constexpr std::uint64_t kStripOffsets = 273, kStripSizes = 279, kTileOffsets = 324, kTileSizes = 325;

  struct TArray {
    std::uint64_t Count = 0;
    std::string Bytes;
    std::size_t Each = 1;
  };

  /// Nothing when the place is outside the file, or the directories are too large.
  std::string Take(std::uint64_t at, std::uint64_t count) {
    const auto size = static_cast<std::uint64_t>(file_.Size);
    if (at > size || count > static_cast<std::uint64_t>(kMostDirectoryBytes - taken_)) return "";
    taken_ += static_cast<std::int64_t>(count);
    return file_.Read(static_cast<std::int64_t>(at), static_cast<std::int64_t>(std::min(count, size - at)));
  }

  std::uint64_t Number(std::string_view bytes, std::size_t at, std::size_t width) const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i)
      value = value << 8 | static_cast<unsigned char>(bytes[at + (little_ ? width - 1 - i : i)]);
    return value;
  }

  /// Checks the directory and replaces its place by that of the next one.
  bool ReadDirectory(std::uint64_t& directory) {
    const std::size_t count_size = big_ ? 8 : 2, entry_size = big_ ? 20 : 12;
    const std::string head = Take(directory, count_size);
    if (head.size() < count_size) return false;
    const std::uint64_t count = Number(head, 0, count_size);
    if (count == 0 || count > 65535) return false;
    const std::uint64_t size = count * entry_size + wide_;
    const std::string entries = Take(directory + count_size, size);
    if (entries.size() < size) return false;
    TArray strips, strip_sizes, tiles, tile_sizes;
    for (std::size_t at = 0; at < count * entry_size; at += entry_size) {
      const std::uint64_t tag = Number(entries, at, 2);
      TArray* const array = tag == kStripOffsets  ? &strips
                            : tag == kStripSizes  ? &strip_sizes
                            : tag == kTileOffsets ? &tiles
                            : tag == kTileSizes   ? &tile_sizes
                                                  : nullptr;
      if (!ReadEntry(entries, at, array)) return false;
    }
    directory = Number(entries, count * entry_size, wide_);
    return IsInside(strips, strip_sizes) && IsInside(tiles, tile_sizes);
  }

  bool ReadEntry(const std::string& entries, std::size_t at, TArray* array) {
    // Bytes of the types 1 to 18; 0: not used.
    constexpr std::array<std::size_t, 19> kSizes = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 0, 0, 8, 8, 8};
    const std::uint64_t type = Number(entries, at + 2, 2), count = Number(entries, at + 4, wide_);
    const std::size_t each = type < kSizes.size() ? kSizes[type] : 0;
    const auto file_size = static_cast<std::uint64_t>(file_.Size);
    if (each == 0) return array == nullptr;  // readers pass over unknown types
    if (count > file_size / each) return false;
    const std::uint64_t bytes = count * each;
    const bool here = bytes <= wide_;
    const std::uint64_t place = Number(entries, at + 4 + wide_, wide_);
    if (!here && (place > file_size || bytes > file_size - place)) return false;
    if (array == nullptr) return true;
    array->Count = count;
    array->Each = each;
    array->Bytes = here ? entries.substr(at + 4 + wide_, bytes) : Take(place, bytes);
    return array->Bytes.size() == bytes;
  }

  bool IsInside(const TArray& offsets, const TArray& sizes) const {
    const auto file_size = static_cast<std::uint64_t>(file_.Size);
    for (std::size_t i = 0; i < offsets.Count; ++i) {
      const std::uint64_t offset = Number(offsets.Bytes, i * offsets.Each, offsets.Each);
      // Old fax writers leave the sizes out.
      const std::uint64_t size = i < sizes.Count ? Number(sizes.Bytes, i * sizes.Each, sizes.Each) : 1;
      if (offset > file_size || size > file_size - offset) return false;
    }
    return true;
  }

  const TContent& file_;
  std::int64_t taken_ = 0;
  bool little_ = true;
  bool big_ = false;
  std::size_t wide_ = 4;  ///< bytes of a place in the file
};

bool TiffEnds(const TContent& file) {
  return TTiff(file).IsWhole();
}

struct TProof {
  const char* Extension;
  const char* Name;
  std::vector<std::string_view> Beginnings;
  std::size_t At = 0;  ///< where the beginning stands
  bool (*Ends)(const TContent&) = nullptr;
};

/// In the order of TFileType.
const std::vector<TProof>& Proofs() {
  constexpr std::string_view kHdf5 = "\x89HDF\r\n\x1A\n";
  static const std::vector<TProof> proofs = {
      {".jpg", "a JPEG picture", {"\xFF\xD8\xFF"}, 0, JpegEnds},
      {".png", "a PNG picture", {"\x89PNG\r\n\x1A\n"}, 0, PngEnds},
      {".gif", "a GIF picture", {"GIF87a", "GIF89a"}, 0, GifEnds},
      {".tif", "a TIFF picture", {"II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv}, 0, TiffEnds},
      {".tar", "a tar archive", {"ustar"}, 257},
      {".nc", "a netCDF file", {"CDF\1", "CDF\2", "CDF\5", kHdf5}},
      {".h5", "an HDF5 file", {kHdf5}},
      {".pdf", "a PDF document", {"%PDF-"}, 0, PdfEnds},
  };
  return proofs;
}

bool Begins(const TProof& proof, std::string_view head) {
  const std::string_view start = head.substr(std::min(proof.At, head.size()));
  return std::any_of(proof.Beginnings.begin(), proof.Beginnings.end(),
                     [&](std::string_view beginning) { return start.starts_with(beginning); });
}

std::string Bytes(std::int64_t count) {
  return std::to_string(count) + " bytes";
}

TVerdict Judge(const TContent& file, const TWay& way, const TFileFacts& facts) {
  if (facts.Length && *facts.Length != file.Size)
    return {TVerdictKind::Damaged, Bytes(file.Size) + " came, " + Bytes(*facts.Length) + " were announced"};
  if (file.Size == 0) return {TVerdictKind::Damaged, "the file is empty"};
  // Such a picture may be of another type.
  if (std::find(way.Blank.begin(), way.Blank.end(), file.Size) != way.Blank.end())
    return {TVerdictKind::NoPicture, "a blank picture"};

  const std::string head = file.Read(0, 1024);
  if (IsHtmlPage(head)) return {TVerdictKind::Damaged, "the server sent a page instead of the file"};
  const std::vector<TProof>& proofs = Proofs();
  const auto begins = [&](const TProof& proof) { return Begins(proof, head); };
  const TProof& wanted = proofs[static_cast<std::size_t>(way.Type)];
  if (!begins(wanted)) {
    const auto sent = std::find_if(proofs.begin(), proofs.end(), begins);
    const std::string other = sent != proofs.end() ? std::string(", but ") + sent->Name : "";
    return {TVerdictKind::Damaged, std::string("not ") + wanted.Name + other};
  }
  if (file.Size < way.MinSize)
    return {TVerdictKind::Refused, Bytes(file.Size) + ", fewer than " + Bytes(way.MinSize)};
  if (way.MaxSize && file.Size > *way.MaxSize)
    return {TVerdictKind::Refused, Bytes(file.Size) + ", more than " + Bytes(*way.MaxSize)};
  if (wanted.Ends != nullptr && !wanted.Ends(file))
    return {TVerdictKind::Damaged, "cut off: its end is missing"};

  if (way.Modified) {
    if (facts.Modified.IsZero()) return {TVerdictKind::NoPicture, "the server gives no date"};
    const TDateTime::TSpan age = facts.Modified - facts.Slot;
    if (age < way.Modified->After || age > way.Modified->Before)
      return {TVerdictKind::NoPicture,
              "of another slot: modified " + FormatDateTime("yyyy-mm-dd hh:nn", facts.Modified) + " UTC"};
  }
  return {};
}

}  // namespace

const char* ExtensionOf(TFileType type) {
  return Proofs()[static_cast<std::size_t>(type)].Extension;
}

TVerdict JudgeFile(const std::filesystem::path& path, const TWay& way, const TFileFacts& facts) {
  const TDescriptor file = OpenToRead(path);
  struct stat status {};
  if (::fstat(file.Get(), &status) != 0) ThrowErrno(path.string());
  const auto read = [&](std::int64_t at, std::int64_t count) {
    std::string bytes(static_cast<std::size_t>(std::clamp<std::int64_t>(status.st_size - at, 0, count)),
                      '\0');
    const bool there = ::lseek(file.Get(), at, SEEK_SET) == at;
    const std::int64_t got =
        there ? ReadAll(file.Get(), bytes.data(), static_cast<std::int64_t>(bytes.size())) : -1;
    if (got < 0) ThrowErrno(path.string());
    bytes.resize(static_cast<std::size_t>(got));
    return bytes;
  };
  return Judge({status.st_size, read}, way, facts);
}

TVerdict JudgeBytes(std::string_view bytes, const TWay& way, const TFileFacts& facts) {
  const auto read = [&](std::int64_t at, std::int64_t count) {
    return std::string(bytes.substr(static_cast<std::size_t>(at), static_cast<std::size_t>(count)));
  };
  return Judge({static_cast<std::int64_t>(bytes.size()), read}, way, facts);
}

}  // namespace skyreel
