#include "meshcore/formats/wavefront/wavefront_io.h"

#include "meshcore/formats/common/detail/color_bytes.h"
#include "meshcore/formats/common/detail/file_input.h"
#include "meshcore/formats/common/detail/file_output.h"
#include "meshcore/formats/common/detail/format_error.h"
#include "meshcore/formats/common/detail/unique_names.h"
#include "meshcore/formats/wavefront/detail/obj_parser.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/face_normal_channel.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/point_normal_channel.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <unordered_map>

namespace meshcore {

namespace {

namespace fs = std::filesystem;
using obj::kNone;
using obj::ObjData;
using obj::ObjMaterial;
using obj::ObjNode;

struct CancelledSave {};
struct BadScene {
  std::string what;
};

// Libraries larger than this are not material libraries.
constexpr std::uintmax_t kMaxLibrarySize = std::uintmax_t(1) << 28;

// ---------------------------------------------------------------------------
// Reading: flat records into the scene

class SceneBuilder {
public:
  SceneBuilder(const ObjData& data, C3DScene& scene) : m_data(data), m_scene(scene) {}

  void AddMaterials(const std::vector<ObjMaterial>& defined) {
    // The default material is made first when something needs it, so that no
    // material of the file takes its id.
    std::set<std::string> names;
    for (const ObjMaterial& def : defined)
      names.insert(def.name);
    bool needsDefault = false;
    for (const std::string& used : m_data.materialNames)
      needsDefault |= !names.count(used);
    for (const ObjNode& n : m_data.nodes) {
      auto none = [](std::int32_t m) { return m == kNone; };
      needsDefault |= std::any_of(n.faceMaterial.begin(), n.faceMaterial.end(), none) ||
                      std::any_of(n.lineMaterial.begin(), n.lineMaterial.end(), none);
    }
    if (needsDefault)
      FoldFactors(*m_scene.GetMaterial(0), false, false, false);
    for (const ObjMaterial& def : defined) {
      if (m_byName.count(def.name))
        continue; // the first definition of a name wins
      C3DMaterial* m = m_scene.CreateNewMaterial();
      m->SetName(def.name);
      auto colour = [](const float v[3]) {
        return CRGBColor(codec::ColorByte(v[0]), codec::ColorByte(v[1]), codec::ColorByte(v[2]),
                         255);
      };
      if (def.hasKa)
        m->SetAmbientColor(colour(def.ka));
      if (def.hasKd)
        m->SetDiffuseColor(colour(def.kd));
      if (def.hasKs)
        m->SetSpecularColor(colour(def.ks));
      FoldFactors(*m, def.hasKa, def.hasKd, def.hasKs);
      if (def.hasTransparency)
        m->SetTransparencyFactor(std::clamp(def.transparency, 0.0f, 1.0f));
      for (const auto& map : def.maps)
        m->AddMaterialMap(map.file, kNoChannel, MapType(map.role));
      m_byName[def.name] = m->GetMaterialID();
    }
    m_ids.assign(m_data.materialNames.size(), 0);
    for (std::size_t i = 0; i < m_ids.size(); ++i)
      if (auto it = m_byName.find(m_data.materialNames[i]); it != m_byName.end())
        m_ids[i] = it->second;
  }

  void Build() {
    m_pointRemap.assign(m_data.VertexCount(), -1);
    m_texRemap.assign(m_data.texcoords.size() / 3, -1);
    // Nodes are owned here until they are in the scene, so that a cancel
    // part-way leaves nothing behind.
    using NodePtr = std::unique_ptr<C3DSceneNode>;
    std::vector<NodePtr> top; // in file order
    std::map<std::string, C3DSceneNode*> parents;
    std::map<C3DSceneNode*, std::vector<NodePtr>> children;
    for (const ObjNode& n : m_data.nodes) {
      if (ShouldCancel())
        throw obj::ObjCancelled{};
      std::vector<NodePtr> made;
      const std::string& name = n.group.empty() ? n.object : n.group;
      if (n.FaceCount() > 0)
        made.push_back(NewNode(MakeMesh(n), name));
      for (std::size_t l = 0; l < n.LineCount(); ++l)
        made.push_back(NewNode(MakeCurve(n, l), name));
      if (!n.points.empty())
        made.push_back(NewNode(MakePoints(n), name));
      if (made.empty())
        continue;
      // A group inside a named object sits under a group node of that object.
      std::vector<NodePtr>* into = &top;
      if (!n.object.empty() && !n.group.empty()) {
        C3DSceneNode*& parent = parents[n.object];
        if (!parent) {
          top.push_back(NewNode(new C3DGroup, n.object));
          parent = top.back().get();
        }
        into = &children[parent];
      }
      for (NodePtr& node : made)
        into->push_back(std::move(node));
    }
    // AddNode makes a node the first child: add backwards to keep file order.
    for (auto it = top.rbegin(); it != top.rend(); ++it) {
      C3DSceneNode* node = it->release();
      m_scene.AddNode(nullptr, node);
      auto& list = children[node];
      for (auto c = list.rbegin(); c != list.rend(); ++c)
        m_scene.AddNode(node, c->release());
    }
  }

private:
  // OBJ colours carry their intensity: a colour the file gives has factor 1,
  // and a default one gets its factor folded in, so that a material reads
  // back as it is written.
  static void FoldFactors(C3DMaterial& m, bool ka, bool kd, bool ks) {
    if (!ka)
      FoldFactor(m.GetAmbientColor(), m.GetAmbientFactor());
    m.SetAmbientFactor(1.0f);
    if (!kd)
      FoldFactor(m.GetDiffuseColor(), m.GetDiffuseFactor());
    m.SetDiffuseFactor(1.0f);
    if (!ks)
      FoldFactor(m.GetSpecularColor(), m.GetSpecularFactor());
    m.SetSpecularFactor(1.0f);
  }

