#pragma once
// Lines and tokens of a whole text file held in memory: CR, LF and CRLF line
// ends, line numbers for failure messages, a bound on the line length, and
// numbers read through std::from_chars (the C locale, whatever the host's).

#include "meshcore/formats/common/detail/format_error.h"

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace meshcore::codec {

class CTextCursor {
public:
  static constexpr std::size_t kDefaultMaxLine = std::size_t(1) << 24;

  CTextCursor(const void* data, std::size_t size, std::size_t maxLine = kDefaultMaxLine);

  // The next line without its end; false at the end of the text. A line longer
  // than the maximum throws CFormatError. A UTF-8 byte-order mark is skipped.
  bool NextLine(std::string_view& line);
  // The line last returned, counted from 1.
  std::size_t GetLineNumber() const { return m_line; }
  // File offset of the next unread byte, and the total.
  std::size_t GetOffset() const { return m_pos; }
  std::size_t GetSize() const { return m_size; }
  bool AtEnd() const { return m_pos >= m_size; }

  [[noreturn]] void Fail(const std::string& what) const;

  // The first blank-separated token of text, which moves past it; empty at the end.
  static std::string_view NextToken(std::string_view& text);
  static std::string_view Trim(std::string_view text);
  // Whole-token conversions; false when the token is not entirely a number.
  static bool ParseFloat(std::string_view token, float& value);
  static bool ParseDouble(std::string_view token, double& value);
  static bool ParseInt(std::string_view token, long long& value);
  // The leading number of a token, as the C library's scanners read one: what
  // follows it is ignored, nothing numeric at the start fails. Inline: text
  // readers call it for every number of a file.
  template <class T> static bool ParseLeading(std::string_view token, T& value, int base = 10) {
    const char* b = token.data();
    const char* e = b + token.size();
    if (e - b > 1 && *b == '+' && b[1] != '-' && b[1] != '+') // from_chars takes no plus
      ++b;
    std::from_chars_result result;
    if constexpr (std::is_floating_point_v<T>)
      result = std::from_chars(b, e, value);
    else
      result = std::from_chars(b, e, value, base);
    return result.ec == std::errc() && result.ptr != b;
  }

private:
  const char* m_data;
  std::size_t m_size;
  std::size_t m_pos = 0;
  std::size_t m_line = 0;
  std::size_t m_maxLine;
};

} // namespace meshcore::codec
