#pragma once
// Reads PNG textures: greyscale, grey with alpha, RGB, RGBA and palette
// images of every bit depth (16-bit samples keep their high byte), not
// interlaced.

#include "tools/render/image.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace meshcore::render {

class CPngReader {
public:
  // Larger pictures are refused: a texture that big is more likely a damaged
  // header than a real image.
  static constexpr int kMaxSide = 16384;
  static constexpr std::size_t kMaxPixels = std::size_t{1} << 25;

  // False with error set (and image untouched) on anything it cannot read.
  static bool Decode(const std::uint8_t* data, std::size_t size, CImage& image, std::string& error);
  static bool ReadFile(const std::string& path, CImage& image, std::string& error);
  // Whether the bytes start with the PNG signature.
  static bool HasSignature(const std::uint8_t* data, std::size_t size);
};

} // namespace meshcore::render