  static void FoldFactor(CRGBColor& c, float factor) {
    if (factor == 1.0f)
      return;
    c.r = codec::ColorByte(codec::ColorUnit(c.r) * factor);
    c.g = codec::ColorByte(codec::ColorUnit(c.g) * factor);
    c.b = codec::ColorByte(codec::ColorUnit(c.b) * factor);
  }

  static std::unique_ptr<C3DSceneNode> NewNode(C3DBaseObject* object, const std::string& name) {
    auto node = std::make_unique<C3DSceneNode>(object, 1);
    node->SetName(name);
    return node;
  }

  unsigned MaterialOf(std::int32_t index) { return index >= 0 ? m_ids[std::size_t(index)] : 0; }

  C3DBaseObject* MakeMesh(const ObjNode& n) {
    auto object = std::make_unique<C3DObject>();
    const int faceCount = int(n.FaceCount());
    auto faces = std::make_unique<C3DFaceList>();
    faces->SetSize(faceCount);
    std::vector<std::uint32_t> order; // object point -> file vertex
    CCancelCheck cancel;
    std::set<unsigned> materials;
    unsigned lastMaterial = 0xFFFFFFFFu;
    for (int f = 0; f < faceCount; ++f) {
      if (cancel.Tick())
        throw obj::ObjCancelled{};
      const std::uint32_t b = n.faceStart[std::size_t(f)];
      const int count = int(n.faceStart[std::size_t(f) + 1] - b);
      C3DFace& face = (*faces)[f];
      face.SetSize(count);
      int* idx = face.GetData();
      // The model's faces run the other way round from OBJ's.
      for (int k = 0; k < count; ++k) {
        const std::int32_t v = n.corners[b + std::uint32_t(count - 1 - k)].v;
        std::int32_t& mapped = m_pointRemap[std::size_t(v)];
        if (mapped < 0) {
          mapped = std::int32_t(order.size());
          order.push_back(std::uint32_t(v));
        }
        idx[k] = mapped;
      }
      const unsigned material = MaterialOf(n.faceMaterial[std::size_t(f)]);
      face.SetMaterialID(material);
      if (material != lastMaterial)
        materials.insert(lastMaterial = material);
    }
    auto points = std::make_unique<C3DPointList>();
    points->SetSize(int(order.size()));
    C3DPoint* out = points->GetFirst();
    for (std::size_t i = 0; i < order.size(); ++i) {
      const float* p = &m_data.positions[std::size_t(order[i]) * 3];
      out[i].x = p[0];
      out[i].y = p[1];
      out[i].z = p[2];
    }
    object->SetPointList(points.release());
    object->SetFaceList(faces.release());
    if (n.hasTexture)
      AddTexture(*object, n, materials);
    if (!m_data.colours.empty())
      AddColours(*object, order);
    if (n.hasNormal)
      AddNormals(*object, n);
    for (std::uint32_t v : order)
      m_pointRemap[v] = -1;
    // Without smoothing groups the object is drawn flat: the closest the
    // model comes is a smoothing angle of 0. Other groups use the usual angle.
    if (m_data.hasSmoothing && std::all_of(n.faceSmoothing.begin(), n.faceSmoothing.end(),
                                           [](std::uint32_t s) { return s == 0; }))
      object->SetSmoothAngle(0.0f);
    return object.release();
  }

