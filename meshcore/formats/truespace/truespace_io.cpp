#include "meshcore/formats/truespace/truespace_io.h"

#include "meshcore/formats/common/detail/color_bytes.h"
#include "meshcore/formats/common/detail/file_input.h"
#include "meshcore/formats/common/detail/file_output.h"
#include "meshcore/formats/common/detail/format_error.h"
#include "meshcore/formats/truespace/detail/cob_file.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <new>
#include <unordered_map>

namespace meshcore {

namespace {

constexpr std::size_t kNone = std::size_t(-1);
constexpr float kPi = 3.14159265358979f;

// Parent ids may nest nodes without bound; deeper ones are placed at the top
// so that walks over the tree stay shallow.
constexpr int kMaxDepth = 256;

struct BadScene {
  std::string what;
};

bool IsIdentity(const C4x4Matrix& m) {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c)
      if (m.m[r][c] != (r == c ? 1.0f : 0.0f))
        return false;
  return true;
}

// The inverse of an affine matrix; false when it is singular.
bool InvertAffine(const C4x4Matrix& a, C4x4Matrix& out) {
  double m[3][3];
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      m[r][c] = a.m[r][c];
  const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                     m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                     m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
  if (!std::isfinite(det) || std::fabs(det) < 1e-30)
    return false;
  double inv[3][3];
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) {
      // Cofactor of (c, r) over the determinant.
      const int r1 = (c + 1) % 3, r2 = (c + 2) % 3, c1 = (r + 1) % 3, c2 = (r + 2) % 3;
      inv[r][c] = (m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1]) / det;
    }
  out = C4x4Matrix(1);
  for (int r = 0; r < 3; ++r) {
    double t = 0;
    for (int c = 0; c < 3; ++c) {
      out.m[r][c] = float(inv[r][c]);
      t += inv[r][c] * a.m[c][3];
    }
    out.m[r][3] = float(-t);
  }
  return true;
}

C4x4Matrix FrameMatrix(const cob::Frame& f) {
  C4x4Matrix m(1);
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 4; ++c)
      m.m[r][c] = std::isfinite(f.matrix[r][c]) ? f.matrix[r][c] : (r == c ? 1.0f : 0.0f);
  return m;
}

// ---------------------------------------------------------------------------
// Reading: the decoded file into a scene.

class CSceneBuilder {
public:
  CSceneBuilder(const cob::File& file, C3DScene& scene) : m_file(file), m_scene(scene) {}

  void Build() {
    const std::size_t n = m_file.nodes.size();
    m_objects.resize(n);
    std::unordered_map<std::uint32_t, std::size_t> byId;
    for (std::size_t i = 0; i < n; ++i) {
      const cob::Node& node = m_file.nodes[i];
      if (node.kind == cob::NodeKind::Group || !node.faces.empty())
        byId.try_emplace(node.id, i); // the first of an id wins
    }
    Materials(byId);
    CCancelCheck cancel(0, 16);
    for (std::size_t i = 0; i < n; ++i) {
      if (cancel.Tick() || ShouldCancel())
        throw cob::Cancelled{};
      m_objects[i] = Object(i);
    }
    Tree(byId);
  }

private:
  void Materials(const std::unordered_map<std::uint32_t, std::size_t>& byId) {
    // Materials have no names in the file: the scene numbers them on import.
    for (const cob::Material& m : m_file.materials) {
      auto mesh = byId.find(m.parent);
      if (mesh == byId.end() || m_file.nodes[mesh->second].kind != cob::NodeKind::Mesh)
        continue;
      const auto key = std::make_pair(mesh->second, m.number);
      if (m_materials.count(key))
        continue;
      C3DMaterial* material = m_scene.CreateNewMaterial();
      const CRGBColor colour(codec::ColorByte(m.rgb[0]), codec::ColorByte(m.rgb[1]),
                             codec::ColorByte(m.rgb[2]), 255);
      material->SetDiffuseColor(colour);
      material->SetAmbientColor(colour);
      material->SetSpecularColor(CRGBColor(255, 255, 255, 255));
      material->SetAmbientFactor(Unit(m.ka));
      material->SetSpecularFactor(Unit(m.ks));
      material->SetTransparencyFactor(1.0f - Unit(m.alpha));
      material->SetSmoothAngle(m.facet == 'f'   ? 0.0f
                               : m.facet == 's' ? kPi
                                                : float(m.angle) * kPi / 180.0f);
      if (!m.texture.empty()) {
        std::string file = m.texture;
        std::replace(file.begin(), file.end(), '\\', '/');
        if (CMaterialMap* map = material->AddMaterialMap(file, kNoChannel, MAP_DIFFUSE)) {
          if (m.offset[0] != 0 || m.offset[1] != 0)
            map->SetUVWOffset(m.offset[0], m.offset[1], 0);
          if (m.repeats[0] != 1 || m.repeats[1] != 1)
            map->SetUVWRepeat(m.repeats[0], m.repeats[1], 1);
        }
      }
      m_materials.emplace(key, material->GetMaterialID());
    }
  }

