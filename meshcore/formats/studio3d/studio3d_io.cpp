#include "meshcore/formats/studio3d/studio3d_io.h"

#include "meshcore/formats/common/detail/color_bytes.h"
#include "meshcore/formats/common/detail/file_input.h"
#include "meshcore/formats/common/detail/file_output.h"
#include "meshcore/formats/common/detail/record_blocks.h"
#include "meshcore/formats/common/detail/unique_names.h"
#include "meshcore/formats/studio3d/detail/tds_file.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/operations/triangulate.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <system_error>
#include <thread>
#include <unordered_map>

namespace meshcore {

namespace {

// Hidden objects keep the node flag the other codecs use for hidden layers.
constexpr std::uint32_t kNodeHidden = SCENE_NODE_NO_FACE_BOX;
constexpr std::uint32_t kFaceSkipped = 0x44;

struct Cancelled {};

// The keyframer's placement of a node relative to its parent. The format turns
// by minus its stored angle.
C4x4Matrix LocalMatrix(const tds::Node& node) {
  C4x4Matrix m(1);
  float ax = node.rotation[1], ay = node.rotation[2], az = node.rotation[3];
  const double length = std::sqrt(double(ax) * ax + double(ay) * ay + double(az) * az);
  if (length > 0 && std::isfinite(length)) {
    const double x = ax / length, y = ay / length, z = az / length;
    const double a = -double(node.rotation[0]);
    const double c = std::cos(a), s = std::sin(a), t = 1 - c;
    const double r[3][3] = {{t * x * x + c, t * x * y - s * z, t * x * z + s * y},
                            {t * x * y + s * z, t * y * y + c, t * y * z - s * x},
                            {t * x * z - s * y, t * y * z + s * x, t * z * z + c}};
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j)
        m.m[i][j] = float(r[i][j]);
  }
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      m.m[i][j] *= node.scale[j];
  for (int i = 0; i < 3; ++i)
    m.m[i][3] = node.position[i];
  return m;
}

// The mesh's own axes and origin as a matrix (columns are the axes).
C4x4Matrix MeshMatrix(const tds::Mesh& mesh) {
  C4x4Matrix m(1);
  for (int axis = 0; axis < 4; ++axis)
    for (int i = 0; i < 3; ++i)
      m.m[i][axis] = mesh.matrix[axis * 3 + i];
  return m;
}

std::string Truncated(const std::string& name, std::size_t max) {
  std::string s = name.substr(0, std::min(name.find('\0'), max));
  return s;
}

// A name of at most max characters not handed out before: the name cut to
// size, else the cut name ending in the first free number.
std::string UniqueShortName(std::set<std::string>& used, const std::string& base, std::size_t max) {
  std::string name = Truncated(base, max);
  if (used.insert(name).second)
    return name;
  for (unsigned n = 1;; ++n) {
    const std::string suffix = std::to_string(n);
    std::string candidate = name.substr(0, max - std::min(max, suffix.size())) + suffix;
    if (used.insert(candidate).second)
      return candidate;
  }
}

// ---------------------------------------------------------------------------
// Reading: the decoded file into a scene.

class CSceneBuilder {
public:
  CSceneBuilder(const tds::File& file, C3DScene& scene) : m_file(file), m_scene(scene) {}