  void AddTexture(C3DObject& object, const ObjNode& n, const std::set<unsigned>& materials) {
    auto channel = std::make_unique<CUVWChannel>();
    CUVWFaceList& faces = *channel->GetUVWFaceList();
    const int faceCount = int(n.FaceCount());
    faces.SetSize(faceCount);
    std::vector<std::uint32_t> order; // channel point -> file texture coordinate
    std::int32_t none = -1;           // the point of corners without one
    CCancelCheck cancel;
    for (int f = 0; f < faceCount; ++f) {
      if (cancel.Tick())
        throw obj::ObjCancelled{};
      const std::uint32_t b = n.faceStart[std::size_t(f)];
      const int count = int(n.faceStart[std::size_t(f) + 1] - b);
      CUVWFace& face = faces[f];
      face.SetSize(count);
      int* idx = face.GetData();
      for (int k = 0; k < count; ++k) {
        const std::int32_t t = n.corners[b + std::uint32_t(count - 1 - k)].t;
        if (t < 0) {
          if (none < 0) {
            none = std::int32_t(order.size());
            order.push_back(0xFFFFFFFFu);
          }
          idx[k] = none;
          continue;
        }
        std::int32_t& mapped = m_texRemap[std::size_t(t)];
        if (mapped < 0) {
          mapped = std::int32_t(order.size());
          order.push_back(std::uint32_t(t));
        }
        idx[k] = mapped;
      }
    }
    CUVWPointList& points = *channel->GetUVWPointList();
    points.SetSize(int(order.size()));
    for (std::size_t i = 0; i < order.size(); ++i) {
      if (order[i] == 0xFFFFFFFFu)
        continue;
      const float* t = &m_data.texcoords[std::size_t(order[i]) * 3];
      // The model's v runs downwards, as the Lightwave codec has it too.
      points[int(i)].SetUV(t[0], -t[1], t[2]);
      m_texRemap[order[i]] = -1;
    }
    const unsigned id = channel->GetID();
    object.AddChannel(channel.release());
    object.SetGlobalUVWChannel(id);
    // Maps of this object's materials are placed by this channel.
    for (unsigned m : materials)
      if (C3DMaterial* material = m_scene.GetMaterial(m))
        for (MapType role : {MAP_DIFFUSE, MAP_AMBIENT, MAP_SPECULAR, MAP_TRANSPARENCY})
          if (CMaterialMap* map = material->GetMaterialMap(role);
              map && map->GetChannelID() == kNoChannel)
            map->SetChannelID(id);
  }

  void AddColours(C3DObject& object, const std::vector<std::uint32_t>& order) {
    // One colour per vertex: colour point i is mesh point i's colour.
    auto channel = std::make_unique<CVCChannel>();
    CVCPointList& points = *channel->GetVCPointList();
    points.SetSize(int(order.size()));
    for (std::size_t i = 0; i < order.size(); ++i) {
      const float* c = &m_data.colours[std::size_t(order[i]) * 3];
      points[int(i)].SetColor(
          CRGBColor(codec::ColorByte(c[0]), codec::ColorByte(c[1]), codec::ColorByte(c[2]), 255));
    }
    const C3DFaceList& mesh = *object.GetFaceList();
    CVCFaceList& faces = *channel->GetVCFaceList();
    faces.SetSize(mesh.GetSize());
    for (int f = 0; f < mesh.GetSize(); ++f) {
      faces[f].SetSize(mesh[f].GetSize());
      std::copy_n(mesh[f].GetData(), mesh[f].GetSize(), faces[f].GetData());
    }
    object.AddChannel(channel.release());
  }

  bool SameNormal(std::int32_t a, std::int32_t b) const {
    return a == b ||
           std::equal(&m_data.normals[std::size_t(a) * 3], &m_data.normals[std::size_t(a) * 3 + 3],
                      &m_data.normals[std::size_t(b) * 3]);
  }

  // The model keeps a normal per point or per face, not per corner: per point
  // when every point has one normal in all its faces, else per face when every
  // face has one normal, else per point averaged over its corners.
  void AddNormals(C3DObject& object, const ObjNode& n) {
    const C3DFaceList& mesh = *object.GetFaceList();
    const int pointCount = object.GetPointNbr();
    std::vector<std::int32_t> perPoint(std::size_t(pointCount), kNone);
    bool pointsAgree = true, facesAgree = true;
    for (int f = 0; f < mesh.GetSize(); ++f) {
      const std::uint32_t b = n.faceStart[std::size_t(f)];
      const int count = mesh[f].GetSize();
      const std::int32_t first = n.corners[b].n;
      for (int k = 0; k < count; ++k) {
        const std::int32_t nk = n.corners[b + std::uint32_t(count - 1 - k)].n;
        if (nk < 0 || first < 0 || !SameNormal(first, nk))
          facesAgree = false;
        if (nk < 0)
          continue;
        std::int32_t& p = perPoint[std::size_t(mesh[f][k])];
        if (p == kNone)
          p = nk;
        else if (!SameNormal(p, nk))
          pointsAgree = false;
      }
    }
    auto normal = [&](std::int32_t i) {
      const float* v = &m_data.normals[std::size_t(i) * 3];
      return C3DVector(v[0], v[1], v[2]);
    };
    if (!pointsAgree && facesAgree) {
      auto channel = std::make_unique<CFaceNormalChannel>();
      C3DVectorList& list = *channel->GetNormalList();
      list.SetSize(mesh.GetSize(), -1);
      for (int f = 0; f < mesh.GetSize(); ++f)
        list[f] = normal(n.corners[n.faceStart[std::size_t(f)]].n);
      channel->SetFlag(CHANNEL_INVALID, 0);
      object.AddChannel(channel.release());
      return;
    }
    auto channel = std::make_unique<CPointNormalChannel>();
    C3DVectorList& list = *channel->GetNormalList();
    list.SetSize(pointCount, -1);
    for (int p = 0; p < pointCount; ++p)
      list[p] = perPoint[std::size_t(p)] >= 0 ? normal(perPoint[std::size_t(p)]) : C3DVector();
    if (!pointsAgree) {
      for (int p = 0; p < pointCount; ++p)
        list[p] = C3DVector();
      for (int f = 0; f < mesh.GetSize(); ++f) {
        const std::uint32_t b = n.faceStart[std::size_t(f)];
        const int count = mesh[f].GetSize();
        for (int k = 0; k < count; ++k)
          if (std::int32_t nk = n.corners[b + std::uint32_t(count - 1 - k)].n; nk >= 0)
            list[mesh[f][k]] += normal(nk);
      }
      for (int p = 0; p < pointCount; ++p)
        list[p].Normalize();
    }
    channel->SetFlag(CHANNEL_INVALID, 0);
    object.AddChannel(channel.release());
  }