  static float Unit(float v) { return std::isfinite(v) ? std::clamp(v, 0.0f, 1.0f) : 0.0f; }

  std::unique_ptr<C3DBaseObject> Object(std::size_t index) {
    const cob::Node& node = m_file.nodes[index];
    if (node.kind == cob::NodeKind::Group)
      return std::make_unique<C3DGroup>();
    // Faces of fewer than three corners cannot be drawn.
    std::vector<const cob::Face*> kept;
    for (const cob::Face& face : node.faces)
      if (face.count >= 3)
        kept.push_back(&face);
    if (kept.empty())
      return nullptr;
    auto object = std::make_unique<C3DObject>();
    const std::size_t pointCount = node.points.size() / 3;
    auto points = std::make_unique<C3DPointList>();
    points->SetSize(int(pointCount));
    C3DPoint* p = points->GetFirst();
    for (std::size_t i = 0; i < pointCount; ++i) {
      p[i].x = node.points[i * 3];
      p[i].y = node.points[i * 3 + 1];
      p[i].z = node.points[i * 3 + 2];
    }
    // The file's faces run clockwise seen from the front, as the model's do.
    auto faces = std::make_unique<C3DFaceList>();
    faces->SetSize(int(kept.size()));
    std::vector<unsigned> used;
    CCancelCheck cancel;
    for (std::size_t f = 0; f < kept.size(); ++f) {
      if (cancel.Tick())
        throw cob::Cancelled{};
      C3DFace& face = (*faces)[int(f)];
      face.SetSize(int(kept[f]->count));
      int* idx = face.GetData();
      for (std::uint32_t k = 0; k < kept[f]->count; ++k)
        idx[k] = int(node.corners[kept[f]->first + k].point);
      auto it = m_materials.find(std::make_pair(index, kept[f]->material));
      const unsigned id = it != m_materials.end() ? it->second : 0;
      face.SetMaterialID(id);
      if (std::find(used.begin(), used.end(), id) == used.end())
        used.push_back(id);
    }
    object->SetPointList(points.release());
    object->SetFaceList(faces.release());
    // One texture vertex shared by every corner (what is written for a mesh
    // without texture coordinates) maps nothing.
    if (node.uvs.size() > 2)
      Texture(*object, node, kept, used);
    return object;
  }

