#include "meshcore/formats/common/detail/chunk_walker.h"
#include "meshcore/formats/common/detail/format_error.h"
#include "meshcore/formats/studio3d/detail/tds_file.h"
#include "meshcore/platform/cancel.h"

#include <cstdio>
#include <exception>

namespace meshcore::tds {

namespace {

using codec::CBinaryCursor;
using codec::CChunkWalker;
using codec::CFormatError;
using codec::Chunk;

struct Cancelled {};

std::string ChunkName(std::uint16_t id) {
  char text[16];
  std::snprintf(text, sizeof text, "chunk 0x%04X", unsigned(id));
  return text;
}

class CReader {
public:
  CReader(File& file, CCancelCheck* cancel) : m_file(file), m_cancel(cancel) {}

  void Main(CBinaryCursor cursor) {
    if (cursor.Remaining() < 6)
      cursor.Fail("file shorter than a chunk header");
    CChunkWalker top(cursor, codec::k3dsChunks, m_cancel);
    Chunk main;
    // Bytes after the main chunk are not ours to judge.
    if (!top.Next(main))
      throw Cancelled{};
    if (main.id != kMain)
      throw CFormatError(main.offset, "not a 3D Studio file (first chunk " +
                                          ChunkName(std::uint16_t(main.id)) + ")");
    Walk(main.body, [&](Chunk& c) {
      switch (c.id) {
      case kVersion:
        m_file.version = c.body.U32();
        break;
      case kEditor:
        Editor(c.body);
        break;
      case kKeyframer:
        Keyframer(c.body);
        break;
      default:
        break;
      }
    });
  }

  std::uint16_t CurrentChunk() const { return m_chunk; }

private:
  // Calls fn for every chunk of range; fn sees the chunk as the current one
  // so that a failure inside it names it.
  template <class Fn> void Walk(CBinaryCursor range, Fn fn) {
    CChunkWalker walker(range, codec::k3dsChunks, m_cancel);
    Chunk c;
    for (;;) {
      bool more;
      more = walker.Next(c);
      if (walker.IsCancelled())
        throw Cancelled{};
      if (!more)
        return;
      const std::uint16_t outer = m_chunk;
      m_chunk = std::uint16_t(c.id);
      fn(c);
      m_chunk = outer;
    }
  }

  void Editor(CBinaryCursor body) {
    Walk(body, [&](Chunk& c) {
      switch (c.id) {
      case kMasterScale:
        m_file.masterScale = c.body.F32();
        m_file.hasMasterScale = true;
        break;
      case kMaterial:
        MaterialChunk(c.body);
        break;
      case kObject:
        Object(c.body);
        break;
      default:
        break;
      }
    });
  }

  void Object(CBinaryCursor body) {
    const std::string name = body.ZString();
    bool hidden = false;
    const std::size_t first = m_file.meshes.size();
    Walk(body, [&](Chunk& c) {
      if (c.id == kObjectHidden)
        hidden = true;
      else if (c.id == kTriMesh) {
        Mesh& mesh = m_file.meshes.emplace_back();
        mesh.name = name;
        TriMesh(c.body, mesh);
      }
    });
    for (std::size_t i = first; i < m_file.meshes.size(); ++i)
      m_file.meshes[i].hidden = hidden;
  }

  void TriMesh(CBinaryCursor body, Mesh& mesh) {
    std::size_t facesAt = 0;
    Walk(body, [&](Chunk& c) {
      switch (c.id) {
      case kPoints: {
        const std::uint16_t n = c.body.U16();
        c.body.NeedRecords(n, 12, "points");
        mesh.pointBytes = c.body.Data();
        mesh.pointsRead = n;
        c.body.Skip(std::size_t(n) * 12);
        break;
      }
      case kFaces:
        facesAt = c.offset;
        Faces(c.body, mesh);
        break;
      case kTexCoords: {
        const std::uint16_t n = c.body.U16();
        c.body.NeedRecords(n, 8, "texture coordinates");
        mesh.uvBytes = c.body.Data();
        mesh.uvsRead = n;
        c.body.Skip(std::size_t(n) * 8);
        break;
      }
      case kMeshMatrix:
        for (float& v : mesh.matrix)
          v = c.body.F32();
        mesh.hasMatrix = true;
        break;
      default:
        break;
      }
    });
    // The points may follow the faces, so the indices are checked once both are in.
    const std::size_t points = mesh.PointCount();
    for (std::size_t f = 0; f < mesh.FaceCount(); ++f)
      for (unsigned k = 0; k < 3; ++k)
        if (mesh.Face(f, k) >= points) {
          m_chunk = kFaces;
          throw CFormatError(facesAt, "face " + std::to_string(f) + " uses point " +
                                          std::to_string(mesh.Face(f, k)) + " past the " +
                                          std::to_string(points) + " points of the mesh");
        }
  }

  void Faces(CBinaryCursor body, Mesh& mesh) {
    const std::uint16_t n = body.U16();
    body.NeedRecords(n, 8, "faces");
    mesh.faceBytes = body.Data();
    mesh.facesRead = n;
    body.Skip(std::size_t(n) * 8);
    Walk(body, [&](Chunk& c) {
      if (c.id == kFaceMaterial) {
        FaceGroup& group = mesh.groups.emplace_back();
        group.material = c.body.ZString();
        const std::uint16_t count = c.body.U16();
        c.body.NeedRecords(count, 2, "face numbers");
        group.faces.resize(count);
        for (std::uint16_t& f : group.faces) {
          f = c.body.U16();
          if (f >= n)
            c.body.Fail("face " + std::to_string(f) + " past the " + std::to_string(n) +
                        " faces of the mesh");
        }
      } else if (c.id == kSmoothing) {
        // Some writers leave the list short; the missing faces belong to no group.
        const std::size_t count = std::min<std::size_t>(c.body.Remaining() / 4, n);
        mesh.smoothing.resize(count);
        for (std::uint32_t& s : mesh.smoothing)
          s = c.body.U32();
      }
    });
  }

