#include "meshcore/formats/common/detail/format_error.h"

namespace meshcore::codec {

std::string IdToString(std::uint32_t id, unsigned bytes) {
  std::string s;
  bool printable = true;
  for (unsigned i = 0; i < bytes; ++i) {
    char c = char((id >> (8 * (bytes - 1 - i))) & 0xFF);
    printable = printable && c >= 0x20 && c < 0x7F;
    s += c;
  }
  if (printable)
    return s;
  static const char* digits = "0123456789ABCDEF";
  std::string hex = "0x";
  for (unsigned i = bytes * 2; i-- > 0;)
    hex += digits[(id >> (4 * i)) & 0xF];
  return hex;
}

std::string DescribeFailure(const std::string& context, std::size_t offset,
                            const std::string& what) {
  std::string s = context;
  if (!s.empty())
    s += ' ';
  s += "at byte " + std::to_string(offset);
  if (!what.empty())
    s += ": " + what;
  return s;
}

} // namespace meshcore::codec