  C3DBaseObject* MakeCurve(const ObjNode& n, std::size_t l) {
    auto curve = std::make_unique<C3DCurve>();
    auto points = std::make_unique<C3DPointList>();
    const std::uint32_t b = n.lineStart[l], e = n.lineStart[l + 1];
    points->SetSize(int(e - b));
    for (std::uint32_t i = b; i < e; ++i) {
      const float* p = &m_data.positions[std::size_t(n.lineVertices[i]) * 3];
      (*points)[int(i - b)] = C3DPoint(p[0], p[1], p[2]);
    }
    curve->SetPointList(points.release());
    curve->SetMaterialID(MaterialOf(n.lineMaterial[l]));
    return curve.release();
  }

  // `p` vertices: a polygonal object with points and no faces.
  C3DBaseObject* MakePoints(const ObjNode& n) {
    auto object = std::make_unique<C3DObject>();
    auto points = std::make_unique<C3DPointList>();
    points->SetSize(int(n.points.size()));
    for (std::size_t i = 0; i < n.points.size(); ++i) {
      const float* p = &m_data.positions[std::size_t(n.points[i]) * 3];
      (*points)[int(i)] = C3DPoint(p[0], p[1], p[2]);
    }
    object->SetPointList(points.release());
    object->SetFaceList(new C3DFaceList);
    return object.release();
  }

  const ObjData& m_data;
  C3DScene& m_scene;
  std::map<std::string, unsigned> m_byName;
  std::vector<unsigned> m_ids; // usemtl name -> material id, 0 when undefined
  std::vector<std::int32_t> m_pointRemap;
  std::vector<std::int32_t> m_texRemap;
};

// The libraries a file names, read from folder; missing or unreadable ones are skipped.
std::vector<ObjMaterial> LoadLibraries(const ObjData& data, const std::string& folder,
                                       const std::string& self) {
  std::vector<ObjMaterial> materials;
  if (folder.empty())
    return materials;
  std::set<fs::path> seen;
  std::error_code ec;
  const fs::path selfPath = self.empty() ? fs::path() : fs::weakly_canonical(self, ec);
  auto isFile = [&](const std::string& name) {
    std::error_code e;
    return fs::is_regular_file(fs::path(folder) / name, e);
  };
  for (const std::string& argument : data.libraries)
    for (std::string name : obj::SplitLibraries(argument, isFile)) {
      std::replace(name.begin(), name.end(), '\\', '/');
      std::error_code e;
      fs::path path = fs::weakly_canonical(fs::path(folder) / name, e);
      // Folders, devices, the OBJ itself and libraries already read are skipped.
      if (e || !fs::is_regular_file(path, e) || path == selfPath || !seen.insert(path).second ||
          fs::file_size(path, e) > kMaxLibrarySize || e)
        continue;
      codec::CFileInput input;
      if (input.Open(path.string()) != IO_FILE_OK)
        continue;
      std::string converted;
      std::string_view text;
      if (obj::DecodeText(input.GetData(), input.GetSize(), converted, text))
        obj::ParseMtl(text.data(), text.size(), materials);
    }
  return materials;
}

// ---------------------------------------------------------------------------
// Writing

// Text written straight into one growing buffer: numbers are formatted in
// place, and the buffer is sized ahead so that a line costs no reallocation.
class TextOut {
public:
  std::string& Str() {
    m_s.resize(m_used);
    return m_s;
  }
  TextOut& operator<<(std::string_view s) {
    char* p = Room(s.size());
    std::memcpy(p, s.data(), s.size());
    m_used += s.size();
    return *this;
  }
  TextOut& operator<<(char c) {
    *Room(1) = c;
    ++m_used;
    return *this;
  }
  // Shortest form that reads back to the same float. Readers refuse NaN and
  // infinities (a transform can make them): those are written as 0.
  void Float(float v) {
    if (!std::isfinite(v))
      v = 0.0f;
    char* p = Room(32);
    m_used = std::size_t(std::to_chars(p, p + 32, v).ptr - m_s.data());
  }
  void Double(double v) {
    char* p = Room(40);
    m_used = std::size_t(std::to_chars(p, p + 40, v).ptr - m_s.data());
  }
  void Int(std::uint64_t v) {
    char* p = Room(24);
    m_used = std::size_t(std::to_chars(p, p + 24, v).ptr - m_s.data());
  }
  void Reserve(std::size_t n) {
    if (m_s.size() < m_used + n)
      m_s.resize(m_used + n);
  }

private:
  char* Room(std::size_t n) {
    if (m_s.size() - m_used < n)
      m_s.resize(std::max(m_s.size() * 2, m_used + n + 4096));
    return m_s.data() + m_used;
  }

