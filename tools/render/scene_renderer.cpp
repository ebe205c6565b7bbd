#include "tools/render/scene_renderer.h"

#include "tools/render/png_reader.h"
#include "tools/render/rasterizer.h"

#include "meshcore/geometry/matrix_4x4.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/uvw_face_list.h"
#include "meshcore/mesh/uvw_point_list.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/mesh/vc_face_list.h"
#include "meshcore/mesh/vc_point_list.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/scene.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>

namespace meshcore::render {

namespace fs = std::filesystem;

namespace {

constexpr unsigned kNone = 0xFFFFFFFFu;
constexpr float kAmbient = 0.3f;
constexpr float kDiffuse = 0.7f;
// Wire and curve lines sit this fraction of the scene's depth in front of
// the faces they lie on.
constexpr float kLineDepthBias = 0.004f;

float Unit(std::uint8_t byte) {
  return byte * (1.0f / 255.0f);
}

C3DVector Newell(const CFace& face, const std::vector<C3DPoint>& points) {
  C3DVector n(0.0f, 0.0f, 0.0f);
  const int count = face.GetSize();
  for (int k = 0; k < count; ++k) {
    const C3DPoint& p = points[face[k]];
    const C3DPoint& q = points[face[(k + 1) % count]];
    n.x += (p.y - q.y) * (p.z + q.z);
    n.y += (p.z - q.z) * (p.x + q.x);
    n.z += (p.x - q.x) * (p.y + q.y);
  }
  return n;
}

// Corner positions of triangles covering the face: a fan when the face is
// convex, ear clipping in the face's plane otherwise (a fan would fill the
// notches of concave outlines). normal is the face's Newell vector.
void CoverFace(const CFace& face, const std::vector<C3DPoint>& points, const C3DVector& normal,
               std::vector<int>& triangles) {
  triangles.clear();
  const int count = face.GetSize();
  // Drop the axis the normal leans on most; keep the outline counter-clockwise.
  const float ax = std::fabs(normal.x), ay = std::fabs(normal.y), az = std::fabs(normal.z);
  const int drop = ax >= ay && ax >= az ? 0 : (ay >= az ? 1 : 2);
  const float sign = (drop == 0 ? normal.x : drop == 1 ? normal.y : normal.z) < 0.0f ? -1.0f : 1.0f;
  std::vector<float> x(static_cast<std::size_t>(count)), y(x.size());
  for (int k = 0; k < count; ++k) {
    const C3DPoint& p = points[face[k]];
    x[k] = drop == 0 ? p.y : (drop == 1 ? p.z : p.x);
    y[k] = (drop == 0 ? p.z : (drop == 1 ? p.x : p.y)) * sign;
  }
  auto turn = [&](int a, int b, int c) {
    return (x[b] - x[a]) * (y[c] - y[a]) - (y[b] - y[a]) * (x[c] - x[a]);
  };
  // Ear clipping is quadratic in the corners: huge outlines stay fans.
  constexpr int kMaxClipped = 256;
  bool convex = true;
  for (int k = 0; k < count && convex && count <= kMaxClipped; ++k)
    convex = turn((k + count - 1) % count, k, (k + 1) % count) >= 0.0f;
  if (!convex) {
    std::vector<int> ring(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k)
      ring[k] = k;
    // A corner on the candidate's border blocks it too (a cut through it
    // would leave a self-touching rest); one at a candidate's corner does not.
    auto inside = [&](int p, int a, int b, int c) {
      for (const int v : {a, b, c})
        if (x[p] == x[v] && y[p] == y[v])
          return false;
      return turn(a, b, p) >= 0.0f && turn(b, c, p) >= 0.0f && turn(c, a, p) >= 0.0f;
    };
    // Each pass cuts one ear; a ring without one (self-touching or
    // degenerate outlines) is finished as a fan.
    std::size_t k = 0;
    for (std::size_t misses = 0; ring.size() > 3 && misses < ring.size();) {
      const std::size_t n = ring.size();
      const int a = ring[(k + n - 1) % n], b = ring[k % n], c = ring[(k + 1) % n];
      bool ear = turn(a, b, c) > 0.0f;
      for (std::size_t j = 0; ear && j < n; ++j) {
        const int q = ring[j];
        ear = q == a || q == b || q == c || !inside(q, a, b, c);
      }
      if (ear) {
        triangles.insert(triangles.end(), {a, b, c});
        ring.erase(ring.begin() + static_cast<std::ptrdiff_t>(k % n));
        k %= ring.size();
        misses = 0;
      } else {
        k = (k + 1) % n;
        ++misses;
      }
    }
    for (std::size_t j = 1; j + 1 < ring.size(); ++j)
      triangles.insert(triangles.end(), {ring[0], ring[j], ring[j + 1]});
    return;
  }
  for (int k = 1; k + 1 < count; ++k)
    triangles.insert(triangles.end(), {0, k, k + 1});
}

bool ValidIndices(const CFace& face, int pointCount) {
  for (int k = 0; k < face.GetSize(); ++k)
    if (face[k] < 0 || face[k] >= pointCount)
      return false;
  return true;
}

// The channel faces of a texture or colour channel, when they run parallel
// to the mesh's faces; null otherwise.
template <class FaceList> const FaceList* Parallel(const FaceList* faces, int meshFaces) {
  return faces && faces->GetSize() == meshFaces ? faces : nullptr;
}

} // namespace

struct CSceneRenderer::Shading {
  float r = 1.0f, g = 1.0f, b = 1.0f;
  unsigned colourChannel = kNone;
  const CImage* texture = nullptr;
  unsigned textureChannel = kNone;
  bool hasMatrix = false;
  C4x4Matrix matrix;
};

CSceneRenderer::CSceneRenderer(RenderOptions options) : m_options(std::move(options)) {}

CSceneRenderer::~CSceneRenderer() = default;

const CImage* CSceneRenderer::Texture(C3DScene& scene, const std::string& file) {
  const auto found = m_textures.find(file);
  if (found != m_textures.end())
    return found->second.get();
  std::unique_ptr<CImage>& slot = m_textures[file];

  std::string dir = scene.GetFilepath();
  if (dir.empty() && !m_options.sourceFile.empty())
    dir = fs::path(m_options.sourceFile).parent_path().string();
  // Names written on another system may carry its separators.
  const std::size_t cut = file.find_last_of("/\\");
  const std::string base = cut == std::string::npos ? file : file.substr(cut + 1);
  std::vector<fs::path> candidates;
  if (fs::path(file).is_absolute())
    candidates.emplace_back(file);
  if (!dir.empty()) {
    candidates.push_back(fs::path(dir) / file);
    candidates.push_back(fs::path(dir) / base);
  } else {
    candidates.emplace_back(file);
    candidates.emplace_back(base);
  }
  std::error_code ec;
  auto path = std::find_if(candidates.begin(), candidates.end(),
                           [&](const fs::path& p) { return fs::is_regular_file(p, ec); });
  // Files named on systems that ignore case ("TEST.PNG" for test.png).
  if (path == candidates.end() && !dir.empty()) {
    auto lower = [](std::string text) {
      for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      return text;
    };
    const std::string wanted = lower(base);
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
      if (lower(it->path().filename().string()) == wanted && it->is_regular_file(ec)) {
        candidates.push_back(it->path());
        path = candidates.end() - 1;
        break;
      }
  }
  const std::string fallback = "; drawn with the diffuse colour";
  if (path == candidates.end()) {
    m_warnings.push_back("texture '" + file + "' not found" + fallback);
    return nullptr;
  }
  std::FILE* f = std::fopen(path->string().c_str(), "rb");
  std::uint8_t head[8] = {};
  const std::size_t got = f ? std::fread(head, 1, sizeof head, f) : 0;
  if (f)
    std::fclose(f);
  if (!CPngReader::HasSignature(head, got)) {
    // Other image kinds are expected, not an error: the colour stands in.
    m_warnings.push_back("texture '" + file + "' is not a PNG picture" + fallback);
    return nullptr;
  }
  auto image = std::make_unique<CImage>();
  std::string error;
  if (!CPngReader::ReadFile(path->string(), *image, error)) {
    m_warnings.push_back("texture '" + file + "' cannot be read (" + error + ")" + fallback);
    return nullptr;
  }
  slot = std::move(image);
  return slot.get();
}

const CSceneRenderer::Shading& CSceneRenderer::MaterialShading(C3DScene& scene, unsigned id) {
  std::unique_ptr<Shading>& slot = m_materials[id];
  if (slot)
    return *slot;
  slot = std::make_unique<Shading>();
  Shading& s = *slot;
  // An id without a material draws in the default material's colour.
  const C3DMaterial* material = scene.GetMaterials().GetMaterial(id);
  if (!material)
    material = scene.GetMaterial(0);
  if (!material)
    return s;
  const CRGBColor& colour = material->GetDiffuseColor();
  s.r = Unit(colour.r);
  s.g = Unit(colour.g);
  s.b = Unit(colour.b);
  float factor = 0.0f;
  s.colourChannel = material->GetVertexColor(factor);
  if (const CMaterialMap* map = material->GetDiffuseMaps()) {
    s.texture = Texture(scene, map->GetFileName());
    s.textureChannel = map->GetChannelID();
    s.matrix = map->GetMatrix();
    s.hasMatrix = !s.matrix.IsIdentity();
  }
  return s;
}

bool CSceneRenderer::Render(C3DScene& scene, CImage& image, std::string& error) {
  const int ss = m_options.supersampling;
  if (m_options.width < 1 || m_options.height < 1 || m_options.width > kMaxSide ||
      m_options.height > kMaxSide || ss < 1 || ss > 4) {
    error = "the picture size must lie between 1 and " + std::to_string(kMaxSide) + " pixels";
    return false;
  }
  m_warnings.clear();
  m_materials.clear();

  // Everything drawable, carried to scene space once.
  std::vector<Item> items;
  C3DPoint boxMin, boxMax;
  bool hasBox = false;
  C3DSceneNode* cursor = scene.GetFirstNode(nullptr);
  while (cursor) {
    const C3DBaseObject* unused = nullptr;
    C3DSceneNode* node = scene.GetNextNode(unused, cursor, nullptr);
    C3DBaseObject* object = node ? node->GetBaseObject() : nullptr;
    if (!object || object->IsFlagSet(OBJECT_EMPTY) || !object->GetPointList())
      continue;
    const std::uint32_t kind = object->GetKindOf();
    const bool mesh = (kind & (OBJECT_POLYGONAL | OBJECT_PATCH)) && object->GetFaceNbr() > 0;
    const bool curve = kind == OBJECT_CURVE && object->GetPointNbr() >= 2;
    if (!mesh && !curve)
      continue;
    C4x4Matrix world;
    node->GetMatrix(NODE_MATRIX_TRANSFORM, world, 0);
    const bool identity = world.IsIdentity();
    const C3DPointList& list = *object->GetPointList();
    Item item{object, {}};
    item.points.resize(static_cast<std::size_t>(list.GetSize()));
    for (int i = 0; i < list.GetSize(); ++i) {
      const C3DPoint p = identity ? list[i] : list[i] * world;
      item.points[static_cast<std::size_t>(i)] = p;
      if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
        continue;
      if (!hasBox) {
        boxMin = boxMax = p;
        hasBox = true;
      }
      boxMin.x = std::min(boxMin.x, p.x), boxMax.x = std::max(boxMax.x, p.x);
      boxMin.y = std::min(boxMin.y, p.y), boxMax.y = std::max(boxMax.y, p.y);
      boxMin.z = std::min(boxMin.z, p.z), boxMax.z = std::max(boxMax.z, p.z);
    }
    items.push_back(std::move(item));
  }
  if (items.empty() || !hasBox) {
    error = "nothing to draw: the scene has no faces or curves";
    return false;
  }

  const int width = m_options.width * ss, height = m_options.height * ss;
  const CCamera camera(m_options.view, m_options.up, boxMin, boxMax, width, height);
  CRasterizer raster(width, height, m_options.background);
  m_lineBias = camera.GetDepthRange() * kLineDepthBias;
  for (const Item& item : items) {
    if (item.object->GetKindOf() == OBJECT_CURVE)
      DrawCurve(scene, item, camera, raster);
    else
      DrawMesh(scene, item, camera, raster);
  }
  image = raster.Resolve(ss);
  return true;
}

void CSceneRenderer::DrawCurve(C3DScene& scene, const Item& item, const CCamera& camera,
                               CRasterizer& raster) {
  const C3DCurve* curve = static_cast<C3DCurve*>(*item.object);
  const Shading& shading = MaterialShading(scene, curve->GetMaterialID());
  RasterVertex previous;
  for (std::size_t i = 0; i < item.points.size(); ++i) {
    RasterVertex v;
    camera.Project(item.points[i], v.x, v.y, v.depth);
    v.r = shading.r, v.g = shading.g, v.b = shading.b;
    if (i > 0)
      raster.DrawLine(previous, v, m_options.supersampling, m_lineBias);
    previous = v;
  }
}

void CSceneRenderer::DrawMesh(C3DScene& scene, const Item& item, const CCamera& camera,
                              CRasterizer& raster) {
  C3DBaseObject& object = *item.object;
  const C3DFaceList& faces = *object.GetFaceList();
  const std::vector<C3DPoint>& points = item.points;
  const int faceCount = faces.GetSize();
  const int pointCount = static_cast<int>(points.size());

  // Face normals: the raw Newell vector (its length is twice the area, which
  // weights the smooth normals) and its unit form.
  std::vector<C3DVector> area(static_cast<std::size_t>(faceCount));
  std::vector<C3DVector> unit(static_cast<std::size_t>(faceCount));
  std::vector<std::uint8_t> valid(static_cast<std::size_t>(faceCount), 0);
  for (int f = 0; f < faceCount; ++f) {
    const CFace& face = faces[f];
    if (face.GetSize() < 2 || !ValidIndices(face, pointCount))
      continue;
    valid[f] = 1;
    area[f] = Newell(face, points);
    const float length = std::sqrt(area[f] * area[f]);
    unit[f] = length > 0.0f && std::isfinite(length) ? area[f] * (1.0f / length)
                                                     : C3DVector(0.0f, 0.0f, 0.0f);
  }

  // Which faces use each point, for smoothing across edges.
  const float angle = object.GetSmoothAngle();
  const bool smooth = angle > 0.0f && std::isfinite(angle);
  const float cosLimit = std::cos(std::min(angle, 3.1415927f)) - 1e-5f;
  std::vector<int> firstFace, faceOfPoint;
  if (smooth) {
    firstFace.assign(static_cast<std::size_t>(pointCount) + 1, 0);
    for (int f = 0; f < faceCount; ++f)
      if (valid[f])
        for (int k = 0; k < faces[f].GetSize(); ++k)
          ++firstFace[faces[f][k] + 1];
    for (int p = 0; p < pointCount; ++p)
      firstFace[p + 1] += firstFace[p];
    faceOfPoint.resize(static_cast<std::size_t>(firstFace[pointCount]));
    std::vector<int> fill(firstFace.begin(), firstFace.end() - 1);
    for (int f = 0; f < faceCount; ++f)
      if (valid[f])
        for (int k = 0; k < faces[f].GetSize(); ++k)
          faceOfPoint[fill[faces[f][k]]++] = f;
  }

  std::vector<float> screen(static_cast<std::size_t>(pointCount) * 3);
  for (int p = 0; p < pointCount; ++p)
    camera.Project(points[p], screen[p * 3], screen[p * 3 + 1], screen[p * 3 + 2]);

  // One light, above, left of and in front of the viewer, moving with the view.
  const C3DVector toViewer = camera.ToViewer();
  C3DVector light = camera.Right() * -0.45f + camera.Up() * 0.65f + toViewer * 0.6f;
  light = light * (1.0f / std::sqrt(light * light));

  CDependentChannels* channels = object.GetChannels();
  const CVCFaceList* anyColours = nullptr;
  const CVCPointList* anyColourPoints = nullptr;
  if (channels) {
    CVCFaceList* vcFaces = nullptr;
    CVCPointList* vcPoints = nullptr;
    if (channels->GetVCChannel(0, &vcFaces, &vcPoints) && Parallel(vcFaces, faceCount)) {
      anyColours = vcFaces;
      anyColourPoints = vcPoints;
    }
  }

  // What the current face's material resolves to on this object.
  struct Binding {
    const Shading* shading = nullptr;
    const CVCFaceList* colours = nullptr;
    const CVCPointList* colourPoints = nullptr;
    const CUVWFaceList* uvFaces = nullptr;
    const CUVWPointList* uvPoints = nullptr;
  };
  unsigned boundMaterial = kNone;
  Binding bound;
  auto bind = [&](unsigned id) {
    if (bound.shading && id == boundMaterial)
      return;
    boundMaterial = id;
    bound = Binding();
    bound.shading = &MaterialShading(scene, id);
    const Shading& s = *bound.shading;
    bound.colours = anyColours;
    bound.colourPoints = anyColourPoints;
    if (!channels)
      return;
    if (s.colourChannel != kNone) {
      CVCFaceList* vcFaces = nullptr;
      CVCPointList* vcPoints = nullptr;
      if (channels->GetVCChannel(s.colourChannel, &vcFaces, &vcPoints) &&
          Parallel(vcFaces, faceCount)) {
        bound.colours = vcFaces;
        bound.colourPoints = vcPoints;
      }
    }
    if (s.texture) {
      CUVWFaceList* uvFaces = nullptr;
      CUVWPointList* uvPoints = nullptr;
      const unsigned global = object.GetGlobalUVWChannel();
      if (!(s.textureChannel != kNone &&
            channels->GetUVWChannel(s.textureChannel, &uvFaces, &uvPoints)) &&
          !(global != kNone && channels->GetUVWChannel(global, &uvFaces, &uvPoints)))
        channels->GetUVWChannel(0, &uvFaces, &uvPoints);
      if (Parallel(uvFaces, faceCount) && uvPoints) {
        bound.uvFaces = uvFaces;
        bound.uvPoints = uvPoints;
      }
    }
  };

  const bool dark = ((m_options.background >> 16 & 0xFF) + (m_options.background >> 8 & 0xFF) +
                     (m_options.background & 0xFF)) < 3 * 128;
  const float wire = dark ? 0.9f : 0.08f;
  const int thickness = m_options.supersampling;

  std::vector<RasterVertex> corners;
  std::vector<int> cover;
  for (int f = 0; f < faceCount; ++f) {
    if (!valid[f])
      continue;
    const C3DFace& face = faces[f];
    const int count = face.GetSize();
    bind(face.GetMaterialID());
    const Shading& s = *bound.shading;
    const CFace* colourFace = bound.colours ? &(*bound.colours)[f] : nullptr;
    if (colourFace && colourFace->GetSize() != count)
      colourFace = nullptr;
    const CFace* uvFace = bound.uvFaces ? &(*bound.uvFaces)[f] : nullptr;
    if (uvFace && uvFace->GetSize() != count)
      uvFace = nullptr;

    corners.resize(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k) {
      const int p = face[k];
      RasterVertex& v = corners[k];
      v.x = screen[p * 3];
      v.y = screen[p * 3 + 1];
      v.depth = screen[p * 3 + 2];

      C3DVector n = unit[f];
      if (smooth) {
        C3DVector sum(0.0f, 0.0f, 0.0f);
        for (int i = firstFace[p]; i < firstFace[p + 1]; ++i) {
          const int g = faceOfPoint[i];
          if (g == f || unit[f] * unit[g] >= cosLimit)
            sum += area[g];
        }
        const float length = std::sqrt(sum * sum);
        if (length > 0.0f && std::isfinite(length))
          n = sum * (1.0f / length);
      }
      // Both sides of a face are lit alike: old files rarely agree on winding.
      float facing = n * light;
      if (n * toViewer < 0.0f)
        facing = -facing;
      const float intensity = kAmbient + kDiffuse * std::max(0.0f, facing);

      float r = s.r, g = s.g, b = s.b;
      if (colourFace) {
        const int c = (*colourFace)[k];
        if (c >= 0 && c < bound.colourPoints->GetSize()) {
          const CRGBColor& colour = (*bound.colourPoints)[c].GetColor();
          r = Unit(colour.r), g = Unit(colour.g), b = Unit(colour.b);
        }
      }
      if (uvFace) {
        r = g = b = 1.0f;
        const int t = (*uvFace)[k];
        if (t >= 0 && t < bound.uvPoints->GetSize()) {
          const CUVWPoint& uv = (*bound.uvPoints)[t];
          if (s.hasMatrix) {
            const C3DPoint moved = C3DPoint(uv.u, uv.v, uv.w) * s.matrix;
            v.u = moved.x, v.v = moved.y;
          } else {
            v.u = uv.u, v.v = uv.v;
          }
        }
      }
      v.r = r * intensity, v.g = g * intensity, v.b = b * intensity;
    }
    // Lines, and polygons without area, which would otherwise vanish.
    if (count == 2 || (unit[f] * unit[f]) == 0.0f) {
      for (int k = 0; k + 1 < count + (count > 2 ? 1 : 0); ++k)
        raster.DrawLine(corners[k], corners[(k + 1) % count], thickness, m_lineBias);
      continue;
    }
    const CImage* texture = uvFace ? s.texture : nullptr;
    if (count == 3) {
      raster.DrawTriangle(corners[0], corners[1], corners[2], texture);
    } else {
      CoverFace(face, points, area[f], cover);
      for (std::size_t t = 0; t + 2 < cover.size(); t += 3)
        raster.DrawTriangle(corners[cover[t]], corners[cover[t + 1]], corners[cover[t + 2]],
                            texture);
    }
    if (m_options.wire)
      for (int k = 0; k < count; ++k) {
        RasterVertex a = corners[k], b = corners[(k + 1) % count];
        a.r = a.g = a.b = wire;
        raster.DrawLine(a, b, thickness, m_lineBias);
      }
  }
}

} // namespace meshcore::render