  void Texture(C3DObject& object, const cob::Node& node, const std::vector<const cob::Face*>& kept,
               const std::vector<unsigned>& materials) {
    auto channel = std::make_unique<CUVWChannel>();
    const std::size_t uvCount = node.uvs.size() / 2;
    CUVWFaceList& faces = *channel->GetUVWFaceList();
    faces.SetSize(int(kept.size()));
    bool missing = false; // a corner names no texture vertex: it gets an extra one at 0
    for (std::size_t f = 0; f < kept.size(); ++f) {
      CUVWFace& face = faces[int(f)];
      face.SetSize(int(kept[f]->count));
      int* idx = face.GetData();
      for (std::uint32_t k = 0; k < kept[f]->count; ++k) {
        const std::uint32_t t = node.corners[kept[f]->first + k].uv;
        missing = missing || t >= uvCount;
        idx[k] = t < uvCount ? int(t) : int(uvCount);
      }
    }
    CUVWPointList& points = *channel->GetUVWPointList();
    points.SetSize(int(uvCount + (missing ? 1 : 0)));
    for (std::size_t i = 0; i < uvCount; ++i)
      // The model's v runs downwards.
      points[int(i)].SetUV(node.uvs[i * 2], -node.uvs[i * 2 + 1], 0);
    const unsigned id = channel->GetID();
    object.AddChannel(channel.release());
    object.SetGlobalUVWChannel(id);
    for (unsigned m : materials)
      if (C3DMaterial* material = m_scene.GetMaterial(m))
        if (CMaterialMap* map = material->GetMaterialMap(MAP_DIFFUSE);
            map && map->GetChannelID() == kNoChannel)
          map->SetChannelID(id);
  }

  // Parent ids into the tree: a parent that is no node of ours, or one that
  // would make a node its own ancestor, leaves the node at the top.
  void Tree(const std::unordered_map<std::uint32_t, std::size_t>& byId) {
    const std::size_t n = m_file.nodes.size();
    std::vector<std::size_t> parent(n, kNone);
    for (std::size_t i = 0; i < n; ++i) {
      if (!m_objects[i])
        continue;
      auto it = byId.find(m_file.nodes[i].parent);
      if (m_file.nodes[i].parent != 0 && it != byId.end() && it->second != i &&
          m_objects[it->second])
        parent[i] = it->second;
    }
    std::vector<std::uint8_t> state(n, 0); // 0 not seen, 1 on the walk, 2 done
    std::vector<std::size_t> path;
    for (std::size_t i = 0; i < n; ++i) {
      path.clear();
      std::size_t j = i;
      while (j != kNone && state[j] == 0) {
        state[j] = 1;
        path.push_back(j);
        j = parent[j];
      }
      if (j != kNone && state[j] == 1)
        parent[j] = kNone; // the walk came round to itself
      for (std::size_t p : path)
        state[p] = 2;
    }

    std::vector<std::vector<std::size_t>> children(n);
    std::vector<std::size_t> top;
    for (std::size_t i = 0; i < n; ++i)
      if (m_objects[i])
        (parent[i] == kNone ? top : children[parent[i]]).push_back(i);

    // Parents first, so that each node's world matrix is known to its children.
    std::vector<C3DSceneNode*> made(n, nullptr);
    std::vector<C4x4Matrix> world(n, C4x4Matrix(1));
    std::vector<int> depth(n, 0);
    std::vector<std::size_t> queue;
    auto add = [&](std::size_t i, C3DSceneNode* under, std::size_t p) {
      const cob::Node& node = m_file.nodes[i];
      auto scene = std::make_unique<C3DSceneNode>(m_objects[i].release(), 0);
      scene->SetName(node.name);
      C4x4Matrix local(1);
      if (node.kind == cob::NodeKind::Mesh) {
        // Each object's position matrix places it in the world, whatever its group.
        world[i] = FrameMatrix(node.frame);
        local = world[i];
        C4x4Matrix inverse;
        if (p != kNone && !IsIdentity(world[p]) && InvertAffine(world[p], inverse))
          local = inverse * world[i];
        // The local axes' origin becomes the pivot, in the object's coordinates.
        if (InvertAffine(world[i], inverse)) {
          const C3DPoint c(node.frame.center[0], node.frame.center[1], node.frame.center[2]);
          const C3DPoint pivot = c * inverse;
          if (std::isfinite(pivot.x) && std::isfinite(pivot.y) && std::isfinite(pivot.z))
            scene->SetPivot(C3DVector(pivot.x, pivot.y, pivot.z));
        }
      } else {
        world[i] = p != kNone ? world[p] : C4x4Matrix(1);
      }
      scene->SetMatrix(NODE_MATRIX_TRANSFORM, local);
      made[i] = scene.get();
      m_scene.AddNode(under, scene.release());
      queue.push_back(i);
    };
    // AddNode makes a node the first child: add backwards to keep file order.
    for (auto it = top.rbegin(); it != top.rend(); ++it)
      add(*it, nullptr, kNone);
    for (std::size_t q = 0; q < queue.size(); ++q) {
      const std::size_t p = queue[q];
      const auto& list = children[p];
      for (auto it = list.rbegin(); it != list.rend(); ++it) {
        if (depth[p] + 1 >= kMaxDepth) {
          add(*it, nullptr, kNone);
          continue;
        }
        depth[*it] = depth[p] + 1;
        add(*it, made[p], p);
      }
    }
  }

