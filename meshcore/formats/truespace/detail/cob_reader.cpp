#include "meshcore/formats/common/detail/binary_cursor.h"
#include "meshcore/formats/common/detail/format_error.h"
#include "meshcore/formats/common/detail/text_cursor.h"
#include "meshcore/formats/truespace/detail/cob_file.h"
#include "meshcore/platform/cancel.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace meshcore::cob {

namespace {

using codec::CBinaryCursor;
using codec::CFormatError;
using codec::CTextCursor;

constexpr std::uint32_t Tag(const char (&s)[5]) {
  return std::uint32_t(std::uint8_t(s[0])) << 24 | std::uint32_t(std::uint8_t(s[1])) << 16 |
         std::uint32_t(std::uint8_t(s[2])) << 8 | std::uint32_t(std::uint8_t(s[3]));
}

constexpr std::uint32_t kPolH = Tag("PolH");
constexpr std::uint32_t kGrou = Tag("Grou");
constexpr std::uint32_t kMat1 = Tag("Mat1");
constexpr std::uint32_t kEnd = Tag("END ");

constexpr std::uint8_t kFaceHole = 0x08;

// The header line of an ascii chunk is short; a longer one is not a header.
constexpr std::size_t kMaxHeaderLine = 256;

struct ChunkHeader {
  std::uint32_t type = 0;
  std::uint32_t id = 0;
  std::uint32_t parent = 0;
  std::size_t offset = 0;
};

class CPoll {
public:
  void Tick() {
    if (m_cancel.Tick())
      throw Cancelled{};
  }

private:
  CCancelCheck m_cancel{0, 4096};
};

std::string ChunkName(std::uint32_t type) {
  return codec::IdToString(type);
}

// ---------------------------------------------------------------------------
// Binary chunks

class CBinaryReader {
public:
  CBinaryReader(File& file, CPoll& poll) : m_file(file), m_poll(poll) {}

  void Node(CBinaryCursor c, const ChunkHeader& h, NodeKind kind) {
    cob::Node node;
    node.kind = kind;
    node.id = h.id;
    node.parent = h.parent;
    node.offset = h.offset;
    const std::uint16_t dupe = c.U16();
    const std::uint16_t length = c.U16();
    node.name = std::string(c.Bytes(length));
    if (dupe)
      node.name += "," + std::to_string(dupe);
    Frame& f = node.frame;
    for (float& v : f.center)
      v = c.F32();
    for (auto& axis : f.axes)
      for (float& v : axis)
        v = c.F32();
    for (auto& row : f.matrix)
      for (float& v : row)
        v = c.F32();
    if (kind == NodeKind::Mesh)
      Mesh(c, node);
    m_file.nodes.push_back(std::move(node));
  }