  std::string m_s; // sized ahead; only [0, m_used) is written
  std::size_t m_used = 0;
};

// Names go on one line, trimmed as the reader trims them.
std::string OneLine(std::string s, const char* fallback) {
  for (char& c : s)
    if (c == '\r' || c == '\n' || c == '\0')
      c = ' ';
  std::string t(obj::TrimBlanks(s));
  return t.empty() ? std::string(fallback) : t;
}

// A channel usable for writing: its faces parallel to the mesh's and its indices in range.
template <class FaceList>
bool IsParallel(const C3DFaceList& mesh, const FaceList* faces, int pointCount) {
  if (!faces || faces->GetSize() != mesh.GetSize())
    return false;
  for (int f = 0; f < mesh.GetSize(); ++f) {
    const auto& face = (*faces)[f];
    if (face.GetSize() != mesh[f].GetSize())
      return false;
    for (int k = 0; k < face.GetSize(); ++k)
      if (face[k] < 0 || face[k] >= pointCount)
        return false;
  }
  return true;
}

class ObjWriter {
public:
  ObjWriter(C3DScene& scene, TextOut& obj, TextOut& mtl) : m_scene(scene), m_obj(obj), m_mtl(mtl) {}

  void Write(const std::string& libraryName) {
    std::vector<C3DSceneNode*> nodes;
    const C3DBaseObject* object = nullptr;
    for (C3DSceneNode* cursor = m_scene.GetFirstNode(nullptr); cursor;) {
      C3DSceneNode* node = m_scene.GetNextNode(object, cursor, nullptr);
      if (!node)
        break;
      C3DBaseObject* o = node->GetBaseObject();
      if (o && o->GetKindOf() != OBJECT_GROUP && !o->IsFlagSet(OBJECT_EMPTY) &&
          o->GetPointNbr() > 0)
        nodes.push_back(node);
    }
    if (nodes.empty())
      throw BadScene{};
    NameMaterials();
    m_obj << "# Wavefront OBJ written by Meshcore\n";
    if (!m_names.empty() || m_needsFallback)
      m_obj << "mtllib " << libraryName << '\n';
    for (C3DSceneNode* node : nodes)
      WriteNode(*node);
    WriteLibrary();
  }

private:
  void NameMaterials() {
    codec::CUniqueNames names;
    for (MaterialPosition c = m_scene.GetFirstMaterial(); c;) {
      C3DMaterial* m = m_scene.GetNextMaterial(c);
      m_order.push_back(m);
      m_names[m->GetMaterialID()] = names.Make(OneLine(m->GetName(), "Material"));
    }
    m_fallback = names.Make("Default");
    // Whether some face or curve names a material that the scene does not hold is
    // found while writing; the library gets the fallback entry only then.
  }

  const std::string& MaterialName(unsigned id) {
    auto it = m_names.find(id);
    if (it != m_names.end())
      return it->second;
    m_needsFallback = true;
    return m_fallback;
  }

  void UseMaterial(unsigned id) {
    if (m_hasCurrent && id == m_current)
      return;
    m_hasCurrent = true;
    m_current = id;
    m_obj << "usemtl " << MaterialName(id) << '\n';
  }