  // False when the file holds no mesh with faces.
  bool Build() {
    Materials();
    const std::size_t n = m_file.meshes.size();
    m_objects.resize(n);
    std::vector<Parts> parts(n);
    // Objects, lists and channels are made here in file order, as their ids
    // count on across the library; their records are filled after.
    bool any = false;
    std::size_t faces = 0;
    for (std::size_t i = 0; i < n; ++i) {
      const tds::Mesh& mesh = m_file.meshes[i];
      if (mesh.FaceCount() == 0 || mesh.PointCount() == 0)
        continue;
      any = true;
      faces += mesh.FaceCount();
      m_objects[i] = std::make_unique<C3DObject>();
      parts[i].points = std::make_unique<C3DPointList>();
      parts[i].faces = std::make_unique<C3DFaceList>();
      if (mesh.UVCount() > 0)
        parts[i].uvw = std::make_unique<CUVWChannel>();
    }
    if (!any)
      return false;
    FillAll(parts, faces);
    for (std::size_t i = 0; i < n; ++i)
      if (m_objects[i]) {
        if (parts[i].needsDefault) {
          // Only now: asking for the default material puts one in the scene.
          const unsigned id = DefaultMaterial();
          C3DFace* face = parts[i].faces->GetFirst();
          for (int f = 0; f < parts[i].faces->GetSize(); ++f)
            if (face[f].GetMaterialID() == kNoChannel)
              face[f].SetMaterialID(id);
        }
        Assemble(m_file.meshes[i], *m_objects[i], parts[i]);
      }
    Nodes();
    if (m_file.hasMasterScale)
      m_scene.GetCustomData().SetFloat(kCustomMasterScale, m_file.masterScale);
    return true;
  }

private:
  // The lists of one mesh's object while they are filled.
  struct Parts {
    std::unique_ptr<C3DPointList> points;
    std::unique_ptr<C3DFaceList> faces;
    std::unique_ptr<CUVWChannel> uvw;
    bool needsDefault = false; // some faces wait for the default material
  };

  void Materials() {
    std::set<std::string> names;
    for (const tds::Material& m : m_file.materials) {
      C3DMaterial* material = m_scene.CreateNewMaterial();
      material->SetName(m.name.empty() ? m.name : codec::MakeUniqueName(names, m.name));
      auto colour = [](const tds::Color& c) {
        return CRGBColor(codec::ColorByte(c.rgb[0]), codec::ColorByte(c.rgb[1]),
                         codec::ColorByte(c.rgb[2]), 255);
      };
      if (m.ambient.set)
        material->SetAmbientColor(colour(m.ambient));
      if (m.diffuse.set)
        material->SetDiffuseColor(colour(m.diffuse));
      if (m.specular.set)
        material->SetSpecularColor(colour(m.specular));
      material->SetSpecularFactor(m.shinStrength);
      material->SetTransparencyFactor(m.transparency);
      if (m.hasMap && !m.map.file.empty()) {
        std::string file = m.map.file;
        std::replace(file.begin(), file.end(), '\\', '/');
        CMaterialMap* map = material->AddMaterialMap(file, kNoChannel, MAP_DIFFUSE);
        if (map && (m.map.uOffset != 0 || m.map.vOffset != 0))
          map->SetUVWOffset(m.map.uOffset, m.map.vOffset, 0);
        if (map && (m.map.uScale != 1 || m.map.vScale != 1))
          map->SetUVWRepeat(m.map.uScale, m.map.vScale, 1);
      }
      // Faces name their material; the first of a name wins.
      m_materialByName.try_emplace(m.name, material->GetMaterialID());
    }
  }

  unsigned DefaultMaterial() {
    if (!m_default)
      m_default = m_scene.GetMaterial(0)->GetMaterialID() + 1;
    return m_default - 1;
  }

