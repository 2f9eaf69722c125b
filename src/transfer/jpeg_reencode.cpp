#include "transfer/jpeg_reencode.h"

#include <cmath>

#include "image/image_file.h"

namespace skyreel {

namespace {

constexpr int kQuality = 78;
constexpr const char* kComment =
    "This image was saved by the program Skyreel - https://quenmoor.example/skyreel";

}  // namespace

void ConvertToJpeg(const std::filesystem::path& file_name, std::filesystem::path& new_name, float gamma) {
  const std::filesystem::path source = file_name;  // the caller may pass one variable for both
  new_name = source;
  TExtBitmap bitmap(TPixelFormat::Bits8);
  LoadImage(bitmap, source);
  if (gamma != 0 && gamma != 1 && !std::isnan(gamma)) GammaCorrect(bitmap, 1 / gamma);
  const std::filesystem::path jpeg = std::filesystem::path(source).replace_extension(".jpg");
  SaveAsJpeg(bitmap, jpeg, kQuality, kComment);
  std::filesystem::remove(source);
  new_name = jpeg;
}

}  // namespace skyreel