  void WriteNode(C3DSceneNode& node) {
    C3DBaseObject& object = *node.GetBaseObject();
    C4x4Matrix world;
    node.GetMatrix(NODE_MATRIX_TRANSFORM, world, 0);
    const bool identity = world.IsIdentity();
    m_obj << "o " << OneLine(node.GetName(), "Object") << '\n';
    m_hasCurrent = false;

    const C3DPointList& points = *object.GetPointList();
    const int pointCount = points.GetSize();
    const C3DFaceList* mesh = object.GetFaceList();
    const bool curve = object.GetKindOf() == OBJECT_CURVE;
    const int faceCount = curve || !mesh ? 0 : mesh->GetSize();
    CDependentChannels* channels = object.GetChannels();
    Reserve(object, pointCount, faceCount);

    // Vertex colours: each mesh point takes the colour of its first corner.
    const CVCPointList* colours = nullptr;
    std::vector<std::int32_t> pointColour;
    if (faceCount > 0)
      for (int c = 0; channels && c < channels->GetSize() && !colours; ++c) {
        CChannel* ch = channels->GetChannel(c);
        if (!ch || ch->GetType() != CHANNEL_VC || !ch->IsValid())
          continue;
        auto* vc = static_cast<CVCChannel*>(ch);
        if (!vc->GetVCPointList() ||
            !IsParallel(*mesh, vc->GetVCFaceList(), vc->GetVCPointList()->GetSize()))
          continue;
        colours = vc->GetVCPointList();
        pointColour.assign(std::size_t(pointCount), -1);
        const CVCFaceList& faces = *vc->GetVCFaceList();
        for (int f = 0; f < faceCount; ++f)
          for (int k = 0; k < faces[f].GetSize(); ++k) {
            const int p = (*mesh)[f][k];
            if (p >= 0 && p < pointCount && pointColour[std::size_t(p)] < 0)
              pointColour[std::size_t(p)] = faces[f][k];
          }
      }

    CCancelCheck cancel;
    for (int i = 0; i < pointCount; ++i) {
      if (cancel.Tick())
        throw CancelledSave{};
      const C3DPoint p = identity ? points[i] : points[i] * world;
      m_obj << "v ";
      m_obj.Float(p.x);
      m_obj << ' ';
      m_obj.Float(p.y);
      m_obj << ' ';
      m_obj.Float(p.z);
      if (colours) {
        const std::int32_t c = pointColour[std::size_t(i)];
        const CRGBColor colour = c >= 0 ? (*colours)[c].GetColor() : CRGBColor(255, 255, 255);
        for (std::uint8_t b : {colour.r, colour.g, colour.b}) {
          m_obj << ' ';
          m_obj.Float(codec::ColorUnit(b));
        }
      }
      m_obj << '\n';
    }
    const std::uint64_t vBase = m_vertices;
    m_vertices += std::uint64_t(pointCount);

    if (curve) {
      UseMaterial(static_cast<C3DCurve&>(object).GetMaterialID());
      m_obj << 'l';
      for (int i = 0; i < pointCount; ++i) {
        m_obj << ' ';
        m_obj.Int(vBase + std::uint64_t(i) + 1);
      }
      m_obj << '\n';
      return;
    }
    if (faceCount == 0) {
      m_obj << 'p';
      for (int i = 0; i < pointCount; ++i) {
        m_obj << ' ';
        m_obj.Int(vBase + std::uint64_t(i) + 1);
      }
      m_obj << '\n';
      return;
    }

    const std::uint64_t tBase = m_texcoords;
    const CUVWFaceList* texFaces = TextureChannel(object, *mesh);
    const int normalMode = Normals(object, *mesh, pointCount, world, identity);
    const std::uint64_t nBase = m_normalsBase;

    m_obj << (object.GetSmoothAngle() == 0.0f ? "s off\n" : "s 1\n");
    for (int f = 0; f < faceCount; ++f) {
      if (cancel.Tick())
        throw CancelledSave{};
      const C3DFace& face = (*mesh)[f];
      UseMaterial(face.GetMaterialID());
      m_obj << 'f';
      const int n = face.GetSize();
      // Written the other way round: OBJ faces run counter-clockwise seen from the front.
      for (int k = n - 1; k >= 0; --k) {
        const int p = face[k];
        if (p < 0 || p >= pointCount)
          throw BadScene{"a face uses a point outside the object's point list"};
        m_obj << ' ';
        m_obj.Int(vBase + std::uint64_t(p) + 1);
        if (texFaces || normalMode) {
          m_obj << '/';
          if (texFaces)
            m_obj.Int(tBase + std::uint64_t((*texFaces)[f][k]) + 1);
          if (normalMode) {
            m_obj << '/';
            m_obj.Int(nBase + std::uint64_t(normalMode == 1 ? p : f) + 1);
          }
        }
      }
      m_obj << '\n';
    }
  }

  // Sizes the text ahead for the object's lines: a close guess saves both
  // copies on growth and pages touched for nothing.
  void Reserve(C3DBaseObject& object, int pointCount, int faceCount) {
    std::size_t perPoint = 40;
    CDependentChannels* channels = object.GetChannels();
    for (int c = 0; channels && c < channels->GetSize(); ++c)
      if (CChannel* ch = channels->GetChannel(c))
        perPoint += ch->GetType() == CHANNEL_VC ? 30 : ch->GetType() == CHANNEL_UVW ? 28 : 36;
    std::size_t corners = 0;
    for (int f = 0; f < faceCount; ++f)
      corners += std::size_t((*object.GetFaceList())[f].GetSize());
    const std::uint64_t largest = m_vertices + std::uint64_t(pointCount) + 1;
    std::size_t digits = 1;
    for (std::uint64_t v = largest; v >= 10; v /= 10)
      ++digits;
    m_obj.Reserve(std::size_t(pointCount) * perPoint + corners * (3 * digits + 3) +
                  std::size_t(faceCount) * 4 + 256);
  }

