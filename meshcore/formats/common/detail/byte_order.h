#pragma once
// Fixed-width loads and stores in either byte order. Written with shifts only:
// compilers turn them into single moves and byte swaps, and no built-in is
// needed.

#include <bit>
#include <cstdint>

namespace meshcore::codec {

enum class ByteOrder { Big, Little };

inline std::uint16_t LoadU16BE(const std::uint8_t* p) {
  return std::uint16_t((unsigned(p[0]) << 8) | unsigned(p[1]));
}
inline std::uint32_t LoadU32BE(const std::uint8_t* p) {
  return (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8) |
         std::uint32_t(p[3]);
}
inline std::uint16_t LoadU16LE(const std::uint8_t* p) {
  return std::uint16_t(unsigned(p[0]) | (unsigned(p[1]) << 8));
}
inline std::uint32_t LoadU32LE(const std::uint8_t* p) {
  return std::uint32_t(p[0]) | (std::uint32_t(p[1]) << 8) | (std::uint32_t(p[2]) << 16) |
         (std::uint32_t(p[3]) << 24);
}
inline std::uint64_t LoadU64LE(const std::uint8_t* p) {
  return std::uint64_t(LoadU32LE(p)) | (std::uint64_t(LoadU32LE(p + 4)) << 32);
}
inline std::uint64_t LoadU64BE(const std::uint8_t* p) {
  return (std::uint64_t(LoadU32BE(p)) << 32) | std::uint64_t(LoadU32BE(p + 4));
}
inline float LoadF32BE(const std::uint8_t* p) {
  return std::bit_cast<float>(LoadU32BE(p));
}
inline float LoadF32LE(const std::uint8_t* p) {
  return std::bit_cast<float>(LoadU32LE(p));
}

inline void StoreU16BE(std::uint8_t* p, std::uint16_t v) {
  p[0] = std::uint8_t(v >> 8);
  p[1] = std::uint8_t(v);
}
inline void StoreU32BE(std::uint8_t* p, std::uint32_t v) {
  p[0] = std::uint8_t(v >> 24);
  p[1] = std::uint8_t(v >> 16);
  p[2] = std::uint8_t(v >> 8);
  p[3] = std::uint8_t(v);
}
inline void StoreU16LE(std::uint8_t* p, std::uint16_t v) {
  p[0] = std::uint8_t(v);
  p[1] = std::uint8_t(v >> 8);
}
inline void StoreU32LE(std::uint8_t* p, std::uint32_t v) {
  p[0] = std::uint8_t(v);
  p[1] = std::uint8_t(v >> 8);
  p[2] = std::uint8_t(v >> 16);
  p[3] = std::uint8_t(v >> 24);
}
inline void StoreF32BE(std::uint8_t* p, float v) {
  StoreU32BE(p, std::bit_cast<std::uint32_t>(v));
}
inline void StoreF32LE(std::uint8_t* p, float v) {
  StoreU32LE(p, std::bit_cast<std::uint32_t>(v));
}

inline std::uint16_t LoadU16(const std::uint8_t* p, ByteOrder order) {
  return order == ByteOrder::Big ? LoadU16BE(p) : LoadU16LE(p);
}
inline std::uint32_t LoadU32(const std::uint8_t* p, ByteOrder order) {
  return order == ByteOrder::Big ? LoadU32BE(p) : LoadU32LE(p);
}
inline void StoreU16(std::uint8_t* p, std::uint16_t v, ByteOrder order) {
  order == ByteOrder::Big ? StoreU16BE(p, v) : StoreU16LE(p, v);
}
inline void StoreU32(std::uint8_t* p, std::uint32_t v, ByteOrder order) {
  order == ByteOrder::Big ? StoreU32BE(p, v) : StoreU32LE(p, v);
}

// Four ASCII characters, most significant first, as chunk and class ids are
// spelled ("FORM", "DXF ").
constexpr std::uint32_t MakeId(const char (&s)[5]) {
  return (std::uint32_t(std::uint8_t(s[0])) << 24) | (std::uint32_t(std::uint8_t(s[1])) << 16) |
         (std::uint32_t(std::uint8_t(s[2])) << 8) | std::uint32_t(std::uint8_t(s[3]));
}

} // namespace meshcore::codec