  // Fills every mesh's lists. Meshes are independent, so with enough faces
  // a second thread takes meshes too: filling is mostly first touches of
  // fresh pages, which proceed in parallel on two cores. The records are the
  // same whichever thread fills them.
  void FillAll(std::vector<Parts>& parts, std::size_t faces) {
    constexpr std::size_t kThreadFrom = 65536; // faces in the file
    std::atomic<std::size_t> next{0};
    std::atomic<bool> stop{false};
    auto work = [&](bool main) {
      CCancelCheck cancel(0, 16);
      for (std::size_t i; (i = next.fetch_add(1, std::memory_order_relaxed)) < parts.size();) {
        if (stop.load(std::memory_order_relaxed) || (main && (cancel.Tick() || ShouldCancel())))
          throw Cancelled{};
        if (parts[i].points)
          Fill(m_file.meshes[i], parts[i]);
      }
    };
    std::thread helper;
    std::exception_ptr helperError;
    if (faces >= kThreadFrom && std::thread::hardware_concurrency() != 1) {
      try {
        helper = std::thread([&] {
          try {
            work(false);
          } catch (...) {
            helperError = std::current_exception();
          }
        });
      } catch (const std::system_error&) {
        // no second thread: this one fills every mesh
      }
    }
    try {
      work(true);
    } catch (...) {
      stop.store(true, std::memory_order_relaxed);
      if (helper.joinable())
        helper.join();
      throw;
    }
    if (helper.joinable())
      helper.join();
    if (helperError)
      std::rethrow_exception(helperError);
  }

  // Touches nothing but the mesh's own parts (and reads the material names).
  void Fill(const tds::Mesh& mesh, Parts& part) const {
    const int faceCount = int(mesh.FaceCount());
    const int pointCount = int(mesh.PointCount());
    codec::BuildRecords(*part.points, pointCount, [&](int begin, int end) {
      C3DPoint* p = part.points->GetFirst();
      for (int i = begin; i < end; ++i) {
        p[i].x = mesh.Point(std::size_t(i), 0);
        p[i].y = mesh.Point(std::size_t(i), 1);
        p[i].z = mesh.Point(std::size_t(i), 2);
      }
    });

    // Materials by face: the first group naming a face wins; faces named by
    // no group, or by a material the file lacks, take the default material
    // (marked here, set by the caller).
    std::vector<unsigned> material(std::size_t(faceCount), kNoChannel);
    std::vector<bool> named(std::size_t(faceCount), false);
    for (const tds::FaceGroup& group : mesh.groups) {
      auto it = m_materialByName.find(group.material);
      const unsigned id = it != m_materialByName.end() ? it->second : kNoChannel;
      for (std::uint16_t f : group.faces)
        if (!named[f]) {
          named[f] = true;
          material[f] = id;
        }
    }
    part.needsDefault = std::find(material.begin(), material.end(), kNoChannel) != material.end();
    codec::BuildRecords(*part.faces, faceCount, [&](int begin, int end) {
      C3DFace* out = part.faces->GetFirst();
      for (int f = begin; f < end; ++f) {
        C3DFace& face = out[f];
        face.SetSize(3);
        int* idx = face.GetData();
        for (int k = 0; k < 3; ++k)
          idx[k] = mesh.Face(std::size_t(f), unsigned(k));
        face.SetMaterialID(material[std::size_t(f)]);
      }
    });
    if (!part.uvw)
      return;
    // One texture point per mesh point; a short list leaves the rest at 0.
    const int given = int(std::min(mesh.PointCount(), mesh.UVCount()));
    CUVWPointList& uvs = *part.uvw->GetUVWPointList();
    codec::BuildRecords(uvs, pointCount, [&](int begin, int end) {
      CUVWPoint* out = uvs.GetFirst();
      for (int i = begin; i < std::min(end, given); ++i)
        out[i].SetUV(mesh.UV(std::size_t(i), 0), -mesh.UV(std::size_t(i), 1),
                     0); // v runs upwards in the file
    });
    CUVWFaceList& uvFaces = *part.uvw->GetUVWFaceList();
    codec::BuildRecords(uvFaces, faceCount, [&](int begin, int end) {
      const C3DFace* in = part.faces->GetFirst();
      CUVWFace* out = uvFaces.GetFirst();
      for (int f = begin; f < end; ++f) {
        out[f].SetSize(3);
        std::copy_n(in[f].GetData(), 3, out[f].GetData());
      }
    });
  }

