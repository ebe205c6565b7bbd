#pragma once
// Hand-assembled Lightwave bytes for the tests.

#include <bit>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace meshcore::lwtest {

class Bytes {
public:
  std::vector<std::uint8_t> data;

  Bytes& id(const char* s) {
    for (int i = 0; i < 4; ++i)
      data.push_back(std::uint8_t(s[i]));
    return *this;
  }
  Bytes& u1(unsigned v) {
    data.push_back(std::uint8_t(v));
    return *this;
  }
  Bytes& u2(unsigned v) {
    u1(v >> 8);
    return u1(v);
  }
  Bytes& u4(std::uint32_t v) {
    u2(v >> 16);
    return u2(v & 0xFFFF);
  }
  Bytes& f4(float f) { return u4(std::bit_cast<std::uint32_t>(f)); }
  Bytes& vx(std::uint32_t v) { return v < 0xFF00 ? u2(v) : u4(0xFF000000u | v); }
  Bytes& s0(const std::string& s) {
    for (char c : s)
      u1(std::uint8_t(c));
    u1(0);
    if ((s.size() + 1) & 1)
      u1(0);
    return *this;
  }
  Bytes& raw(const Bytes& b) {
    data.insert(data.end(), b.data.begin(), b.data.end());
    return *this;
  }
  // A chunk with a 4-byte size (sub = false) or a 2-byte size, padded to even.
  Bytes& chunk(const char* name, const Bytes& body, bool sub = false) {
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
  std::size_t size() const { return data.size(); }
};

// FORM wrapper around the given chunks.
inline Bytes Form(const char* type, const Bytes& chunks) {
  Bytes b;
  b.id("FORM").u4(std::uint32_t(chunks.size() + 4)).id(type).raw(chunks);
  return b;
}

inline Bytes Points(std::initializer_list<float> xyz) {
  Bytes b;
  for (float f : xyz)
    b.f4(f);
  return b;
}

inline std::vector<std::uint8_t> ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

} // namespace meshcore::lwtest
