#pragma once
// Writes "LWO2" bytes into a memory buffer: the chunk primitives and the
// whole-object writer. The buffer goes to disk in one write.

#include "meshcore/formats/lightwave/lwo_object.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace meshcore {

class CLwoWriter {
public:
  std::vector<std::uint8_t>& GetBuffer() { return m_buffer; }
  const std::vector<std::uint8_t>& GetBuffer() const { return m_buffer; }
  std::size_t GetPosition() const { return m_buffer.size(); }
  // False once a value did not fit its field (an index of 2^24 or more, a
  // sub-chunk longer than 65535 bytes, a chunk longer than 4 GB).
  bool IsValid() const { return m_valid; }

  // Writes the ID and a zero size placeholder of 4 bytes (long chunk) or 2
  // bytes (sub-chunk); returns the placeholder's position.
  std::size_t BeginWriteChunk(std::uint32_t id, bool longChunk);
  // Fills the placeholder. An odd length gets a zero pad byte that the size
  // field counts too.
  void EndWriteChunk(std::size_t position, bool longChunk);

  void WriteID(std::uint32_t id) { WriteU4(id); }
  void WriteU1(std::uint8_t v) { m_buffer.push_back(v); }
  void WriteU2(std::uint16_t v);
  void WriteU4(std::uint32_t v);
  void WriteF4(float v);
  // S0: up to the first zero byte, a terminator, and a pad to even length.
  void WriteString(std::string_view s);
  // Variable-length index; returns the bytes written (2 or 4, 0 when the
  // index does not fit in 24 bits).
  int WriteVXChunk(std::uint32_t index);

  void WriteShortChunk(std::uint16_t value, std::uint32_t id);
  void WriteIntChunk(std::uint32_t value, std::uint32_t id);
  void WriteFloatChunk(float value, std::uint32_t id);
  // Value followed by envelope index 0.
  void WriteFloatEnvChunk(float value, std::uint32_t id);
  // Colour components in 0..1 followed by envelope index 0.
  void WriteColorChunk(const float rgb[3], std::uint32_t id);

  // Room for n more bytes at the end, for bulk encoders.
  std::uint8_t* Extend(std::size_t n);
  void Reserve(std::size_t n) { m_buffer.reserve(n); }

private:
  std::vector<std::uint8_t> m_buffer;
  bool m_valid = true;
};

// The ordinal string of a texture block: one fixed ordinal is enough for the
// single block per channel that is written.
std::string GetOrdinalString(int a, int b);

// Writes the object as "LWO2": TAGS, every CLIP, then per layer LAYR, PNTS,
// the per-point maps, and per run of equal polygon type POLS, PTAG "SURF" and
// the per-polygon maps of that run, and last every SURF. Polygons are written
// in their stored vertex order. False when something did not fit the format.
bool WriteLightwaveObject(const st_lwObject& object, CLwoWriter& writer);

} // namespace meshcore
