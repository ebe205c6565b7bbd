#include "meshcore/formats/truespace/detail/cob_file.h"
#include "meshcore/platform/cancel.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace meshcore::cob {

namespace {

class CText {
public:
  std::string& Str() { return m_s; }
  CText& operator<<(std::string_view s) {
    m_s.append(s);
    return *this;
  }
  CText& operator<<(char c) {
    m_s.push_back(c);
    return *this;
  }
  // Shortest form that reads back to the same float; readers refuse NaN and
  // infinities, so those are written as 0.
  CText& Float(float v) {
    if (!std::isfinite(v))
      v = 0.0f;
    char buf[32];
    m_s.append(buf, std::size_t(std::to_chars(buf, buf + sizeof buf, v).ptr - buf));
    return *this;
  }
  // The same with a decimal point always: some readers split "1,1,1" wrongly.
  CText& Decimal(float v) {
    const std::size_t start = m_s.size();
    Float(v);
    if (m_s.find_first_of(".en", start) == std::string::npos)
      m_s.append(".0");
    return *this;
  }
  CText& Int(std::uint64_t v) {
    char buf[24];
    m_s.append(buf, std::size_t(std::to_chars(buf, buf + sizeof buf, v).ptr - buf));
    return *this;
  }
  std::size_t Size() const { return m_s.size(); }

private:
  std::string m_s;
};

// The header of a chunk whose body (already in text) follows; the size field
// is zero-padded to eight digits as trueSpace writes it.
void Chunk(CText& out, const char* type, const char* version, std::uint32_t id,
           std::uint32_t parent, const std::string& body) {
  char size[24];
  std::snprintf(size, sizeof size, "%08zu", body.size());
  out << type << " V" << version << " Id ";
  out.Int(id) << " Parent ";
  out.Int(parent) << " Size " << size << body;
}

// Names stay on their line.
std::string OneLine(const std::string& name) {
  std::string s = name;
  for (char& c : s)
    if (c == '\r' || c == '\n' || c == '\0')
      c = ' ';
  return s;
}

void WriteFrame(CText& body, const cob::Frame& f) {
  auto three = [&](const char* key, const float* v) {
    body << '\n' << key;
    for (int i = 0; i < 3; ++i)
      body.Float(v[i]) << (i < 2 ? " " : "");
  };
  three("center ", f.center);
  three("x axis ", f.axes[0]);
  three("y axis ", f.axes[1]);
  three("z axis ", f.axes[2]);
  body << "\nTransform";
  for (const auto& row : f.matrix) {
    body << '\n';
    for (int i = 0; i < 4; ++i)
      body.Float(row[i]) << (i < 3 ? " " : "");
  }
  body << "\n0 0 0 1";
}

void WriteNode(CText& out, const cob::Node& node, CCancelCheck& cancel) {
  CText body;
  body << "\nName " << OneLine(node.name.empty() ? std::string("NoName") : node.name);
  WriteFrame(body, node.frame);
  if (node.kind == NodeKind::Group) {
    body << '\n';
    Chunk(out, "Grou", "0.01", node.id, node.parent, body.Str());
    return;
  }
  const std::size_t points = node.points.size() / 3;
  body << "\nWorld Vertices ";
  body.Int(points);
  for (std::size_t i = 0; i < points; ++i) {
    if (cancel.Tick())
      throw Cancelled{};
    body << '\n';
    body.Float(node.points[i * 3]) << ' ';
    body.Float(node.points[i * 3 + 1]) << ' ';
    body.Float(node.points[i * 3 + 2]);
  }
  const std::size_t uvs = node.uvs.size() / 2;
  body << "\nTexture Vertices ";
  body.Int(uvs);
  for (std::size_t i = 0; i < uvs; ++i) {
    if (cancel.Tick())
      throw Cancelled{};
    body << '\n';
    body.Float(node.uvs[i * 2]) << ' ';
    body.Float(node.uvs[i * 2 + 1]);
  }
  body << "\nFaces ";
  body.Int(node.faces.size());
  for (const Face& face : node.faces) {
    if (cancel.Tick())
      throw Cancelled{};
    body << "\nFace verts ";
    body.Int(face.count) << " flags 0 mat ";
    body.Int(face.material) << '\n';
    for (std::uint32_t k = 0; k < face.count; ++k) {
      const Corner& c = node.corners[face.first + k];
      body << '<';
      body.Int(c.point) << ',';
      body.Int(c.uv) << "> ";
    }
  }
  body << "\nDrawFlags 0\n";
  Chunk(out, "PolH", "0.06", node.id, node.parent, body.Str());
}

void WriteMaterial(CText& out, const cob::Material& m, std::uint32_t id) {
  CText body;
  body << "\nmat# ";
  body.Int(m.number);
  body << "\nshader: "
       << (m.shader == 'f'   ? "flat"
           : m.shader == 'm' ? "metal"
                             : "phong")
       << "  facet: ";
  if (m.facet == 'f')
    body << "faceted";
  else if (m.facet == 's')
    body << "smooth";
  else
    body << "auto";
  if (m.facet != 'f' && m.facet != 's')
    body.Int(std::uint64_t(m.angle < 0 ? 0 : m.angle));
  body << "\nrgb ";
  body.Decimal(m.rgb[0]) << ',';
  body.Decimal(m.rgb[1]) << ',';
  body.Decimal(m.rgb[2]);
  body << "\nalpha ";
  body.Float(m.alpha) << "  ka ";
  body.Float(m.ka) << "  ks ";
  body.Float(m.ks) << "  exp ";
  body.Float(m.exponent) << "  ior ";
  body.Float(m.ior);
  if (!m.texture.empty()) {
    const std::string name = OneLine(m.texture);
    body << "\ntexture: ";
    body.Int(name.size()) << name << "\noffset ";
    body.Decimal(m.offset[0]) << ',';
    body.Decimal(m.offset[1]) << "  repeats ";
    body.Decimal(m.repeats[0]) << ',';
    body.Decimal(m.repeats[1]) << "  flags 2";
  }
  body << '\n';
  Chunk(out, "Mat1", "0.06", id, m.parent, body.Str());
}

} // namespace

std::string WriteAscii(const File& file) {
  CText out;
  std::string header = "Caligari V00.01ALH";
  header.resize(kHeaderSize - 1, ' ');
  out << header << '\n';
  CCancelCheck cancel(0, 4096);
  // Materials take ids after the nodes' so that every id is distinct.
  std::uint32_t next = 1;
  for (const cob::Node& node : file.nodes)
    next = std::max(next, node.id + 1);
  for (const cob::Node& node : file.nodes) {
    WriteNode(out, node, cancel);
    for (const cob::Material& m : file.materials)
      if (m.parent == node.id && node.kind == NodeKind::Mesh)
        WriteMaterial(out, m, next++);
  }
  out << "END  V1.00 Id 0 Parent 0 Size        0";
  return std::move(out.Str());
}

} // namespace meshcore::cob
