#include "meshcore/vrml_parser/qv_text_source.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <limits>

namespace meshcore {

namespace {

struct HeaderEntry {
  const char* line;
  float version;
  bool inventor;
};

// Inventor 2.x ascii files are read as VRML 1.0: they share the syntax.
constexpr HeaderEntry kHeaders[] = {
    {"#VRML V1.0 ascii", 1.0f, false},
    {"#Inventor V2.1 ascii", 1.0f, true},
    {"#Inventor V2.0 ascii", 1.0f, true},
};

const HeaderEntry* FindHeader(std::string_view line) {
  while (!line.empty() && line.back() == '\r')
    line.remove_suffix(1);
  for (const auto& h : kHeaders) {
    std::string_view known(h.line);
    if (line == known)
      return &h;
    // Anything after the header and a blank is a comment.
    if (line.size() > known.size() && line.substr(0, known.size()) == known &&
        (line[known.size()] == ' ' || line[known.size()] == '\t'))
      return &h;
  }
  return nullptr;
}

std::string VFormat(const char* fmt, va_list ap) {
  char small[512];
  va_list copy;
  va_copy(copy, ap);
  int n = std::vsnprintf(small, sizeof small, fmt, copy);
  va_end(copy);
  if (n < 0)
    return fmt;
  if (static_cast<std::size_t>(n) < sizeof small)
    return std::string(small, static_cast<std::size_t>(n));
  std::string big(static_cast<std::size_t>(n) + 1, '\0');
  std::vsnprintf(big.data(), big.size(), fmt, ap);
  big.resize(static_cast<std::size_t>(n));
  return big;
}

} // namespace

std::string QvFormat(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  std::string s = VFormat(fmt, ap);
  va_end(ap);
  return s;
}

QvTextSource::QvTextSource() : sink_(&QvTextSource::WriteToStandardError) {}

void QvTextSource::WriteToStandardError(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
}

void QvTextSource::SetErrorSink(QvErrorSink sink) {
  sink_ = sink ? std::move(sink) : QvErrorSink(&QvTextSource::WriteToStandardError);
}

bool QvTextSource::LookupHeader(std::string_view line, float& version) {
  const HeaderEntry* h = FindHeader(line);
  if (h)
    version = h->version;
  return h != nullptr;
}

void QvTextSource::ResetInput(const char* data, std::size_t size) {
  begin_ = cur_ = data;
  realEnd_ = begin_ + size;
  end_ = cur_; // nothing readable until the header has been checked
  loaded_ = true;
  headerRead_ = false;
  ok_ = true;
  inventor_ = false;
  version_ = 1.0f;
  lineNum_ = 1;
  dict_.Clear();
}

void QvTextSource::SetBuffer(std::string text) {
  data_ = std::move(text);
  ResetInput(data_.data(), data_.size());
}

void QvTextSource::SetView(const char* data, std::size_t size) {
  data_.clear();
  ResetInput(data, size);
}

void QvTextSource::SetFilePointer(std::FILE* fp) {
  std::string text;
  char chunk[65536];
  std::size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, fp)) > 0)
    text.append(chunk, n);
  SetBuffer(std::move(text));
}

bool QvTextSource::SetFile(const std::string& path) {
  std::FILE* fp = std::fopen(path.c_str(), "rb");
  if (!fp) {
    PostError("could not open file");
    return false;
  }
  std::string text;
  long size = -1;
  if (std::fseek(fp, 0, SEEK_END) == 0) {
    size = std::ftell(fp);
    std::fseek(fp, 0, SEEK_SET);
  }
  if (size > 0) {
    // Straight into the buffer; a file that changed size meanwhile is read on below.
    text.resize(static_cast<std::size_t>(size));
    text.resize(std::fread(text.data(), 1, text.size(), fp));
  }
  char chunk[1 << 16];
  std::size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, fp)) > 0)
    text.append(chunk, n);
  std::fclose(fp);
  SetBuffer(std::move(text));
  return true;
}

bool QvTextSource::Fill() {
  if (!loaded_)
    SetFilePointer(stdin);
  if (headerRead_)
    return false;
  headerRead_ = true;
  end_ = realEnd_;
  if (!ReadHeader()) {
    ok_ = false;
    end_ = cur_; // a refused file reads as empty
    return false;
  }
  return cur_ < end_;
}

bool QvTextSource::ReadHeader() {
  char c = 0;
  const bool got = Get(c);
  if (!got || c != '#') {
    if (got)
      PutBack(c);
    PostError("File does not have a valid header string");
    return false;
  }
  const char* start = cur_ - 1;
  while (cur_ < end_ && *cur_ != '\n')
    ++cur_;
  const HeaderEntry* h =
      FindHeader(std::string_view(start, static_cast<std::size_t>(cur_ - start)));
  if (!h) {
    PostError("File does not have a valid header string");
    return false;
  }
  version_ = h->version;
  inventor_ = h->inventor;
  if (cur_ < end_) {
    ++cur_;
    ++lineNum_;
  }
  return true;
}

bool QvTextSource::SkipComment() {
  // cur_ is at '#'.
  while (++cur_ < end_) {
    if (*cur_ == '\n')
      return true;
  }
  PostError("EOF reached before end of comment");
  return false;
}

std::string_view QvTextSource::ReadWord() {
  if (!SkipBlanks())
    return {};
  const char* start = cur_;
  while (cur_ < end_ && IsWordChar(*cur_))
    ++cur_;
  return std::string_view(start, static_cast<std::size_t>(cur_ - start));
}

