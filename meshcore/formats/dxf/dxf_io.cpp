#include "meshcore/formats/dxf/dxf_io.h"

#include "meshcore/formats/common/detail/file_input.h"
#include "meshcore/formats/common/detail/file_output.h"
#include "meshcore/formats/common/detail/format_error.h"
#include "meshcore/formats/common/detail/unique_names.h"
#include "meshcore/formats/dxf/detail/dxf_reader.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <new>

namespace meshcore {

namespace {

using dxf::DxfCancelled;
using dxf::DxfDrawing;
using dxf::DxfLayerGeometry;

struct CancelledSave {};
struct EmptyScene {};

// ---------------------------------------------------------------------------
// Reading: per-layer geometry into the scene

// Exact-match welding of corners through an open-addressed table: the nodes
// of a standard hash map cost more than the parsing of the file.
class PointWelder {
public:
  explicit PointWelder(std::size_t corners) {
    std::size_t capacity = 64;
    while (capacity < corners * 2)
      capacity *= 2;
    m_slots.assign(capacity, -1);
    m_mask = capacity - 1;
  }

  // The index of the point with these coordinate bits, added when new.
  int Find(const std::uint32_t key[3]) {
    std::uint64_t h = key[0] * 0x9E3779B97F4A7C15ull;
    h ^= (h >> 29) + key[1] * 0xBF58476D1CE4E5B9ull;
    h ^= (h >> 31) + key[2] * 0x94D049BB133111EBull;
    h ^= h >> 32;
    for (std::size_t slot = std::size_t(h) & m_mask;; slot = (slot + 1) & m_mask) {
      const int index = m_slots[slot];
      if (index < 0) {
        const int added = int(m_keys.size() / 3);
        m_slots[slot] = added;
        m_keys.insert(m_keys.end(), key, key + 3);
        return added;
      }
      if (std::equal(key, key + 3, &m_keys[std::size_t(index) * 3]))
        return index;
    }
  }
  std::size_t Size() const { return m_keys.size() / 3; }
  const std::uint32_t* Key(std::size_t i) const { return &m_keys[i * 3]; }

private:
  std::vector<int> m_slots;
  std::vector<std::uint32_t> m_keys;
  std::size_t m_mask;
};

std::uint32_t Bits(float v) {
  v += 0.0f; // -0 and 0 are the same point
  std::uint32_t b;
  std::memcpy(&b, &v, 4);
  return b;
}

class SceneBuilder {
public:
  explicit SceneBuilder(C3DScene& scene) : m_scene(scene) {}

  void Build(const DxfDrawing& drawing) {
    using NodePtr = std::unique_ptr<C3DSceneNode>;
    std::vector<std::pair<NodePtr, std::vector<NodePtr>>> made;
    for (const DxfLayerGeometry& layer : drawing.layers) {
      if (layer.FaceCount() == 0 && layer.LineCount() == 0)
        continue;
      NodePtr node = NewNode(layer.FaceCount() ? MakeMesh(layer) : new C3DGroup, layer.name);
      std::vector<NodePtr> curves;
      for (std::size_t l = 0; l < layer.LineCount(); ++l)
        curves.push_back(NewNode(MakeCurve(layer, l), layer.name));
      made.emplace_back(std::move(node), std::move(curves));
    }
    // AddNode makes a node the first child: added backwards to keep file order.
    for (auto it = made.rbegin(); it != made.rend(); ++it) {
      C3DSceneNode* node = it->first.release();
      m_scene.AddNode(nullptr, node);
      for (auto c = it->second.rbegin(); c != it->second.rend(); ++c)
        m_scene.AddNode(node, c->release());
    }
    if (drawing.hasUnits)
      m_scene.GetCustomData().SetInt(kCustomDxfUnits, drawing.units);
  }

private:
  static std::unique_ptr<C3DSceneNode> NewNode(C3DBaseObject* object, const std::string& name) {
    auto node = std::make_unique<C3DSceneNode>(object, 1);
    node->SetName(name);
    return node;
  }

