#include "demo/lzw_encoder.h"

#include <vector>

#include "base/exceptions.h"

namespace skyreel {

namespace {

constexpr std::uint32_t kClearCode = 256;
constexpr std::int64_t kCheckGap = 10'000;

/// Writes codes as a reader will read them. It counts the reader's table entries, which set the width of the
/// next code, and fills up a group of eight codes wherever the width changes.
class TCodeWriter {
 public:
  TCodeWriter(std::string& out, const TLzwOptions& options)
      : out_(out),
        maximum_(static_cast<std::uint32_t>(options.MaximumBits)),
        first_free_(options.BlockMode ? 257 : 256),
        reader_free_(first_free_) {}

  void Write(std::uint32_t code) {
    if (reader_free_ > largest_) {
      EndGroup();
      ++width_;
      largest_ = width_ == maximum_ ? 1U << maximum_ : (1U << width_) - 1;
    }
    bits_ |= std::uint64_t{code} << bit_count_;
    bit_count_ += width_;
    group_codes_ = (group_codes_ + 1) % 8;
    while (bit_count_ >= 8) PutByte();
    if (!first_ && reader_free_ < 1U << maximum_) ++reader_free_;
    first_ = false;
  }

  void Clear() {
    Write(kClearCode);
    EndGroup();
    width_ = 9;
    largest_ = 511;
    reader_free_ = first_free_;
    first_ = true;
  }

  void Finish() {
    if (bit_count_ > 0) PutByte();
  }

 private:
  void PutByte() {
    out_ += static_cast<char>(bits_ & 0xFF);
    bits_ >>= 8;
    bit_count_ = bit_count_ > 8 ? bit_count_ - 8 : 0;
  }

  void EndGroup() {
    for (; group_codes_ != 0; group_codes_ = (group_codes_ + 1) % 8) bit_count_ += width_;
    while (bit_count_ > 0) PutByte();
  }

  std::string& out_;
  std::uint32_t maximum_;
  std::uint32_t first_free_;
  std::uint32_t reader_free_;
  std::uint32_t width_ = 9;
  std::uint32_t largest_ = 511;
  std::uint32_t group_codes_ = 0;
  std::uint64_t bits_ = 0;
  std::uint32_t bit_count_ = 0;
  bool first_ = true;
};

/// The strings that have a code: open addressing from (prefix code, next byte) to the string's code.
class TStringTable {
 public:
  TStringTable() : slots_(kSlots) {}
  void Clear() { ++generation_; }

  /// The code of the string `prefix` + `byte`. Without one it returns 0, and the string gets `code` unless 0.
  std::uint32_t FindOrAdd(std::uint32_t prefix, unsigned char byte, std::uint32_t code) {
    const std::uint32_t key = prefix << 8 | byte;
    for (std::uint32_t slot = key * 2654435761U >> (32 - kSlotBits);; slot = (slot + 1) % kSlots) {
      if (slots_[slot].Generation != generation_) {
        if (code != 0) slots_[slot] = {key, code, generation_};
        return 0;
      }
      if (slots_[slot].Key == key) return slots_[slot].Code;
    }
  }

 private:
  static constexpr std::uint32_t kSlotBits = 18;
  static constexpr std::uint32_t kSlots = 1U << kSlotBits;
  struct TSlot {
    std::uint32_t Key = 0;
    std::uint32_t Code = 0;
    std::uint64_t Generation = 0;  ///< of the table; entries from before a clear count as free places
  };
  std::vector<TSlot> slots_;
  std::uint64_t generation_ = 1;
};

}  // namespace

std::string LzwEncode(std::string_view data, const TLzwOptions& options) {
  if (options.MaximumBits < 9 || options.MaximumBits > 16) throw ERangeError("LZW code width");
  std::string out{'\x1F', '\x9D', static_cast<char>(options.MaximumBits | (options.BlockMode ? 0x80 : 0))};
  if (data.empty()) return out;

  const std::uint32_t code_limit = 1U << options.MaximumBits;
  const std::uint32_t first_free = options.BlockMode ? 257 : 256;
  TCodeWriter writer(out, options);
  TStringTable table;
  std::uint32_t next_free = first_free;
  std::int64_t codes = 0;
  std::int64_t checkpoint = kCheckGap;
  double best_ratio = 0;

  std::uint32_t current = static_cast<unsigned char>(data.front());
  const auto emit = [&](std::size_t taken) {
    bool clear = false;
    if (options.BlockMode && options.ClearAfter) {
      clear = options.ClearAfter(codes);
    } else if (options.BlockMode && next_free == code_limit &&
               static_cast<std::int64_t>(taken) >= checkpoint) {
      checkpoint = static_cast<std::int64_t>(taken) + kCheckGap;
      const double ratio = static_cast<double>(taken) / static_cast<double>(out.size());
      clear = ratio < best_ratio;
      best_ratio = clear ? 0 : ratio;
    }
    writer.Write(current);
    ++codes;
    return clear;
  };
  for (std::size_t i = 1; i < data.size(); ++i) {
    const unsigned char byte = static_cast<unsigned char>(data[i]);
    const std::uint32_t fresh = next_free < code_limit ? next_free : 0;
    if (const std::uint32_t known = table.FindOrAdd(current, byte, fresh); known != 0) {
      current = known;
      continue;
    }
    if (fresh != 0) ++next_free;
    if (emit(i)) {
      writer.Clear();
      ++codes;
      table.Clear();
      next_free = first_free;
    }
    current = byte;
  }
  writer.Write(current);
  writer.Finish();
  return out;
}

}  // namespace skyreel
