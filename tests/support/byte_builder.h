#pragma once
// Hand-assembled file bytes for reader tests, in either byte order: fixed-width
// numbers, ids, strings and chunks, so a test can build exactly the damaged or
// unusual file it needs.

#include <bit>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace meshcore::test {

enum class Endian { Big, Little };

class ByteBuilder {
public:
  explicit ByteBuilder(Endian order = Endian::Big) : order_(order) {}
  explicit ByteBuilder(std::vector<std::uint8_t> bytes, Endian order = Endian::Big)
      : data(std::move(bytes)), order_(order) {}

  std::vector<std::uint8_t> data;

  // Four characters as they are spelled, whatever the order.
  ByteBuilder& id(const char* s) {
    for (int i = 0; i < 4; ++i)
      data.push_back(std::uint8_t(s[i]));
    return *this;
  }
  ByteBuilder& u1(unsigned v) {
    data.push_back(std::uint8_t(v));
    return *this;
  }
  ByteBuilder& u2(unsigned v) {
    return order_ == Endian::Big ? u1(v >> 8).u1(v) : u1(v).u1(v >> 8);
  }
  ByteBuilder& u4(std::uint32_t v) {
    return order_ == Endian::Big ? u2(v >> 16).u2(v & 0xFFFF) : u2(v & 0xFFFF).u2(v >> 16);
  }
  ByteBuilder& f4(float f) { return u4(std::bit_cast<std::uint32_t>(f)); }
  // Lightwave's variable-length index.
  ByteBuilder& vx(std::uint32_t v) { return v < 0xFF00 ? u2(v) : u4(0xFF000000u | v); }
  // Zero-terminated, padded to an even length (Lightwave's S0).
  ByteBuilder& s0(const std::string& s) {
    cstr(s);
    if ((s.size() + 1) & 1)
      u1(0);
    return *this;
  }
  // Zero-terminated, no pad.
  ByteBuilder& cstr(const std::string& s) {
    for (char c : s)
      u1(std::uint8_t(c));
    return u1(0);
  }
  ByteBuilder& raw(const ByteBuilder& b) {
    data.insert(data.end(), b.data.begin(), b.data.end());
    return *this;
  }
  // IFF chunk: id, 4-byte size (or a 2-byte size for a sub-chunk), body, pad to even.
  ByteBuilder& chunk(const char* name, const ByteBuilder& body, bool sub = false) {
    id(name);
    if (sub)
      u2(unsigned(body.data.size()));
    else
      u4(std::uint32_t(body.data.size()));
    raw(body);
    if (body.data.size() & 1)
      u1(0);
    return *this;
  }
  // 3D Studio chunk: 2-byte id, 4-byte size counting the 6-byte header, body.
  ByteBuilder& chunk16(unsigned chunkId, const ByteBuilder& body) {
    u2(chunkId).u4(std::uint32_t(body.data.size() + 6));
    return raw(body);
  }
  std::size_t size() const { return data.size(); }

private:
  Endian order_;
};

inline std::vector<std::uint8_t> ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void WriteFileBytes(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

} // namespace meshcore::test
