// The format: bytes 0x1F 0x9D, a flags byte (bit 7: block mode, bits 0 to 4: maximum code width), then codes,
// least significant bit first. Codes 0 to 255 mean that byte; a higher code means an earlier string plus the
// first byte of the string after it. Each code but the first adds one such entry, up to 2^maximum entries.
// Codes start with 9 bits and get one bit wider when the next entry's number does not fit. In block mode code
// 256 clears the table, and the width returns to 9 bits.
//
// Codes come in groups of eight, which are `width` bytes. When the width changes, the rest of a group is
// padding.

#include "decompress/uncompress.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <type_traits>

#include "base/files.h"

namespace skyreel {

namespace {

constexpr std::uint32_t kClearCode = 256;
constexpr std::size_t kHeaderSize = 3;
constexpr std::size_t kMostEntries = 65536;
constexpr std::int64_t kMaximumBits = 16;
constexpr std::uint32_t kFirstWidth = 9;
/// A larger file would decode to more than is allowed.
constexpr std::int64_t kInputLimit = std::int64_t{1} << 30;

[[noreturn]] void ThrowCorrupt() {
  throw EDecompressError("File is corrupt, undefined code");
}

/// Sixteen bytes, which the compiler keeps in one register.
struct TPiece {
  explicit TPiece(const char* from) { std::memcpy(bytes, from, sizeof(bytes)); }
  void Store(char* to) const { std::memcpy(to, bytes, sizeof(bytes)); }
  char bytes[16];
};

/// Copies `length` bytes in pieces of 16, and up to 31 bytes more. The ranges may overlap only in these, or
/// when the last byte of the source is the first of the destination.
inline void CopyForward(char* to, const char* from, std::uint32_t length) {
  TPiece(from).Store(to);
  for (std::uint32_t done = 16; done < length; done += 32) {
    const TPiece low(from + done), high(from + done + 16);
    low.Store(to + done);
    high.Store(to + done + 16);
  }
}

/// A string in the output.
struct TString {
  std::uint32_t Position;
  std::uint32_t Length;
};

inline TString StringOf(const std::uint32_t* table, std::uint32_t code) {
  return {table[code], table[code + 1] - table[code] + (code > 255 ? 1 : 0)};
}

/// The buffer for an input shorter than one load.
using TSmallInput = std::array<char, 16>;

/// Reads the codes of one width, which have no padding between them. Reads eight bytes at once, never beyond
/// the input. It has no buffer of its own, so that the compiler keeps it in registers.
class TCodeReader {
 public:
  TCodeReader(std::string_view input, TSmallInput& small) : begin_(input.data()), size_(input.size()) {
    if (size_ >= small.size()) {
      last_load_ = size_ - 8;
    } else {
      input.copy(small.data(), size_);
      begin_ = small.data();
      last_load_ = small.size() - 8;
    }
  }

  /// Starts a run at the byte `start`. Returns how many whole codes the input holds from there.
  std::size_t Begin(std::size_t start, std::uint32_t width) {
    start_ = std::min(start, size_);
    bit_ = std::uint64_t{start_} * 8;
    width_ = width;
    mask_ = (1U << width) - 1;
    return (size_ - start_) * 8 / width;
  }

  std::uint32_t Next() {
    const std::size_t byte = std::min<std::size_t>(bit_ >> 3, last_load_);
    std::uint64_t bits = 0;
    std::memcpy(&bits, begin_ + byte, sizeof(bits));
    const std::uint32_t code = static_cast<std::uint32_t>(bits >> (bit_ - byte * 8)) & mask_;
    bit_ += width_;
    return code;
  }

  /// Where the run of the next width begins: behind the last group used.
  std::size_t End() const {
    const std::size_t group_bits = std::size_t{width_} * 8;
    return start_ + (bit_ - start_ * 8 + group_bits - 1) / group_bits * width_;
  }

  /// Bytes of the input read so far.
  std::size_t Consumed() const { return bit_ >> 3; }
  /// For codes of 16 bits, which the caller reads itself: the rest of the input; and skips `count` codes.
  const char* Rest() const { return begin_ + (bit_ >> 3); }
  void Skip(std::size_t count) { bit_ += std::uint64_t{width_} * count; }

