#include "meshcore/formats/common/detail/text_cursor.h"

#include <charconv>
#include <cstring>

namespace meshcore::codec {

CTextCursor::CTextCursor(const void* data, std::size_t size, std::size_t maxLine)
    : m_data(static_cast<const char*>(data)), m_size(size), m_maxLine(maxLine) {
  if (m_size >= 3 && std::memcmp(m_data, "\xEF\xBB\xBF", 3) == 0)
    m_pos = 3;
}

bool CTextCursor::NextLine(std::string_view& line) {
  if (m_pos >= m_size)
    return false;
  const char* begin = m_data + m_pos;
  std::size_t left = m_size - m_pos;
  std::size_t n = 0;
  while (n < left && begin[n] != '\n' && begin[n] != '\r')
    ++n;
  ++m_line;
  if (n > m_maxLine)
    Fail("line longer than " + std::to_string(m_maxLine) + " bytes");
  line = std::string_view(begin, n);
  m_pos += n;
  // CR, LF and CRLF each end one line.
  if (m_pos < m_size) {
    if (m_data[m_pos++] == '\r' && m_pos < m_size && m_data[m_pos] == '\n')
      ++m_pos;
  }
  return true;
}

void CTextCursor::Fail(const std::string& what) const {
  throw CFormatError(m_pos, "line " + std::to_string(m_line) + ": " + what);
}

std::string_view CTextCursor::NextToken(std::string_view& text) {
  std::size_t b = 0;
  while (b < text.size() && (text[b] == ' ' || text[b] == '\t'))
    ++b;
  std::size_t e = b;
  while (e < text.size() && text[e] != ' ' && text[e] != '\t')
    ++e;
  std::string_view token = text.substr(b, e - b);
  text.remove_prefix(e);
  return token;
}

std::string_view CTextCursor::Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
    text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
    text.remove_suffix(1);
  return text;
}

namespace {
template <class T> bool ParseWhole(std::string_view token, T& value) {
  const char* b = token.data();
  const char* e = b + token.size();
  if (b != e && *b == '+') // from_chars does not take a leading plus
    ++b;
  auto [ptr, ec] = std::from_chars(b, e, value);
  return ec == std::errc() && ptr == e && b != e;
}
} // namespace

bool CTextCursor::ParseFloat(std::string_view token, float& value) {
  return ParseWhole(token, value);
}
bool CTextCursor::ParseDouble(std::string_view token, double& value) {
  return ParseWhole(token, value);
}
bool CTextCursor::ParseInt(std::string_view token, long long& value) {
  return ParseWhole(token, value);
}

} // namespace meshcore::codec
