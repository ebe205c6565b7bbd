#pragma once
// Builds a file's bytes in memory in one byte order. Chunks are opened as
// scopes that fill in their size when they close, so begin and end can never
// be mismatched. The bytes then go to disk in one write (file_output.h).

#include "meshcore/formats/common/detail/byte_order.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace meshcore::codec {

class CBinaryWriter {
public:
  explicit CBinaryWriter(ByteOrder order) : m_order(order) {}

  std::vector<std::uint8_t>& GetBuffer() { return m_buffer; }
  const std::vector<std::uint8_t>& GetBuffer() const { return m_buffer; }
  std::size_t GetPosition() const { return m_buffer.size(); }
  // False once a value did not fit its field (a chunk longer than its size
  // field can say, an index past its encoding).
  bool IsValid() const { return m_valid; }
  void Invalidate() { m_valid = false; }
  void Reserve(std::size_t n) { m_buffer.reserve(n); }

  // Room for n more bytes at the end, for bulk encoders.
  std::uint8_t* Extend(std::size_t n) {
    std::size_t old = m_buffer.size();
    m_buffer.resize(old + n);
    return m_buffer.data() + old;
  }
  void U8(std::uint8_t v) { m_buffer.push_back(v); }
  void U16(std::uint16_t v) { StoreU16(Extend(2), v, m_order); }
  void U32(std::uint32_t v) { StoreU32(Extend(4), v, m_order); }
  void F32(float v) { U32(std::bit_cast<std::uint32_t>(v)); }
  // Four characters most significant first, whatever the order.
  void Id(std::uint32_t id) { StoreU32BE(Extend(4), id); }
  void Bytes(const void* data, std::size_t n);
  // The string up to its first zero byte and a terminator; padEven adds a zero
  // so that the whole takes an even number of bytes.
  void ZString(std::string_view s, bool padEven = false);

  // How a chunk's size field is written when its scope closes.
  struct SizeField {
    unsigned bytes = 4;          // 2 or 4
    bool includesHeader = false; // the size counts the id and the size field
    unsigned headerBytes = 0;    // bytes of the header before the size field
    bool padOdd = false;         // an odd body gets a zero pad byte...
    bool sizeCountsPad = false;  // ...which the size field counts too
  };

  // An open chunk; its size is written when it closes (or goes out of scope).
  class ChunkScope {
  public:
    ChunkScope(CBinaryWriter& writer, std::size_t sizeAt, const SizeField& field)
        : m_writer(&writer), m_sizeAt(sizeAt), m_field(field) {}
    ChunkScope(ChunkScope&& other) noexcept
        : m_writer(other.m_writer), m_sizeAt(other.m_sizeAt), m_field(other.m_field) {
      other.m_writer = nullptr;
    }
    ChunkScope(const ChunkScope&) = delete;
    ChunkScope& operator=(const ChunkScope&) = delete;
    ChunkScope& operator=(ChunkScope&&) = delete;
    ~ChunkScope() { Close(); }
    void Close();

  private:
    CBinaryWriter* m_writer;
    std::size_t m_sizeAt;
    SizeField m_field;
  };

  // Writes the id (idBytes 2 or 4 in the writer's order for 2) and a size
  // placeholder, and returns the scope that fills it in.
  [[nodiscard]] ChunkScope Chunk(std::uint32_t id, unsigned idBytes, const SizeField& field);

private:
  std::vector<std::uint8_t> m_buffer;
  ByteOrder m_order;
  bool m_valid = true;
};

} // namespace meshcore::codec
