#include "meshcore/formats/wavefront/detail/obj_parser.h"

#include "meshcore/formats/common/detail/format_error.h"
#include "meshcore/formats/common/detail/text_cursor.h"
#include "meshcore/platform/cancel.h"

#include <charconv>
#include <climits>
#include <cmath>
#include <map>
#include <utility>

namespace meshcore::obj {

namespace {

template <class T> bool ParseLeading(std::string_view token, T& value) {
  return codec::CTextCursor::ParseLeading(token, value) && std::isfinite(value);
}

void AppendUtf8(std::string& out, std::uint32_t cp) {
  if (cp < 0x80) {
    out += char(cp);
  } else if (cp < 0x800) {
    out += char(0xC0 | (cp >> 6));
    out += char(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += char(0xE0 | (cp >> 12));
    out += char(0x80 | ((cp >> 6) & 0x3F));
    out += char(0x80 | (cp & 0x3F));
  } else {
    out += char(0xF0 | (cp >> 18));
    out += char(0x80 | ((cp >> 12) & 0x3F));
    out += char(0x80 | ((cp >> 6) & 0x3F));
    out += char(0x80 | (cp & 0x3F));
  }
}

bool LooksBinary(std::string_view text) {
  // Control bytes other than line ends, tabs and form feeds do not occur in text.
  const std::size_t n = std::min<std::size_t>(text.size(), 4096);
  for (std::size_t i = 0; i < n; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < 0x20 && c != '\n' && c != '\r' && c != '\t' && c != '\v' && c != '\f' && c != 0x1A)
      return true;
  }
  return false;
}

} // namespace

bool ParseNumber(std::string_view token, float& value) {
  return ParseLeading(token, value);
}
bool ParseNumber(std::string_view token, double& value) {
  return ParseLeading(token, value);
}

bool DecodeText(const std::uint8_t* data, std::size_t size, std::string& converted,
                std::string_view& text) {
  int order = 0; // 1 little-endian, 2 big-endian UTF-16
  std::size_t start = 0;
  if (size >= 2 && data[0] == 0xFF && data[1] == 0xFE) {
    order = 1;
    start = 2;
  } else if (size >= 2 && data[0] == 0xFE && data[1] == 0xFF) {
    order = 2;
    start = 2;
  } else if (size >= 4 && data[0] != 0 && data[1] == 0 && data[2] != 0 && data[3] == 0) {
    order = 1; // no mark, but ASCII in UTF-16LE
  } else if (size >= 4 && data[0] == 0 && data[1] != 0 && data[2] == 0 && data[3] != 0) {
    order = 2;
  }
  if (order == 0) {
    text = std::string_view(reinterpret_cast<const char*>(data), size);
    if (text.size() >= 3 && text.substr(0, 3) == "\xEF\xBB\xBF")
      text.remove_prefix(3);
    return !LooksBinary(text);
  }
  converted.clear();
  converted.reserve((size - start) / 2);
  auto unit = [&](std::size_t i) -> std::uint32_t {
    return order == 1 ? std::uint32_t(data[i] | (data[i + 1] << 8))
                      : std::uint32_t((data[i] << 8) | data[i + 1]);
  };
  for (std::size_t i = start; i + 1 < size; i += 2) {
    std::uint32_t cp = unit(i);
    if (cp >= 0xD800 && cp < 0xDC00 && i + 3 < size) {
      const std::uint32_t low = unit(i + 2);
      if (low >= 0xDC00 && low < 0xE000) {
        cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
        i += 2;
      } else {
        cp = 0xFFFD;
      }
    } else if (cp >= 0xD800 && cp < 0xE000) {
      cp = 0xFFFD; // an unpaired half
    }
    if (cp == 0)
      return false;
    AppendUtf8(converted, cp);
  }
  text = converted;
  return !LooksBinary(text);
}

namespace {

class ObjParser {
public:
  ObjParser(const char* text, std::size_t size, ObjData& out)
      : m_cursor(text, size), m_out(out), m_cancel(size, 4096) {}