  void Assemble(const tds::Mesh& mesh, C3DObject& object, Parts& part) {
    if (part.uvw) {
      const unsigned id = part.uvw->GetID();
      object.AddChannel(part.uvw.release());
      object.SetGlobalUVWChannel(id);
      // The maps of the materials this mesh uses are placed by its coordinates.
      std::set<unsigned> used;
      for (const tds::FaceGroup& group : mesh.groups)
        if (auto it = m_materialByName.find(group.material); it != m_materialByName.end())
          used.insert(it->second);
      for (unsigned m : used)
        if (C3DMaterial* mat = m_scene.GetMaterial(m))
          if (CMaterialMap* map = mat->GetDiffuseMaps(); map && map->GetChannelID() == kNoChannel)
            map->SetChannelID(id);
    }
    object.SetPointList(part.points.release());
    object.SetFaceList(part.faces.release());
  }

  C3DSceneNode* MeshNode(std::size_t mesh) {
    const tds::Mesh& m = m_file.meshes[mesh];
    auto* node = new C3DSceneNode(m_objects[mesh].release(), 1);
    node->SetName(m.name);
    if (m.hidden)
      node->SetFlag(kNodeHidden, 1);
    return node;
  }

  void Nodes() {
    std::map<std::string, std::size_t> meshByName;
    for (std::size_t i = 0; i < m_file.meshes.size(); ++i)
      if (m_objects[i])
        meshByName.try_emplace(m_file.meshes[i].name, i);

    // Keyframer nodes: what each shows, and its parent.
    const std::size_t n = m_file.nodes.size();
    std::vector<C3DSceneNode*> nodes(n, nullptr);
    std::vector<bool> owned(m_file.meshes.size(), false);
    std::vector<C3DBaseObject*> shown(m_file.meshes.size(), nullptr);
    std::map<std::uint16_t, std::size_t> byId;
    for (std::size_t i = 0; i < n; ++i) {
      const tds::Node& k = m_file.nodes[i];
      byId.try_emplace(k.hasId ? k.id : std::uint16_t(i), i);
      auto it = k.name == tds::kDummyName ? meshByName.end() : meshByName.find(k.name);
      C3DSceneNode* node;
      if (it == meshByName.end()) {
        node = new C3DSceneNode(new C3DGroup, 1);
        node->SetName(k.instance.empty() ? k.name : k.instance);
      } else if (!owned[it->second]) {
        const std::size_t mesh = it->second;
        owned[mesh] = true;
        // Points go into the node's own frame: the mesh's axes undone, then the pivot.
        C4x4Matrix inverse(1);
        if (m_file.meshes[mesh].hasMatrix && !MeshMatrix(m_file.meshes[mesh]).Inverse(inverse))
          inverse.Init();
        C4x4Matrix pivot(1);
        pivot.InitTranslation(-k.pivot[0], -k.pivot[1], -k.pivot[2]);
        m_objects[mesh]->GetPointList()->MatrixTransform(pivot * inverse);
        m_objects[mesh]->InvalidateBoundingBoxes();
        shown[mesh] = m_objects[mesh].get();
        node = MeshNode(mesh);
        if (!k.instance.empty())
          node->SetName(k.instance);
      } else {
        // A further instance of a mesh shows the same object.
        node = new C3DSceneNode(shown[it->second], 1);
        node->SetFlag(SCENE_NODE_CLONE, 1);
        node->SetName(k.instance.empty() ? k.name : k.instance);
      }
      node->SetMatrix(NODE_MATRIX_TRANSFORM, LocalMatrix(k));
      nodes[i] = node;
    }

    // Parents; a link that would close a loop is dropped.
    std::vector<std::ptrdiff_t> parent(n, -1);
    for (std::size_t i = 0; i < n; ++i) {
      auto it = byId.find(m_file.nodes[i].parent);
      if (m_file.nodes[i].parent != tds::kNoParent && it != byId.end() && it->second != i)
        parent[i] = std::ptrdiff_t(it->second);
    }
    std::vector<int> state(n, 0); // 0 unseen, 1 on the current chain, 2 done
    for (std::size_t i = 0; i < n; ++i) {
      std::vector<std::size_t> chain;
      std::size_t j = i;
      while (state[j] == 0) {
        state[j] = 1;
        chain.push_back(j);
        if (parent[j] < 0)
          break;
        if (state[std::size_t(parent[j])] == 1) {
          parent[j] = -1;
          break;
        }
        j = std::size_t(parent[j]);
      }
      for (std::size_t c : chain)
        state[c] = 2;
    }
    std::vector<std::vector<std::size_t>> children(n);
    std::vector<std::size_t> roots;
    for (std::size_t i = 0; i < n; ++i)
      (parent[i] < 0 ? roots : children[std::size_t(parent[i])]).push_back(i);

    // AddNode puts a node first among its siblings, so each level goes in
    // backwards; meshes no keyframer node shows come last, in world coordinates.
    for (std::size_t i = m_file.meshes.size(); i-- > 0;)
      if (m_objects[i])
        m_scene.AddNode(nullptr, MeshNode(i));
    std::vector<std::size_t> stack;
    for (std::size_t r = roots.size(); r-- > 0;) {
      m_scene.AddNode(nullptr, nodes[roots[r]]);
      stack.push_back(roots[r]);
    }
    while (!stack.empty()) {
      const std::size_t i = stack.back();
      stack.pop_back();
      for (std::size_t c = children[i].size(); c-- > 0;) {
        m_scene.AddNode(nodes[i], nodes[children[i][c]]);
        stack.push_back(children[i][c]);
      }
    }
  }

