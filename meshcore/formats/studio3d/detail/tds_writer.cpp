#include "meshcore/formats/common/detail/color_bytes.h"
#include "meshcore/formats/studio3d/detail/tds_file.h"
#include "meshcore/platform/cancel.h"

#include <cmath>

namespace meshcore::tds {

namespace {

using codec::CBinaryWriter;

constexpr CBinaryWriter::SizeField kSize{4, true, 0, false, false};

class CWriter {
public:
  CWriter(CBinaryWriter& out, CCancelCheck* cancel) : w(out), m_cancel(cancel) {}

  bool Write(const File& file) {
    auto main = Open(kMain);
    {
      auto version = Open(kVersion);
      w.U32(file.version);
    }
    {
      auto editor = Open(kEditor);
      {
        auto version = Open(kMeshVersion);
        w.U32(3);
      }
      for (const Material& m : file.materials)
        MaterialChunk(m);
      {
        auto scale = Open(kMasterScale);
        w.F32(file.masterScale);
      }
      for (const Mesh& mesh : file.meshes)
        if (!MeshChunk(mesh))
          return false;
    }
    if (!file.nodes.empty())
      Keyframer(file.nodes);
    return true;
  }

private:
  CBinaryWriter::ChunkScope Open(std::uint16_t id) { return w.Chunk(id, 2, kSize); }

  void ColorChunk(std::uint16_t id, const Color& c) {
    auto chunk = Open(id);
    // Both forms: older readers know only the bytes, newer ones prefer floats.
    {
      auto bytes = Open(kColorB);
      for (float v : c.rgb)
        w.U8(codec::ColorByte(v));
    }
    auto floats = Open(kColorF);
    for (float v : c.rgb)
      w.F32(v);
  }

  void PercentChunk(std::uint16_t id, float value) {
    auto chunk = Open(id);
    auto percent = Open(kPercentI);
    float p = value * 100.0f;
    p = !(p > 0) ? 0 : p > 100 ? 100 : p; // NaN too
    w.U16(std::uint16_t(std::lround(p)));
  }

  void MaterialChunk(const Material& m) {
    auto chunk = Open(kMaterial);
    {
      auto name = Open(kMatName);
      w.ZString(m.name);
    }
    ColorChunk(kMatAmbient, m.ambient);
    ColorChunk(kMatDiffuse, m.diffuse);
    ColorChunk(kMatSpecular, m.specular);
    PercentChunk(kMatShininess, m.shininess);
    PercentChunk(kMatShinStrength, m.shinStrength);
    PercentChunk(kMatTransparency, m.transparency);
    if (m.twoSided) {
      auto twoSided = Open(kMatTwoSided);
    }
    {
      auto shading = Open(kMatShading);
      w.U16(3); // Phong
    }
    if (m.hasMap) {
      auto map = Open(kMatTexture);
      {
        auto percent = Open(kPercentI);
        w.U16(100);
      }
      {
        auto file = Open(kMapFile);
        w.ZString(m.map.file);
      }
      {
        auto tiling = Open(kMapTiling);
        w.U16(0);
      }
      const std::pair<std::uint16_t, float> values[] = {{kMapUScale, m.map.uScale},
                                                        {kMapVScale, m.map.vScale},
                                                        {kMapUOffset, m.map.uOffset},
                                                        {kMapVOffset, m.map.vOffset}};
      for (const auto& [id, value] : values) {
        auto v = Open(id);
        w.F32(value);
      }
    }
  }

  bool MeshChunk(const Mesh& mesh) {
    auto object = Open(kObject);
    w.ZString(mesh.name);
    if (mesh.hidden) {
      auto hidden = Open(kObjectHidden);
    }
    auto tri = Open(kTriMesh);
    {
      auto points = Open(kPoints);
      w.U16(std::uint16_t(mesh.PointCount()));
      std::uint8_t* p = w.Extend(mesh.points.size() * 4);
      for (std::size_t i = 0; i < mesh.points.size(); ++i)
        codec::StoreF32LE(p + 4 * i, mesh.points[i]);
    }
    if (!mesh.uvs.empty()) {
      auto uvs = Open(kTexCoords);
      w.U16(std::uint16_t(mesh.uvs.size() / 2));
      std::uint8_t* p = w.Extend(mesh.uvs.size() * 4);
      for (std::size_t i = 0; i < mesh.uvs.size(); ++i)
        codec::StoreF32LE(p + 4 * i, mesh.uvs[i]);
    }
    {
      auto matrix = Open(kMeshMatrix);
      for (float v : mesh.matrix)
        w.F32(v);
    }
    auto faces = Open(kFaces);
    w.U16(std::uint16_t(mesh.FaceCount()));
    std::uint8_t* p = w.Extend(mesh.faces.size() * 2);
    for (std::size_t i = 0; i < mesh.faces.size(); ++i)
      codec::StoreU16LE(p + 2 * i, mesh.faces[i]);
    if (m_cancel && m_cancel->Advance(mesh.FaceCount()))
      return false;
    for (const FaceGroup& g : mesh.groups) {
      auto group = Open(kFaceMaterial);
      w.ZString(g.material);
      w.U16(std::uint16_t(g.faces.size()));
      for (std::uint16_t f : g.faces)
        w.U16(f);
    }
    if (!mesh.smoothing.empty()) {
      auto smoothing = Open(kSmoothing);
      for (std::uint32_t s : mesh.smoothing)
        w.U32(s);
    }
    return true;
  }

  void Track(std::uint16_t id, const float* values, unsigned count) {
    auto track = Open(id);
    w.U16(0); // flags
    w.U32(0);
    w.U32(0);
    w.U32(1); // one key
    w.U32(0); // frame
    w.U16(0); // no spline parameters
    for (unsigned i = 0; i < count; ++i)
      w.F32(values[i]);
  }

  void Keyframer(const std::vector<Node>& nodes) {
    auto kf = Open(kKeyframer);
    {
      auto header = Open(kKfHeader);
      w.U16(5);
      w.ZString("MAXSCENE");
      w.U32(100);
    }
    {
      auto frames = Open(kKfFrames);
      w.U32(0);
      w.U32(100);
    }
    {
      auto current = Open(kKfCurrent);
      w.U32(0);
    }
    for (const Node& n : nodes) {
      auto node = Open(kObjectNode);
      {
        auto id = Open(kNodeId);
        w.U16(n.id);
      }
      {
        auto header = Open(kNodeHeader);
        w.ZString(n.name);
        w.U16(0x4000);
        w.U16(0);
        w.U16(n.parent);
      }
      if (!n.instance.empty()) {
        auto instance = Open(kInstanceName);
        w.ZString(n.instance);
      }
      {
        auto pivot = Open(kPivot);
        for (float v : n.pivot)
          w.F32(v);
      }
      Track(kPositionTrack, n.position, 3);
      Track(kRotationTrack, n.rotation, 4);
      Track(kScaleTrack, n.scale, 3);
    }
  }

  CBinaryWriter& w;
  CCancelCheck* m_cancel;
};

} // namespace

bool WriteFile(const File& file, CBinaryWriter& out, CCancelCheck* cancel) {
  CWriter writer(out, cancel);
  return writer.Write(file);
}

} // namespace meshcore::tds
