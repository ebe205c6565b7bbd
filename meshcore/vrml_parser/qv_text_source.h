#pragma once
// Input of the VRML 1.0 parser: the whole file is held in memory and scanned by a
// hand-written lexer (no iostreams, no per-token allocation, numbers through
// std::from_chars so that the locale never matters).

#include "meshcore/vrml_parser/qv_dict.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

namespace meshcore {

class QvReader;

// Receives every posted message, already formatted and ending in a newline.
using QvErrorSink = std::function<void(const std::string& text)>;

// The parser's name for itself.
inline constexpr const char* kQvParserName = "Reference VRML Parser 1.0";

class QvTextSource {
public:
  QvTextSource();
  QvTextSource(const QvTextSource&) = delete;
  QvTextSource& operator=(const QvTextSource&) = delete;

  // Input selection; without any, the first read takes the standard input.
  bool SetFile(const std::string& path); // posts "could not open file" on failure
  void SetFilePointer(std::FILE* fp);    // reads the rest of fp now
  void SetBuffer(std::string text);
  // Reads bytes the caller keeps alive until the graph has been read (no copy).
  void SetView(const char* data, std::size_t size);

  void SetErrorSink(QvErrorSink sink);
  static void WriteToStandardError(const std::string& text);

  // Known headers map to a version; every accepted header gives 1.0.
  static bool LookupHeader(std::string_view line, float& version);

  float GetVersion() const { return version_; }
  bool IsOk() const { return ok_; }
  bool HasReadHeader() const { return headerRead_; }
  bool IsInventor() const { return inventor_; } // the header named Inventor
  int GetLineNum() const { return lineNum_; }
  QvDict& GetDict() { return dict_; }

  // Raw characters; comments are not skipped. False at the end of the input.
  bool Get(char& c) {
    if (cur_ == end_ && !Fill())
      return false;
    c = *cur_++;
    if (c == '\n')
      ++lineNum_;
    return true;
  }
  // Returns the character just read to the input.
  void PutBack(char c) {
    if (cur_ > begin_ && cur_[-1] == c) {
      --cur_;
      if (c == '\n')
        --lineNum_;
    }
  }

  // Skips blanks and comments; false at the end of the input.
  bool SkipBlanks() {
    for (;;) {
      if (cur_ == end_ && !Fill())
        return false;
      const char c = *cur_;
      if (static_cast<unsigned char>(c) <= ' ') {
        if (c == '\n')
          ++lineNum_;
        ++cur_;
      } else if (c == '#') {
        if (!SkipComment())
          return false;
      } else {
        return true;
      }
    }
  }
  // The next non-blank character, consumed or not.
  bool Read(char& c) { return SkipBlanks() && Get(c); }
  bool Peek(char& c) {
    if (!SkipBlanks())
      return false;
    c = *cur_;
    return true;
  }
  bool AtEnd() { return !SkipBlanks(); }

  // Words of letters, digits and underscores (type names, field names, enum names).
  static bool IsWordChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  }
  std::string_view ReadWord();
  // A DEF or USE name: a run of printable characters up to a blank, a brace or a comment.
  std::string_view ReadName();
  // A quoted string (backslash escapes a quote or a backslash) or an unquoted word.
  bool ReadString(std::string& s);

  bool ReadFloat(float& f) {
    if (!SkipBlanks())
      return false;
    const char* p = cur_;
    if (*p == '+' && p + 1 < end_ && p[1] != '-' && p[1] != '+')
      ++p;
    return ParseFloat(p, f);
  }
  // C rules: optional sign, then decimal, 0x hexadecimal or 0 octal. Values that fit
  // in 32 bits keep their bit pattern (so 0xff0000ff works); larger ones saturate.
  bool ReadInt(std::int32_t& v);
  bool ReadUInt32(std::uint32_t& v);

  // Skips a node body up to its closing brace, respecting strings and comments.
  // The opening brace has been read. False at the end of the input.
  bool SkipBody();

  // Bytes not yet read (a bound for counts read from the file).
  std::size_t Remaining() const { return static_cast<std::size_t>(realEnd_ - cur_); }

  // Rewinding over text that held no newline.
  struct Mark {
    const char* pos;
    int line;
  };
  Mark GetMark() const { return Mark{cur_, lineNum_}; }
  void Reset(const Mark& m) {
    cur_ = m.pos;
    lineNum_ = m.line;
  }

  // "VRML read error: <message>\n\tOccurred at line <n>\n"
  [[gnu::format(printf, 2, 3)]] void PostError(const char* fmt, ...);
  // "VRML error in <method>(): <message>\n"
  [[gnu::format(printf, 3, 4)]] void PostInternalError(const char* method, const char* fmt, ...);
  int GetErrorCount() const { return errorCount_; }

  // The graph reader working on this input, for fields that hold nodes.
  QvReader* GetReader() const { return reader_; }
  void SetReader(QvReader* r) { reader_ = r; }

private:
  bool Fill();
  bool ReadHeader();
  bool SkipComment();
  bool ParseFloat(const char* p, float& f);
  bool ParseUnsigned(std::uint64_t& mag, bool& neg);
  void ResetInput(const char* data, std::size_t size);

  std::string data_;
  const char* begin_ = nullptr;
  const char* cur_ = nullptr;
  const char* end_ = nullptr;     // end of what may be read now
  const char* realEnd_ = nullptr; // end of the data
  bool loaded_ = false;
  bool headerRead_ = false;
  bool ok_ = true;
  bool inventor_ = false;
  float version_ = 1.0f;
  int lineNum_ = 1;
  int errorCount_ = 0;
  QvDict dict_;
  QvErrorSink sink_;
  QvReader* reader_ = nullptr;
};

// printf-style formatting for messages (integers, characters and strings only).
[[gnu::format(printf, 1, 2)]] std::string QvFormat(const char* fmt, ...);

} // namespace meshcore
