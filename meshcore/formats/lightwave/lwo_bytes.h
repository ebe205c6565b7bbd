#pragma once
// Big-endian access to the bytes of a Lightwave file held in memory.

#include <bit>
#include <cstdint>
#include <cstring>

namespace meshcore::lwbytes {

inline std::uint16_t LoadU2(const std::uint8_t* p) {
  std::uint16_t v;
  std::memcpy(&v, p, 2);
  if constexpr (std::endian::native == std::endian::little)
    v = __builtin_bswap16(v);
  return v;
}
inline std::uint32_t LoadU4(const std::uint8_t* p) {
  std::uint32_t v;
  std::memcpy(&v, p, 4);
  if constexpr (std::endian::native == std::endian::little)
    v = __builtin_bswap32(v);
  return v;
}
inline float LoadF4(const std::uint8_t* p) {
  return std::bit_cast<float>(LoadU4(p));
}

inline void StoreU2(std::uint8_t* p, std::uint16_t v) {
  if constexpr (std::endian::native == std::endian::little)
    v = __builtin_bswap16(v);
  std::memcpy(p, &v, 2);
}
inline void StoreU4(std::uint8_t* p, std::uint32_t v) {
  if constexpr (std::endian::native == std::endian::little)
    v = __builtin_bswap32(v);
  std::memcpy(p, &v, 4);
}
inline void StoreF4(std::uint8_t* p, float f) {
  StoreU4(p, std::bit_cast<std::uint32_t>(f));
}

// Size in bytes of the variable-length index starting at p.
inline unsigned VXSize(const std::uint8_t* p) {
  return p[0] == 0xFF ? 4u : 2u;
}
// Decodes a variable-length index whose bytes are known to be present.
inline std::uint32_t LoadVX(const std::uint8_t* p, unsigned& size) {
  if (p[0] == 0xFF) {
    size = 4;
    return LoadU4(p) & 0x00FFFFFFu;
  }
  size = 2;
  return LoadU2(p);
}

} // namespace meshcore::lwbytes
