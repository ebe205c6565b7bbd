#include "meshcore/formats/dxf/detail/dxf_reader.h"

#include "meshcore/formats/common/detail/format_error.h"
#include "meshcore/formats/common/detail/text_cursor.h"
#include "meshcore/platform/cancel.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <string_view>
#include <unordered_map>

namespace meshcore::dxf {

namespace {

using codec::CFormatError;
using codec::CTextCursor;

constexpr char kBinarySentinel[] = "AutoCAD Binary DXF\r\n\x1a";
constexpr std::size_t kBinarySentinelSize = 22; // with its terminating zero
// Nested insertions deeper than this are not followed: real drawings stay far below.
constexpr int kMaxInsertDepth = 32;
// Block insertions (arrays and nesting multiply) may not make more corners than this.
constexpr std::size_t kMaxExpandedPoints = std::size_t(1) << 24;
constexpr std::size_t kCellCost = 16;

enum class ValueType { String, Double, Int16, Int32, Int64, Bool, Binary };

ValueType TypeOf(int code) {
  if (code >= 10 && code <= 59)
    return ValueType::Double;
  if ((code >= 60 && code <= 79) || (code >= 170 && code <= 179) || (code >= 270 && code <= 289) ||
      (code >= 370 && code <= 389) || (code >= 400 && code <= 409) ||
      (code >= 1060 && code <= 1070))
    return ValueType::Int16;
  if ((code >= 90 && code <= 99) || (code >= 420 && code <= 429) || (code >= 440 && code <= 459) ||
      code == 1071)
    return ValueType::Int32;
  if ((code >= 110 && code <= 149) || (code >= 210 && code <= 239) ||
      (code >= 460 && code <= 469) || (code >= 1010 && code <= 1059))
    return ValueType::Double;
  if (code >= 160 && code <= 169)
    return ValueType::Int64;
  if (code >= 290 && code <= 299)
    return ValueType::Bool;
  if ((code >= 310 && code <= 319) || code == 1004)
    return ValueType::Binary;
  return ValueType::String;
}

struct Pair {
  int code = 0;
  std::string_view text; // the value as written (ASCII) or the string (binary)
  double number = 0;     // binary numbers, already decoded
  bool binary = false;
  std::size_t offset = 0;
  std::size_t line = 0; // of the value, in text files
};

// Group-code pairs from either encoding, with one pair of look-ahead.
class PairSource {
public:
  PairSource(const std::uint8_t* data, std::size_t size)
      : m_data(data), m_size(size), m_text(data, size) {
    if (size >= kBinarySentinelSize &&
        std::memcmp(data, kBinarySentinel, kBinarySentinelSize) == 0) {
      m_binary = true;
      m_pos = kBinarySentinelSize;
      // Releases from R13 on write two-byte codes: the first pair (0, "SECTION")
      // then starts with two zero bytes.
      m_wideCodes = size > m_pos + 1 && data[m_pos] == 0 && data[m_pos + 1] == 0;
    }
  }

  bool Next(Pair& pair) {
    if (m_pending) {
      m_pending = false;
      pair = m_last;
      return true;
    }
    if (!(m_binary ? NextBinary(m_last) : NextText(m_last)))
      return false;
    pair = m_last;
    return true;
  }
  void PushBack() { m_pending = true; }

  std::size_t Offset() const { return m_binary ? m_pos : m_text.GetOffset(); }

  double Double(const Pair& p) const {
    if (p.binary)
      return p.number;
    double v;
    if (!CTextCursor::ParseDouble(p.text, v) || !std::isfinite(v))
      throw CFormatError(p.offset, Where(p) + ": \"" + std::string(p.text.substr(0, 40)) +
                                       "\" is not a number");
    return v;
  }
  long long Int(const Pair& p) const {
    if (p.binary) // 64-bit values may round past the range of long long
      return static_cast<long long>(std::clamp(p.number, -9e18, 9e18));
    long long v;
    if (!CTextCursor::ParseInt(p.text, v)) {
      // Some writers put integers as "1.0".
      double d;
      if (CTextCursor::ParseDouble(p.text, d) && std::isfinite(d) && std::fabs(d) < 1e15 &&
          d == std::floor(d))
        return static_cast<long long>(d);
      throw CFormatError(p.offset, Where(p) + ": \"" + std::string(p.text.substr(0, 40)) +
                                       "\" is not an integer");
    }
    return v;
  }