  const tds::File& m_file;
  C3DScene& m_scene;
  std::map<std::string, unsigned> m_materialByName;
  unsigned m_default = 0; // default material id + 1, 0 until needed
  std::vector<std::unique_ptr<C3DObject>> m_objects;
};

// ---------------------------------------------------------------------------
// Writing: a scene into the file's content.

class CFileBuilder {
public:
  CFileBuilder(C3DScene& scene, tds::File& file, std::uint32_t limit)
      : m_scene(scene), m_file(file), m_limit(std::min<std::uint32_t>(limit, tds::kMaxCount)) {}

  // False when the scene has nothing to write.
  bool Build() {
    float scale = 1;
    if (m_scene.GetCustomData().GetFloat(kCustomMasterScale, scale, 1.0f))
      m_file.masterScale = scale;
    Materials();
    std::unordered_map<const C3DSceneNode*, std::uint16_t> written;
    const C3DBaseObject* object = nullptr;
    C3DSceneNode* cursor = m_scene.GetFirstNode(nullptr);
    while (cursor) {
      C3DSceneNode* node = m_scene.GetNextNode(object, cursor, nullptr);
      if (!node)
        break;
      if (m_cancel.Tick())
        throw Cancelled{};
      C3DBaseObject* o = node->GetBaseObject();
      if (!o || (o->GetKindOf() != OBJECT_GROUP && o->GetKindOf() != OBJECT_POLYGONAL &&
                 o->GetKindOf() != OBJECT_PATCH))
        continue;
      // The nearest ancestor written before this node.
      std::uint16_t parent = tds::kNoParent;
      for (C3DSceneNode* up = m_scene.GetParent(node); up && !m_scene.IsSceneRoot(up);
           up = m_scene.GetParent(up))
        if (auto it = written.find(up); it != written.end()) {
          parent = it->second;
          break;
        }
      std::ptrdiff_t first = -1;
      if (o->GetKindOf() == OBJECT_GROUP)
        first = Dummy(node, parent);
      else
        first = Meshes(node, parent);
      if (first >= 0)
        written[node] = std::uint16_t(first);
    }
    return !m_file.meshes.empty();
  }

private:
  void Materials() {
    std::set<std::string> names;
    for (MaterialPosition c = m_scene.GetFirstMaterial(); c;) {
      const C3DMaterial& m = *m_scene.GetNextMaterial(c);
      tds::Material& out = m_file.materials.emplace_back();
      out.name = UniqueShortName(names, m.GetName().empty() ? "Material" : m.GetName(),
                                 tds::kMaterialNameMax);
      m_materialName[m.GetMaterialID()] = out.name;
      auto colour = [](const CRGBColor& c, tds::Color& to) {
        to.rgb[0] = codec::ColorUnit(c.r);
        to.rgb[1] = codec::ColorUnit(c.g);
        to.rgb[2] = codec::ColorUnit(c.b);
        to.set = true;
      };
      colour(m.GetAmbientColor(), out.ambient);
      colour(m.GetDiffuseColor(), out.diffuse);
      colour(m.GetSpecularColor(), out.specular);
      out.shininess = out.shinStrength = std::clamp(m.GetSpecularFactor(), 0.0f, 1.0f);
      out.transparency = std::clamp(m.GetTransparencyFactor(), 0.0f, 1.0f);
      if (CMaterialMap* map = m.GetDiffuseMaps(); map && !map->GetFileName().empty()) {
        out.hasMap = true;
        // Readers look for the image beside the file, by a name of limited length.
        const std::string& file = map->GetFileName();
        out.map.file = Truncated(file.substr(file.find_last_of("/\\") + 1), tds::kMapNameMax);
        const C4x4Matrix& t = map->GetMatrix();
        out.map.uScale = t.m[0][0];
        out.map.vScale = t.m[1][1];
        out.map.uOffset = t.m[0][3];
        out.map.vOffset = t.m[1][3];
      }
    }
  }