  void Run() {
    std::string_view line;
    std::size_t lines = 0;
    while (NextStatement(line)) {
      if ((++lines & 4095) == 0 && m_cancel.At(m_cursor.GetOffset()))
        throw ObjCancelled{};
      Statement(line);
    }
  }

private:
  // A line, with the lines that backslashes continue it with.
  bool NextStatement(std::string_view& line) {
    if (!m_cursor.NextLine(line))
      return false;
    if (line.empty() || line.back() != '\\')
      return true;
    m_joined.assign(line.data(), line.size() - 1);
    std::string_view more;
    while (m_cursor.NextLine(more)) {
      m_joined += ' ';
      if (!more.empty() && more.back() == '\\') {
        m_joined.append(more.data(), more.size() - 1);
        if (m_joined.size() > codec::CTextCursor::kDefaultMaxLine)
          m_cursor.Fail("continued line too long");
        continue;
      }
      m_joined.append(more);
      break;
    }
    line = m_joined;
    return true;
  }

  void Statement(std::string_view line) {
    std::string_view word = NextWord(line);
    if (word.empty() || word[0] == '#')
      return;
    switch (word[0]) {
    case 'v':
      if (word.size() == 1)
        return Vertex(line);
      if (word == "vt")
        return Floats(line, m_out.texcoords, 1, 3, "texture coordinate");
      if (word == "vn")
        return Floats(line, m_out.normals, 3, 3, "normal");
      return; // vp and friends: free-form geometry is not read
    case 'f':
      if (word.size() == 1)
        return Face(line);
      return;
    case 'l':
      if (word.size() == 1)
        return Line(line);
      return;
    case 'p':
      if (word.size() == 1)
        return Points(line);
      return;
    case 'o':
      if (word.size() == 1) {
        m_object = std::string(TrimBlanks(line));
        m_group.clear();
        m_node = -1;
      }
      return;
    case 'g':
      if (word.size() == 1) {
        // Several names put the face in several groups: it goes to the first.
        m_group = std::string(NextWord(line));
        m_node = -1;
      }
      return;
    case 's':
      if (word.size() == 1)
        return Smoothing(line);
      return;
    case 'u':
      if (word == "usemtl")
        return UseMaterial(TrimBlanks(line));
      return;
    case 'm':
      if (word == "mtllib")
        m_out.libraries.emplace_back(TrimBlanks(line));
      return;
    default:
      return; // statements the model has no place for
    }
  }

  ObjNode& Node() {
    if (m_node < 0) {
      auto key = std::make_pair(m_object, m_group);
      auto it = m_nodeIndex.find(key);
      if (it == m_nodeIndex.end()) {
        it = m_nodeIndex.emplace(key, int(m_out.nodes.size())).first;
        ObjNode& node = m_out.nodes.emplace_back();
        node.object = m_object;
        node.group = m_group;
      }
      m_node = it->second;
    }
    return m_out.nodes[std::size_t(m_node)];
  }

  float Number(std::string_view token, const char* what) {
    float v;
    if (!ParseNumber(token, v))
      m_cursor.Fail(std::string("bad ") + what + " value '" + std::string(token.substr(0, 40)) +
                    "'");
    return v;
  }

  void Vertex(std::string_view line) {
    float v[7];
    int n = 0;
    for (std::string_view t = NextWord(line); !t.empty() && t[0] != '#' && n < 7;
         t = NextWord(line))
      v[n++] = Number(t, "vertex");
    if (n < 3)
      m_cursor.Fail("vertex with fewer than three coordinates");
    if (m_out.VertexCount() >= std::size_t(INT_MAX))
      m_cursor.Fail("too many vertices");
    m_out.positions.insert(m_out.positions.end(), v, v + 3);
    // x y z r g b (or x y z r g b a): a colour; x y z w: a weight the model does not keep.
    if (n >= 6) {
      if (m_out.colours.empty())
        m_out.colours.assign(m_out.positions.size() - 3, 1.0f);
      m_out.colours.insert(m_out.colours.end(), v + 3, v + 6);
    } else if (!m_out.colours.empty()) {
      m_out.colours.insert(m_out.colours.end(), 3, 1.0f);
    }
  }

  void Floats(std::string_view line, std::vector<float>& out, int least, int most,
              const char* what) {
    float v[3] = {0, 0, 0};
    int n = 0;
    for (std::string_view t = NextWord(line); !t.empty() && t[0] != '#' && n < most;
         t = NextWord(line))
      v[n++] = Number(t, what);
    if (n < least)
      m_cursor.Fail(std::string(what) + " with too few values");
    if (out.size() / 3 >= std::size_t(INT_MAX))
      m_cursor.Fail(std::string("too many ") + what + "s");
    out.insert(out.end(), v, v + 3);
  }

