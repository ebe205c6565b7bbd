#pragma once
// Writes pictures as 8-bit RGB PNG files.

#include "tools/render/image.h"

#include <cstdint>
#include <string>
#include <vector>

namespace meshcore::render {

class CPngWriter {
public:
  // The whole file; alpha is dropped. The same picture always gives the same bytes.
  static std::vector<std::uint8_t> Encode(const CImage& image);
  // False with error set when the file cannot be written.
  static bool WriteFile(const CImage& image, const std::string& path, std::string& error);
};

} // namespace meshcore::render