  const cob::File& m_file;
  C3DScene& m_scene;
  std::vector<std::unique_ptr<C3DBaseObject>> m_objects;
  std::map<std::pair<std::size_t, std::uint32_t>, unsigned> m_materials;
};

// ---------------------------------------------------------------------------
// Writing: the scene into the file's content.

class CFileBuilder {
public:
  CFileBuilder(C3DScene& scene, cob::File& file) : m_scene(scene), m_file(file) {}

  void Build() {
    for (MaterialPosition c = m_scene.GetFirstMaterial(); c;) {
      C3DMaterial* m = m_scene.GetNextMaterial(c);
      m_byId.emplace(m->GetMaterialID(), m);
    }
    std::unordered_map<const C3DSceneNode*, std::uint32_t> groups; // written, by scene node
    const C3DBaseObject* object = nullptr;
    CCancelCheck cancel(0, 64);
    if (cancel.Check())
      throw cob::Cancelled{};
    bool any = false;
    for (C3DSceneNode* cursor = m_scene.GetFirstNode(nullptr); cursor;) {
      if (cancel.Tick())
        throw cob::Cancelled{};
      C3DSceneNode* node = m_scene.GetNextNode(object, cursor, nullptr);
      if (!node)
        break;
      C3DBaseObject* o = node->GetBaseObject();
      const bool group = o && o->GetKindOf() == OBJECT_GROUP;
      const bool mesh = o && !group && o->GetKindOf() != OBJECT_CURVE &&
                        !o->IsFlagSet(OBJECT_EMPTY) && o->GetPointList() && o->GetFaceList() &&
                        o->GetFaceList()->GetSize() > 0;
      if (!group && !mesh)
        continue;
      cob::Node out;
      out.kind = group ? cob::NodeKind::Group : cob::NodeKind::Mesh;
      out.id = std::uint32_t(m_file.nodes.size() + 1);
      for (C3DSceneNode* p = m_scene.GetParent(node); p && !m_scene.IsSceneRoot(p);
           p = m_scene.GetParent(p))
        if (auto it = groups.find(p); it != groups.end()) {
          out.parent = it->second;
          break;
        }
      out.name = node->GetName();
      // Meshes carry their whole placement and hang only from groups, which
      // stay at the origin: a reader that composes the matrices down the
      // tree places them as one that does not.
      if (mesh) {
        C4x4Matrix world;
        node->GetMatrix(NODE_MATRIX_TRANSFORM, world, 0);
        Frame(out.frame, world, node->GetPivot());
        Mesh(out, *o);
        any = true;
      } else {
        groups.emplace(node, out.id);
      }
      m_file.nodes.push_back(std::move(out));
    }
    if (!any)
      throw BadScene{};
  }

private:
  static void Frame(cob::Frame& f, const C4x4Matrix& world, const C3DVector& pivot) {
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 4; ++c)
        f.matrix[r][c] = world.m[r][c];
    const C3DPoint center = C3DPoint(pivot.x, pivot.y, pivot.z) * world;
    f.center[0] = center.x;
    f.center[1] = center.y;
    f.center[2] = center.z;
    // The axes are the matrix's directions without its scale.
    for (int a = 0; a < 3; ++a) {
      const double x = world.m[0][a], y = world.m[1][a], z = world.m[2][a];
      const double length = std::sqrt(x * x + y * y + z * z);
      for (int i = 0; i < 3; ++i)
        f.axes[a][i] = length > 1e-20 && std::isfinite(length) ? float(world.m[i][a] / length)
                                                               : (i == a ? 1.0f : 0.0f);
    }
  }

  void Mesh(cob::Node& out, C3DBaseObject& object) {
    const C3DPointList& points = *object.GetPointList();
    const int pointCount = points.GetSize();
    out.points.resize(std::size_t(pointCount) * 3);
    for (int i = 0; i < pointCount; ++i) {
      out.points[std::size_t(i) * 3] = points[i].x;
      out.points[std::size_t(i) * 3 + 1] = points[i].y;
      out.points[std::size_t(i) * 3 + 2] = points[i].z;
    }
    const C3DFaceList& mesh = *object.GetFaceList();
    const CUVWFaceList* uvFaces = TextureChannel(object, mesh, out);
    std::vector<unsigned> numbered; // scene material id by the mesh's number
    out.faces.reserve(std::size_t(mesh.GetSize()));
    CCancelCheck cancel;
    for (int f = 0; f < mesh.GetSize(); ++f) {
      if (cancel.Tick())
        throw cob::Cancelled{};
      const C3DFace& face = mesh[f];
      cob::Face written;
      written.first = std::uint32_t(out.corners.size());
      written.count = std::uint32_t(face.GetSize());
      const unsigned id = face.GetMaterialID();
      auto it = std::find(numbered.begin(), numbered.end(), id);
      written.material = std::uint32_t(it - numbered.begin());
      if (it == numbered.end())
        numbered.push_back(id);
      for (int k = 0; k < face.GetSize(); ++k) {
        if (face[k] < 0 || face[k] >= pointCount)
          throw BadScene{"a face uses a point outside the object's point list"};
        out.corners.push_back(
            {std::uint32_t(face[k]), uvFaces ? std::uint32_t((*uvFaces)[f][k]) : 0u});
      }
      out.faces.push_back(written);
    }
    for (std::size_t n = 0; n < numbered.size(); ++n)
      m_file.materials.push_back(Material(numbered[n], out.id, std::uint32_t(n)));
  }

  cob::Material Material(unsigned id, std::uint32_t parent, std::uint32_t number) const {
    cob::Material m;
    m.parent = parent;
    m.number = number;
    auto it = m_byId.find(id);
    if (it == m_byId.end())
      return m;
    const C3DMaterial& material = *it->second;
    const CRGBColor& c = material.GetDiffuseColor();
    m.rgb[0] = codec::ColorUnit(c.r);
    m.rgb[1] = codec::ColorUnit(c.g);
    m.rgb[2] = codec::ColorUnit(c.b);
    m.alpha = 1.0f - material.GetTransparencyFactor();
    m.ka = material.GetAmbientFactor();
    m.ks = material.GetSpecularFactor();
    const float degrees = material.GetSmoothAngle() * 180.0f / kPi;
    if (!(degrees > 0.5f))
      m.facet = 'f';
    else if (degrees >= 179.5f)
      m.facet = 's';
    else
      m.angle = int(std::lround(degrees));
    if (CMaterialMap* map = material.GetMaterialMap(MAP_DIFFUSE);
        map && !map->GetFileName().empty()) {
      m.texture = map->GetFileName();
      // A map placed by offset, then repeat, as the reader places it.
      const C4x4Matrix& place = map->GetMatrix();
      m.offset[0] = place.m[0][3];
      m.offset[1] = place.m[1][3];
      m.repeats[0] = place.m[0][0];
      m.repeats[1] = place.m[1][1];
    }
    return m;
  }

  // The object's main texture channel when it runs parallel to the faces; its
  // points become the texture vertices.
  static const CUVWFaceList* TextureChannel(C3DBaseObject& object, const C3DFaceList& mesh,
                                            cob::Node& out) {
    CDependentChannels* channels = object.GetChannels();
    CUVWChannel* chosen = nullptr;
    for (int c = 0; channels && c < channels->GetSize(); ++c) {
      CChannel* ch = channels->GetChannel(c);
      if (!ch || ch->GetType() != CHANNEL_UVW || !ch->IsValid())
        continue;
      auto* uvw = static_cast<CUVWChannel*>(ch);
      if (!uvw->GetUVWPointList() || !Parallel(mesh, *uvw))
        continue;
      if (!chosen || ch->GetID() == object.GetGlobalUVWChannel())
        chosen = uvw;
    }
    if (!chosen) {
      // Readers expect every corner to name a texture vertex: all name this one.
      out.uvs = {0.0f, 0.0f};
      return nullptr;
    }
    const CUVWPointList& points = *chosen->GetUVWPointList();
    out.uvs.resize(std::size_t(points.GetSize()) * 2);
    for (int i = 0; i < points.GetSize(); ++i) {
      out.uvs[std::size_t(i) * 2] = points[i].u;
      out.uvs[std::size_t(i) * 2 + 1] = -points[i].v;
    }
    return chosen->GetUVWFaceList();
  }

  static bool Parallel(const C3DFaceList& mesh, CUVWChannel& channel) {
    const CUVWFaceList* faces = channel.GetUVWFaceList();
    const int count = channel.GetUVWPointList()->GetSize();
    if (!faces || faces->GetSize() != mesh.GetSize())
      return false;
    for (int f = 0; f < mesh.GetSize(); ++f) {
      const CUVWFace& face = (*faces)[f];
      if (face.GetSize() != mesh[f].GetSize())
        return false;
      for (int k = 0; k < face.GetSize(); ++k)
        if (face[k] < 0 || face[k] >= count)
          return false;
    }
    return true;
  }

  C3DScene& m_scene;
  cob::File& m_file;
  std::unordered_map<unsigned, const C3DMaterial*> m_byId;
};

} // namespace