  // 1-based, or negative counting back from the last element read so far.
  std::int32_t Index(const char*& p, const char* end, std::size_t count, const char* what) {
    bool negative = false;
    if (p != end && (*p == '-' || *p == '+'))
      negative = *p++ == '-';
    std::int64_t value = 0;
    const char* digits = p;
    while (p != end && *p >= '0' && *p <= '9' && p - digits < 12)
      value = value * 10 + (*p++ - '0');
    if (p == digits || (p != end && *p != '/'))
      m_cursor.Fail(std::string("bad ") + what + " index");
    const std::int64_t resolved = negative ? std::int64_t(count) - value : value - 1;
    if (value == 0 || resolved < 0 || resolved >= std::int64_t(count))
      m_cursor.Fail(std::string(what) + " index " + (negative ? "-" : "") + std::to_string(value) +
                    " out of range (" + std::to_string(count) + " defined)");
    return std::int32_t(resolved);
  }

  ObjCorner Corner(std::string_view token) {
    ObjCorner c;
    const char* p = token.data();
    const char* end = p + token.size();
    c.v = Index(p, end, m_out.VertexCount(), "vertex");
    if (p == end)
      return c;
    ++p; // '/'
    if (p != end && *p != '/')
      c.t = Index(p, end, m_out.texcoords.size() / 3, "texture coordinate");
    if (p == end)
      return c;
    ++p;
    if (p != end)
      c.n = Index(p, end, m_out.normals.size() / 3, "normal");
    if (p != end)
      m_cursor.Fail("bad corner '" + std::string(token.substr(0, 40)) + "'");
    return c;
  }

  void Face(std::string_view line) {
    ObjNode& node = Node();
    const std::size_t first = node.corners.size();
    for (std::string_view t = NextWord(line); !t.empty() && t[0] != '#'; t = NextWord(line)) {
      ObjCorner c = Corner(t);
      node.hasTexture |= c.t >= 0;
      node.hasNormal |= c.n >= 0;
      node.corners.push_back(c);
    }
    const std::size_t n = node.corners.size() - first;
    if (n < 3) { // a face needs three corners
      node.corners.resize(first);
      ++m_out.droppedFaces;
      return;
    }
    if (node.corners.size() > std::size_t(UINT32_MAX) ||
        node.faceStart.size() > std::size_t(INT_MAX))
      m_cursor.Fail("too many corners");
    node.faceStart.push_back(std::uint32_t(node.corners.size()));
    node.faceMaterial.push_back(m_material);
    node.faceSmoothing.push_back(m_smoothing);
  }

  void Line(std::string_view line) {
    ObjNode& node = Node();
    const std::size_t first = node.lineVertices.size();
    for (std::string_view t = NextWord(line); !t.empty() && t[0] != '#'; t = NextWord(line))
      node.lineVertices.push_back(Corner(t).v);
    if (node.lineVertices.size() - first < 2) {
      node.lineVertices.resize(first);
      return;
    }
    if (node.lineVertices.size() > std::size_t(INT_MAX))
      m_cursor.Fail("too many line vertices");
    node.lineStart.push_back(std::uint32_t(node.lineVertices.size()));
    node.lineMaterial.push_back(m_material);
  }

  void Points(std::string_view line) {
    ObjNode& node = Node();
    for (std::string_view t = NextWord(line); !t.empty() && t[0] != '#'; t = NextWord(line))
      node.points.push_back(Corner(t).v);
    if (node.points.size() > std::size_t(INT_MAX))
      m_cursor.Fail("too many points");
  }

  void Smoothing(std::string_view line) {
    m_out.hasSmoothing = true;
    std::string_view t = NextWord(line);
    double group = 0;
    m_smoothing = (t == "off" || !ParseNumber(t, group) || group < 0 || group > UINT32_MAX)
                      ? 0u
                      : std::uint32_t(group);
  }

  void UseMaterial(std::string_view name) {
    auto [it, inserted] =
        m_materialIndex.try_emplace(std::string(name), std::int32_t(m_out.materialNames.size()));
    if (inserted)
      m_out.materialNames.emplace_back(name);
    m_material = it->second;
  }