  static std::string Where(const Pair& p) {
    return "group code " + std::to_string(p.code) +
           (p.binary ? std::string() : " on line " + std::to_string(p.line));
  }

private:
  bool NextText(Pair& pair) {
    std::string_view line;
    // Blank lines after the last pair end the file rather than start a pair.
    if (!m_text.NextLine(line))
      return false;
    std::string_view code = CTextCursor::Trim(line);
    if (code.empty()) {
      std::string_view rest;
      while (code.empty() && m_text.NextLine(rest))
        code = CTextCursor::Trim(rest);
      if (code.empty())
        return false;
    }
    long long value;
    if (!CTextCursor::ParseInt(code, value) || value < -32768 || value > 32767)
      throw CFormatError(m_text.GetOffset(), "line " + std::to_string(m_text.GetLineNumber()) +
                                                 ": \"" + std::string(code.substr(0, 40)) +
                                                 "\" is not a group code");
    pair.code = int(value);
    pair.offset = m_text.GetOffset();
    if (!m_text.NextLine(line))
      throw CFormatError(m_text.GetOffset(),
                         "group code " + std::to_string(value) + " on the last line has no value");
    pair.text = CTextCursor::Trim(line);
    pair.binary = false;
    pair.line = m_text.GetLineNumber();
    return true;
  }

  void Need(std::size_t n, const char* what) {
    if (m_size - m_pos < n)
      throw CFormatError(m_pos, std::string("the file ends inside ") + what);
  }

  bool NextBinary(Pair& pair) {
    if (m_pos >= m_size)
      return false;
    pair.offset = m_pos;
    int code;
    if (m_wideCodes) {
      Need(2, "a group code");
      code = std::int16_t(std::uint16_t(m_data[m_pos] | (m_data[m_pos + 1] << 8)));
      m_pos += 2;
    } else {
      code = m_data[m_pos++];
      if (code == 255) {
        Need(2, "a group code");
        code = std::int16_t(std::uint16_t(m_data[m_pos] | (m_data[m_pos + 1] << 8)));
        m_pos += 2;
      }
    }
    pair.code = code;
    pair.binary = true;
    pair.text = {};
    auto little = [&](std::size_t n) {
      Need(n, "a value");
      std::uint64_t v = 0;
      for (std::size_t i = 0; i < n; ++i)
        v |= std::uint64_t(m_data[m_pos + i]) << (8 * i);
      m_pos += n;
      return v;
    };
    switch (TypeOf(code)) {
    case ValueType::String: {
      const void* end = std::memchr(m_data + m_pos, 0, m_size - m_pos);
      if (!end)
        throw CFormatError(m_pos, "the file ends inside a text value");
      const std::size_t n = std::size_t(static_cast<const std::uint8_t*>(end) - (m_data + m_pos));
      pair.text = std::string_view(reinterpret_cast<const char*>(m_data + m_pos), n);
      m_pos += n + 1;
      break;
    }
    case ValueType::Double: {
      const std::uint64_t bits = little(8);
      double d;
      std::memcpy(&d, &bits, 8);
      if (!std::isfinite(d))
        throw CFormatError(pair.offset,
                           "group code " + std::to_string(code) + ": not a finite number");
      pair.number = d;
      break;
    }
    case ValueType::Int16:
      pair.number = double(std::int16_t(std::uint16_t(little(2))));
      break;
    case ValueType::Int32:
      pair.number = double(std::int32_t(std::uint32_t(little(4))));
      break;
    case ValueType::Int64:
      pair.number = double(std::int64_t(little(8)));
      break;
    case ValueType::Bool:
      pair.number = double(little(1));
      break;
    case ValueType::Binary: {
      const std::size_t n = std::size_t(little(1));
      Need(n, "a binary value");
      m_pos += n;
      break;
    }
    }
    return true;
  }

  const std::uint8_t* m_data;
  std::size_t m_size;
  CTextCursor m_text;
  std::size_t m_pos = 0;
  bool m_binary = false;
  bool m_wideCodes = false;
  bool m_pending = false;
  Pair m_last;
};

struct Vec {
  double x = 0, y = 0, z = 0;
};

// An affine map: columns x, y, z and the translation.
struct Affine {
  Vec ax{1, 0, 0}, ay{0, 1, 0}, az{0, 0, 1}, t{0, 0, 0};

