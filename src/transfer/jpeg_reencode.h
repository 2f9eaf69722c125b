#pragma once

#include <filesystem>

namespace skyreel {

/// Loads a downloaded picture as grey, takes back its gamma (each value v becomes 255 * (v / 255) ^ gamma,
/// unless gamma is 0, 1, not a number or outside 0.2 to 5), writes it to the same folder as a JPEG file of
/// quality 78 named with the extension ".jpg" and a comment, and deletes the download. `new_name` receives
/// the name of the file that now holds the picture; `file_name` itself until then. Throws EInvalidGraphic,
/// std::system_error; the download stays then. Kept: a download already named "x.jpg" is written to "x.jpg"
/// and then deleted, so that no file remains.
void ConvertToJpeg(const std::filesystem::path& file_name, std::filesystem::path& new_name, float gamma);

}  // namespace skyreel