  // Writes the texture points of the object's main texture channel; null when
  // there is none that runs parallel to the faces.
  const CUVWFaceList* TextureChannel(C3DBaseObject& object, const C3DFaceList& mesh) {
    CDependentChannels* channels = object.GetChannels();
    if (!channels)
      return nullptr;
    CUVWChannel* chosen = nullptr;
    for (int c = 0; c < channels->GetSize(); ++c) {
      CChannel* ch = channels->GetChannel(c);
      if (!ch || ch->GetType() != CHANNEL_UVW || !ch->IsValid())
        continue;
      auto* uvw = static_cast<CUVWChannel*>(ch);
      if (!uvw->GetUVWPointList() ||
          !IsParallel(mesh, uvw->GetUVWFaceList(), uvw->GetUVWPointList()->GetSize()))
        continue;
      if (!chosen || ch->GetID() == object.GetGlobalUVWChannel())
        chosen = uvw;
    }
    if (!chosen)
      return nullptr;
    const CUVWPointList& points = *chosen->GetUVWPointList();
    CCancelCheck cancel;
    for (int i = 0; i < points.GetSize(); ++i) {
      if (cancel.Tick())
        throw CancelledSave{};
      const CUVWPoint& t = points[i];
      m_obj << "vt ";
      m_obj.Float(t.u);
      m_obj << ' ';
      m_obj.Float(-t.v);
      if (t.w != 0.0f) {
        m_obj << ' ';
        m_obj.Float(t.w);
      }
      m_obj << '\n';
    }
    m_texcoords += std::uint64_t(points.GetSize());
    return chosen->GetUVWFaceList();
  }

  // Writes the normals the object holds: 1 per point, 2 per face, 0 none.
  int Normals(C3DBaseObject& object, const C3DFaceList& mesh, int pointCount,
              const C4x4Matrix& world, bool identity) {
    CDependentChannels* channels = object.GetChannels();
    const C3DVectorList* list = nullptr;
    int mode = 0;
    for (int c = 0; channels && c < channels->GetSize() && !mode; ++c) {
      CChannel* ch = channels->GetChannel(c);
      if (!ch || !ch->IsValid())
        continue;
      if (ch->GetType() == CHANNEL_POINT_NORMAL &&
          static_cast<CPointNormalChannel*>(ch)->GetNormalList()->GetSize() == pointCount) {
        list = static_cast<CPointNormalChannel*>(ch)->GetNormalList();
        mode = 1;
      } else if (ch->GetType() == CHANNEL_FACE_NORMAL &&
                 static_cast<CFaceNormalChannel*>(ch)->GetNormalList()->GetSize() ==
                     mesh.GetSize()) {
        list = static_cast<CFaceNormalChannel*>(ch)->GetNormalList();
        mode = 2;
      }
    }
    m_normalsBase = m_normals;
    if (!mode)
      return 0;
    CCancelCheck cancel;
    for (int i = 0; i < list->GetSize(); ++i) {
      if (cancel.Tick())
        throw CancelledSave{};
      C3DVector n = (*list)[i];
      if (!identity) {
        n = world * n; // the rotation part; normalised again below
        n.Normalize();
      }
      m_obj << "vn ";
      m_obj.Float(n.x);
      m_obj << ' ';
      m_obj.Float(n.y);
      m_obj << ' ';
      m_obj.Float(n.z);
      m_obj << '\n';
    }
    m_normals += std::uint64_t(list->GetSize());
    return mode;
  }

  void Colour(const char* key, const CRGBColor& c, float factor) {
    m_mtl << key;
    for (std::uint8_t b : {c.r, c.g, c.b}) {
      m_mtl << ' ';
      m_mtl.Float(codec::ColorUnit(b) * factor);
    }
    m_mtl << '\n';
  }

  void WriteLibrary() {
    m_mtl << "# Wavefront MTL written by Meshcore\n";
    for (C3DMaterial* m : m_order) {
      m_mtl << "\nnewmtl " << m_names[m->GetMaterialID()] << '\n';
      Colour("Ka", m->GetAmbientColor(), m->GetAmbientFactor());
      Colour("Kd", m->GetDiffuseColor(), m->GetDiffuseFactor());
      Colour("Ks", m->GetSpecularColor(), m->GetSpecularFactor());
      // Opacity in double, so that 1 - d gives the transparency back exactly.
      m_mtl << "d ";
      m_mtl.Double(1.0 - double(m->GetTransparencyFactor()));
      m_mtl << "\nillum 2\n";
      static constexpr std::pair<MapType, const char*> kRoles[] = {{MAP_AMBIENT, "map_Ka"},
                                                                   {MAP_DIFFUSE, "map_Kd"},
                                                                   {MAP_SPECULAR, "map_Ks"},
                                                                   {MAP_TRANSPARENCY, "map_d"}};
      for (auto [role, key] : kRoles)
        if (CMaterialMap* map = m->GetMaterialMap(role); map && !map->GetFileName().empty())
          m_mtl << key << ' ' << OneLine(map->GetFileName(), "") << '\n';
    }
    if (m_needsFallback)
      m_mtl << "\nnewmtl " << m_fallback << "\nKd 1 1 1\n";
  }

