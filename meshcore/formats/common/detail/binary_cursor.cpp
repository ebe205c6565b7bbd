#include "meshcore/formats/common/detail/binary_cursor.h"

#include <algorithm>

namespace meshcore::codec {

std::string CBinaryCursor::NeedText(std::size_t n) const {
  return "needs " + std::to_string(n) + " bytes, " + std::to_string(Remaining()) + " left";
}

void CBinaryCursor::NeedRecords(std::uint64_t count, std::size_t recordSize,
                                const char* what) const {
  const std::uint64_t room = recordSize ? Remaining() / recordSize : ~std::uint64_t(0);
  if (count > room)
    Fail(std::to_string(count) + " " + what + " of " + std::to_string(recordSize) +
         " bytes or more, room for " + std::to_string(room));
}

std::string CBinaryCursor::ZString(bool padEven) {
  auto* z = static_cast<const std::uint8_t*>(std::memchr(m_pos, 0, Remaining()));
  if (!z)
    Fail("string without terminator");
  std::string s(reinterpret_cast<const char*>(m_pos), std::size_t(z - m_pos));
  std::size_t total = s.size() + 1;
  if (padEven)
    total += total & 1;
  m_pos += std::min(total, Remaining());
  return s;
}

std::string CBinaryCursor::FixedString(std::size_t n) {
  std::string_view field = Bytes(n);
  return std::string(field.substr(0, std::min(field.size(), field.find('\0'))));
}

} // namespace meshcore::codec