  // Reads a colour sub-chunk; the plain forms win over the gamma-corrected ones.
  void ColorChunk(CBinaryCursor body, Color& colour) {
    bool plain = false;
    Walk(body, [&](Chunk& c) {
      const bool isPlain = c.id == kColorF || c.id == kColorB;
      if (c.id != kColorF && c.id != kColorB && c.id != kColorGammaF && c.id != kColorGammaB)
        return;
      if (plain && !isPlain)
        return;
      for (float& v : colour.rgb)
        v = (c.id == kColorF || c.id == kColorGammaF) ? c.body.F32() : float(c.body.U8()) / 255.0f;
      colour.set = true;
      plain = plain || isPlain;
    });
  }

  float PercentChunk(CBinaryCursor body) {
    float value = 0;
    Walk(body, [&](Chunk& c) {
      if (c.id == kPercentI)
        value = float(c.body.I16()) / 100.0f;
      else if (c.id == kPercentF)
        value = c.body.F32() / 100.0f;
    });
    return value;
  }

  void MaterialChunk(CBinaryCursor body) {
    Material& m = m_file.materials.emplace_back();
    Walk(body, [&](Chunk& c) {
      switch (c.id) {
      case kMatName:
        m.name = c.body.ZString();
        break;
      case kMatAmbient:
        ColorChunk(c.body, m.ambient);
        break;
      case kMatDiffuse:
        ColorChunk(c.body, m.diffuse);
        break;
      case kMatSpecular:
        ColorChunk(c.body, m.specular);
        break;
      case kMatShininess:
        m.shininess = PercentChunk(c.body);
        break;
      case kMatShinStrength:
        m.shinStrength = PercentChunk(c.body);
        break;
      case kMatTransparency:
        m.transparency = PercentChunk(c.body);
        break;
      case kMatTwoSided:
        m.twoSided = true;
        break;
      case kMatTexture:
        m.hasMap = true;
        MapChunk(c.body, m.map);
        break;
      default:
        break;
      }
    });
  }

  void MapChunk(CBinaryCursor body, TextureMap& map) {
    Walk(body, [&](Chunk& c) {
      switch (c.id) {
      case kMapFile:
        map.file = c.body.ZString();
        break;
      case kMapUScale:
        map.uScale = c.body.F32();
        break;
      case kMapVScale:
        map.vScale = c.body.F32();
        break;
      case kMapUOffset:
        map.uOffset = c.body.F32();
        break;
      case kMapVOffset:
        map.vOffset = c.body.F32();
        break;
      case kMapRotation:
        map.rotation = c.body.F32();
        break;
      default:
        break;
      }
    });
  }

  void Keyframer(CBinaryCursor body) {
    Walk(body, [&](Chunk& c) {
      if (c.id == kObjectNode)
        ObjectNode(c.body);
    });
  }

  // The first key of a track; later keys animate and are not kept.
  void FirstKey(CBinaryCursor body, float* value, unsigned count) {
    body.Skip(2 + 8);
    const std::uint32_t keys = body.U32();
    if (keys == 0)
      return;
    body.NeedRecords(keys, 6 + 4 * count, "keys");
    body.Skip(4);
    const std::uint16_t spline = body.U16();
    for (unsigned bit = 0; bit < 5; ++bit)
      if (spline & (1u << bit))
        body.Skip(4);
    for (unsigned i = 0; i < count; ++i)
      value[i] = body.F32();
  }

  void ObjectNode(CBinaryCursor body) {
    Node& node = m_file.nodes.emplace_back();
    Walk(body, [&](Chunk& c) {
      switch (c.id) {
      case kNodeId:
        node.id = c.body.U16();
        node.hasId = true;
        break;
      case kNodeHeader:
        node.name = c.body.ZString();
        c.body.Skip(4); // flags
        node.parent = c.body.U16();
        break;
      case kInstanceName:
        node.instance = c.body.ZString();
        break;
      case kPivot:
        for (float& v : node.pivot)
          v = c.body.F32();
        break;
      case kPositionTrack:
        FirstKey(c.body, node.position, 3);
        break;
      case kRotationTrack:
        FirstKey(c.body, node.rotation, 4);
        break;
      case kScaleTrack:
        FirstKey(c.body, node.scale, 3);
        break;
      default:
        break;
      }
    });
  }

  File& m_file;
  CCancelCheck* m_cancel;
  std::uint16_t m_chunk = 0;
};

} // namespace

ReadResult ReadFile(const void* data, std::size_t size, File& file, CCancelCheck* cancel,
                    std::string& detail) {
  file = File();
  CReader reader(file, cancel);
  try {
    reader.Main(CBinaryCursor(data, size, codec::ByteOrder::Little));
  } catch (const Cancelled&) {
    return ReadResult::Cancelled;
  } catch (const CFormatError& e) {
    const std::uint16_t id = reader.CurrentChunk();
    detail = codec::DescribeFailure(id ? ChunkName(id) : std::string(), e.GetOffset(), e.GetWhat());
    file = File();
    return ReadResult::BadFormat;
  }
  return ReadResult::Ok;
}

} // namespace meshcore::tds
