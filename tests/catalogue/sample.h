#pragma once

#include <gtest/gtest.h>

#include <string>

#include "catalogue/description_reader.h"

namespace skyreel::test {

/// A sound description that uses most words.
inline const std::string kSample = R"(format = 1
id = "org.example.sat"
title = "Sat"
licence = { name = "free", use = "any" }
[time]
every = "10m"
grace = "1h"
times = { end = "+14m59s" }
[vary.product]
values = [{ value = "VIS", layer = "v" }, { value = "IR", layer = "i" }]
[vary.size]
values = ["1", "22"]
many = false
[alias]
sat = [{ value = "16" }, { value = "19", from = 2025-04-07T02:00:00+02:00 }]
[get]
url = "https://example.org/{product}/{sat}_{%Y%j%H%M}_{size}.jpg"
type = "image/jpeg"
[find]
kind = "listing"
url = "https://example.org/{product}/"
[keep]
folder = "{product}/{%Y-%m-%d}"
name = "{size}_{%H%M}.jpg"
[[alternate]]
url = "https://other.org/{product.layer}_{%Y%m%d%H%M}.png"
type = "image/png"
only = { product = ["VIS"] }
)";

/// The text with its first `from`, which must be there, replaced.
inline std::string With(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

/// The description of a text, which must be sound.
inline TDescription Described(const std::string& text) {
  TReadDescription read = ReadDescription(text, "a.toml");
  for (const TProblem& problem : read.Problems) ADD_FAILURE() << problem.Message();
  return read.Description.value();
}

}  // namespace skyreel::test