  C3DScene& m_scene;
  TextOut& m_obj;
  TextOut& m_mtl;
  std::vector<C3DMaterial*> m_order;
  std::unordered_map<unsigned, std::string> m_names;
  std::string m_fallback;
  bool m_needsFallback = false;
  bool m_hasCurrent = false;
  unsigned m_current = 0;
  std::uint64_t m_vertices = 0, m_texcoords = 0, m_normals = 0, m_normalsBase = 0;
};

} // namespace

void RegisterWavefrontCodec() {
  fileRegisterCodecOf<CWavefrontIo>(fileMakeClassCode("WVFT"));
}

CWavefrontIo::CWavefrontIo(CFileIo& owner) : C3DParser(owner) {}
CWavefrontIo::~CWavefrontIo() = default;

C3DScene* CWavefrontIo::Read(const std::string& name, unsigned flags) {
  codec::CFileInput input;
  if (int result = input.Open(name); result != IO_FILE_OK) {
    SetIoError(result, codec::CFileInput::FailureText(result));
    return nullptr;
  }
  ObjData parsed;
  if (!Parse(input.GetData(), input.GetSize(), parsed))
    return nullptr;
  input.Close(); // parsed: keep the peak down
  fs::path folder = fs::path(name).parent_path();
  return BuildScene(parsed, flags, folder.empty() ? std::string(".") : folder.string(), name);
}

C3DScene* CWavefrontIo::ReadFromMemory(const void* data, std::size_t size, unsigned flags,
                                       const std::string& folder) {
  ObjData parsed;
  if (!Parse(data, size, parsed))
    return nullptr;
  return BuildScene(parsed, flags, folder, {});
}

bool CWavefrontIo::Parse(const void* data, std::size_t size, obj::ObjData& parsed) {
  std::string converted;
  std::string_view text;
  try {
    if (!obj::DecodeText(static_cast<const std::uint8_t*>(data), size, converted, text)) {
      SetIoError(IO_FILE_BAD_FORMAT, "at byte 0: not OBJ text");
      return false;
    }
    obj::ParseObj(text.data(), text.size(), parsed);
    return true;
  } catch (const codec::CFormatError& e) {
    SetIoError(IO_FILE_BAD_FORMAT, codec::DescribeFailure("", e.GetOffset(), e.GetWhat()));
  } catch (const obj::ObjCancelled&) {
    SetIoError(IO_FILE_CANCELLED);
  } catch (const std::bad_alloc&) {
    SetIoError(IO_FILE_NO_MEMORY);
  }
  return false;
}

C3DScene* CWavefrontIo::BuildScene(const obj::ObjData& parsed, unsigned flags,
                                   const std::string& folder, const std::string& self) {
  std::unique_ptr<C3DScene> scene;
  try {
    scene = std::make_unique<C3DScene>();
    SceneBuilder builder(parsed, *scene);
    builder.AddMaterials(LoadLibraries(parsed, folder, self));
    builder.Build();
  } catch (const obj::ObjCancelled&) {
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

int CWavefrontIo::SaveToMemory(C3DScene* scene, unsigned flags, const std::string& libraryName,
                               std::string& obj, std::string& mtl) {
  if (!scene || scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  int changed = 0;
  C3DScene* exported = scene->InitExport(int(flags), changed);
  TextOut objText, mtlText;
  int result = 0;
  try {
    ObjWriter(*exported, objText, mtlText).Write(libraryName);
    result = 1;
  } catch (const CancelledSave&) {
    SetIoError(IO_FILE_CANCELLED);
  } catch (const BadScene& bad) {
    if (bad.what.empty())
      SetIoError(IO_FILE_EMPTY);
    else
      SetIoError(IO_FILE_CANT_SAVE_OPTIONS, bad.what);
  } catch (const std::bad_alloc&) {
    SetIoError(IO_FILE_NO_MEMORY);
  }
  exported->ReleaseExport(exported, exported != scene);
  if (result) {
    obj = std::move(objText.Str());
    mtl = std::move(mtlText.Str());
  }
  return result;
}

int CWavefrontIo::Save(const std::string& name, C3DScene* scene, unsigned flags) {
  const fs::path path(name);
  fs::path library = path;
  library.replace_extension(".mtl");
  std::string obj, mtl;
  if (!SaveToMemory(scene, flags, library.filename().string(), obj, mtl))
    return 0;
  int result = codec::WriteWholeFile(library.string(), mtl.data(), mtl.size(), IsSilentMode());
  if (result == IO_FILE_OK)
    result = codec::WriteWholeFile(name, obj.data(), obj.size(), IsSilentMode());
  if (result != IO_FILE_OK) {
    SetIoError(result);
    return 0;
  }
  return 1;
}

} // namespace meshcore