  unsigned Material(int colour) {
    auto it = m_materials.find(colour);
    if (it != m_materials.end())
      return it->second;
    C3DMaterial* m = m_scene.CreateNewMaterial();
    m->SetName("Color " + std::to_string(colour));
    std::uint8_t rgb[3];
    dxf::PaletteColour(colour, rgb);
    m->SetDiffuseColor(CRGBColor(rgb[0], rgb[1], rgb[2], 255));
    return m_materials[colour] = m->GetMaterialID();
  }

  C3DBaseObject* MakeMesh(const DxfLayerGeometry& layer) {
    auto object = std::make_unique<C3DObject>();
    auto faces = std::make_unique<C3DFaceList>();
    const int faceCount = int(layer.FaceCount());
    faces->SetSize(faceCount);
    PointWelder welder(layer.facePoints.size() / 3);
    CCancelCheck cancel;
    int lastColour = -1;
    unsigned material = 0;
    for (int f = 0; f < faceCount; ++f) {
      if (cancel.Tick())
        throw DxfCancelled{};
      const std::uint32_t b = layer.faceStart[std::size_t(f)];
      const int count = int(layer.faceStart[std::size_t(f) + 1] - b);
      C3DFace& face = (*faces)[f];
      face.SetSize(count);
      int* idx = face.GetData();
      // The model's faces run the other way round from the file's.
      for (int k = 0; k < count; ++k) {
        const float* p = &layer.facePoints[std::size_t(b + std::uint32_t(count - 1 - k)) * 3];
        const std::uint32_t key[3] = {Bits(p[0]), Bits(p[1]), Bits(p[2])};
        idx[k] = welder.Find(key);
      }
      if (layer.faceColour[std::size_t(f)] != lastColour) {
        lastColour = layer.faceColour[std::size_t(f)];
        material = Material(lastColour);
      }
      face.SetMaterialID(material);
    }
    auto list = std::make_unique<C3DPointList>();
    list->SetSize(int(welder.Size()));
    C3DPoint* out = list->GetFirst();
    for (std::size_t i = 0; i < welder.Size(); ++i) {
      float v[3];
      std::memcpy(v, welder.Key(i), sizeof v);
      out[i] = C3DPoint(v[0], v[1], v[2]);
    }
    object->SetPointList(list.release());
    object->SetFaceList(faces.release());
    return object.release();
  }

  C3DBaseObject* MakeCurve(const DxfLayerGeometry& layer, std::size_t l) {
    auto curve = std::make_unique<C3DCurve>();
    auto points = std::make_unique<C3DPointList>();
    const std::uint32_t b = layer.lineStart[l], e = layer.lineStart[l + 1];
    points->SetSize(int(e - b));
    for (std::uint32_t i = b; i < e; ++i) {
      const float* p = &layer.linePoints[std::size_t(i) * 3];
      (*points)[int(i - b)] = C3DPoint(p[0], p[1], p[2]);
    }
    curve->SetPointList(points.release());
    curve->SetMaterialID(Material(layer.lineColour[l]));
    return curve.release();
  }

  C3DScene& m_scene;
  std::map<int, unsigned> m_materials;
};

// ---------------------------------------------------------------------------
// Writing

class DxfText {
public:
  std::string& Str() { return m_s; }
  // A group code right-aligned in three columns, as AutoCAD writes them.
  void Code(int code) {
    char buf[16];
    char* end = std::to_chars(buf, buf + sizeof buf, code).ptr;
    const std::size_t n = std::size_t(end - buf);
    if (n < 3)
      m_s.append(3 - n, ' ');
    m_s.append(buf, n);
    m_s += '\n';
  }
  void Text(int code, std::string_view value) {
    Code(code);
    m_s.append(value);
    m_s += '\n';
  }
  void Int(int code, long long value) {
    Code(code);
    char buf[24];
    m_s.append(buf, std::to_chars(buf, buf + sizeof buf, value).ptr);
    m_s += '\n';
  }
  // Shortest form that reads back to the same float; readers refuse NaN and
  // infinities, which a transform can make: those are written as 0.
  void Float(int code, float value) {
    if (!std::isfinite(value))
      value = 0.0f;
    Code(code);
    char buf[32];
    m_s.append(buf, std::to_chars(buf, buf + sizeof buf, value).ptr);
    m_s += '\n';
  }
  void Point(int code, const C3DPoint& p) {
    Float(code, p.x);
    Float(code + 10, p.y);
    Float(code + 20, p.z);
  }

private:
  std::string m_s;
};

// Layer names of R12: letters, digits, '$', '-' and '_', at most 31 of them.
std::string LayerName(const std::string& name) {
  std::string s;
  for (char c : name) {
    if (s.size() >= 28) // room for a number that makes it unique
      break;
    const bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                    c == '$' || c == '-' || c == '_';
    s += ok ? c : '_';
  }
  return s.empty() ? std::string("LAYER") : s;
}

struct OutNode {
  C3DSceneNode* node;
  std::string layer;
  C4x4Matrix world;
  bool identity;
};

class DxfWriter {
public:
  DxfWriter(C3DScene& scene, DxfText& out) : m_scene(scene), m_out(out) {}

