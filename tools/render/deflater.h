#pragma once
// A zlib stream compressor: LZ77 over hash chains, coded with the fixed
// Huffman tables. Same input, same bytes.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace meshcore::render {

class CDeflater {
public:
  // A complete zlib stream (header, one final block, Adler-32).
  static std::vector<std::uint8_t> Compress(const std::uint8_t* data, std::size_t size);
};

} // namespace meshcore::render
