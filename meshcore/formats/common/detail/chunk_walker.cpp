#include "meshcore/formats/common/detail/chunk_walker.h"

#include "meshcore/platform/cancel.h"

namespace meshcore::codec {

bool CChunkWalker::Next(Chunk& chunk) {
  if (m_cancelled || m_range.AtEnd())
    return false;
  if (m_cancel && m_cancel->At(m_range.Offset())) {
    m_cancelled = true;
    return false;
  }
  const std::size_t headerBytes = m_layout.idBytes + m_layout.sizeBytes;
  m_currentId = 0;
  m_currentOffset = m_range.Offset();
  if (m_range.Remaining() < headerBytes)
    m_range.Fail("chunk header cut short");
  chunk.offset = m_range.Offset();
  chunk.id = m_layout.idBytes == 4 ? m_range.Id() : m_range.U16();
  m_currentId = chunk.id;
  std::uint64_t size = m_layout.sizeBytes == 4 ? m_range.U32() : m_range.U16();
  if (m_layout.sizeIncludesHeader) {
    if (size < headerBytes)
      throw CFormatError(chunk.offset,
                         "chunk size " + std::to_string(size) + " smaller than its header");
    size -= headerBytes;
  }
  if (size > m_range.Remaining())
    throw CFormatError(chunk.offset, "chunk size " + std::to_string(size) + " past its parent (" +
                                         std::to_string(m_range.Remaining()) + " bytes left)");
  chunk.body = m_range.Sub(std::size_t(size));
  // The pad byte after an odd body may be missing at the very end.
  if (m_layout.alignment == 2 && (size & 1) && !m_range.AtEnd())
    m_range.Skip(1);
  return true;
}

} // namespace meshcore::codec