  void Material(CBinaryCursor c, const ChunkHeader& h) {
    cob::Material m;
    m.parent = h.parent;
    m.number = c.U16();
    m.shader = char(c.U8());
    m.facet = char(c.U8());
    if (m.facet == 'a')
      m.angle = c.U8();
    for (float& v : m.rgb)
      v = c.F32();
    m.alpha = c.F32();
    m.ka = c.F32();
    m.ks = c.F32();
    m.exponent = c.F32();
    m.ior = c.F32();
    // The map sections that follow changed between versions: a section this
    // reader cannot follow ends the material, which keeps what it has.
    try {
      while (c.Remaining() >= 2) {
        const std::string_view key = c.Bytes(2);
        if (key != "e:" && key != "t:" && key != "b:")
          break;
        c.U8(); // flags
        const std::uint16_t length = c.U16();
        std::string name(c.Bytes(length));
        if (key == "e:")
          continue; // an environment map has its file only
        float values[4];
        for (float& v : values)
          v = c.F32();
        if (key == "b:")
          c.F32(); // bump amplitude
        if (key == "t:") {
          m.texture = std::move(name);
          m.offset[0] = values[0];
          m.offset[1] = values[1];
          m.repeats[0] = values[2];
          m.repeats[1] = values[3];
        }
      }
    } catch (const CFormatError&) {
    }
    m_file.materials.push_back(std::move(m));
  }

private:
  void Mesh(CBinaryCursor& c, cob::Node& node) {
    const std::uint32_t points = c.U32();
    c.NeedRecords(points, 12, "vertices");
    node.points.resize(std::size_t(points) * 3);
    for (float& v : node.points)
      v = c.F32();
    const std::uint32_t uvs = c.U32();
    c.NeedRecords(uvs, 8, "texture vertices");
    node.uvs.resize(std::size_t(uvs) * 2);
    for (float& v : node.uvs)
      v = c.F32();
    const std::uint32_t faces = c.U32();
    // A face takes its flags and corner count at least.
    c.NeedRecords(faces, 3, "faces");
    node.faces.reserve(faces);
    for (std::uint32_t f = 0; f < faces; ++f) {
      m_poll.Tick();
      const std::uint8_t flags = c.U8();
      const std::uint16_t count = c.U16();
      const bool hole = (flags & kFaceHole) != 0;
      const std::uint16_t material = hole ? 0 : c.U16();
      c.NeedRecords(count, 8, "face corners");
      Face face;
      face.first = std::uint32_t(node.corners.size());
      face.count = count;
      face.material = material;
      for (std::uint16_t k = 0; k < count; ++k) {
        const std::uint8_t* at = c.Data();
        Corner corner;
        corner.point = c.U32();
        corner.uv = c.U32();
        if (corner.point >= points)
          c.FailAt(at, "face corner names vertex " + std::to_string(corner.point) + " of " +
                           std::to_string(points));
        if (!hole)
          node.corners.push_back(corner);
      }
      if (!hole)
        node.faces.push_back(face);
    }
  }

  File& m_file;
  CPoll& m_poll;
};

// ---------------------------------------------------------------------------
// Ascii chunks: lines inside the chunk's bytes, numbers in the C locale.

class CAsciiBody {
public:
  CAsciiBody(const std::uint8_t* base, std::size_t begin, std::size_t end)
      : m_base(reinterpret_cast<const char*>(base)), m_pos(begin), m_end(end) {}

  bool NextLine(std::string_view& line) {
    if (m_pos >= m_end)
      return false;
    m_lineStart = m_pos;
    const char* from = m_base + m_pos;
    const void* nl = std::memchr(from, '\n', m_end - m_pos);
    const std::size_t stop = nl ? std::size_t(static_cast<const char*>(nl) - m_base) : m_end;
    line = std::string_view(from, stop - m_pos);
    if (!line.empty() && line.back() == '\r')
      line.remove_suffix(1);
    m_pos = nl ? stop + 1 : m_end;
    return true;
  }
  // The next line that holds something; fails at the end of the chunk.
  std::string_view Need(const char* what) {
    std::string_view line;
    while (NextLine(line))
      if (!CTextCursor::Trim(line).empty())
        return line;
    throw CFormatError(m_end, std::string("the chunk ends before its ") + what);
  }
  std::size_t Remaining() const { return m_end - m_pos; }

  [[noreturn]] void Fail(const std::string& what) const { throw CFormatError(m_lineStart, what); }

