#pragma once

#include <cstdint>
#include <limits>

namespace skyreel {

/// What a picture file says about itself before its pixels are decoded.
struct TPictureFacts {
  const char* Kind = "";  ///< "JPEG"
  std::int64_t Width = 0, Height = 0;
  /// Memory that decoding takes at least, in bytes, since the file cannot be decoded row by row; else 0.
  std::int64_t WholeBytes = 0;
  bool CanReduce = false;  ///< the decoder can deliver the picture 2, 4 or 8 times smaller
};

/// How the receiver of a picture wants it. A decoder keeps Reduction; the other wishes only save work.
struct TRowWish {
  int Reduction = 1;  ///< 1, or also 2, 4, 8 if the decoder can reduce: sides are divided and rounded up
  int FirstRow = 0, EndRow = std::numeric_limits<int>::max();  ///< the needed rows of the reduced picture
  bool Grey = false;                                           ///< grey rows will do for a coloured picture
  bool Samples = false;  ///< SetRowFromSamples is wanted for samples of more than 8 bits
};

/// Receives a picture from a decoder.
class TRowSink {
 public:
  virtual ~TRowSink() = default;

  /// Called once, before the rows. Throws EInvalidGraphic to refuse the picture.
  virtual TRowWish Begin(const TPictureFacts& facts) = 0;

  /// Each takes one row of the reduced picture: grey bytes, or red, green, blue with `stride` bytes from one
  /// pixel to the next (3 or 4). Rows come once, from top to bottom or from bottom to top, all of one kind.
  virtual void SetRowFromGrey(int y, const std::uint8_t* grey) = 0;
  virtual void SetRowFromRgb(int y, const std::uint8_t* rgb, int stride = 3) = 0;
  /// The same for samples of any range; NaN is a missing one. `channels` is 1 (grey) or 3.
  virtual void SetRowFromSamples(int, const float* /*samples*/, int /*channels*/) {}
};

}  // namespace skyreel