  void Write() {
    std::vector<OutNode> nodes;
    std::vector<std::string> layers;
    codec::CUniqueNames names;
    std::map<C3DSceneNode*, std::string> layerOf;
    const C3DBaseObject* object = nullptr;
    for (C3DSceneNode* cursor = m_scene.GetFirstNode(nullptr); cursor;) {
      C3DSceneNode* node = m_scene.GetNextNode(object, cursor, nullptr);
      if (!node)
        break;
      C3DBaseObject* o = node->GetBaseObject();
      const bool curve = o && o->GetKindOf() == OBJECT_CURVE;
      // A curve named as its parent goes on the parent's layer, as the reader
      // makes them.
      C3DSceneNode* parent = m_scene.GetParent(node);
      std::string layer;
      if (curve && parent && parent->GetName() == node->GetName() && layerOf.count(parent))
        layer = layerOf[parent];
      else {
        layer = names.Make(LayerName(node->GetName()));
        layers.push_back(layer);
      }
      layerOf[node] = layer;
      if (!o || o->GetKindOf() == OBJECT_GROUP || o->IsFlagSet(OBJECT_EMPTY) ||
          o->GetPointNbr() == 0)
        continue;
      OutNode out{node, layer, C4x4Matrix(1), false};
      node->GetMatrix(NODE_MATRIX_TRANSFORM, out.world, 0);
      out.identity = out.world.IsIdentity();
      nodes.push_back(out);
    }
    if (nodes.empty())
      throw EmptyScene{};
    WriteHeader(nodes);
    WriteTables(layers);
    m_out.Text(0, "SECTION");
    m_out.Text(2, "BLOCKS");
    m_out.Text(0, "ENDSEC");
    m_out.Text(0, "SECTION");
    m_out.Text(2, "ENTITIES");
    for (const OutNode& n : nodes)
      WriteNode(n);
    m_out.Text(0, "ENDSEC");
    m_out.Text(0, "EOF");
  }

private:
  static C3DPoint Placed(const OutNode& n, const C3DPoint& p) {
    return n.identity ? p : p * n.world;
  }

  void WriteHeader(const std::vector<OutNode>& nodes) {
    float lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
    bool any = false;
    for (const OutNode& n : nodes) {
      const C3DPointList& points = *n.node->GetBaseObject()->GetPointList();
      for (int i = 0; i < points.GetSize(); ++i) {
        const C3DPoint p = Placed(n, points[i]);
        const float v[3] = {p.x, p.y, p.z};
        for (int k = 0; k < 3; ++k) {
          if (!std::isfinite(v[k]))
            continue;
          lo[k] = any ? std::min(lo[k], v[k]) : v[k];
          hi[k] = any ? std::max(hi[k], v[k]) : v[k];
        }
        any = true;
      }
    }
    m_out.Text(999, "DXF written by Meshcore");
    m_out.Text(0, "SECTION");
    m_out.Text(2, "HEADER");
    m_out.Text(9, "$ACADVER");
    m_out.Text(1, "AC1009");
    m_out.Text(9, "$INSBASE");
    m_out.Point(10, C3DPoint(0, 0, 0));
    m_out.Text(9, "$EXTMIN");
    m_out.Point(10, C3DPoint(lo[0], lo[1], lo[2]));
    m_out.Text(9, "$EXTMAX");
    m_out.Point(10, C3DPoint(hi[0], hi[1], hi[2]));
    int units = 0;
    if (m_scene.GetCustomData().GetInt(kCustomDxfUnits, units, 0)) {
      m_out.Text(9, "$INSUNITS");
      m_out.Int(70, units);
    }
    m_out.Text(0, "ENDSEC");
  }