  std::uint16_t NextId() { return std::uint16_t(m_file.nodes.size()); }

  std::ptrdiff_t Dummy(C3DSceneNode* node, std::uint16_t parent) {
    if (m_file.nodes.size() >= tds::kNoParent)
      return -1;
    tds::Node& k = m_file.nodes.emplace_back();
    k.id = NextId() - 1;
    k.hasId = true;
    k.name = tds::kDummyName;
    k.instance =
        Truncated(node->GetName().empty() ? "Group" : node->GetName(), tds::kObjectNameMax);
    k.parent = parent;
    return k.id;
  }

  // Writes the node's object as meshes of world-space triangles; returns the
  // keyframer id of the first, or -1 when nothing was written.
  std::ptrdiff_t Meshes(C3DSceneNode* node, std::uint16_t parent) {
    C3DBaseObject* source = node->GetBaseObject();
    if (!source->GetPointList() || !source->GetFaceList() || source->GetFaceNbr() == 0)
      return -1;
    // Longer faces are cut on a copy: the scene itself is not changed.
    std::unique_ptr<C3DBaseObject> copy;
    C3DBaseObject* object = source;
    const C3DFaceList& sourceFaces = *source->GetFaceList();
    for (int f = 0; f < sourceFaces.GetSize(); ++f)
      if (sourceFaces[f].GetSize() > 3) {
        copy.reset(source->Copy(0, nullptr));
        if (!copy || TriangulateObject(*copy, FACE_NONE, 1) == kTriangulateCancelled)
          throw Cancelled{};
        object = copy.get();
        break;
      }
    const C3DFaceList& faces = *object->GetFaceList();
    const C3DPointList& points = *object->GetPointList();
    const int pointCount = points.GetSize();

    C4x4Matrix world;
    node->GetMatrix(NODE_MATRIX_TRANSFORM, world, 0);
    const bool identity = world.IsIdentity();

    // The texture coordinates: the object's main channel, else its first one.
    CDependentChannels* channels = object->GetChannels();
    CUVWChannel* uv = nullptr;
    if (channels) {
      if (object->GetGlobalUVWChannel() != kNoChannel)
        uv = channels->GetUVWChannel(object->GetGlobalUVWChannel());
      if (!uv)
        uv = channels->GetUVWChannel(0);
    }
    const CUVWFaceList* uvFaces = uv ? uv->GetUVWFaceList() : nullptr;
    const CUVWPointList* uvPoints = uv ? uv->GetUVWPointList() : nullptr;
    if (!uvFaces || !uvPoints || uvPoints->GetSize() == 0)
      uv = nullptr;

    const std::string base = node->GetName().empty() ? "Object" : node->GetName();
    std::ptrdiff_t first = -1;
    tds::Mesh* mesh = nullptr;
    // Mesh point (and texture point) -> point of the mesh being filled.
    std::unordered_map<std::uint64_t, std::uint16_t> local;
    std::vector<std::int32_t> plain;
    std::map<unsigned, std::size_t> groupOf;
    auto open = [&]() {
      if (m_file.nodes.size() >= tds::kNoParent)
        return false;
      mesh = &m_file.meshes.emplace_back();
      mesh->name = UniqueShortName(m_objectNames, base, tds::kObjectNameMax);
      mesh->hidden = node->IsFlagSet(kNodeHidden);
      local.clear();
      plain.assign(uv ? 0 : std::size_t(pointCount), -1);
      groupOf.clear();
      tds::Node& k = m_file.nodes.emplace_back();
      k.id = NextId() - 1;
      k.hasId = true;
      k.name = mesh->name;
      k.parent = first >= 0 ? std::uint16_t(first) : parent;
      if (first < 0)
        first = k.id;
      return true;
    };
    auto point = [&](int p, int t) -> std::uint16_t {
      std::uint16_t index = std::uint16_t(mesh->PointCount());
      bool fresh;
      if (uv) {
        auto [it, inserted] =
            local.try_emplace((std::uint64_t(std::uint32_t(p)) << 32) | std::uint32_t(t), index);
        fresh = inserted;
        index = it->second;
      } else {
        std::int32_t& slot = plain[std::size_t(p)];
        fresh = slot < 0;
        if (fresh)
          slot = index;
        index = std::uint16_t(slot);
      }
      if (fresh) {
        C3DPoint q = identity ? points[p] : points[p] * world;
        mesh->points.insert(mesh->points.end(), {q.x, q.y, q.z});
        if (uv) {
          float u = 0, v = 0;
          if (t >= 0) {
            u = (*uvPoints)[t].u;
            v = -(*uvPoints)[t].v;
          }
          mesh->uvs.insert(mesh->uvs.end(), {u, v});
        }
      }
      return index;
    };

    for (int f = 0; f < faces.GetSize(); ++f) {
      if (m_cancel.Tick())
        throw Cancelled{};
      const C3DFace& face = faces[f];
      if (face.GetSize() != 3)
        continue;
      int corner[3], tex[3] = {-1, -1, -1};
      bool valid = true;
      for (int k = 0; k < 3; ++k) {
        corner[k] = face[k];
        valid = valid && corner[k] >= 0 && corner[k] < pointCount;
      }
      if (!valid)
        continue;
      if (uv && f < uvFaces->GetSize()) {
        const CUVWFace& tf = (*uvFaces)[f];
        if (!tf.IsOneFlagSet(kFaceSkipped) && tf.GetSize() >= 3)
          for (int k = 0; k < 3; ++k)
            tex[k] = tf[k] >= 0 && tf[k] < uvPoints->GetSize() ? tf[k] : -1;
      }
      if (!mesh || mesh->FaceCount() + 1 > m_limit || mesh->PointCount() + 3 > m_limit)
        if (!open())
          break;
      const std::uint16_t number = std::uint16_t(mesh->FaceCount());
      for (int k = 0; k < 3; ++k)
        mesh->faces.push_back(point(corner[k], tex[k]));
      mesh->faces.push_back(7); // all three edges visible
      auto known = m_materialName.find(face.GetMaterialID());
      if (known != m_materialName.end()) {
        auto [g, inserted] = groupOf.try_emplace(face.GetMaterialID(), mesh->groups.size());
        if (inserted)
          mesh->groups.push_back({known->second, {}});
        mesh->groups[g->second].faces.push_back(number);
      }
    }
    return first;
  }

