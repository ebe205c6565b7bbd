#pragma once
// Walks a sequence of chunks (id, size, body) of one of the layouts the
// formats use, checking every size against its parent, polling cancellation
// and reporting progress per chunk.

#include "meshcore/formats/common/detail/binary_cursor.h"

#include <cstddef>
#include <cstdint>

namespace meshcore {
class CCancelCheck;
}

namespace meshcore::codec {

struct ChunkLayout {
  unsigned idBytes = 4;   // 2 or 4; ids are read in the layout's byte order when 2
  unsigned sizeBytes = 4; // 2 or 4
  ByteOrder order = ByteOrder::Big;
  bool sizeIncludesHeader = false;
  unsigned alignment = 1; // 2: an odd-sized body is followed by a pad byte
};

// IFF as Lightwave uses it: 4-byte id, 4-byte big-endian size, even padding;
// and its sub-chunks with a 2-byte size.
inline constexpr ChunkLayout kIffChunks{4, 4, ByteOrder::Big, false, 2};
inline constexpr ChunkLayout kIffSubChunks{4, 2, ByteOrder::Big, false, 2};
// 3D Studio: 2-byte little-endian id, 4-byte size counting the 6-byte header.
inline constexpr ChunkLayout k3dsChunks{2, 4, ByteOrder::Little, true, 1};

struct Chunk {
  std::uint32_t id = 0;
  std::size_t offset = 0; // file offset of the chunk's header
  CBinaryCursor body;
};

class CChunkWalker {
public:
  // cancel may be null; when set, the walk stops (Next answers false and
  // IsCancelled true) once the operation has been asked to stop.
  CChunkWalker(CBinaryCursor range, const ChunkLayout& layout, CCancelCheck* cancel = nullptr)
      : m_range(range), m_layout(layout), m_cancel(cancel) {}

  // The next chunk, or false at the end of the range (or when cancelled). A
  // header cut short or a size past the range throws CFormatError.
  bool Next(Chunk& chunk);
  bool IsCancelled() const { return m_cancelled; }
  // The chunk last returned, for failure messages.
  std::uint32_t GetCurrentId() const { return m_currentId; }
  std::size_t GetCurrentOffset() const { return m_currentOffset; }

private:
  CBinaryCursor m_range;
  ChunkLayout m_layout;
  CCancelCheck* m_cancel;
  bool m_cancelled = false;
  std::uint32_t m_currentId = 0;
  std::size_t m_currentOffset = 0;
};

} // namespace meshcore::codec