 private:
  const char* begin_;
  std::size_t size_;
  std::size_t last_load_;
  std::size_t start_ = 0;
  std::uint64_t bit_ = 0;
  std::uint32_t width_ = kFirstWidth;
  std::uint32_t mask_ = 0;
};

/// The output, addressed by offsets from the single-byte strings just before it. It opens in pieces, sized by
/// what the rest of the input will probably need.
class TOutput {
 public:
  TOutput(TMemoryStream& stream, std::size_t input_size, std::int64_t limit)
      : stream_(stream), input_size_(static_cast<std::int64_t>(input_size)), limit_(limit) {
    // Enough for most pictures; takes no memory until it is used.
    stream_.Reserve(std::min(input_size_ * 8 + 65536, limit_));
    Open(1, input_size_ / 2);  // two bytes make at least one
    for (int value = 0; value < 256; ++value) base_[value] = static_cast<char>(value);
  }

  char* Base() const { return base_; }
  /// Offsets below this can be written without Grow; a copy may overshoot it.
  std::uint32_t End() const { return end_; }
  /// Moves End to at least `at` + `length`, after `consumed` bytes of input gave the output up to `at`. Base
  /// changes.
  void Grow(std::uint32_t at, std::uint32_t length, std::size_t consumed) {
    const std::int64_t have = at - static_cast<std::int64_t>(TMemoryStream::kHeadroom);
    const std::int64_t needed = have + length;
    if (needed > limit_) {
      throw EDecompressError("File decodes to more than " + std::to_string(limit_) + " bytes");
    }
    if (needed > stream_.Capacity()) {
      stream_.Reserve(std::min(std::max(needed, stream_.Capacity() * 2), limit_));
    }
    const double ratio =
        static_cast<double>(input_size_) / static_cast<double>(std::max<std::size_t>(consumed, 1));
    Open(needed, static_cast<std::int64_t>(static_cast<double>(have) * ratio));
  }

 private:
  static constexpr std::int64_t kPiece = std::int64_t{4} << 20;  // whole huge pages

  /// Opens at least `needed` bytes, up to the end of a piece less the overshoot: a copy that reaches into the
  /// next piece would take that memory in small pages.
  void Open(std::int64_t needed, std::int64_t expected) {
    constexpr std::int64_t kAround = TMemoryStream::kHeadroom + TMemoryStream::kSlack;
    const std::int64_t piece_end = (needed + kAround + kPiece - 1) / kPiece * kPiece - kAround;
    const std::int64_t size = std::min({piece_end, stream_.Capacity(), limit_});
    stream_.ExpectSize(std::min(size, expected));
    base_ = stream_.Data() - TMemoryStream::kHeadroom;
    end_ = static_cast<std::uint32_t>(size + static_cast<std::int64_t>(TMemoryStream::kHeadroom));
  }