  Vec Apply(const Vec& p) const {
    return {ax.x * p.x + ay.x * p.y + az.x * p.z + t.x, ax.y * p.x + ay.y * p.y + az.y * p.z + t.y,
            ax.z * p.x + ay.z * p.y + az.z * p.z + t.z};
  }
  Vec Direction(const Vec& v) const {
    return {ax.x * v.x + ay.x * v.y + az.x * v.z, ax.y * v.x + ay.y * v.y + az.y * v.z,
            ax.z * v.x + ay.z * v.y + az.z * v.z};
  }
  // this after other.
  Affine Then(const Affine& inner) const {
    Affine r;
    r.ax = Direction(inner.ax);
    r.ay = Direction(inner.ay);
    r.az = Direction(inner.az);
    r.t = Apply(inner.t);
    return r;
  }
};

Vec Cross(const Vec& a, const Vec& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
Vec Normalized(Vec v) {
  const double len = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
  if (!(len > 0) || !std::isfinite(len))
    return {0, 0, 1};
  return {v.x / len, v.y / len, v.z / len};
}

// The entity coordinate system of an extrusion direction (the arbitrary-axis rule).
Affine ObjectFrame(const Vec& extrusion) {
  Affine f;
  const Vec n = Normalized(extrusion);
  if (n.x == 0 && n.y == 0 && n.z == 1)
    return f;
  constexpr double kLimit = 1.0 / 64.0;
  const Vec ax = std::fabs(n.x) < kLimit && std::fabs(n.y) < kLimit ? Cross({0, 1, 0}, n)
                                                                    : Cross({0, 0, 1}, n);
  f.ax = Normalized(ax);
  f.ay = Normalized(Cross(n, f.ax));
  f.az = n;
  return f;
}

// Doubles past the float range (scaled inserts can make them) are clamped:
// converting them as they are is undefined.
float ToFloat(double v) {
  constexpr double kMax = std::numeric_limits<float>::max();
  return float(std::clamp(v, -kMax, kMax));
}

constexpr int kByBlock = 0;
constexpr int kByLayer = 256;

struct Prim {
  std::uint32_t start, count; // in the block's points
  int layer;
  int colour;
  bool face;
};

struct Insert {
  int block;
  int layer;
  int colour;
  Affine place;            // block coordinates to the insert's frame, one array cell
  Vec columnStep, rowStep; // array offsets, already in the insert's frame
  int columns, rows;
};

struct Block {
  Vec base;
  std::vector<Vec> points;
  std::vector<Prim> prims;
  std::vector<Insert> inserts;
};

// One entity's values that the geometry needs.
struct Entity {
  std::string_view type;
  int layer = 0;
  int colour = kByLayer;
  std::array<double, 50> coord{}; // codes 10..59
  std::array<bool, 50> has{};
  Vec extrusion{0, 0, 1};
  std::array<int, 10> flags{}; // codes 70..79
  std::string_view name;       // code 2
  std::vector<Vec> lw;         // LWPOLYLINE vertices (x, y)

  void Reset() {
    layer = 0;
    colour = kByLayer;
    coord.fill(0);
    has.fill(false);
    extrusion = {0, 0, 1};
    flags.fill(0);
    name = {};
    lw.clear();
  }
  Vec Point(int first) const {
    return {coord[std::size_t(first - 10)], coord[std::size_t(first + 10 - 10)],
            coord[std::size_t(first + 20 - 10)]};
  }
  double Value(int code, double fallback) const {
    return has[std::size_t(code - 10)] ? coord[std::size_t(code - 10)] : fallback;
  }
};

// A VERTEX record, kept small: a polyline may have millions.
struct VertexRec {
  Vec p;
  std::array<int, 5> flags; // codes 70..74
  int layer;
  int colour;
};

class Reader {
public:
  Reader(const std::uint8_t* data, std::size_t size, DxfDrawing& out)
      : m_in(data, size), m_out(out) {
    m_blocks.emplace_back(); // the drawing itself
    m_layer0 = LayerIndex("0");
  }

  void Run() {
    Pair p;
    while (m_in.Next(p)) {
      if (p.code != 0)
        continue; // stray pairs between sections
      if (p.text == "EOF")
        break;
      if (p.text != "SECTION")
        continue;
      if (!m_in.Next(p))
        throw CFormatError(m_in.Offset(), "a section is never closed");
      if (p.code != 2) {
        m_in.PushBack();
        SkipSection();
        continue;
      }
      if (p.text == "HEADER")
        ReadHeader();
      else if (p.text == "TABLES")
        ReadTables();
      else if (p.text == "BLOCKS")
        ReadEntities(true);
      else if (p.text == "ENTITIES")
        ReadEntities(false);
      else
        SkipSection();
    }
    Expand();
  }

private:
  [[noreturn]] void Unclosed() { throw CFormatError(m_in.Offset(), "a section is never closed"); }

  void SkipSection() {
    Pair p;
    while (m_in.Next(p))
      if (p.code == 0 && p.text == "ENDSEC")
        return;
    Unclosed();
  }

  void ReadHeader() {
    Pair p;
    bool units = false;
    while (m_in.Next(p)) {
      if (p.code == 0 && p.text == "ENDSEC")
        return;
      if (p.code == 9)
        units = p.text == "$INSUNITS";
      else if (units && p.code == 70) {
        m_out.hasUnits = true;
        m_out.units = int(m_in.Int(p));
      }
    }
    Unclosed();
  }

  void ReadTables() {
    Pair p;
    bool layer = false;
    int current = -1;
    while (m_in.Next(p)) {
      if (p.code == 0) {
        if (p.text == "ENDSEC")
          return;
        layer = p.text == "LAYER";
        current = -1;
      } else if (layer && p.code == 2) {
        current = LayerIndex(p.text);
      } else if (layer && p.code == 62 && current >= 0) {
        // A negative colour marks a layer switched off; its colour is the same.
        const long long c = std::llabs(std::clamp(m_in.Int(p), -1000LL, 1000LL));
        m_out.layers[std::size_t(current)].colour = c >= 1 && c <= 255 ? int(c) : 7;
      }
    }
    Unclosed();
  }

  int LayerIndex(std::string_view name) {
    auto it = m_layerIndex.find(std::string(name));
    if (it != m_layerIndex.end())
      return it->second;
    const int index = int(m_out.layers.size());
    m_out.layers.emplace_back();
    m_out.layers.back().name = std::string(name);
    m_layerIndex.emplace(std::string(name), index);
    return index;
  }

  int BlockIndex(std::string_view name) {
    auto [it, added] = m_blockIndex.emplace(std::string(name), int(m_blocks.size()));
    if (added)
      m_blocks.emplace_back();
    return it->second;
  }

  // Reads the group pairs of one entity up to the next code 0, left unread.
  void ReadEntity(Entity& e) {
    Pair p;
    e.Reset();
    e.layer = m_layer0;
    double lwx = 0;
    bool lwHasX = false;
    const bool lightweight = e.type == "LWPOLYLINE";
    while (m_in.Next(p)) {
      const int c = p.code;
      if (c == 0) {
        m_in.PushBack();
        return;
      }
      if (c == 8)
        e.layer = LayerIndex(p.text);
      else if (c == 62)
        e.colour = int(std::clamp(m_in.Int(p), -1000LL, 1000LL));
      else if (c == 2)
        e.name = p.text;
      else if (c >= 10 && c < 60) {
        const double v = m_in.Double(p);
        if (lightweight && (c == 10 || c == 20)) {
          // The vertices repeat codes 10 and 20.
          if (c == 10) {
            lwx = v;
            lwHasX = true;
          } else if (lwHasX) {
            e.lw.push_back({lwx, v, 0});
            lwHasX = false;
          }
          continue;
        }
        e.coord[std::size_t(c - 10)] = v;
        e.has[std::size_t(c - 10)] = true;
      } else if (c >= 70 && c < 80)
        e.flags[std::size_t(c - 70)] = int(std::clamp(m_in.Int(p), -2147483647LL, 2147483647LL));
      else if (c == 210)
        e.extrusion.x = m_in.Double(p);
      else if (c == 220)
        e.extrusion.y = m_in.Double(p);
      else if (c == 230)
        e.extrusion.z = m_in.Double(p);
      else if (!p.binary) {
        // Values of numeric codes that are not used are still numbers.
        const ValueType type = TypeOf(c);
        if (type == ValueType::Double)
          m_in.Double(p);
        else if (type != ValueType::String && type != ValueType::Binary)
          m_in.Int(p);
      }
    }
    // The end of the data: the caller finds the section unclosed.
  }

  void ReadEntities(bool blocks) {
    CCancelCheck cancel;
    Block* block = blocks ? nullptr : &m_blocks[0];
    Entity e, poly;
    std::vector<VertexRec> vertices;
    Pair p;
    while (m_in.Next(p)) {
      if (p.code != 0)
        continue;
      if (cancel.Tick())
        throw DxfCancelled{};
      if (p.text == "ENDSEC")
        return;
      e.type = p.text;
      ReadEntity(e);
      if (blocks && e.type == "BLOCK") {
        const int index = BlockIndex(e.name);
        block = &m_blocks[std::size_t(index)];
        if (!block->points.empty() || !block->inserts.empty())
          block = &m_spare; // a second definition of a name is ignored
        block->base = e.Point(10);
        continue;
      }
      if (blocks && e.type == "ENDBLK") {
        block = nullptr;
        continue;
      }
      if (!block)
        continue;
      if (e.type == "POLYLINE") {
        poly = e;
        poly.type = "POLYLINE";
        vertices.clear();
        while (m_in.Next(p)) {
          if (p.code != 0)
            continue;
          if (p.text != "VERTEX") {
            if (p.text == "SEQEND") {
              ReadEntity(e);
            } else
              m_in.PushBack();
            break;
          }
          if (cancel.Tick())
            throw DxfCancelled{};
          e.type = "VERTEX";
          ReadEntity(e);
          vertices.push_back({e.Point(10),
                              {e.flags[0], e.flags[1], e.flags[2], e.flags[3], e.flags[4]},
                              e.layer,
                              e.colour});
        }
        AddPolyline(*block, poly, vertices);
      } else
        AddEntity(*block, e);
    }
    Unclosed();
  }

  static bool Same(const Vec& a, const Vec& b) { return a.x == b.x && a.y == b.y && a.z == b.z; }

  void AddPrim(Block& b, const Entity& e, std::vector<Vec>& pts, bool face) {
    if (face) {
      // Corners repeated in a row (a triangle written as a four-corner face,
      // say) are one corner.
      pts.erase(std::unique(pts.begin(), pts.end(), Same), pts.end());
      while (pts.size() > 1 && Same(pts.front(), pts.back()))
        pts.pop_back();
    }
    if (pts.size() < (face ? 3u : 2u))
      return;
    b.prims.push_back(
        {std::uint32_t(b.points.size()), std::uint32_t(pts.size()), e.layer, e.colour, face});
    b.points.insert(b.points.end(), pts.begin(), pts.end());
  }

  void AddEntity(Block& b, const Entity& e) {
    std::vector<Vec>& pts = m_scratch;
    pts.clear();
    if (e.type == "3DFACE") {
      // A missing or repeated fourth corner makes a triangle.
      pts = {e.Point(10), e.Point(11), e.Point(12), e.has[13 - 10] ? e.Point(13) : e.Point(12)};
      AddPrim(b, e, pts, true);
    } else if (e.type == "SOLID" || e.type == "TRACE") {
      const Affine f = ObjectFrame(e.extrusion);
      // The third and fourth corners run across the quad.
      pts = {f.Apply(e.Point(10)), f.Apply(e.Point(11)),
             f.Apply(e.has[13 - 10] ? e.Point(13) : e.Point(12)), f.Apply(e.Point(12))};
      AddPrim(b, e, pts, true);
    } else if (e.type == "LINE") {
      pts = {e.Point(10), e.Point(11)};
      AddPrim(b, e, pts, false);
    } else if (e.type == "LWPOLYLINE") {
      const Affine f = ObjectFrame(e.extrusion);
      const double z = e.Value(38, 0);
      for (const Vec& v : e.lw)
        pts.push_back(f.Apply({v.x, v.y, z}));
      if ((e.flags[0] & 1) && pts.size() > 2)
        pts.push_back(pts.front());
      AddPrim(b, e, pts, false);
    } else if (e.type == "INSERT") {
      AddInsert(b, e);
    }
  }

  void AddInsert(Block& b, const Entity& e) {
    Insert in;
    in.block = BlockIndex(e.name);
    in.layer = e.layer;
    in.colour = e.colour;
    const Affine frame = ObjectFrame(e.extrusion);
    const double angle = e.Value(50, 0) * (3.14159265358979323846 / 180.0);
    const double c = std::cos(angle), s = std::sin(angle);
    Affine rotate;
    rotate.ax = {c, s, 0};
    rotate.ay = {-s, c, 0};
    Affine scale;
    scale.ax = {e.Value(41, 1), 0, 0};
    scale.ay = {0, e.Value(42, 1), 0};
    scale.az = {0, 0, e.Value(43, 1)};
    Affine toInsert;
    toInsert.t = e.Point(10);
    // Block base point to the origin, scaled, rotated, moved, then into the entity frame.
    in.place = frame.Then(toInsert.Then(rotate.Then(scale)));
    in.columns = std::max(1, e.flags[0]);
    in.rows = std::max(1, e.flags[1]);
    const Affine turn = frame.Then(rotate);
    in.columnStep = turn.Direction({e.Value(44, 0), 0, 0});
    in.rowStep = turn.Direction({0, e.Value(45, 0), 0});
    b.inserts.push_back(in);
  }

  // Whether the face records are exactly (1 2 3), (1 3 4), ... (1 n-1 n) over
  // all n positions, in one colour and layer.
  static bool IsWholeFan(const std::vector<VertexRec>& vertices, std::size_t positions) {
    if (positions < 5)
      return false;
    std::size_t k = 0;
    const VertexRec* first = nullptr;
    for (const VertexRec& v : vertices) {
      if (!(v.flags[0] & 128) || (v.flags[0] & 64))
        continue;
      if (!first)
        first = &v;
      if (v.colour != first->colour || v.layer != first->layer || v.flags[4] != 0 ||
          std::abs(v.flags[1]) != 1 || std::abs(v.flags[2]) != int(k + 2) ||
          std::abs(v.flags[3]) != int(k + 3))
        return false;
      ++k;
    }
    return k + 2 == positions;
  }

  void AddPolyline(Block& b, const Entity& poly, const std::vector<VertexRec>& vertices) {
    const int flags = poly.flags[0];
    std::vector<Vec>& pts = m_scratch;
    if (flags & 64) {
      // Polyface mesh: position records first, then face records indexing them.
      std::vector<Vec> positions;
      for (const VertexRec& v : vertices)
        if ((v.flags[0] & 128) && (v.flags[0] & 64))
          positions.push_back(v.p);
      // Records joined by hidden edges around a shared first corner are one
      // polygon split into pieces of at most four corners: they are joined again.
      std::vector<long long> polygon;
      const VertexRec* owner = nullptr;
      auto flush = [&] {
        if (!owner || polygon.empty())
          return;
        pts.clear();
        for (long long index : polygon) {
          const Vec& q = positions[std::size_t(std::llabs(index) - 1)];
          if (!pts.empty() && pts.back().x == q.x && pts.back().y == q.y && pts.back().z == q.z)
            continue;
          pts.push_back(q);
        }
        Entity e = poly;
        e.layer = owner->layer;
        e.colour = owner->colour;
        AddPrim(b, e, pts, true);
        polygon.clear();
      };
      if (IsWholeFan(vertices, positions.size())) {
        // One polygon written as the fan of triangles around its first corner.
        for (std::size_t i = 0; i < positions.size(); ++i)
          polygon.push_back((long long)(i + 1));
        for (const VertexRec& v : vertices)
          if ((v.flags[0] & 128) && !(v.flags[0] & 64)) {
            owner = &v;
            break;
          }
        flush();
        return;
      }
      std::vector<long long> record;
      for (const VertexRec& v : vertices) {
        if (!(v.flags[0] & 128) || (v.flags[0] & 64))
          continue;
        record.clear();
        bool valid = true;
        for (int k = 1; k <= 4; ++k) {
          const long long index = v.flags[std::size_t(k)];
          if (index == 0)
            continue;
          valid &= std::llabs(index) <= static_cast<long long>(positions.size());
          record.push_back(index);
        }
        if (!valid || record.size() < 3)
          continue;
        const bool joins = !polygon.empty() && owner->colour == v.colour &&
                           owner->layer == v.layer && record[0] < 0 && polygon.back() < 0 &&
                           std::llabs(record[0]) == std::llabs(polygon[0]) &&
                           std::llabs(record[1]) == std::llabs(polygon.back());
        if (joins) {
          polygon.back() = record[1];
          polygon.insert(polygon.end(), record.begin() + 2, record.end());
          continue;
        }
        flush();
        polygon = record;
        owner = &v;
      }
      flush();
      return;
    }
    if (flags & 16) {
      const long long m = poly.flags[1], n = poly.flags[2];
      // Counts that the vertices do not fill are not a mesh this file holds.
      if (m < 2 || n < 2 || m * n > static_cast<long long>(vertices.size()))
        return;
      const bool closedM = flags & 1, closedN = flags & 32;
      const long long rowsM = closedM ? m : m - 1, colsN = closedN ? n : n - 1;
      for (long long i = 0; i < rowsM; ++i)
        for (long long j = 0; j < colsN; ++j) {
          const long long i1 = (i + 1) % m, j1 = (j + 1) % n;
          pts = {vertices[std::size_t(i * n + j)].p, vertices[std::size_t(i * n + j1)].p,
                 vertices[std::size_t(i1 * n + j1)].p, vertices[std::size_t(i1 * n + j)].p};
          AddPrim(b, poly, pts, true);
        }
      return;
    }
    pts.clear();
    if (flags & 8) {
      for (const VertexRec& v : vertices)
        if (!(v.flags[0] & 16)) // spline frame points are not on the curve
          pts.push_back(v.p);
    } else {
      const Affine f = ObjectFrame(poly.extrusion);
      const double z = poly.Value(30, 0);
      for (const VertexRec& v : vertices)
        if (!(v.flags[0] & 16))
          pts.push_back(f.Apply({v.p.x, v.p.y, z}));
    }
    if ((flags & 1) && pts.size() > 2)
      pts.push_back(pts.front());
    AddPrim(b, poly, pts, false);
  }

  void Expand() {
    m_active.assign(m_blocks.size(), false);
    Emit(0, Affine(), 0, -1, 7);
  }

  void Emit(int index, const Affine& place, int depth, int layer, int colour) {
    if (ShouldCancel())
      throw DxfCancelled{};
    const Block& b = m_blocks[std::size_t(index)];
    m_active[std::size_t(index)] = true;
    Affine toBase;
    toBase.t = {-b.base.x, -b.base.y, -b.base.z};
    const Affine m = place.Then(toBase);
    for (const Prim& prim : b.prims) {
      m_emitted += prim.count;
      if (m_emitted > kMaxExpandedPoints)
        throw CFormatError(m_in.Offset(), "block insertions make more than " +
                                              std::to_string(kMaxExpandedPoints) + " points");
      // Entities of layer "0" in a block take the insert's layer, and "by block"
      // colours the insert's colour.
      const int l = (layer >= 0 && prim.layer == m_layer0) ? layer : prim.layer;
      DxfLayerGeometry& out = m_out.layers[std::size_t(l)];
      int c = prim.colour == kByBlock ? colour : prim.colour;
      if (c == kByLayer || c < 1 || c > 255)
        c = out.colour;
      std::vector<float>& dst = prim.face ? out.facePoints : out.linePoints;
      for (std::uint32_t i = 0; i < prim.count; ++i) {
        const Vec p = depth ? m.Apply(b.points[prim.start + i]) : b.points[prim.start + i];
        dst.push_back(ToFloat(p.x));
        dst.push_back(ToFloat(p.y));
        dst.push_back(ToFloat(p.z));
      }
      (prim.face ? out.faceStart : out.lineStart).push_back(std::uint32_t(dst.size() / 3));
      (prim.face ? out.faceColour : out.lineColour).push_back(std::uint8_t(c));
    }
    if (depth < kMaxInsertDepth)
      for (const Insert& in : b.inserts) {
        // A block that inserts itself, directly or not, is drawn once.
        if (m_active[std::size_t(in.block)])
          continue;
        const int l = (layer >= 0 && in.layer == m_layer0) ? layer : in.layer;
        int c = in.colour == kByBlock ? colour : in.colour;
        if (c == kByLayer || c < 1 || c > 255)
          c = m_out.layers[std::size_t(l)].colour;
        for (int r = 0; r < in.rows; ++r)
          for (int k = 0; k < in.columns; ++k) {
            Affine cell = in.place;
            cell.t.x += in.columnStep.x * k + in.rowStep.x * r;
            cell.t.y += in.columnStep.y * k + in.rowStep.y * r;
            cell.t.z += in.columnStep.z * k + in.rowStep.z * r;
            // Each cell costs something, so that arrays of empty blocks cannot spin.
            m_emitted += kCellCost;
            if (m_emitted > kMaxExpandedPoints)
              throw CFormatError(m_in.Offset(), "block insertions make more than " +
                                                    std::to_string(kMaxExpandedPoints) + " points");
            Emit(in.block, m.Then(cell), depth + 1, l, c);
          }
      }
    m_active[std::size_t(index)] = false;
  }

  PairSource m_in;
  DxfDrawing& m_out;
  std::vector<Block> m_blocks;
  Block m_spare;
  std::map<std::string, int> m_blockIndex;
  std::unordered_map<std::string, int> m_layerIndex;
  std::vector<bool> m_active;
  std::vector<Vec> m_scratch;
  std::size_t m_emitted = 0;
  int m_layer0 = 0;
};

// The colours of the numbers 10..249: 24 hues in steps of 15 degrees, each in
// five brightnesses, full and half saturated.
void HueColour(int number, std::uint8_t rgb[3]) {
  const int hue = (number / 10) - 1; // 0..23
  const int shade = number % 10;
  static constexpr double kValue[5] = {255, 165, 127, 76, 38};
  const double v = kValue[shade / 2];
  const bool pale = shade & 1;
  const double h = hue * 15.0 / 60.0; // 0..6
  const int sector = int(h);
  const double f = h - sector;
  double c[3];
  switch (sector % 6) {
  case 0:
    c[0] = 1;
    c[1] = f;
    c[2] = 0;
    break;
  case 1:
    c[0] = 1 - f;
    c[1] = 1;
    c[2] = 0;
    break;
  case 2:
    c[0] = 0;
    c[1] = 1;
    c[2] = f;
    break;
  case 3:
    c[0] = 0;
    c[1] = 1 - f;
    c[2] = 1;
    break;
  case 4:
    c[0] = f;
    c[1] = 0;
    c[2] = 1;
    break;
  default:
    c[0] = 1;
    c[1] = 0;
    c[2] = 1 - f;
    break;
  }
  for (int i = 0; i < 3; ++i) {
    const double k = pale ? 0.5 + 0.5 * c[i] : c[i];
    rgb[i] = std::uint8_t(std::floor(v * k));
  }
}

} // namespace

void ReadDxf(const void* data, std::size_t size, DxfDrawing& drawing) {
  Reader(static_cast<const std::uint8_t*>(data), size, drawing).Run();
}

void PaletteColour(int number, std::uint8_t rgb[3]) {
  static constexpr std::uint8_t kFirst[10][3] = {
      {255, 255, 255}, {255, 0, 0},   {255, 255, 0},   {0, 255, 0},     {0, 255, 255},
      {0, 0, 255},     {255, 0, 255}, {255, 255, 255}, {128, 128, 128}, {192, 192, 192}};
  static constexpr std::uint8_t kGrey[6] = {51, 91, 132, 173, 214, 255};
  if (number < 1 || number > 255)
    number = 7;
  if (number < 10) {
    std::copy_n(kFirst[number], 3, rgb);
  } else if (number >= 250) {
    rgb[0] = rgb[1] = rgb[2] = kGrey[number - 250];
  } else {
    HueColour(number, rgb);
  }
}

int NearestPaletteColour(std::uint8_t r, std::uint8_t g, std::uint8_t b) {
  static const std::array<std::array<std::uint8_t, 3>, 256> table = [] {
    std::array<std::array<std::uint8_t, 3>, 256> t{};
    for (int i = 1; i < 256; ++i)
      PaletteColour(i, t[std::size_t(i)].data());
    return t;
  }();
  int best = 7;
  long bestDistance = -1;
  for (int i = 1; i < 256; ++i) {
    const long dr = long(table[std::size_t(i)][0]) - r, dg = long(table[std::size_t(i)][1]) - g,
               db = long(table[std::size_t(i)][2]) - b;
    const long d = dr * dr + dg * dg + db * db;
    // White is number 7: the first exact match wins, so 7 before 255.
    if (bestDistance < 0 || d < bestDistance) {
      best = i;
      bestDistance = d;
    }
  }
  return best;
}

} // namespace meshcore::dxf
