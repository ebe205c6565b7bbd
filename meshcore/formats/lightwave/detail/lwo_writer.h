#pragma once
// The one encoder of "LWO2" bytes: the chunk primitives of the format over the
// shared binary writer, and the whole-object writer. The codec converts a
// scene into an st_lwObject; only this file turns it into bytes.

#include "meshcore/formats/common/detail/binary_writer.h"
#include "meshcore/formats/lightwave/detail/lwo_object.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace meshcore {

class CLwoWriter : public codec::CBinaryWriter {
public:
  CLwoWriter() : CBinaryWriter(codec::ByteOrder::Big) {}

  // A chunk (4-byte size) or sub-chunk (2-byte size) whose size is filled in
  // when the scope closes. An odd length gets a zero pad byte that the size
  // field counts too.
  [[nodiscard]] ChunkScope BeginChunk(std::uint32_t id);
  [[nodiscard]] ChunkScope BeginSubChunk(std::uint32_t id);

  void WriteID(std::uint32_t id) { Id(id); }
  void WriteU2(std::uint16_t v) { U16(v); }
  void WriteU4(std::uint32_t v) { U32(v); }
  void WriteF4(float v) { F32(v); }
  // S0: up to the first zero byte, a terminator, and a pad to even length.
  void WriteString(std::string_view s) { ZString(s, true); }
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
};

// The ordinal string of a texture block: one fixed ordinal is enough for the
// single block per channel that is written.
std::string GetOrdinalString(int a, int b);

enum class LwWriteResult { Ok, DoesNotFit, Cancelled };

// Writes the object as "LWO2": TAGS, every CLIP, then per layer LAYR, PNTS,
// the per-point maps, and per run of equal polygon type POLS, PTAG "SURF" and
// the per-polygon maps of that run, and last every SURF. Polygons are written
// in their stored vertex order. cancellable: polls the thread's cancel flag
// every few thousand records.
LwWriteResult WriteLightwaveObject(const st_lwObject& object, CLwoWriter& writer,
                                   bool cancellable = false);

} // namespace meshcore