  C3DScene& m_scene;
  tds::File& m_file;
  std::uint32_t m_limit;
  std::map<unsigned, std::string> m_materialName;
  std::set<std::string> m_objectNames;
  CCancelCheck m_cancel;
};

} // namespace

void Register3DStudioCodec() {
  fileRegisterCodecOf<C3DStudioIo>(fileMakeClassCode("3DST"));
}

C3DStudioIo::C3DStudioIo(CFileIo& owner) : C3DParser(owner) {}
C3DStudioIo::~C3DStudioIo() = default;

C3DScene* C3DStudioIo::Read(const std::string& name, unsigned flags) {
  codec::CFileInput input;
  if (int result = input.Open(name); result != IO_FILE_OK) {
    SetIoError(result);
    return nullptr;
  }
  return ReadFromMemory(input.GetData(), input.GetSize(), flags);
}

C3DScene* C3DStudioIo::ReadFromMemory(const void* data, std::size_t size, unsigned flags) {
  std::unique_ptr<C3DScene> scene;
  try {
    tds::File file;
    std::string detail;
    CCancelCheck cancel(size);
    switch (tds::ReadFile(data, size, file, &cancel, detail)) {
    case tds::ReadResult::Cancelled:
      SetIoError(IO_FILE_CANCELLED);
      return nullptr;
    case tds::ReadResult::BadFormat:
      SetIoError(IO_FILE_BAD_FORMAT, detail);
      return nullptr;
    case tds::ReadResult::Ok:
      break;
    }
    scene = std::make_unique<C3DScene>();
    CSceneBuilder builder(file, *scene);
    if (!builder.Build()) {
      SetIoError(IO_FILE_EMPTY);
      return nullptr;
    }
  } catch (const Cancelled&) {
    SetIoError(IO_FILE_CANCELLED);
    return nullptr;
  } catch (const std::bad_alloc&) {
    SetIoError(IO_FILE_NO_MEMORY);
    return nullptr;
  }
  scene->CheckoutImport(int(flags));
  return scene.release();
}