  TMemoryStream& stream_;
  std::int64_t input_size_;
  std::int64_t limit_;
  char* base_ = nullptr;
  std::uint32_t end_ = 0;
};

static_assert(TMemoryStream::kHeadroom == 256, "the single-byte strings fill the headroom");
static_assert(TMemoryStream::kSlack >= 32, "copies overshoot by up to 31 bytes");

}  // namespace

std::filesystem::path UncompressedName(const std::filesystem::path& path) {
  std::filesystem::path name = path;
  name.replace_extension();
  if (name == path) throw EDecompressError("The name " + path.string() + " has no extension to remove");
  return name;
}

void TUncompressor::PrepareTable(std::size_t input_size) {
  // One more than the codes: the end of the last string.
  const std::size_t wanted = std::min(kMostEntries, 257 + input_size) + 1;
  if (wanted <= table_size_) return;
  table_ = std::make_unique_for_overwrite<std::uint32_t[]>(wanted);
  table_size_ = wanted;
}

void TUncompressor::Decompress(std::string_view input, TMemoryStream& output) {
  output.Clear();
  if (input.substr(0, 2) != "\x1F\x9D") {
    throw EDecompressError("File if not a valid .Z file, bad signature found");
  }
  if (input.size() < kHeaderSize) return;
  const unsigned flags = static_cast<unsigned char>(input[2]);
  const int maximum_bits = static_cast<int>(flags & 0x1F);
  if (maximum_bits > kMaximumBits) {
    throw EDecompressError("File is compressed with " + std::to_string(maximum_bits) +
                           " bits, but I can only handle " + std::to_string(kMaximumBits) + " bits.");
  }
  input.remove_prefix(kHeaderSize);
  PrepareTable(input.size());
  Decode(input, maximum_bits, (flags & 0x80) != 0, output);
}

void TUncompressor::Decode(std::string_view input, int maximum_bits, bool block_mode, TMemoryStream& stream) {
  std::uint32_t* const table = table_.get();
  for (std::uint32_t value = 0; value <= 256; ++value) table[value] = value;

  const std::int64_t limit = std::clamp<std::int64_t>(OutputLimit, 0, kLargestOutputLimit);
  TOutput output(stream, input.size(), limit);
  char* base = output.Base();
  std::uint32_t at = TMemoryStream::kHeadroom;

  const std::uint32_t code_limit = 1U << maximum_bits;
  const std::uint32_t clear_code = block_mode ? kClearCode : ~0U;
  const std::uint32_t first_free = block_mode ? 257 : 256;
  TSmallInput small{};
  TCodeReader codes(input, small);

  std::uint32_t width = kFirstWidth;
  std::uint32_t largest = (1U << kFirstWidth) - 1;
  std::uint32_t next_free = first_free;
  TString previous{0, 0};
  bool fresh = true;  // the table holds only single bytes: the next code must be one
  std::size_t start = 0;

  for (;;) {  // one turn for each run of codes of the same width
    std::size_t left = codes.Begin(start, width);
    if (left == 0) break;
    bool cleared = false;

    if (fresh) {
      const std::uint32_t code = codes.Next();
      --left;
      if (code == clear_code && start > 0) {
        cleared = true;  // a clear right after a clear
      } else {
        if (code > 255) ThrowCorrupt();
        if (at >= output.End()) {
          output.Grow(at, 1, codes.Consumed());
          base = output.Base();
        }
        base[at] = static_cast<char>(code);
        previous = {at, 1};
        if (next_free < code_limit) table[next_free] = at;
        ++at;
        fresh = false;
      }
    }

    // With `filling`, each code adds an entry.
    const auto decode = [&](auto filling, std::size_t count) {
      left -= count;
      std::uint32_t room = output.End();
      for (; count > 0; --count) {
        const std::uint32_t code = codes.Next();
        if (code == clear_code) {
          cleared = true;
          break;
        }
        TString string;
        if (code < next_free) {
          string = StringOf(table, code);
        } else if (code == next_free) {
          string = {previous.Position, previous.Length + 1};  // ends with its own first byte
        } else {
          ThrowCorrupt();
        }
        if (string.Length > room - at) {
          output.Grow(at, string.Length, codes.Consumed());
          base = output.Base();
          room = output.End();
        }
        CopyForward(base + at, base + string.Position, string.Length);
        if (code == next_free) base[at + string.Length - 1] = base[at];
        if constexpr (filling) table[++next_free] = at;
        previous = {at, string.Length};
        at += string.Length;
      }
    };
    if (!cleared && next_free < code_limit) {
      // As many codes as fit before the table is full or the width changes.
      decode(std::true_type{}, std::min<std::size_t>(left, std::min(code_limit, largest + 1) - next_free));
    }
    if (!cleared && left > 0 && next_free <= largest && next_free != kMostEntries) {
      decode(std::false_type{}, left);
    }

    if (!cleared && left > 0 && next_free == kMostEntries) {
      // Most of a large file: the table is full, every code is valid and has 16 bits.
      const char* from = codes.Rest();
      const char* const end = from + left * 2;
      std::uint32_t room = output.End();
      while (from < end) {
        std::uint16_t code = 0;
        std::memcpy(&code, from, sizeof(code));
        from += 2;
        if (code == clear_code) {
          cleared = true;
          break;
        }
        const TString string = StringOf(table, code);
        if (string.Length > room - at) {
          output.Grow(at, string.Length, codes.Consumed() + static_cast<std::size_t>(from - codes.Rest()));
          base = output.Base();
          room = output.End();
        }
        CopyForward(base + at, base + string.Position, string.Length);
        at += string.Length;
      }
      codes.Skip(static_cast<std::size_t>(from - codes.Rest()) / 2);
    }

    if (cleared) {
      width = kFirstWidth;
      largest = (1U << kFirstWidth) - 1;
      // The first code after a clear adds no usable entry: its number would be that of the clear code.
      next_free = code_limit > kClearCode ? first_free : kClearCode;
      fresh = true;
    } else if (next_free > largest) {
      ++width;
      largest = width == static_cast<std::uint32_t>(maximum_bits) ? code_limit : (1U << width) - 1;
    } else {
      break;
    }
    start = codes.End();
  }
  stream.SetSize(static_cast<std::int64_t>(at - TMemoryStream::kHeadroom));
}

bool UncompressFile(const std::filesystem::path& path) {
  if (FileSizeOf(path) < 0) return false;
  const std::filesystem::path target = UncompressedName(path);
  TMemoryStream output;
  {
    TMemoryStream input;
    input.LoadFromFile(path, kInputLimit);
    TUncompressor().Decompress(input.View(), output);
  }
  if (output.Size() == 0) return false;
  const TDateTime time = GetFileDateTime(path);
  WriteFileWhole(target, output.View());
  if (!time.IsZero()) SetFileDateTime(target, time);
  return true;
}

}  // namespace skyreel