  void WriteTables(const std::vector<std::string>& layers) {
    m_out.Text(0, "SECTION");
    m_out.Text(2, "TABLES");
    m_out.Text(0, "TABLE");
    m_out.Text(2, "LTYPE");
    m_out.Int(70, 1);
    m_out.Text(0, "LTYPE");
    m_out.Text(2, "CONTINUOUS");
    m_out.Int(70, 0);
    m_out.Text(3, "Solid line");
    m_out.Int(72, 65);
    m_out.Int(73, 0);
    m_out.Float(40, 0.0f);
    m_out.Text(0, "ENDTAB");
    m_out.Text(0, "TABLE");
    m_out.Text(2, "LAYER");
    m_out.Int(70, std::min<long long>(32767, (long long)layers.size()));
    for (const std::string& name : layers) {
      m_out.Text(0, "LAYER");
      m_out.Text(2, name);
      m_out.Int(70, 0);
      m_out.Int(62, 7);
      m_out.Text(6, "CONTINUOUS");
    }
    m_out.Text(0, "ENDTAB");
    m_out.Text(0, "ENDSEC");
  }

  int Colour(unsigned material) {
    auto it = m_colours.find(material);
    if (it != m_colours.end())
      return it->second;
    int colour = 7;
    if (const C3DMaterial* m = m_scene.GetMaterial(material)) {
      const CRGBColor& c = m->GetDiffuseColor();
      colour = dxf::NearestPaletteColour(c.r, c.g, c.b);
    }
    return m_colours[material] = colour;
  }

  void Start(const char* type, const OutNode& n, int colour) {
    m_out.Text(0, type);
    m_out.Text(8, n.layer);
    m_out.Int(62, colour);
  }

  void WriteNode(const OutNode& n) {
    C3DBaseObject& object = *n.node->GetBaseObject();
    const C3DPointList& points = *object.GetPointList();
    const int pointCount = points.GetSize();
    CCancelCheck cancel;
    if (object.GetKindOf() == OBJECT_CURVE) {
      if (pointCount < 2)
        return;
      Start("POLYLINE", n, Colour(static_cast<C3DCurve&>(object).GetMaterialID()));
      m_out.Int(66, 1);
      m_out.Point(10, C3DPoint(0, 0, 0));
      m_out.Int(70, 8);
      for (int i = 0; i < pointCount; ++i) {
        if (cancel.Tick())
          throw CancelledSave{};
        Start("VERTEX", n, 256);
        m_out.Point(10, Placed(n, points[i]));
        m_out.Int(70, 32);
      }
      m_out.Text(0, "SEQEND");
      m_out.Text(8, n.layer);
      return;
    }
    const C3DFaceList* mesh = object.GetFaceList();
    if (!mesh)
      return;
    std::vector<C3DPoint> corners;
    for (int f = 0; f < mesh->GetSize(); ++f) {
      if (cancel.Tick())
        throw CancelledSave{};
      const C3DFace& face = (*mesh)[f];
      corners.clear();
      // Written the other way round: the file's faces run counter-clockwise.
      for (int k = face.GetSize() - 1; k >= 0; --k)
        if (face[k] >= 0 && face[k] < pointCount)
          corners.push_back(Placed(n, points[face[k]]));
      if (corners.size() < 3)
        continue;
      const int colour = Colour(face.GetMaterialID());
      if (corners.size() <= 4)
        WriteFace(n, colour, corners[0], corners[1], corners[2], corners.back());
      else if (corners.size() <= 32767)
        WritePolyface(n, colour, corners);
      else
        for (std::size_t k = 1; k + 1 < corners.size(); ++k)
          WriteFace(n, colour, corners[0], corners[k], corners[k + 1], corners[k + 1]);
    }
  }

