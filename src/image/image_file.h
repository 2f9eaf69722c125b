#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "image/ext_bitmap.h"

namespace skyreel {

/// Loads a picture file into `bitmap`, converted to its pixel format (8 or 24 bits). The extension chooses
/// the decoder: .GIF (the first picture), .JPG, .JPEG, .PNG, .TIF, .TIFF, .BMP, in either letter case. A
/// picture that is corrupt or cut off is refused; transparent parts of a PNG are shown on white. Throws
/// EInvalidGraphic, std::system_error; `bitmap` is as it was then.
void LoadImage(TExtBitmap& bitmap, const std::filesystem::path& path);

/// The same for a file's content in memory; `extension` with its dot.
void LoadImageFromMemory(TExtBitmap& bitmap, std::string_view extension, std::string_view data);

/// Writes a baseline JPEG file, one grey channel for 8 bits, colour (YCbCr) for 24 bits; quality 1 to 100;
/// the comment in a comment marker. The file appears whole, in place of an older one. Throws EInvalidGraphic
/// "Cannot save bitmap as JPEG with specified PixelFormat" for other pixel formats, and "Error writing JPEG
/// to file" for everything that goes wrong then.
void SaveAsJpeg(const TExtBitmap& bitmap, const std::filesystem::path& path, int quality,
                const std::string& comment);

}  // namespace skyreel