void RegisterTruespaceCodec() {
  fileRegisterCodecOf<CTruespaceIo>(fileMakeClassCode("TRUE"));
}

CTruespaceIo::CTruespaceIo(CFileIo& owner) : C3DParser(owner) {}
CTruespaceIo::~CTruespaceIo() = default;

C3DScene* CTruespaceIo::Read(const std::string& name, unsigned flags) {
  codec::CFileInput input;
  if (int result = input.Open(name); result != IO_FILE_OK) {
    SetIoError(result, codec::CFileInput::FailureText(result));
    return nullptr;
  }
  return ReadFromMemory(input.GetData(), input.GetSize(), flags);
}

C3DScene* CTruespaceIo::ReadFromMemory(const void* data, std::size_t size, unsigned flags) {
  std::unique_ptr<C3DScene> scene;
  try {
    cob::File file;
    cob::ReadFile(static_cast<const std::uint8_t*>(data), size, file);
    scene = std::make_unique<C3DScene>();
    CSceneBuilder(file, *scene).Build();
  } catch (const codec::CFormatError& e) {
    SetIoError(IO_FILE_BAD_FORMAT, codec::DescribeFailure("", e.GetOffset(), e.GetWhat()));
    return nullptr;
  } catch (const cob::Cancelled&) {
    SetIoError(IO_FILE_CANCELLED);
    return nullptr;
  } catch (const std::bad_alloc&) {
    SetIoError(IO_FILE_NO_MEMORY);
    return nullptr;
  }
  scene->CheckoutImport(int(flags));
  if (scene->GetNodeNbr(1) == 0) {
    SetIoError(IO_FILE_EMPTY, "the file holds no mesh");
    return nullptr;
  }
  return scene.release();
}

int CTruespaceIo::SaveToMemory(C3DScene* scene, unsigned flags, std::string& out) {
  if (!scene || scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  int changed = 0;
  C3DScene* exported = scene->InitExport(int(flags), changed);
  int result = 0;
  try {
    cob::File file;
    CFileBuilder(*exported, file).Build();
    out = cob::WriteAscii(file);
    result = 1;
  } catch (const cob::Cancelled&) {
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
  return result;
}

int CTruespaceIo::Save(const std::string& name, C3DScene* scene, unsigned flags) {
  std::string text;
  if (!SaveToMemory(scene, flags, text))
    return 0;
  return codec::SaveWholeFile(*this, name, text.data(), text.size());
}

} // namespace meshcore