  void WriteFace(const OutNode& n, int colour, const C3DPoint& a, const C3DPoint& b,
                 const C3DPoint& c, const C3DPoint& d) {
    Start("3DFACE", n, colour);
    m_out.Point(10, a);
    m_out.Point(11, b);
    m_out.Point(12, c);
    m_out.Point(13, d);
  }

  // One polygon as a polyface mesh: the fan of triangles around its first
  // corner, which the reader joins again. Its inner edges are not marked
  // hidden: some readers take only positive indices.
  void WritePolyface(const OutNode& n, int colour, const std::vector<C3DPoint>& corners) {
    const int count = int(corners.size());
    Start("POLYLINE", n, colour);
    m_out.Int(66, 1);
    m_out.Point(10, C3DPoint(0, 0, 0));
    m_out.Int(70, 64);
    m_out.Int(71, count);
    m_out.Int(72, count - 2);
    for (const C3DPoint& p : corners) {
      Start("VERTEX", n, colour);
      m_out.Point(10, p);
      m_out.Int(70, 192);
    }
    for (int k = 1; k + 1 < count; ++k) {
      Start("VERTEX", n, colour);
      m_out.Point(10, C3DPoint(0, 0, 0));
      m_out.Int(70, 128);
      m_out.Int(71, 1);
      m_out.Int(72, k + 1);
      m_out.Int(73, k + 2);
    }
    m_out.Text(0, "SEQEND");
    m_out.Text(8, n.layer);
  }

  C3DScene& m_scene;
  DxfText& m_out;
  std::map<unsigned, int> m_colours;
};

} // namespace

void RegisterDxfCodec() {
  fileRegisterCodecOf<CDxfIo>(fileMakeClassCode("DXF "));
}

CDxfIo::CDxfIo(CFileIo& owner) : C3DParser(owner) {}
CDxfIo::~CDxfIo() = default;

C3DScene* CDxfIo::Read(const std::string& name, unsigned flags) {
  codec::CFileInput input;
  if (int result = input.Open(name); result != IO_FILE_OK) {
    SetIoError(result, codec::CFileInput::FailureText(result));
    return nullptr;
  }
  return ReadFromMemory(input.GetData(), input.GetSize(), flags);
}

C3DScene* CDxfIo::ReadFromMemory(const void* data, std::size_t size, unsigned flags) {
  std::unique_ptr<C3DScene> scene;
  try {
    DxfDrawing drawing;
    dxf::ReadDxf(data, size, drawing);
    scene = std::make_unique<C3DScene>();
    SceneBuilder(*scene).Build(drawing);
  } catch (const codec::CFormatError& e) {
    SetIoError(IO_FILE_BAD_FORMAT, codec::DescribeFailure("", e.GetOffset(), e.GetWhat()));
    return nullptr;
  } catch (const DxfCancelled&) {
    SetIoError(IO_FILE_CANCELLED);
    return nullptr;
  } catch (const std::bad_alloc&) {
    SetIoError(IO_FILE_NO_MEMORY);
    return nullptr;
  }
  scene->CheckoutImport(int(flags));
  if (scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return nullptr;
  }
  return scene.release();
}

int CDxfIo::SaveToMemory(C3DScene* scene, unsigned flags, std::string& out) {
  if (!scene || scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  int changed = 0;
  C3DScene* exported = scene->InitExport(int(flags), changed);
  DxfText text;
  int result = 0;
  try {
    DxfWriter(*exported, text).Write();
    result = 1;
  } catch (const CancelledSave&) {
    SetIoError(IO_FILE_CANCELLED);
  } catch (const EmptyScene&) {
    SetIoError(IO_FILE_EMPTY);
  } catch (const std::bad_alloc&) {
    SetIoError(IO_FILE_NO_MEMORY);
  }
  exported->ReleaseExport(exported, exported != scene);
  if (result)
    out = std::move(text.Str());
  return result;
}

int CDxfIo::Save(const std::string& name, C3DScene* scene, unsigned flags) {
  std::string out;
  if (!SaveToMemory(scene, flags, out))
    return 0;
  return codec::SaveWholeFile(*this, name, out.data(), out.size());
}

} // namespace meshcore
