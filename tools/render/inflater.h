#pragma once
// A zlib stream decompressor for PNG image data: stored, fixed and dynamic
// blocks, every length and distance checked, output capped.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace meshcore::render {

class CInflater {
public:
  // Decompresses a whole zlib stream into out, which may not grow beyond
  // maxSize bytes. False with error set on damaged or oversized data.
  static bool Decompress(const std::uint8_t* data, std::size_t size, std::size_t maxSize,
                         std::vector<std::uint8_t>& out, std::string& error);
};

} // namespace meshcore::render
