// Huffman codes are decoded canonically, a bit at a time against the count of
// codes of each length: slower than table lookup, but textures are small.
#include "tools/render/inflater.h"

#include "tools/render/checksum.h"
#include "tools/render/deflate_tables.h"

#include <array>

namespace meshcore::render {

namespace {

using namespace deflate;

constexpr int kMaxBits = 15;

struct Huffman {
  std::array<std::uint16_t, kMaxBits + 1> count{};
  std::array<std::uint16_t, 320> symbol{};
};

class Decoder {
public:
  Decoder(const std::uint8_t* data, std::size_t size, std::size_t maxSize,
          std::vector<std::uint8_t>& out)
      : m_data(data), m_size(size), m_maxSize(maxSize), m_out(out) {}

  bool Run(std::string& error);
  std::size_t Position() const { return m_pos; }

private:
  bool Bits(int n, std::uint32_t& value) {
    std::uint32_t v = 0;
    for (int i = 0; i < n; ++i) {
      if (m_pos >= m_size)
        return Fail("the compressed data ends early");
      v |= static_cast<std::uint32_t>((m_data[m_pos] >> m_bit) & 1) << i;
      if (++m_bit == 8) {
        m_bit = 0;
        ++m_pos;
      }
    }
    value = v;
    return true;
  }
  bool Fail(const char* text) {
    m_error = text;
    return false;
  }
  // Builds the code from code lengths; incomplete codes are allowed (a
  // single distance code is common), over-subscribed ones are not.
  bool Build(Huffman& h, const std::uint8_t* lengths, int n) {
    h.count.fill(0);
    for (int i = 0; i < n; ++i)
      ++h.count[lengths[i]];
    if (h.count[0] == n)
      return true; // no codes: decoding any symbol fails
    int left = 1;
    for (int len = 1; len <= kMaxBits; ++len) {
      left <<= 1;
      left -= h.count[len];
      if (left < 0)
        return Fail("a Huffman code is over-subscribed");
    }
    std::array<std::uint16_t, kMaxBits + 2> offsets{};
    for (int len = 1; len <= kMaxBits; ++len)
      offsets[len + 1] = offsets[len] + h.count[len];
    for (int i = 0; i < n; ++i)
      if (lengths[i] != 0)
        h.symbol[offsets[lengths[i]]++] = static_cast<std::uint16_t>(i);
    return true;
  }
  bool Decode(const Huffman& h, int& symbol) {
    int code = 0, first = 0, index = 0;
    for (int len = 1; len <= kMaxBits; ++len) {
      std::uint32_t bit = 0;
      if (!Bits(1, bit))
        return false;
      code |= static_cast<int>(bit);
      const int count = h.count[len];
      if (code - first < count) {
        symbol = h.symbol[index + (code - first)];
        return true;
      }
      index += count;
      first = (first + count) << 1;
      code <<= 1;
    }
    return Fail("an invalid Huffman code");
  }
  bool Emit(std::uint8_t byte) {
    if (m_out.size() >= m_maxSize)
      return Fail("the data expands beyond the image size");
    m_out.push_back(byte);
    return true;
  }
  bool Stored();
  bool Codes(const Huffman& literals, const Huffman& distances);
  bool Fixed();
  bool Dynamic();