int C3DStudioIo::Save(const std::string& name, C3DScene* scene, unsigned flags) {
  std::vector<std::uint8_t> bytes;
  if (!SaveToMemory(scene, flags, bytes))
    return 0;
  return codec::SaveWholeFile(*this, name, bytes.data(), bytes.size());
}

int C3DStudioIo::SaveToMemory(C3DScene* scene, unsigned flags, std::vector<std::uint8_t>& out) {
  if (!scene || scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  int changed = 0;
  C3DScene* exported = scene->InitExport(int(flags), changed);
  tds::File file;
  int result = IO_FILE_OK;
  try {
    CFileBuilder builder(*exported, file, m_meshLimit);
    if (!builder.Build())
      result = IO_FILE_EMPTY;
  } catch (const Cancelled&) {
    result = IO_FILE_CANCELLED;
  } catch (const std::bad_alloc&) {
    result = IO_FILE_NO_MEMORY;
  }
  exported->ReleaseExport(exported, exported != scene);
  if (result != IO_FILE_OK) {
    SetIoError(result);
    return 0;
  }
  codec::CBinaryWriter writer(codec::ByteOrder::Little);
  CCancelCheck cancel;
  if (!tds::WriteFile(file, writer, &cancel)) {
    SetIoError(IO_FILE_CANCELLED);
    return 0;
  }
  if (!writer.IsValid()) {
    SetIoError(IO_FILE_CANT_SAVE_OPTIONS, "a chunk is longer than its size field can hold");
    return 0;
  }
  out = std::move(writer.GetBuffer());
  return 1;
}

} // namespace meshcore
