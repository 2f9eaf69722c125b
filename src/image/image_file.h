#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "image/ext_bitmap.h"
#include "image/picture_bytes.h"

namespace skyreel {

/// Loads a picture file and converts it to the pixel format of `bitmap` (8 or 24 bits). The extension chooses
/// the decoder: .GIF (the first picture), .JPG, .JPEG, .PNG, .TIF, .TIFF, .BMP, in either letter case. The
/// transparent parts of a PNG become white. Throws EInvalidGraphic, also for a damaged or cut-off picture,
/// and std::system_error; then `bitmap` is unchanged.
void LoadImage(TExtBitmap& bitmap, const std::filesystem::path& path);

/// The same for the content of a file; `extension` includes the dot.
void LoadImageFromMemory(TExtBitmap& bitmap, std::string_view extension, std::string_view data);

/// Decodes a picture row by row. Its content chooses the decoder, whatever its name is. Throws
/// EInvalidGraphic, for a damaged picture after the rows that could be read, and std::system_error.
void DecodePicture(TRowSink& sink, TPictureBytes& bytes);

/// Writes a baseline JPEG file with a comment marker: one grey channel for 8 bits, colour (YCbCr) for 24
/// bits. `quality` is 1 to 100. Replaces an older file as a whole. Throws EInvalidGraphic: "Cannot save
/// bitmap as JPEG with specified PixelFormat" for other pixel formats, "Error writing JPEG to file" for all
/// other errors.
void SaveAsJpeg(const TExtBitmap& bitmap, const std::filesystem::path& path, int quality,
                const std::string& comment);

/// Writes the picture, 8 or 24 bits, in the format that the extension names: .JPG and .JPEG (quality 90) or
/// .PNG, in either letter case. Replaces an older file as a whole. Throws EInvalidGraphic and
/// std::system_error.
void SaveImage(const TExtBitmap& bitmap, const std::filesystem::path& path);

}  // namespace skyreel