  const std::uint8_t* m_data;
  std::size_t m_size;
  std::size_t m_maxSize;
  std::vector<std::uint8_t>& m_out;
  std::size_t m_pos = 0;
  int m_bit = 0;
  const char* m_error = "";
};

bool Decoder::Stored() {
  if (m_bit != 0) {
    m_bit = 0;
    ++m_pos;
  }
  if (m_pos + 4 > m_size)
    return Fail("the compressed data ends early");
  const unsigned len = m_data[m_pos] | (m_data[m_pos + 1] << 8);
  const unsigned nlen = m_data[m_pos + 2] | (m_data[m_pos + 3] << 8);
  m_pos += 4;
  if (len != (~nlen & 0xFFFFu))
    return Fail("a stored block has a bad length");
  if (m_pos + len > m_size)
    return Fail("the compressed data ends early");
  if (m_out.size() + len > m_maxSize)
    return Fail("the data expands beyond the image size");
  m_out.insert(m_out.end(), m_data + m_pos, m_data + m_pos + len);
  m_pos += len;
  return true;
}

bool Decoder::Codes(const Huffman& literals, const Huffman& distances) {
  for (;;) {
    int symbol = 0;
    if (!Decode(literals, symbol))
      return false;
    if (symbol < 256) {
      if (!Emit(static_cast<std::uint8_t>(symbol)))
        return false;
      continue;
    }
    if (symbol == 256)
      return true;
    symbol -= 257;
    if (symbol >= 29)
      return Fail("an invalid length code");
    std::uint32_t extra = 0;
    if (!Bits(kLengthExtra[symbol], extra))
      return false;
    const std::size_t length = kLengthBase[symbol] + extra;
    int dsymbol = 0;
    if (!Decode(distances, dsymbol))
      return false;
    if (dsymbol >= 30)
      return Fail("an invalid distance code");
    if (!Bits(kDistanceExtra[dsymbol], extra))
      return false;
    const std::size_t distance = kDistanceBase[dsymbol] + extra;
    if (distance > m_out.size())
      return Fail("a distance reaches before the start of the data");
    if (m_out.size() + length > m_maxSize)
      return Fail("the data expands beyond the image size");
    // Byte by byte: a copy may overlap the bytes it produces.
    const std::size_t from = m_out.size() - distance;
    for (std::size_t i = 0; i < length; ++i)
      m_out.push_back(m_out[from + i]);
  }
}

bool Decoder::Fixed() {
  std::array<std::uint8_t, 320> lengths{};
  int i = 0;
  for (; i < 144; ++i)
    lengths[i] = 8;
  for (; i < 256; ++i)
    lengths[i] = 9;
  for (; i < 280; ++i)
    lengths[i] = 7;
  for (; i < 288; ++i)
    lengths[i] = 8;
  for (; i < 318; ++i)
    lengths[i] = 5;
  Huffman literals, distances;
  if (!Build(literals, lengths.data(), 288) || !Build(distances, lengths.data() + 288, 30))
    return false;
  return Codes(literals, distances);
}

bool Decoder::Dynamic() {
  std::uint32_t hlit = 0, hdist = 0, hclen = 0;
  if (!Bits(5, hlit) || !Bits(5, hdist) || !Bits(4, hclen))
    return false;
  hlit += 257;
  hdist += 1;
  hclen += 4;
  if (hlit > 286 || hdist > 30)
    return Fail("a dynamic block declares too many codes");
  static constexpr std::uint8_t kOrder[19] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                              11, 4,  12, 3, 13, 2, 14, 1, 15};
  std::array<std::uint8_t, 320> lengths{};
  for (std::uint32_t i = 0; i < hclen; ++i) {
    std::uint32_t v = 0;
    if (!Bits(3, v))
      return false;
    lengths[kOrder[i]] = static_cast<std::uint8_t>(v);
  }
  Huffman lengthCode;
  if (!Build(lengthCode, lengths.data(), 19))
    return false;
  lengths.fill(0);
  std::uint32_t index = 0;
  while (index < hlit + hdist) {
    int symbol = 0;
    if (!Decode(lengthCode, symbol))
      return false;
    if (symbol < 16) {
      lengths[index++] = static_cast<std::uint8_t>(symbol);
      continue;
    }
    std::uint8_t value = 0;
    std::uint32_t repeat = 0;
    if (symbol == 16) {
      if (index == 0)
        return Fail("a length repeat has nothing to repeat");
      value = lengths[index - 1];
      if (!Bits(2, repeat))
        return false;
      repeat += 3;
    } else if (symbol == 17) {
      if (!Bits(3, repeat))
        return false;
      repeat += 3;
    } else {
      if (!Bits(7, repeat))
        return false;
      repeat += 11;
    }
    if (index + repeat > hlit + hdist)
      return Fail("code lengths run past their count");
    while (repeat-- > 0)
      lengths[index++] = value;
  }
  if (lengths[256] == 0)
    return Fail("a dynamic block has no end code");
  Huffman literals, distances;
  if (!Build(literals, lengths.data(), static_cast<int>(hlit)) ||
      !Build(distances, lengths.data() + hlit, static_cast<int>(hdist)))
    return false;
  return Codes(literals, distances);
}

bool Decoder::Run(std::string& error) {
  std::uint32_t last = 0;
  do {
    std::uint32_t type = 0;
    bool ok = Bits(1, last) && Bits(2, type);
    if (ok) {
      if (type == 0)
        ok = Stored();
      else if (type == 1)
        ok = Fixed();
      else if (type == 2)
        ok = Dynamic();
      else
        ok = Fail("a block of the reserved type");
    }
    if (!ok) {
      error = m_error;
      return false;
    }
  } while (!last);
  if (m_bit != 0) {
    m_bit = 0;
    ++m_pos;
  }
  return true;
}

} // namespace

bool CInflater::Decompress(const std::uint8_t* data, std::size_t size, std::size_t maxSize,
                           std::vector<std::uint8_t>& out, std::string& error) {
  out.clear();
  if (size < 6) {
    error = "the compressed data is too short";
    return false;
  }
  const unsigned cmf = data[0], flg = data[1];
  if ((cmf & 0x0F) != 8 || (cmf >> 4) > 7 || ((cmf << 8) | flg) % 31 != 0) {
    error = "the compressed data has a bad header";
    return false;
  }
  if (flg & 0x20) {
    error = "the compressed data needs a preset dictionary";
    return false;
  }
  Decoder decoder(data + 2, size - 2, maxSize, out);
  if (!decoder.Run(error))
    return false;
  const std::size_t end = 2 + decoder.Position();
  if (end + 4 > size) {
    error = "the compressed data ends before its checksum";
    return false;
  }
  const std::uint32_t stored = (std::uint32_t{data[end]} << 24) | (data[end + 1] << 16) |
                               (data[end + 2] << 8) | data[end + 3];
  if (stored != Adler32(out.data(), out.size())) {
    error = "the image data fails its checksum";
    return false;
  }
  return true;
}

} // namespace meshcore::render