  codec::CTextCursor m_cursor;
  ObjData& m_out;
  CCancelCheck m_cancel;
  std::string m_joined;
  std::string m_object, m_group;
  int m_node = -1;
  std::map<std::pair<std::string, std::string>, int> m_nodeIndex;
  std::map<std::string, std::int32_t> m_materialIndex;
  std::int32_t m_material = kNone;
  std::uint32_t m_smoothing = 0;
};

} // namespace

void ParseObj(const char* text, std::size_t size, ObjData& out) {
  ObjParser(text, size, out).Run();
}

// ---------------------------------------------------------------------------
// MTL

namespace {

// Options of a map statement and how many values each takes (-o, -s and -t
// take one to three numbers).
int OptionValues(std::string_view option, int& upTo) {
  upTo = 0;
  if (option == "-o" || option == "-s" || option == "-t") {
    upTo = 3;
    return 1;
  }
  if (option == "-mm")
    return 2;
  if (option == "-blendu" || option == "-blendv" || option == "-bm" || option == "-boost" ||
      option == "-cc" || option == "-clamp" || option == "-imfchan" || option == "-texres" ||
      option == "-type")
    return 1;
  return -1;
}

// The file name of a map statement after its options; names may hold blanks.
std::string MapFile(std::string_view rest) {
  for (;;) {
    std::string_view probe = rest;
    std::string_view word = NextWord(probe);
    if (word.size() < 2 || word[0] != '-')
      break;
    int upTo = 0;
    const int n = OptionValues(word, upTo);
    if (n < 0)
      break; // not an option: a file name that starts with '-'
    rest = probe;
    for (int i = 0; i < n; ++i)
      NextWord(rest);
    for (int i = n; i < upTo; ++i) {
      std::string_view look = rest;
      double d;
      if (!ParseNumber(NextWord(look), d))
        break;
      rest = look;
    }
  }
  std::string file(TrimBlanks(rest));
  for (char& c : file)
    if (c == '\\') // files written on other systems
      c = '/';
  return file;
}

bool Colour(std::string_view rest, float out[3]) {
  std::string_view word = NextWord(rest);
  if (word == "spectral" || word == "xyz")
    return false; // colour forms the model cannot hold
  float v[3];
  if (!ParseNumber(word, v[0]))
    return false;
  int n = 1;
  for (; n < 3; ++n)
    if (!ParseNumber(NextWord(rest), v[n]))
      break;
  for (int i = 0; i < 3; ++i)
    out[i] = n == 3 ? v[i] : v[0]; // one value stands for all three
  return true;
}

} // namespace

void ParseMtl(const char* text, std::size_t size, std::vector<ObjMaterial>& out) {
  codec::CTextCursor cursor(text, size);
  std::string_view line;
  ObjMaterial* m = nullptr;
  CCancelCheck cancel;
  try {
    while (cursor.NextLine(line)) {
      if (cancel.Tick())
        throw ObjCancelled{};
      std::string_view rest = line;
      std::string_view word = NextWord(rest);
      if (word == "newmtl") {
        m = &out.emplace_back();
        m->name = std::string(TrimBlanks(rest));
        continue;
      }
      if (!m || word.empty() || word[0] == '#')
        continue;
      float one = 0;
      if (word == "Kd")
        m->hasKd = Colour(rest, m->kd) || m->hasKd;
      else if (word == "Ka")
        m->hasKa = Colour(rest, m->ka) || m->hasKa;
      else if (word == "Ks")
        m->hasKs = Colour(rest, m->ks) || m->hasKs;
      else if (word == "d") {
        std::string_view t = NextWord(rest);
        if (t == "-halo")
          t = NextWord(rest);
        double d;
        if (ParseNumber(t, d)) {
          // Kept in double so that a value written back as 1 - t returns t exactly.
          m->transparency = float(1.0 - d);
          m->hasTransparency = true;
        }
      } else if (word == "Tr") {
        if (ParseNumber(NextWord(rest), one)) {
          m->transparency = one;
          m->hasTransparency = true;
        }
      } else if (word == "map_Kd" || word == "map_Ka" || word == "map_Ks" || word == "map_d") {
        const int role = word == "map_Kd" ? 1 : word == "map_Ka" ? 2 : word == "map_Ks" ? 3 : 4;
        std::string file = MapFile(rest);
        if (!file.empty())
          m->maps.push_back({role, std::move(file)});
      }
      // Ke, Ns, Ni, illum, Tf, bump maps: the model's materials have no place for them.
    }
  } catch (const codec::CFormatError&) {
    // A line past the length bound ends the library; what was read stays.
  }
}

} // namespace meshcore::obj
