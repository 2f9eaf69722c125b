#pragma once

#include <cstdint>
#include <string>

namespace skyreel::bench {

/// The size of a full-disc picture, 10 bits a pixel, as the data source delivers it.
inline constexpr std::size_t kPictureSize = 25'354'344;

/// Bytes without any pattern; the same on every run.
std::string Noise(std::size_t size);

/// A picture of kPictureSize bytes that compresses like a satellite image: dark space around a disc with
/// broad gradients, cloud edges and sensor noise.
std::string SyntheticPicture();

}  // namespace skyreel::bench
