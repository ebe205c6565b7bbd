#include "meshcore/formats/common/detail/binary_writer.h"

#include <algorithm>
#include <cstring>

namespace meshcore::codec {

void CBinaryWriter::Bytes(const void* data, std::size_t n) {
  if (n)
    std::memcpy(Extend(n), data, n);
}

void CBinaryWriter::ZString(std::string_view s, bool padEven) {
  s = s.substr(0, std::min(s.size(), s.find('\0')));
  std::size_t total = s.size() + 1;
  if (padEven)
    total += total & 1;
  std::uint8_t* p = Extend(total);
  std::memcpy(p, s.data(), s.size());
  std::memset(p + s.size(), 0, total - s.size());
}

CBinaryWriter::ChunkScope CBinaryWriter::Chunk(std::uint32_t id, unsigned idBytes,
                                               const SizeField& field) {
  if (idBytes == 4)
    Id(id);
  else
    U16(std::uint16_t(id));
  SizeField f = field;
  f.headerBytes = idBytes;
  std::size_t at = m_buffer.size();
  Extend(f.bytes == 2 ? 2 : 4);
  return ChunkScope(*this, at, f);
}

void CBinaryWriter::ChunkScope::Close() {
  if (!m_writer)
    return;
  CBinaryWriter& w = *m_writer;
  m_writer = nullptr;
  const unsigned sizeBytes = m_field.bytes == 2 ? 2 : 4;
  std::uint64_t length = w.m_buffer.size() - m_sizeAt - sizeBytes;
  if (m_field.padOdd && (length & 1)) {
    w.m_buffer.push_back(0);
    if (m_field.sizeCountsPad)
      ++length;
  }
  if (m_field.includesHeader)
    length += sizeBytes + m_field.headerBytes;
  const std::uint64_t limit = sizeBytes == 2 ? 0xFFFFu : 0xFFFFFFFFu;
  if (length > limit)
    w.m_valid = false;
  if (sizeBytes == 2)
    StoreU16(w.m_buffer.data() + m_sizeAt, std::uint16_t(length), w.m_order);
  else
    StoreU32(w.m_buffer.data() + m_sizeAt, std::uint32_t(length), w.m_order);
}

} // namespace meshcore::codec
