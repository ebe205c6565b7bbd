// Compression for the PNG writer. Fixed codes keep the coder small; pictures
// of a rendered scene are mostly long runs, which LZ77 alone takes care of.
#include "tools/render/deflater.h"

#include "tools/render/checksum.h"
#include "tools/render/deflate_tables.h"

#include <algorithm>

namespace meshcore::render {

namespace {

using namespace deflate;

class BitWriter {
public:
  explicit BitWriter(std::vector<std::uint8_t>& out) : m_out(out) {}
  // Bits go out least significant first.
  void Put(std::uint32_t bits, int count) {
    m_buffer |= static_cast<std::uint64_t>(bits) << m_count;
    m_count += count;
    while (m_count >= 8) {
      m_out.push_back(static_cast<std::uint8_t>(m_buffer));
      m_buffer >>= 8;
      m_count -= 8;
    }
  }
  // Huffman codes are defined most significant bit first.
  void PutCode(std::uint32_t code, int length) {
    std::uint32_t reversed = 0;
    for (int i = 0; i < length; ++i)
      reversed |= ((code >> i) & 1u) << (length - 1 - i);
    Put(reversed, length);
  }
  void Flush() {
    if (m_count > 0)
      m_out.push_back(static_cast<std::uint8_t>(m_buffer));
    m_buffer = 0;
    m_count = 0;
  }

private:
  std::vector<std::uint8_t>& m_out;
  std::uint64_t m_buffer = 0;
  int m_count = 0;
};

void PutLiteral(BitWriter& w, int symbol) {
  if (symbol < 144)
    w.PutCode(0x30 + symbol, 8);
  else if (symbol < 256)
    w.PutCode(0x190 + (symbol - 144), 9);
  else if (symbol < 280)
    w.PutCode(symbol - 256, 7);
  else
    w.PutCode(0xC0 + (symbol - 280), 8);
}

void PutMatch(BitWriter& w, int length, int distance) {
  int code = 28;
  while (kLengthBase[code] > length)
    --code;
  PutLiteral(w, 257 + code);
  w.Put(length - kLengthBase[code], kLengthExtra[code]);
  int dcode = 29;
  while (kDistanceBase[dcode] > distance)
    --dcode;
  w.PutCode(dcode, 5);
  w.Put(distance - kDistanceBase[dcode], kDistanceExtra[dcode]);
}

constexpr int kHashBits = 15;
constexpr int kMaxChain = 48;

inline std::uint32_t Hash3(const std::uint8_t* p) {
  const std::uint32_t v = p[0] | (p[1] << 8) | (p[2] << 16);
  return (v * 2654435761u) >> (32 - kHashBits);
}

} // namespace

std::vector<std::uint8_t> CDeflater::Compress(const std::uint8_t* data, std::size_t size) {
  std::vector<std::uint8_t> out;
  out.reserve(size / 4 + 64);
  out.push_back(0x78); // deflate, 32K window
  out.push_back(0x01); // no dictionary, fastest level; (0x78 << 8 | 0x01) % 31 == 0

  BitWriter w(out);
  w.Put(1, 1); // final block
  w.Put(1, 2); // fixed Huffman codes

  std::vector<std::int32_t> head(std::size_t{1} << kHashBits, -1);
  std::vector<std::int32_t> prev(kWindowSize, -1);
  // Positions are 32-bit: pictures stay far below 2 GB.
  const std::int64_t n = static_cast<std::int64_t>(size);
  auto insert = [&](std::int64_t pos) {
    if (pos + kMinMatch > n)
      return;
    const std::uint32_t h = Hash3(data + pos);
    prev[pos & (kWindowSize - 1)] = head[h];
    head[h] = static_cast<std::int32_t>(pos);
  };

  std::int64_t pos = 0;
  while (pos < n) {
    int bestLength = 0, bestDistance = 0;
    if (pos + kMinMatch <= n) {
      const int maxLength = static_cast<int>(std::min<std::int64_t>(kMaxMatch, n - pos));
      std::int32_t candidate = head[Hash3(data + pos)];
      for (int chain = 0; candidate >= 0 && chain < kMaxChain; ++chain) {
        const std::int64_t distance = pos - candidate;
        if (distance > kWindowSize - 1 || distance <= 0)
          break;
        const std::uint8_t* a = data + candidate;
        const std::uint8_t* b = data + pos;
        if (a[bestLength] == b[bestLength]) {
          int length = 0;
          while (length < maxLength && a[length] == b[length])
            ++length;
          if (length > bestLength) {
            bestLength = length;
            bestDistance = static_cast<int>(distance);
            if (length == maxLength)
              break;
          }
        }
        const std::int32_t next = prev[candidate & (kWindowSize - 1)];
        if (next >= candidate)
          break; // the slot was reused by a newer position
        candidate = next;
      }
    }
    if (bestLength >= kMinMatch) {
      PutMatch(w, bestLength, bestDistance);
      for (int i = 0; i < bestLength; ++i)
        insert(pos + i);
      pos += bestLength;
    } else {
      PutLiteral(w, data[pos]);
      insert(pos);
      ++pos;
    }
  }
  PutLiteral(w, 256);
  w.Flush();

  const std::uint32_t adler = Adler32(data, size);
  for (int shift = 24; shift >= 0; shift -= 8)
    out.push_back(static_cast<std::uint8_t>(adler >> shift));
  return out;
}

} // namespace meshcore::render
