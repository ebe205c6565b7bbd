// CRC-32 (reflected polynomial 0xEDB88320) and Adler-32.
#include "tools/render/checksum.h"

#include <array>

namespace meshcore::render {

namespace {

std::array<std::uint32_t, 256> MakeCrcTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t n = 0; n < 256; ++n) {
    std::uint32_t c = n;
    for (int k = 0; k < 8; ++k)
      c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
    table[n] = c;
  }
  return table;
}

} // namespace

std::uint32_t Crc32(const std::uint8_t* data, std::size_t size, std::uint32_t crc) {
  static const std::array<std::uint32_t, 256> table = MakeCrcTable();
  crc = ~crc;
  for (std::size_t i = 0; i < size; ++i)
    crc = table[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

std::uint32_t Adler32(const std::uint8_t* data, std::size_t size, std::uint32_t adler) {
  constexpr std::uint32_t kBase = 65521;
  std::uint32_t a = adler & 0xFFFF, b = adler >> 16;
  while (size > 0) {
    // 5552 bytes is the longest run whose sums cannot overflow 32 bits.
    const std::size_t run = size < 5552 ? size : 5552;
    for (std::size_t i = 0; i < run; ++i) {
      a += data[i];
      b += a;
    }
    a %= kBase;
    b %= kBase;
    data += run;
    size -= run;
  }
  return (b << 16) | a;
}

} // namespace meshcore::render
