#include "bench/synthetic_picture.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace skyreel::bench {

std::string Noise(std::size_t size) {
  std::mt19937 random(1);
  std::string data(size, '\0');
  for (char& byte : data) byte = static_cast<char>(random());
  return data;
}

std::string SyntheticPicture() {
  constexpr int kWidth = 5032;
  std::mt19937 random(2);
  std::string picture(kPictureSize, '\0');
  for (std::size_t i = 0; i < picture.size(); ++i) {
    const float x = static_cast<float>(i % kWidth) / kWidth * 2 - 1;
    const float y = static_cast<float>(i / kWidth) / kWidth * 2 - 1;
    const unsigned noise = static_cast<unsigned>(random());
    float value = 3;
    if (x * x + y * y < 0.95F) {
      const float cloud = std::sin(x * 23 + 3 * std::sin(y * 9)) * std::sin(y * 31 + 2 * std::sin(x * 13));
      value = 70 + 40 * y + 25 * x + (cloud > 0.3F ? 90 * cloud : 0);
      value += static_cast<float>(noise % 4);
    }
    picture[i] = static_cast<char>(std::clamp(value, 0.0F, 255.0F));
  }
  return picture;
}

}  // namespace skyreel::bench