  float Float(std::string_view& text) {
    float v = 0;
    const std::string_view token = CTextCursor::NextToken(text);
    if (!CTextCursor::ParseFloat(token, v))
      Fail("\"" + std::string(token.substr(0, 32)) + "\" is not a number");
    return v;
  }
  long long Int(std::string_view& text) {
    long long v = 0;
    const std::string_view token = CTextCursor::NextToken(text);
    if (!CTextCursor::ParseInt(token, v))
      Fail("\"" + std::string(token.substr(0, 32)) + "\" is not a whole number");
    return v;
  }
  // A count of lines of at least minBytes each must fit in the chunk.
  std::uint32_t Count(std::string_view& text, std::size_t minBytes, const char* what) {
    const long long n = Int(text);
    if (n < 0 || std::uint64_t(n) > Remaining() / minBytes)
      Fail(std::to_string(n) + " " + what + " do not fit in the chunk");
    return std::uint32_t(n);
  }

private:
  const char* m_base;
  std::size_t m_pos, m_end;
  std::size_t m_lineStart = 0;
};

bool StartsWith(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

// "a,b,c" (blanks allowed around the commas) into up to n floats.
void CommaFloats(CAsciiBody& body, std::string_view text, float* out, int n) {
  std::string joined;
  for (char c : text)
    joined += c == ',' ? ' ' : c;
  std::string_view rest(joined);
  for (int i = 0; i < n; ++i)
    out[i] = body.Float(rest);
}

class CAsciiReader {
public:
  CAsciiReader(File& file, CPoll& poll) : m_file(file), m_poll(poll) {}

  void Node(CAsciiBody body, const ChunkHeader& h, NodeKind kind) {
    cob::Node node;
    node.kind = kind;
    node.id = h.id;
    node.parent = h.parent;
    node.offset = h.offset;
    std::string_view line;
    while (body.NextLine(line)) {
      std::string_view rest = line;
      const std::string_view key = CTextCursor::NextToken(rest);
      Frame& f = node.frame;
      if (key == "Name") {
        node.name = std::string(CTextCursor::Trim(rest));
      } else if (key == "center") {
        for (float& v : f.center)
          v = body.Float(rest);
      } else if ((key == "x" || key == "y" || key == "z") &&
                 CTextCursor::NextToken(rest) == "axis") {
        for (float& v : f.axes[key[0] - 'x'])
          v = body.Float(rest);
      } else if (key == "Transform") {
        for (auto& row : f.matrix) {
          std::string_view values = body.Need("matrix");
          for (float& v : row)
            v = body.Float(values);
        }
        body.Need("matrix"); // the fixed last row
      } else if (kind == NodeKind::Mesh && key == "World" &&
                 CTextCursor::NextToken(rest) == "Vertices") {
        const std::uint32_t n = body.Count(rest, 6, "vertices");
        node.points.resize(std::size_t(n) * 3);
        for (std::uint32_t i = 0; i < n; ++i) {
          m_poll.Tick();
          std::string_view values = body.Need("vertices");
          for (int k = 0; k < 3; ++k)
            node.points[std::size_t(i) * 3 + std::size_t(k)] = body.Float(values);
        }
      } else if (kind == NodeKind::Mesh && key == "Texture" &&
                 CTextCursor::NextToken(rest) == "Vertices") {
        const std::uint32_t n = body.Count(rest, 4, "texture vertices");
        node.uvs.resize(std::size_t(n) * 2);
        for (std::uint32_t i = 0; i < n; ++i) {
          m_poll.Tick();
          std::string_view values = body.Need("texture vertices");
          node.uvs[std::size_t(i) * 2] = body.Float(values);
          node.uvs[std::size_t(i) * 2 + 1] = body.Float(values);
        }
      } else if (kind == NodeKind::Mesh && key == "Faces") {
        Faces(body, node, body.Count(rest, 16, "faces"));
      }
    }
    m_file.nodes.push_back(std::move(node));
  }

  void Material(CAsciiBody body, const ChunkHeader& h) {
    cob::Material m;
    m.parent = h.parent;
    std::string_view line;
    // The placement line belongs to the map line just before it (bump maps have one too).
    bool texture = false;
    while (body.NextLine(line)) {
      std::string_view rest = line;
      const std::string_view key = CTextCursor::NextToken(rest);
      const bool afterTexture = texture;
      texture = false;
      if (key == "mat#") {
        m.number = std::uint32_t(std::clamp<long long>(body.Int(rest), 0, 0xFFFF));
      } else if (key == "shader:") {
        const std::string_view shader = CTextCursor::NextToken(rest);
        m.shader = shader.empty() ? 'p' : shader[0];
        if (CTextCursor::NextToken(rest) == "facet:") {
          const std::string_view facet = CTextCursor::NextToken(rest);
          m.facet = facet.empty() ? 'a' : facet[0];
          if (StartsWith(facet, "auto")) {
            long long angle = 0;
            if (CTextCursor::ParseInt(facet.substr(4), angle))
              m.angle = int(std::clamp<long long>(angle, 0, 180));
          }
        }
      } else if (key == "rgb") {
        CommaFloats(body, rest, m.rgb, 3);
      } else if (key == "alpha") {
        // Pairs of name and value on one line.
        std::string_view name = key;
        for (;;) {
          const float v = body.Float(rest);
          if (name == "alpha")
            m.alpha = v;
          else if (name == "ka")
            m.ka = v;
          else if (name == "ks")
            m.ks = v;
          else if (name == "exp")
            m.exponent = v;
          else if (name == "ior")
            m.ior = v;
          name = CTextCursor::NextToken(rest);
          if (name.empty())
            break;
        }
      } else if (key == "texture:") {
        m.texture = MapName(CTextCursor::Trim(rest));
        texture = true;
      } else if (key == "offset" && afterTexture) {
        CommaFloats(body, CTextCursor::NextToken(rest), m.offset, 2);
        if (CTextCursor::NextToken(rest) == "repeats")
          CommaFloats(body, CTextCursor::NextToken(rest), m.repeats, 2);
      }
    }
    m_file.materials.push_back(std::move(m));
  }

private:
  // The name is written after its length: take the length that fits.
  static std::string MapName(std::string_view text) {
    std::size_t digits = 0;
    while (digits < text.size() && digits < 9 && text[digits] >= '0' && text[digits] <= '9')
      ++digits;
    for (std::size_t d = digits; d > 0; --d) {
      long long n = 0;
      if (CTextCursor::ParseInt(text.substr(0, d), n) && std::size_t(n) == text.size() - d)
        return std::string(text.substr(d));
    }
    return std::string(text.substr(digits));
  }

  void Faces(CAsciiBody& body, cob::Node& node, std::uint32_t count) {
    const std::uint32_t points = std::uint32_t(node.points.size() / 3);
    node.faces.reserve(count);
    for (std::uint32_t f = 0; f < count; ++f) {
      m_poll.Tick();
      std::string_view rest = body.Need("faces");
      const std::string_view kind = CTextCursor::NextToken(rest);
      if (kind != "Face" && kind != "Hole")
        body.Fail("expected a face, found \"" + std::string(kind.substr(0, 32)) + "\"");
      const bool hole = kind == "Hole";
      Face face;
      std::uint32_t corners = 0;
      for (std::string_view name = CTextCursor::NextToken(rest); !name.empty();
           name = CTextCursor::NextToken(rest)) {
        if (name == "verts")
          corners = body.Count(rest, 5, "face corners");
        else if (name == "mat")
          face.material = std::uint32_t(std::clamp<long long>(body.Int(rest), 0, 0xFFFF));
        else
          CTextCursor::NextToken(rest);
      }
      face.first = std::uint32_t(node.corners.size());
      face.count = corners;
      // The corners "<vertex,texture>" may run over several lines.
      std::string_view line;
      for (std::uint32_t k = 0; k < corners; ++k) {
        std::string_view token = CTextCursor::NextToken(line);
        while (token.empty()) {
          line = body.Need("face corners");
          token = CTextCursor::NextToken(line);
        }
        const std::size_t comma = token.find(',');
        long long v = 0, t = 0;
        if (token.size() < 5 || token.front() != '<' || token.back() != '>' ||
            comma == std::string_view::npos ||
            !CTextCursor::ParseInt(token.substr(1, comma - 1), v) ||
            !CTextCursor::ParseInt(token.substr(comma + 1, token.size() - comma - 2), t))
          body.Fail("\"" + std::string(token.substr(0, 32)) + "\" is not a face corner");
        if (v < 0 || v >= points)
          body.Fail("face corner names vertex " + std::to_string(v) + " of " +
                    std::to_string(points));
        if (!hole)
          node.corners.push_back({std::uint32_t(v), t < 0 ? 0xFFFFFFFFu : std::uint32_t(t)});
      }
      if (!hole)
        node.faces.push_back(face);
    }
  }

  File& m_file;
  CPoll& m_poll;
};

// "PolH V0.06 Id 123 Parent 0 Size 00000094": the chunk's header; the body
// follows the header's text.
std::size_t AsciiHeader(const std::uint8_t* data, std::size_t size, std::size_t at, ChunkHeader& h,
                        std::size_t& bodySize) {
  const char* text = reinterpret_cast<const char*>(data) + at;
  std::size_t n = 0;
  const std::size_t limit = std::min(size - at, kMaxHeaderLine);
  while (n < limit && text[n] != '\n' && text[n] != '\r')
    ++n;
  if (n == limit && n < size - at)
    throw CFormatError(at, "chunk header line too long");
  std::string_view line(text, n);
  if (line.size() < 4)
    throw CFormatError(at, "chunk header cut short");
  h.type = codec::LoadU32BE(data + at);
  h.offset = at;
  std::string_view rest = line.substr(4);
  bool sized = false;
  for (std::string_view key = CTextCursor::NextToken(rest); !key.empty();
       key = CTextCursor::NextToken(rest)) {
    if (key != "Id" && key != "Parent" && key != "Size")
      continue;
    long long v = 0;
    if (!CTextCursor::ParseInt(CTextCursor::NextToken(rest), v) || v < 0 || v > 0xFFFFFFFFll)
      throw CFormatError(at, ChunkName(h.type) + " header: bad " + std::string(key));
    if (key == "Id")
      h.id = std::uint32_t(v);
    else if (key == "Parent")
      h.parent = std::uint32_t(v);
    else {
      bodySize = std::size_t(v);
      sized = true;
    }
  }
  if (!sized)
    throw CFormatError(at, ChunkName(h.type) + " header without a size");
  return at + n;
}

} // namespace

void ReadFile(const std::uint8_t* data, std::size_t size, File& file) {
  if (size < kHeaderSize || std::memcmp(data, "Caligari ", 9) != 0)
    throw CFormatError(0, "not a trueSpace file: it does not begin with \"Caligari\"");
  const char encoding = char(data[15]);
  if (encoding != 'A' && encoding != 'B')
    throw CFormatError(15, "unknown encoding (neither ascii nor binary)");
  file.binary = encoding == 'B';
  const bool big = data[16] == 'H' && data[17] == 'L';
  CPoll poll;
  std::size_t at = kHeaderSize;
  if (file.binary) {
    CBinaryReader reader(file, poll);
    CBinaryCursor c(data, data + at, data + size,
                    big ? codec::ByteOrder::Big : codec::ByteOrder::Little);
    while (!c.AtEnd()) {
      ChunkHeader h;
      h.offset = c.Offset();
      h.type = c.Id();
      c.U16(); // version
      c.U16();
      h.id = c.U32();
      h.parent = c.U32();
      const std::uint32_t chunkSize = c.U32();
      if (h.type == kEnd)
        break;
      if (chunkSize > c.Remaining())
        throw CFormatError(h.offset, ChunkName(h.type) + " chunk runs past the end of the file");
      CBinaryCursor body = c.Sub(chunkSize);
      poll.Tick();
      if (h.type == kPolH)
        reader.Node(body, h, NodeKind::Mesh);
      else if (h.type == kGrou)
        reader.Node(body, h, NodeKind::Group);
      else if (h.type == kMat1)
        reader.Material(body, h);
    }
    return;
  }
  CAsciiReader reader(file, poll);
  for (;;) {
    // Editors may leave line ends between chunks.
    while (at < size && (data[at] == '\n' || data[at] == '\r'))
      ++at;
    if (at >= size)
      break;
    ChunkHeader h;
    std::size_t bodySize = 0;
    const std::size_t body = AsciiHeader(data, size, at, h, bodySize);
    if (h.type == kEnd)
      break;
    if (bodySize > size - body)
      throw CFormatError(h.offset, ChunkName(h.type) + " chunk runs past the end of the file");
    poll.Tick();
    CAsciiBody text(data, body, body + bodySize);
    if (h.type == kPolH)
      reader.Node(text, h, NodeKind::Mesh);
    else if (h.type == kGrou)
      reader.Node(text, h, NodeKind::Group);
    else if (h.type == kMat1)
      reader.Material(text, h);
    at = body + bodySize;
  }
}

} // namespace meshcore::cob
