#include "meshcore/formats/gltf/gltf_io.h"

#include "meshcore/formats/common/detail/byte_order.h"
#include "meshcore/formats/common/detail/file_output.h"
#include "meshcore/formats/gltf/detail/gltf_document.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/operations/triangulate.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/host.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <new>
#include <unordered_map>
#include <utility>

namespace meshcore {

namespace fs = std::filesystem;

namespace {

constexpr unsigned kGltfClass = fileMakeClassCode("GLTF");
constexpr std::uint32_t kNodeHidden = 1;

struct Cancelled {};

// A vertex of a primitive: the corner's point and channel values. Normals are
// compared by their bits, so corners on either side of a sharp edge split.
struct VertexKey {
  std::int32_t point;
  std::int32_t uv;
  std::int32_t vc;
  std::uint32_t n[3];
  bool operator==(const VertexKey& o) const { return std::memcmp(this, &o, sizeof *this) == 0; }
};
// Vertices of one primitive by key, chained per mesh point: the corners of a
// point are few and neighbouring faces use neighbouring points, so lookups
// stay in cache where a hash table over millions of corners would not.
class VertexTable {
public:
  // Room for `most` vertices is made at once: a table that grows copies
  // everything it holds, and room never used costs no memory.
  VertexTable(std::vector<std::int32_t>& heads, std::size_t most) : heads_(heads) {
    keys_.reserve(most);
    next_.reserve(most);
  }
  ~VertexTable() {
    for (const VertexKey& k : keys_)
      heads_[std::size_t(k.point)] = -1; // ready for the next primitive
  }
  // The vertex of key, and whether it was added now.
  std::pair<std::uint32_t, bool> Insert(const VertexKey& key) {
    std::int32_t& head = heads_[std::size_t(key.point)];
    for (std::int32_t v = head; v >= 0; v = next_[std::size_t(v)])
      if (keys_[std::size_t(v)] == key)
        return {std::uint32_t(v), false};
    const auto v = std::int32_t(keys_.size());
    keys_.push_back(key);
    next_.push_back(head);
    head = v;
    return {std::uint32_t(v), true};
  }

private:
  std::vector<std::int32_t>& heads_; // mesh point -> its last vertex, -1 for none
  std::vector<VertexKey> keys_;
  std::vector<std::int32_t> next_;
};

std::string Lower(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z')
      c = char(c - 'A' + 'a');
  return s;
}

// Text of a relative path as a URI: "/" separators, reserved bytes escaped.
std::string ToUri(const fs::path& relative) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : relative.generic_string()) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
        std::strchr("-._~/", c)) {
      out += char(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

// "image/png", "image/jpeg", or empty for anything else.
std::string ImageType(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  unsigned char head[8] = {};
  in.read(reinterpret_cast<char*>(head), sizeof head);
  if (in.gcount() >= 8 && std::memcmp(head, "\x89PNG\r\n\x1a\n", 8) == 0)
    return "image/png";
  if (in.gcount() >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF)
    return "image/jpeg";
  return {};
}

class Exporter {
public:
  Exporter(C3DScene& scene, gltf::Document& doc, bool glb, fs::path outputDir,
           std::vector<std::string>& missing)
      : scene_(scene), doc_(doc), glb_(glb), outputDir_(std::move(outputDir)), missing_(missing) {
    const std::string source = scene.GetFilename();
    if (!source.empty())
      sourceDir_ = fs::path(source).parent_path();
  }

  void Run();

private:
  int AddMesh(C3DBaseObject* object, const std::string& name);
  void AddCurve(C3DBaseObject* object, gltf::Mesh& mesh);
  void AddTriangles(C3DBaseObject* object, gltf::Mesh& mesh);
  int MaterialIndex(unsigned materialId);
  int TextureIndex(const std::string& fileName);
  fs::path FindImage(const std::string& fileName) const;
  void Tick() {
    if (cancel_.Tick())
      throw Cancelled{};
  }

  C3DScene& scene_;
  gltf::Document& doc_;
  bool glb_;
  fs::path outputDir_;
  fs::path sourceDir_;
  std::vector<std::string>& missing_;
  std::map<unsigned, int> materials_;   // scene material id -> glTF material
  std::map<std::string, int> textures_; // image file -> glTF texture, -1 when missing
  CCancelCheck cancel_;
};

void Exporter::Run() {
  // The root turns z-up into y-up: (x, y, z) -> (x, z, -y).
  gltf::Node root;
  root.name = "Z-up to Y-up";
  root.hasMatrix = true;
  root.matrix = {1, 0, 0, 0, 0, 0, -1, 0, 0, 1, 0, 0, 0, 0, 0, 1};
  doc_.nodes.push_back(root);
  doc_.sceneNodes.push_back(0);

  // Pre-order without recursion, however deep the tree: each node's index is
  // known before its children are met.
  std::unordered_map<const C3DSceneNode*, std::uint32_t> index;
  const C3DBaseObject* unused = nullptr;
  for (C3DSceneNode* cursor = scene_.GetFirstNode(nullptr); cursor;) {
    C3DSceneNode* node = scene_.GetNextNode(unused, cursor, nullptr);
    if (!node)
      break;
    Tick();
    gltf::Node out;
    out.name = node->GetName();
    const C4x4Matrix& m = node->GetMatrix(NODE_MATRIX_TRANSFORM);
    bool identity = true;
    for (int c = 0; c < 4; ++c)
      for (int r = 0; r < 4; ++r) {
        out.matrix[std::size_t(c * 4 + r)] = m(r, c);
        identity = identity && m(r, c) == (r == c ? 1.0f : 0.0f);
      }
    out.hasMatrix = !identity;
    C3DBaseObject* object = node->GetBaseObject();
    if (object && !node->IsFlagSet(kNodeHidden) && !object->IsFlagSet(OBJECT_EMPTY) &&
        object->GetKindOf() != OBJECT_GROUP)
      out.mesh = AddMesh(object, node->GetName());
    const auto self = std::uint32_t(doc_.nodes.size());
    doc_.nodes.push_back(std::move(out));
    index[node] = self;
    C3DSceneNode* parent = scene_.GetParent(node);
    auto it = parent ? index.find(parent) : index.end();
    doc_.nodes[it == index.end() ? 0 : it->second].children.push_back(self);
  }
}

int Exporter::AddMesh(C3DBaseObject* object, const std::string& name) {
  gltf::Mesh mesh;
  mesh.name = name;
  if (object->GetKindOf() == OBJECT_CURVE)
    AddCurve(object, mesh);
  else
    AddTriangles(object, mesh);
  if (mesh.primitives.empty())
    return -1;
  doc_.meshes.push_back(std::move(mesh));
  return int(doc_.meshes.size() - 1);
}

void Exporter::AddCurve(C3DBaseObject* object, gltf::Mesh& mesh) {
  C3DPointList* points = object->GetPointList();
  if (!points || points->GetSize() < 2)
    return;
  const int n = points->GetSize();
  auto [view, bytes] = doc_.AddView(std::size_t(n) * 12, gltf::ViewTarget::ArrayBuffer);
  gltf::Accessor a;
  a.bufferView = view;
  a.count = std::uint32_t(n);
  a.type = "VEC3";
  a.min = {1e30f, 1e30f, 1e30f};
  a.max = {-1e30f, -1e30f, -1e30f};
  for (int i = 0; i < n; ++i) {
    Tick();
    const C3DPoint& p = (*points)[i];
    const float xyz[3] = {p.x, p.y, p.z};
    for (int k = 0; k < 3; ++k)
      codec::StoreF32LE(bytes + std::size_t(i) * 12 + std::size_t(k) * 4, xyz[k]);
    for (int k = 0; k < 3; ++k) {
      a.min[std::size_t(k)] = std::min(a.min[std::size_t(k)], xyz[k]);
      a.max[std::size_t(k)] = std::max(a.max[std::size_t(k)], xyz[k]);
    }
  }
  gltf::Primitive prim;
  prim.mode = 3; // line strip
  prim.attributes.push_back({"POSITION", doc_.AddAccessor(std::move(a))});
  prim.material = MaterialIndex(static_cast<C3DCurve*>(object)->GetMaterialID());
  mesh.primitives.push_back(std::move(prim));
}

namespace {

// True when some face of more than three corners is not convex in its own
// plane, so that a fan would cut outside it.
bool NeedsEarClipping(const C3DFaceList& faces, const C3DPointList& points) {
  const int pointCount = points.GetSize();
  const C3DPoint* all = points.GetFirst();
  // The corners of a face, copied once: the turns below visit each three times.
  constexpr int kLocal = 64;
  C3DPoint local[kLocal];
  for (int f = 0; f < faces.GetSize(); ++f) {
    const C3DFace& face = faces[f];
    const int n = face.GetSize();
    if (n <= 3)
      continue;
    const int* index = face.GetData();
    bool inside = true;
    for (int k = 0; k < n; ++k)
      inside = inside && index[k] >= 0 && index[k] < pointCount;
    if (!inside)
      continue;
    const C3DPoint* corner = local;
    std::vector<C3DPoint> many;
    if (n <= kLocal) {
      for (int k = 0; k < n; ++k)
        local[k] = all[index[k]];
    } else {
      many.reserve(std::size_t(n));
      for (int k = 0; k < n; ++k)
        many.push_back(all[index[k]]);
      corner = many.data();
    }
    // Newell's normal, then every turn must agree with it.
    double nx = 0, ny = 0, nz = 0;
    for (int k = 0; k < n; ++k) {
      const C3DPoint& p = corner[k];
      const C3DPoint& q = corner[k + 1 < n ? k + 1 : 0];
      nx += double(p.y - q.y) * (p.z + q.z);
      ny += double(p.z - q.z) * (p.x + q.x);
      nz += double(p.x - q.x) * (p.y + q.y);
    }
    for (int k = 0; k < n; ++k) {
      const C3DPoint& a = corner[k];
      const C3DPoint& b = corner[k + 1 < n ? k + 1 : k + 1 - n];
      const C3DPoint& c = corner[k + 2 < n ? k + 2 : k + 2 - n];
      const double ux = b.x - a.x, uy = b.y - a.y, uz = b.z - a.z;
      const double vx = c.x - b.x, vy = c.y - b.y, vz = c.z - b.z;
      const double turn =
          (uy * vz - uz * vy) * nx + (uz * vx - ux * vz) * ny + (ux * vy - uy * vx) * nz;
      if (turn < 0) // a turn against the face's own normal: a reflex corner
        return true;
    }
  }
  return false;
}

} // namespace

void Exporter::AddTriangles(C3DBaseObject* source, gltf::Mesh& mesh) {
  if (!source->GetFaceList() || !source->GetPointList() || source->GetFaceList()->GetSize() == 0)
    return;
  // Convex faces are cut as fans here; a concave one needs the ear clipper,
  // which works on a copy so that the scene being saved stays as it is.
  C3DBaseObject* object = source;
  std::unique_ptr<C3DBaseObject> copy;
  if (NeedsEarClipping(*source->GetFaceList(), *source->GetPointList())) {
    copy.reset(source->Copy(0, nullptr));
    if (!copy)
      return;
    if (TriangulateObject(*copy, FACE_NONE, 1) == kTriangulateCancelled)
      throw Cancelled{};
    object = copy.get();
  }
  const C3DFaceList& faces = *object->GetFaceList();
  const C3DPointList& points = *object->GetPointList();
  const int pointCount = points.GetSize();

  CDependentChannels* channels = object->GetChannels();
  CUVWFaceList* uvFaces = nullptr;
  CUVWPointList* uvPoints = nullptr;
  CVCFaceList* vcFaces = nullptr;
  CVCPointList* vcPoints = nullptr;
  if (channels) {
    if (!channels->GetUVWChannel(object->GetGlobalUVWChannel(), &uvFaces, &uvPoints))
      channels->GetUVWChannel(0, &uvFaces, &uvPoints);
    channels->GetVCChannel(0, &vcFaces, &vcPoints);
  }
  if (uvFaces && (!uvPoints || uvFaces->GetSize() != faces.GetSize()))
    uvFaces = nullptr;
  if (vcFaces && (!vcPoints || vcFaces->GetSize() != faces.GetSize()))
    vcFaces = nullptr;

  // Triangles as (face, three corner numbers of that face), fanned from the
  // face's first corner so that they keep its winding.
  struct Tri {
    std::int32_t face;
    std::uint16_t k[3];
  };
  std::size_t triangleCount = 0;
  for (int f = 0; f < faces.GetSize(); ++f)
    triangleCount += std::size_t(std::max(faces[f].GetSize() - 2, 0));
  std::vector<Tri> tris;
  std::vector<float> raw; // area-weighted normal of each triangle
  tris.reserve(triangleCount);
  raw.reserve(triangleCount * 3);
  // Room for the worst case (every corner its own vertex): pages never
  // written cost nothing, a buffer that grows copies everything it holds.
  doc_.buffer.reserve(doc_.buffer.size() + triangleCount * 3 * (4 + 12 + 12 + 8 + 4) + 64);
  for (int f = 0; f < faces.GetSize(); ++f) {
    Tick();
    const C3DFace& face = faces[f];
    const int n = face.GetSize();
    if (n < 3 || n > 0xFFFF)
      continue;
    bool inside = true;
    for (int k = 0; k < n; ++k)
      inside = inside && face[k] >= 0 && face[k] < pointCount;
    if (!inside)
      continue;
    for (int i = 1; i + 1 < n; ++i) {
      tris.push_back({f, {0, std::uint16_t(i), std::uint16_t(i + 1)}});
      const C3DPoint& a = points[face[0]];
      const C3DPoint& b = points[face[i]];
      const C3DPoint& c = points[face[i + 1]];
      // Faces run clockwise in the model: the front normal is (c - a) x (b - a).
      const float ux = c.x - a.x, uy = c.y - a.y, uz = c.z - a.z;
      const float vx = b.x - a.x, vy = b.y - a.y, vz = b.z - a.z;
      raw.insert(raw.end(), {uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - uy * vx});
    }
  }
  if (tris.empty())
    return;
  std::vector<float> unit(raw.size(), 0.0f);
  for (std::size_t t = 0; t < tris.size(); ++t) {
    const float* r = &raw[t * 3];
    const float len = std::sqrt(r[0] * r[0] + r[1] * r[1] + r[2] * r[2]);
    if (len > 0.0f && std::isfinite(len))
      for (int c = 0; c < 3; ++c)
        unit[t * 3 + std::size_t(c)] = r[c] / len;
  }

  // Point -> triangles, for smoothing within the object's angle.
  const float angle = object->GetSmoothAngle();
  const bool smooth = angle > 0.0f;
  const float limit = std::cos(std::min(angle, 3.14159265f));
  std::vector<std::uint32_t> start, around;
  if (smooth) {
    start.assign(std::size_t(pointCount) + 1, 0);
    for (const Tri& t : tris)
      for (int c = 0; c < 3; ++c)
        ++start[std::size_t(faces[t.face][t.k[c]]) + 1];
    for (std::size_t p = 0; p < std::size_t(pointCount); ++p)
      start[p + 1] += start[p];
    around.resize(start.back());
    std::vector<std::uint32_t> fill(start.begin(), start.end() - 1);
    for (std::size_t t = 0; t < tris.size(); ++t)
      for (int c = 0; c < 3; ++c)
        around[fill[std::size_t(faces[tris[t].face][tris[t].k[c]])]++] = std::uint32_t(t);
  }
  // The normal of triangle t at point: the area-weighted sum of the triangles
  // around the point that lie within the angle of t.
  auto smoothed = [&](std::size_t t, int point, bool* ownNormal = nullptr) {
    const float* own = &unit[t * 3];
    C3DVector n(own[0], own[1], own[2]);
    if (smooth) {
      // A point shared by very many triangles is smoothed over the first of
      // them only, so that no file makes this quadratic.
      const std::uint32_t b = start[std::size_t(point)];
      const std::uint32_t e = std::min(start[std::size_t(point) + 1], b + 1024u);
      float sx = 0, sy = 0, sz = 0;
      for (std::uint32_t i = b; i < e; ++i) {
        const std::size_t o = around[i];
        const float* u = &unit[o * 3];
        if (o == t || u[0] * own[0] + u[1] * own[1] + u[2] * own[2] >= limit) {
          sx += raw[o * 3];
          sy += raw[o * 3 + 1];
          sz += raw[o * 3 + 2];
        }
      }
      const float len = std::sqrt(sx * sx + sy * sy + sz * sz);
      if (len > 0.0f && std::isfinite(len))
        n = C3DVector(sx / len, sy / len, sz / len);
      else if (ownNormal)
        *ownNormal = true; // the triangle's own normal after all
    }
    if (!(n.x * n.x + n.y * n.y + n.z * n.z > 0.0f))
      n = C3DVector(0, 0, 1);
    return n;
  };
  // Most points sit where no edge is sharp: every triangle around them lies
  // within the angle of every other, and all their corners share one normal,
  // worked out once. The test must never let through a point the exact rule
  // above would split: it holds when the triangles' normals are the same bits
  // and pass the rule against themselves, or (for angles that are not tiny)
  // when each lies within half the angle, less a margin far above rounding,
  // of their mean.
  enum : std::uint8_t { kUnknown, kShared, kSplit };
  std::vector<std::uint8_t> pointState;
  std::vector<C3DVector> pointNormal;
  const double halfCos = std::cos(std::max(0.0, double(std::min(angle, 3.14159265f)) / 2 - 1e-3));
  const bool marginTest = angle >= 0.05f;
  if (smooth) {
    pointState.assign(std::size_t(pointCount), kUnknown);
    pointNormal.resize(std::size_t(pointCount));
  }
  auto shared = [&](int point) {
    const std::uint32_t b = start[std::size_t(point)];
    const std::uint32_t e = std::min(start[std::size_t(point) + 1], b + 1024u);
    if (b == e)
      return false;
    const float* first = &unit[std::size_t(around[b]) * 3];
    bool same = true;
    double mx = 0, my = 0, mz = 0;
    for (std::uint32_t i = b; i < e; ++i) {
      const float* u = &unit[std::size_t(around[i]) * 3];
      same = same && std::memcmp(u, first, 3 * sizeof(float)) == 0;
      mx += u[0];
      my += u[1];
      mz += u[2];
    }
    if (same)
      return e - b == 1 ||
             first[0] * first[0] + first[1] * first[1] + first[2] * first[2] >= limit;
    if (!marginTest)
      return false;
    const double ml = std::sqrt(mx * mx + my * my + mz * mz);
    if (!(ml > 0))
      return false;
    for (std::uint32_t i = b; i < e; ++i) {
      const float* u = &unit[std::size_t(around[i]) * 3];
      const double ul = std::sqrt(double(u[0]) * u[0] + double(u[1]) * u[1] + double(u[2]) * u[2]);
      if (!(ul > 0) || (u[0] * mx + u[1] * my + u[2] * mz) / (ul * ml) < halfCos)
        return false;
    }
    return true;
  };
  auto cornerNormal = [&](std::size_t t, int point) {
    if (!smooth)
      return smoothed(t, point);
    std::uint8_t& state = pointState[std::size_t(point)];
    if (state == kUnknown) {
      state = shared(point) ? kShared : kSplit;
      bool own = false;
      if (state == kShared)
        pointNormal[std::size_t(point)] = smoothed(t, point, &own);
      if (own)
        state = kSplit; // a sum that overflowed: each triangle keeps its own

    }
    return state == kShared ? pointNormal[std::size_t(point)] : smoothed(t, point);
  };

  // Triangles grouped by material, in the order materials are first met.
  std::vector<unsigned> order;
  std::map<unsigned, std::vector<std::uint32_t>> byMaterial;
  std::vector<std::uint32_t>* last = nullptr; // runs of one material skip the lookup
  unsigned lastId = 0;
  for (std::size_t t = 0; t < tris.size(); ++t) {
    const unsigned id = faces[tris[t].face].GetMaterialID();
    if (!last || id != lastId) {
      auto [it, fresh] = byMaterial.try_emplace(id);
      if (fresh)
        order.push_back(id);
      last = &it->second;
      lastId = id;
    }
    last->push_back(std::uint32_t(t));
  }

  // Each primitive's vertices go straight into the buffer as interleaved
  // records (position, normal, texture coordinates, colour); its indices
  // follow in a view of their own.
  const std::uint32_t stride = 24 + (uvFaces ? 8 : 0) + (vcFaces ? 4 : 0);
  std::vector<std::int32_t> heads(std::size_t(pointCount), -1);
  std::vector<std::uint32_t> indices;
  for (unsigned materialId : order) {
    const std::vector<std::uint32_t>& group = byMaterial[materialId];
    VertexTable vertices(heads, group.size() * 3);
    indices.clear();
    indices.reserve(group.size() * 3);
    const std::size_t viewStart = (doc_.buffer.size() + 3) & ~std::size_t(3);
    doc_.buffer.resize(viewStart);
    float lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
    std::uint32_t vertexCount = 0;
    // The buffer grows by many records at a time and is cut back to what the
    // records use at the end.
    constexpr std::size_t kGrowRecords = 4096;
    std::size_t used = doc_.buffer.size();
    for (std::uint32_t t : group) {
      Tick();
      const Tri& tri = tris[t];
      const C3DFace& face = faces[tri.face];
      for (int c = 0; c < 3; ++c) {
        const int k = tri.k[c];
        VertexKey key{face[k], -1, -1, {0, 0, 0}};
        if (uvFaces) {
          const int i = (*uvFaces)[tri.face].GetSize() > k ? (*uvFaces)[tri.face][k] : -1;
          key.uv = i >= 0 && i < uvPoints->GetSize() ? i : -1;
        }
        if (vcFaces) {
          const int i = (*vcFaces)[tri.face].GetSize() > k ? (*vcFaces)[tri.face][k] : -1;
          key.vc = i >= 0 && i < vcPoints->GetSize() ? i : -1;
        }
        const C3DVector n = cornerNormal(t, key.point);
        key.n[0] = std::bit_cast<std::uint32_t>(n.x);
        key.n[1] = std::bit_cast<std::uint32_t>(n.y);
        key.n[2] = std::bit_cast<std::uint32_t>(n.z);
        auto [vertex, fresh] = vertices.Insert(key);
        if (fresh) {
          const C3DPoint& p = points[key.point];
          float record[8] = {p.x, p.y, p.z, n.x, n.y, n.z, 0.0f, 1.0f};
          if (uvFaces && key.uv >= 0) {
            const CUVWPoint& tp = (*uvPoints)[key.uv];
            record[6] = tp.u;
            record[7] = 1.0f - tp.v; // glTF's v runs down the image
          }
          const std::size_t at = used;
          used += stride;
          if (used > doc_.buffer.size())
            doc_.buffer.resize(used + kGrowRecords * stride);
          std::uint8_t* out = doc_.buffer.data() + at;
          for (int f = 0; f < (uvFaces ? 8 : 6); ++f)
            codec::StoreF32LE(out + 4 * f, record[f]);
          if (vcFaces) {
            const CRGBColor col4 =
                key.vc >= 0 ? (*vcPoints)[key.vc].GetColor() : CRGBColor(255, 255, 255, 255);
            std::uint8_t* rgba = out + stride - 4;
            rgba[0] = col4.r;
            rgba[1] = col4.g;
            rgba[2] = col4.b;
            rgba[3] = col4.a;
          }
          for (int a = 0; a < 3; ++a) {
            lo[a] = vertexCount ? std::min(lo[a], record[a]) : record[a];
            hi[a] = vertexCount ? std::max(hi[a], record[a]) : record[a];
          }
          ++vertexCount;
        }
        indices.push_back(vertex);
      }
    }
    doc_.buffer.resize(used);
    if (vertexCount == 0)
      continue;
    doc_.bufferViews.push_back(
        {viewStart, std::size_t(vertexCount) * stride, stride, gltf::ViewTarget::ArrayBuffer});
    const auto view = std::uint32_t(doc_.bufferViews.size() - 1);

    gltf::Primitive prim;
    auto add = [&](const char* name, std::size_t offset, const char* type,
                   gltf::ComponentType component, bool normalized) {
      gltf::Accessor a;
      a.bufferView = view;
      a.offset = offset;
      a.componentType = component;
      a.count = vertexCount;
      a.type = type;
      a.normalized = normalized;
      if (offset == 0) { // the position
        a.min.assign(lo, lo + 3);
        a.max.assign(hi, hi + 3);
      }
      prim.attributes.push_back({name, doc_.AddAccessor(std::move(a))});
    };
    add("POSITION", 0, "VEC3", gltf::ComponentType::Float, false);
    add("NORMAL", 12, "VEC3", gltf::ComponentType::Float, false);
    if (uvFaces)
      add("TEXCOORD_0", 24, "VEC2", gltf::ComponentType::Float, false);
    if (vcFaces)
      add("COLOR_0", stride - 4, "VEC4", gltf::ComponentType::UnsignedByte, true);

    gltf::Accessor ia;
    ia.count = std::uint32_t(indices.size());
    const bool narrow = vertexCount < 0xFFFF;
    auto [indexView, bytes] =
        doc_.AddView(indices.size() * (narrow ? 2 : 4), gltf::ViewTarget::ElementArrayBuffer);
    for (std::size_t i = 0; i < indices.size(); ++i)
      if (narrow)
        codec::StoreU16LE(bytes + i * 2, std::uint16_t(indices[i]));
      else
        codec::StoreU32LE(bytes + i * 4, indices[i]);
    ia.bufferView = indexView;
    ia.componentType =
        narrow ? gltf::ComponentType::UnsignedShort : gltf::ComponentType::UnsignedInt;
    prim.indices = int(doc_.AddAccessor(std::move(ia)));
    prim.material = MaterialIndex(materialId);
    mesh.primitives.push_back(std::move(prim));
  }
}

int Exporter::MaterialIndex(unsigned materialId) {
  if (auto it = materials_.find(materialId); it != materials_.end())
    return it->second;
  const C3DMaterial* m = scene_.GetMaterial(materialId);
  int index = -1; // faces of an unknown material take glTF's default
  if (m) {
    gltf::Material out;
    out.name = m->GetName();
    const CRGBColor& c = m->GetDiffuseColor();
    const float alpha = std::clamp(1.0f - m->GetTransparencyFactor(), 0.0f, 1.0f);
    out.baseColor = {c.r / 255.0f, c.g / 255.0f, c.b / 255.0f, alpha};
    out.blend = alpha < 1.0f;
    out.roughness = std::clamp(1.0f - m->GetSpecularFactor(), 0.0f, 1.0f);
    if (const CMaterialMap* map = m->GetDiffuseMaps(); map && !map->GetFileName().empty())
      out.texture = TextureIndex(map->GetFileName());
    doc_.materials.push_back(std::move(out));
    index = int(doc_.materials.size() - 1);
  }
  materials_[materialId] = index;
  return index;
}

fs::path Exporter::FindImage(const std::string& fileName) const {
  std::string name = fileName;
  std::replace(name.begin(), name.end(), '\\', '/');
  while (name.rfind("./", 0) == 0)
    name.erase(0, 2);
  const fs::path given(name);
  std::vector<fs::path> candidates;
  if (given.is_absolute()) {
    candidates.push_back(given);
  } else {
    if (!sourceDir_.empty())
      candidates.push_back(sourceDir_ / given);
    candidates.push_back(outputDir_ / given);
  }
  // Old files often name an image by a path of the machine they were made on.
  if (!sourceDir_.empty())
    candidates.push_back(sourceDir_ / given.filename());
  candidates.push_back(outputDir_ / given.filename());
  for (const fs::path& c : candidates) {
    std::error_code ec;
    if (fs::is_regular_file(c, ec))
      return c;
  }
  // Names written on systems that ignore case ("TEST.PNG" for test.png).
  for (const fs::path& c : candidates) {
    std::error_code ec;
    const std::string wanted = Lower(c.filename().string());
    for (fs::directory_iterator it(c.parent_path().empty() ? "." : c.parent_path(), ec), end;
         !ec && it != end; it.increment(ec))
      if (Lower(it->path().filename().string()) == wanted && it->is_regular_file(ec))
        return it->path();
  }
  return {};
}

int Exporter::TextureIndex(const std::string& fileName) {
  if (auto it = textures_.find(fileName); it != textures_.end())
    return it->second;
  int index = -1;
  const fs::path file = FindImage(fileName);
  const std::string type = file.empty() ? std::string() : ImageType(file);
  if (type.empty()) {
    missing_.push_back(fileName);
  } else {
    gltf::Image image;
    image.name = file.filename().string();
    if (glb_) {
      std::ifstream in(file, std::ios::binary);
      std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
      image.bufferView = int(doc_.AddView(bytes.data(), bytes.size(), gltf::ViewTarget::None));
      image.mimeType = type;
    } else {
      std::error_code ec;
      fs::path rel = fs::relative(fs::absolute(file, ec), fs::absolute(outputDir_, ec), ec);
      image.uri = ToUri(ec || rel.empty() ? file : rel);
    }
    doc_.images.push_back(std::move(image));
    doc_.textures.push_back({std::uint32_t(doc_.images.size() - 1)});
    index = int(doc_.textures.size() - 1);
  }
  textures_[fileName] = index;
  return index;
}

} // namespace

void RegisterGltfCodec() {
  CFileExt type("glTF 2.0 files", ".gltf|.glb", kGltfClass, FILE_CAN_WRITE | FILE_KIND_SCENE);
  fileRegisterFile(type);
  fileRegisterCodecOf<CGltfIo>(kGltfClass);
}

CGltfIo::CGltfIo(CFileIo& owner) : C3DParser(owner) {}
CGltfIo::~CGltfIo() = default;

int CGltfIo::BuildDocument(C3DScene* scene, unsigned flags, bool glb, const std::string& outputName,
                           gltf::Document& doc) {
  m_missingImages.clear();
  if (!scene || scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  int changed = 0;
  C3DScene* exported = scene->InitExport(int(flags), changed);
  int result = 1;
  try {
    const fs::path output(outputName);
    Exporter(*exported, doc, glb, output.parent_path(), m_missingImages).Run();
  } catch (const Cancelled&) {
    SetIoError(IO_FILE_CANCELLED);
    result = 0;
  } catch (const std::bad_alloc&) {
    SetIoError(IO_FILE_NO_MEMORY);
    result = 0;
  }
  exported->ReleaseExport(exported, exported != scene);
  if (!result)
    return 0;
  // A GLB says its length in 32 bits.
  if (glb && doc.buffer.size() > 0xFFFFFF00u - (std::size_t(64) << 20)) {
    SetIoError(IO_FILE_CANT_SAVE_OPTIONS, "more than 4 GB of geometry: write .gltf instead");
    return 0;
  }
  if (!m_missingImages.empty() && !IsSilentMode()) {
    std::string list;
    for (const auto& name : m_missingImages)
      list += (list.empty() ? "" : ", ") + name;
    GetMeshcoreHost().MessageBox(GetParentWnd(),
                                 FormatPrompt(LoadString(IDS_IMAGES_NOT_FOUND), list),
                                 LoadString(IDS_IO_ERROR_TITLE), 0);
  }
  return 1;
}

std::string CGltfIo::BufferFileName(const std::string& outputName) {
  return fs::path(outputName).stem().string() + ".bin";
}

int CGltfIo::SaveToMemory(C3DScene* scene, unsigned flags, bool glb, const std::string& outputName,
                          std::string& json, std::vector<std::uint8_t>& binary) {
  gltf::Document doc;
  if (!BuildDocument(scene, flags, glb, outputName, doc))
    return 0;
  if (glb) {
    binary = gltf::EncodeGlb(doc);
    json.clear();
  } else {
    json = gltf::EncodeJson(doc, doc.buffer.empty() ? std::string() : BufferFileName(outputName));
    binary = std::move(doc.buffer);
  }
  return 1;
}

int CGltfIo::Save(const std::string& name, C3DScene* scene, unsigned flags) {
  const bool glb = Lower(fs::path(name).extension().string()) == ".glb";
  gltf::Document doc;
  if (!BuildDocument(scene, flags, glb, name, doc))
    return 0;
  int result = IO_FILE_OK;
  if (glb) {
    // The buffer is written as it is, behind the header and JSON built last.
    std::size_t padding = 0;
    const std::vector<std::uint8_t> head = gltf::EncodeGlbHead(doc, padding);
    static const std::uint8_t zeros[4] = {0, 0, 0, 0};
    result = codec::WriteWholeFile(
        name,
        {{head.data(), head.size()}, {doc.buffer.data(), doc.buffer.size()}, {zeros, padding}},
        IsSilentMode());
  } else {
    if (!doc.buffer.empty()) {
      const fs::path bin = fs::path(name).parent_path() / BufferFileName(name);
      result =
          codec::WriteWholeFile(bin.string(), doc.buffer.data(), doc.buffer.size(), IsSilentMode());
    }
    if (result == IO_FILE_OK) {
      const std::string json =
          gltf::EncodeJson(doc, doc.buffer.empty() ? std::string() : BufferFileName(name));
      result = codec::WriteWholeFile(name, json.data(), json.size(), IsSilentMode());
    }
  }
  if (result != IO_FILE_OK) {
    SetIoError(result);
    return 0;
  }
  return 1;
}

} // namespace meshcore
