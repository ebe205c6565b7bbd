#pragma once
// A bounds-checked reader over bytes held in memory (a whole mapped or read
// file). Every read checks what is left and throws CFormatError at the first
// byte that does not fit, so a damaged file can never be read past its end.

#include "meshcore/formats/common/detail/byte_order.h"
#include "meshcore/formats/common/detail/format_error.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace meshcore::codec {

class CBinaryCursor {
public:
  CBinaryCursor() = default;
  // base is the first byte of the file, so that offsets in failures are file offsets.
  CBinaryCursor(const std::uint8_t* base, const std::uint8_t* begin, const std::uint8_t* end,
                ByteOrder order)
      : m_base(base), m_pos(begin), m_end(end), m_order(order) {}
  CBinaryCursor(const void* data, std::size_t size, ByteOrder order)
      : m_base(static_cast<const std::uint8_t*>(data)), m_pos(m_base), m_end(m_base + size),
        m_order(order) {}

  std::size_t Remaining() const { return std::size_t(m_end - m_pos); }
  bool AtEnd() const { return m_pos >= m_end; }
  const std::uint8_t* Data() const { return m_pos; }
  const std::uint8_t* End() const { return m_end; }
  const std::uint8_t* Base() const { return m_base; }
  // File offset of the next byte, or of p.
  std::size_t Offset() const { return std::size_t(m_pos - m_base); }
  std::size_t OffsetOf(const std::uint8_t* p) const { return std::size_t(p - m_base); }
  ByteOrder Order() const { return m_order; }

  [[noreturn]] void Fail(const std::string& what) const { throw CFormatError(Offset(), what); }
  [[noreturn]] void FailAt(const std::uint8_t* p, const std::string& what) const {
    throw CFormatError(OffsetOf(p), what);
  }

  void Need(std::size_t n) const {
    if (Remaining() < n)
      Fail(NeedText(n));
  }
  // A count of records of at least recordSize bytes each must fit in what is
  // left; checked before anything is allocated for them.
  void NeedRecords(std::uint64_t count, std::size_t recordSize, const char* what = "records") const;

  std::uint8_t U8() {
    Need(1);
    return *m_pos++;
  }
  std::uint16_t U16() {
    Need(2);
    std::uint16_t v = LoadU16(m_pos, m_order);
    m_pos += 2;
    return v;
  }
  std::uint32_t U32() {
    Need(4);
    std::uint32_t v = LoadU32(m_pos, m_order);
    m_pos += 4;
    return v;
  }
  std::uint64_t U64() {
    Need(8);
    std::uint64_t v = m_order == ByteOrder::Big ? LoadU64BE(m_pos) : LoadU64LE(m_pos);
    m_pos += 8;
    return v;
  }
  std::int16_t I16() { return std::int16_t(U16()); }
  std::int32_t I32() { return std::int32_t(U32()); }
  float F32() { return std::bit_cast<float>(U32()); }
  double F64() { return std::bit_cast<double>(U64()); }
  // Four bytes read most significant first whatever the order (chunk ids).
  std::uint32_t Id() {
    Need(4);
    std::uint32_t v = LoadU32BE(m_pos);
    m_pos += 4;
    return v;
  }

  // Zero-terminated string. padEven: the string with its terminator takes an
  // even number of bytes (the pad may be missing at the very end).
  std::string ZString(bool padEven = false);
  // A field of n bytes holding a string padded with zeros.
  std::string FixedString(std::size_t n);
  std::string_view Bytes(std::size_t n) {
    Need(n);
    std::string_view v(reinterpret_cast<const char*>(m_pos), n);
    m_pos += n;
    return v;
  }

  void Skip(std::size_t n) {
    Need(n);
    m_pos += n;
  }
  // Moves to p, which must lie between the current position and the end
  // (bulk decoders that walked the bytes themselves).
  void SeekForward(const std::uint8_t* p) {
    if (p < m_pos || p > m_end)
      Fail("position out of range");
    m_pos = p;
  }
  // The next n bytes as a cursor of their own; this one moves past them.
  CBinaryCursor Sub(std::size_t n) {
    Need(n);
    CBinaryCursor sub(m_base, m_pos, m_pos + n, m_order);
    m_pos += n;
    return sub;
  }
  void SetOrder(ByteOrder order) { m_order = order; }

private:
  std::string NeedText(std::size_t n) const;

  const std::uint8_t* m_base = nullptr;
  const std::uint8_t* m_pos = nullptr;
  const std::uint8_t* m_end = nullptr;
  ByteOrder m_order = ByteOrder::Little;
};

} // namespace meshcore::codec