std::string_view QvTextSource::ReadName() {
  if (!SkipBlanks())
    return {};
  const char* start = cur_;
  while (cur_ < end_) {
    const unsigned char c = static_cast<unsigned char>(*cur_);
    if (c <= ' ' || c == 0x7F || c == '{' || c == '}' || c == '#')
      break;
    ++cur_;
  }
  return std::string_view(start, static_cast<std::size_t>(cur_ - start));
}

bool QvTextSource::ReadString(std::string& s) {
  s.clear();
  if (!SkipBlanks())
    return false;
  if (*cur_ != '"') {
    while (cur_ < end_) {
      const char c = *cur_;
      if (static_cast<unsigned char>(c) <= ' ' || c == '{' || c == '}' || c == '[' || c == ']' ||
          c == ',' || c == '#' || c == '"')
        break;
      s.push_back(c);
      ++cur_;
    }
    return !s.empty();
  }
  ++cur_;
  const int startLine = lineNum_;
  char c;
  while (Get(c)) {
    if (c == '"')
      return true;
    if (c == '\\' && cur_ < end_ && (*cur_ == '"' || *cur_ == '\\'))
      c = *cur_++;
    s.push_back(c);
  }
  PostError("EOF reached before end of string starting at line %d", startLine);
  return false;
}

bool QvTextSource::ParseFloat(const char* p, float& f) {
  auto r = std::from_chars(p, end_, f);
  if (r.ec == std::errc()) {
    cur_ = r.ptr;
    return true;
  }
  if (r.ec != std::errc::result_out_of_range)
    return false;
  // Like strtod: overflow gives an infinity, underflow zero.
  double d;
  auto rd = std::from_chars(p, end_, d);
  if (rd.ec == std::errc()) {
    // Converting an out-of-range double to float is undefined: saturate first.
    if (d > std::numeric_limits<float>::max())
      f = std::numeric_limits<float>::infinity();
    else if (d < -std::numeric_limits<float>::max())
      f = -std::numeric_limits<float>::infinity();
    else
      f = static_cast<float>(d);
  } else {
    bool tiny = false;
    for (const char* q = p; q < r.ptr; ++q)
      if ((*q == 'e' || *q == 'E') && q + 1 < r.ptr && q[1] == '-')
        tiny = true;
    f = tiny ? 0.0f : std::numeric_limits<float>::infinity();
    if (*p == '-')
      f = -f;
  }
  cur_ = r.ptr;
  return true;
}

bool QvTextSource::ParseUnsigned(std::uint64_t& mag, bool& neg) {
  if (!SkipBlanks())
    return false;
  const char* p = cur_;
  neg = false;
  if (*p == '-' || *p == '+') {
    neg = *p == '-';
    ++p;
  }
  if (p == end_ || *p < '0' || *p > '9')
    return false;
  // The C library's rules: 0x for hexadecimal, a leading 0 for octal.
  int base = 10;
  if (*p == '0') {
    base = 8;
    if (p + 2 < end_ && (p[1] == 'x' || p[1] == 'X') &&
        std::isxdigit(static_cast<unsigned char>(p[2]))) {
      base = 16;
      p += 2;
    }
  }
  std::uint64_t v = 0;
  const auto r = std::from_chars(p, end_, v, base);
  if (r.ec == std::errc::result_out_of_range)
    v = std::numeric_limits<std::uint64_t>::max(); // saturates below
  else if (r.ec != std::errc())
    return false;
  cur_ = r.ptr;
  mag = v;
  return true;
}

bool QvTextSource::ReadInt(std::int32_t& out) {
  std::uint64_t mag;
  bool neg;
  if (!ParseUnsigned(mag, neg))
    return false;
  if (mag > 0xFFFFFFFFull) {
    out = neg ? std::numeric_limits<std::int32_t>::min() : std::numeric_limits<std::int32_t>::max();
  } else {
    std::uint32_t u = static_cast<std::uint32_t>(mag);
    if (neg)
      u = 0u - u;
    out = static_cast<std::int32_t>(u);
  }
  return true;
}

bool QvTextSource::ReadUInt32(std::uint32_t& out) {
  std::uint64_t mag;
  bool neg;
  if (!ParseUnsigned(mag, neg))
    return false;
  std::uint32_t u = mag > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<std::uint32_t>(mag);
  out = neg ? 0u - u : u;
  return true;
}

bool QvTextSource::SkipBody() {
  std::uint64_t depth = 1;
  char c;
  while (Get(c)) {
    switch (c) {
    case '{':
      ++depth;
      break;
    case '}':
      if (--depth == 0)
        return true;
      break;
    case '"': {
      const int startLine = lineNum_;
      bool closed = false;
      while (Get(c)) {
        if (c == '\\' && cur_ < end_ && (*cur_ == '"' || *cur_ == '\\')) {
          ++cur_;
        } else if (c == '"') {
          closed = true;
          break;
        }
      }
      if (!closed) {
        PostError("EOF reached before end of string starting at line %d", startLine);
        return false;
      }
      break;
    }
    case '#':
      --cur_;
      if (!SkipComment())
        return false;
      break;
    default:
      break;
    }
  }
  PostError("Expected '%c'; got EOF", '}');
  return false;
}

void QvTextSource::PostError(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  std::string msg = VFormat(fmt, ap);
  va_end(ap);
  ++errorCount_;
  sink_(QvFormat("VRML read error: %s\n%s\n", msg.c_str(),
                 QvFormat("\tOccurred at line %3d", lineNum_).c_str()));
}

void QvTextSource::PostInternalError(const char* method, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  std::string msg = VFormat(fmt, ap);
  va_end(ap);
  ++errorCount_;
  sink_(QvFormat("VRML error in %s(): %s\n", method, msg.c_str()));
}

} // namespace meshcore
