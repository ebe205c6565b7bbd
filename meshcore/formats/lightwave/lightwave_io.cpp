#include "meshcore/formats/lightwave/lightwave_io.h"

#include "meshcore/formats/lightwave/lwo_reader.h"
#include "meshcore/io/cancel.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/io/file_info.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_file.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/platform/mapped_file.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/patch_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstring>
#include <new>

namespace meshcore {

namespace {

constexpr std::uint32_t kNodeHidden = 1; // node flag of hidden layers
constexpr std::uint32_t kFaceSkipped = 0x44;
constexpr unsigned kMaxReadChunk = 1u << 30;

// Layer parent as the reader orders layers: absent reads as 0, 0xFFFF (what
// writers put for "no parent") as -1, so that root layers come first.
int ParentKey(const st_lwLayer& layer) {
  if (!layer.hasParent)
    return 0;
  return layer.parent == 0xFFFF ? -1 : int(layer.parent);
}

std::uint8_t ColorByte(float v) {
  if (!(v > 0.0f))
    return 0;
  if (v >= 1.0f)
    return 255;
  return std::uint8_t(std::lround(v * 255.0f));
}

// The control mesh of a patch, when patches keep one apart from their result.
template <class P> C3DBaseObject* PatchSource(P* patch) {
  if constexpr (requires { patch->GetSourceObject(); })
    return patch->GetSourceObject();
  else
    return nullptr;
}

// The vertex maps of one kind in a layer, grouped by name (a name may have a
// per-point map and several per-polygon ones).
struct NamedMaps {
  std::string name;
  const st_lwVMap* perPoint = nullptr;
  std::vector<const st_lwVMap*> perPolygon;
  std::vector<std::int32_t> entryPoint; // per-point entry -> channel point, built lazily
};

std::vector<NamedMaps> CollectMaps(const st_lwLayer& layer, bool colours) {
  std::vector<NamedMaps> maps;
  for (const auto& vmap : layer.vmaps) {
    bool wanted =
        colours ? (vmap.type == lwid::RGB_ || vmap.type == lwid::RGBA) : vmap.type == lwid::TXUV;
    if (!wanted || vmap.dimension == 0)
      continue;
    auto it = std::find_if(maps.begin(), maps.end(),
                           [&](const NamedMaps& m) { return m.name == vmap.name; });
    if (it == maps.end()) {
      maps.push_back({vmap.name, nullptr, {}, {}});
      it = maps.end() - 1;
    }
    if (vmap.perPolygon)
      it->perPolygon.push_back(&vmap);
    else if (!it->perPoint)
      it->perPoint = &vmap;
  }
  return maps;
}

// Values of a channel point: uv(w) or rgba, in the channel's own units.
struct Value {
  float v[4] = {0, 0, 0, 0};
  bool operator==(const Value& o) const { return std::memcmp(v, o.v, sizeof v) == 0; }
};

struct PointValueKey {
  std::uint32_t point;
  std::uint32_t bits[4];
  bool operator==(const PointValueKey& o) const {
    return point == o.point && std::memcmp(bits, o.bits, sizeof bits) == 0;
  }
};
struct PointValueHash {
  std::size_t operator()(const PointValueKey& k) const {
    std::size_t h = k.point * 0x9E3779B97F4A7C15ull;
    for (auto b : k.bits)
      h = (h ^ b) * 0x100000001B3ull;
    return h;
  }
};

// Builds the channel points and the corner -> channel point table of one run
// of polygons. Per-polygon values override per-point ones; the maps named by
// the polygon's surface come first, then the layer's other maps of the kind.
class ChannelBuilder {
public:
  ChannelBuilder(const st_lwLayer& layer, std::vector<NamedMaps>& maps,
                 const std::vector<std::string>& surfaceMap, bool colours)
      : layer_(layer), maps_(maps), surfaceMap_(surfaceMap), colours_(colours) {
    // The usual case, one per-point map, takes a short path.
    if (maps_.size() == 1 && maps_[0].perPolygon.empty() && maps_[0].perPoint) {
      single_ = &maps_[0];
      single_->entryPoint.assign(single_->perPoint->EntryCount(), -1);
      values_.reserve(single_->perPoint->EntryCount() + 1);
    }
  }

  // Channel point of corner k (file order) of polygon p.
  std::int32_t Corner(std::size_t p, unsigned k) {
    const st_lwPolygon& poly = layer_.polygons[p];
    const std::uint32_t point = layer_.Vertices(poly)[k];
    if (single_) {
      std::int32_t e = single_->perPoint->attached[point];
      if (e >= 0) {
        std::int32_t& id = single_->entryPoint[std::size_t(e)];
        if (id < 0) {
          found_ = true;
          id = std::int32_t(values_.size());
          values_.push_back(Convert(*single_->perPoint, std::size_t(e)));
        }
        return id;
      }
      return None();
    }
    for (int m : Order(poly.surface)) {
      NamedMaps& named = maps_[std::size_t(m)];
      for (const st_lwVMap* vmad : named.perPolygon) {
        std::int32_t e = vmad->attached[std::size_t(poly.firstVertex) + k];
        if (e >= 0)
          return FromPolygon(named, point, Convert(*vmad, std::size_t(e)));
      }
      if (named.perPoint) {
        std::int32_t e = named.perPoint->attached[point];
        if (e >= 0)
          return FromPoint(named, std::size_t(e));
      }
    }
    return None();
  }

  bool FoundAny() const { return found_; }
  const std::vector<Value>& Values() const { return values_; }

private:
  std::int32_t None() {
    if (none_ < 0) {
      none_ = std::int32_t(values_.size());
      values_.push_back(Default());
    }
    return none_;
  }
  Value Default() const {
    Value v;
    if (colours_)
      v.v[3] = 1.0f;
    return v;
  }
  Value Convert(const st_lwVMap& map, std::size_t entry) const {
    const float* src = map.Value(entry);
    Value v = Default();
    std::uint32_t n = std::min<std::uint32_t>(map.dimension, colours_ ? 4 : 3);
    for (std::uint32_t i = 0; i < n; ++i)
      v.v[i] = src[i];
    if (!colours_)
      v.v[1] = -v.v[1]; // Lightwave's v runs the other way
    return v;
  }
  std::int32_t FromPoint(NamedMaps& named, std::size_t entry) {
    found_ = true;
    if (named.entryPoint.empty())
      named.entryPoint.assign(named.perPoint->EntryCount(), -1);
    std::int32_t& id = named.entryPoint[entry];
    if (id < 0) {
      id = std::int32_t(values_.size());
      values_.push_back(Convert(*named.perPoint, entry));
    }
    return id;
  }
  std::int32_t FromPolygon(NamedMaps& named, std::uint32_t point, const Value& value) {
    found_ = true;
    // The same value as the point's own shares its channel point.
    if (named.perPoint) {
      std::int32_t e = named.perPoint->attached[point];
      if (e >= 0 && Convert(*named.perPoint, std::size_t(e)) == value)
        return FromPoint(named, std::size_t(e));
    }
    PointValueKey key{point, {}};
    std::memcpy(key.bits, value.v, sizeof key.bits);
    auto [it, inserted] = byValue_.try_emplace(key, std::int32_t(values_.size()));
    if (inserted)
      values_.push_back(value);
    return it->second;
  }
  const std::vector<int>& Order(std::uint32_t surface) {
    std::size_t key = surface < surfaceMap_.size() ? surface : surfaceMap_.size();
    if (orders_.size() <= key)
      orders_.resize(key + 1);
    auto& order = orders_[key];
    if (order.empty()) {
      const std::string* own = key < surfaceMap_.size() ? &surfaceMap_[key] : nullptr;
      for (std::size_t m = 0; m < maps_.size(); ++m)
        if (own && !own->empty() && maps_[m].name == *own)
          order.push_back(int(m));
      for (std::size_t m = 0; m < maps_.size(); ++m)
        if (!own || own->empty() || maps_[m].name != *own)
          order.push_back(int(m));
    }
    return order;
  }

  const st_lwLayer& layer_;
  std::vector<NamedMaps>& maps_;
  const std::vector<std::string>& surfaceMap_;
  bool colours_;
  std::vector<Value> values_;
  std::unordered_map<PointValueKey, std::int32_t, PointValueHash> byValue_;
  std::vector<std::vector<int>> orders_;
  std::int32_t none_ = -1;
  bool found_ = false;
  NamedMaps* single_ = nullptr;
};

// Fills a channel face list parallel to the mesh faces of the run.
template <class FaceList, class Builder>
void FillChannelFaces(FaceList& faces, const st_lwLayer& layer, std::size_t first, std::size_t end,
                      Builder& builder) {
  int f = 0;
  for (std::size_t p = first; p < end; ++p) {
    const st_lwPolygon& poly = layer.polygons[p];
    if (poly.vertexCount < 3)
      continue;
    auto& face = faces[f++];
    face.SetSize(poly.vertexCount);
    int* idx = face.GetData();
    for (unsigned k = 0; k < poly.vertexCount; ++k)
      idx[k] = builder.Corner(p, poly.vertexCount - 1 - k);
  }
}

// The usual texture map, one per-point map giving every point of the run a
// value: texture points then come in the order the faces first use the mesh
// points, so the texture faces repeat the mesh faces and point i takes the
// value of mesh point i (runPoints: mesh point -> layer point). False when the maps are of any
// other shape.
bool FillWholeUVWMap(const std::vector<NamedMaps>& maps,
                     const std::vector<std::uint32_t>& runPoints, const C3DFaceList& mesh,
                     CUVWFaceList& faces, CUVWPointList& points) {
  if (maps.size() != 1 || !maps[0].perPolygon.empty() || !maps[0].perPoint)
    return false;
  const st_lwVMap& map = *maps[0].perPoint;
  for (std::uint32_t lp : runPoints)
    if (map.attached[lp] < 0)
      return false;
  const int n = mesh.GetSize();
  faces.SetSize(n);
  for (int f = 0; f < n; ++f) {
    const C3DFace& from = mesh[f];
    CUVWFace& to = faces[f];
    to.SetSize(from.GetSize());
    std::memcpy(to.GetData(), from.GetData(), sizeof(int) * std::size_t(from.GetSize()));
  }
  points.SetSize(int(runPoints.size()));
  CUVWPoint* out = points.GetFirst();
  const std::uint32_t dimension = std::min<std::uint32_t>(map.dimension, 3);
  for (std::size_t i = 0; i < runPoints.size(); ++i) {
    const float* src = map.Value(std::size_t(map.attached[runPoints[i]]));
    float v[3] = {0, 0, 0};
    for (std::uint32_t k = 0; k < dimension; ++k)
      v[k] = src[k];
    out[i].SetUV(v[0], -v[1], v[2]); // Lightwave's v runs the other way
  }
  return true;
}

} // namespace

void RegisterLightwaveCodec() {
  fileRegisterCodec(fileMakeClassCode("LIGT"), [](CFileIo& owner) -> std::unique_ptr<C3DParser> {
    return std::make_unique<CLightwaveIo>(owner);
  });
}

CLightwaveIo::CLightwaveIo(CFileIo& owner) : C3DParser(owner) {}
CLightwaveIo::~CLightwaveIo() = default;

void CLightwaveIo::ResetReadState() {
  m_surfaceMaterial.assign(m_object ? m_object->surfaces.size() : 0, -1);
  m_surfaceUVMap.assign(m_object ? m_object->surfaces.size() : 0, std::string());
  m_materialNames.clear();
  m_layerGroups.clear();
  m_pointRemap.clear();
  m_activeLayer = nullptr;
}

// ---------------------------------------------------------------------------
// Reading

C3DScene* CLightwaveIo::Read(const std::string& name, unsigned flags) {
  {
    // Mapped, the file is parsed straight from the page cache; otherwise it is read.
    CMappedFile mapped;
    if (mapped.Open(name) && mapped.GetSize() >= 12 &&
        std::uint64_t(mapped.GetSize()) <= 0xFFFFFFFFull + 8) {
      LwLoadOptions options;
      options.polygonNormals = options.pointPolygons = options.vertexNormals = false;
      options.shouldCancel = &ShouldCancel;
      m_object = LoadLightwaveObject(mapped.GetData(), mapped.GetSize(), options);
      mapped.Close(); // keep the peak down
      return BuildScene(flags);
    }
  }
  std::unique_ptr<std::uint8_t[]> bytes;
  std::size_t size = 0;
  {
    IoFile file(IsSilentMode(), 0);
    if (!file.OpenFile(name, 1)) {
      SetIoError(IO_FILE_BAD_FORMAT);
      return nullptr;
    }
    std::uint64_t length = file.FileGetLength();
    // A form size is 32 bits: nothing longer is a Lightwave object.
    if (length < 12 || length > 0xFFFFFFFFull + 8) {
      file.CloseFile();
      SetIoError(IO_FILE_BAD_FORMAT);
      return nullptr;
    }
    size = std::size_t(length);
    bytes.reset(new (std::nothrow) std::uint8_t[size]);
    bool ok = bytes != nullptr;
    for (std::size_t done = 0; ok && done < size;) {
      unsigned n = unsigned(std::min<std::size_t>(size - done, kMaxReadChunk));
      ok = file.FileRead(bytes.get() + done, n) != 0;
      done += n;
    }
    file.CloseFile();
    if (!ok) {
      SetIoError(IO_FILE_BAD_FORMAT);
      return nullptr;
    }
  }
  LwLoadOptions options;
  options.polygonNormals = options.pointPolygons = options.vertexNormals = false;
  options.shouldCancel = &ShouldCancel;
  m_object = LoadLightwaveObject(bytes.get(), size, options);
  bytes.reset(); // the file is no longer needed: keep the peak down
  return BuildScene(flags);
}

C3DScene* CLightwaveIo::ReadFromMemory(const void* data, std::size_t size, unsigned flags) {
  LwLoadOptions options;
  options.polygonNormals = options.pointPolygons = options.vertexNormals = false;
  options.shouldCancel = &ShouldCancel;
  m_object = LoadLightwaveObject(data, size, options);
  return BuildScene(flags);
}

C3DScene* CLightwaveIo::BuildScene(unsigned flags) {
  if (!m_object) {
    SetIoError(IO_FILE_BAD_FORMAT);
    return nullptr;
  }
  if (ShouldCancel()) {
    m_object.reset();
    SetIoError(IO_FILE_CANCELLED);
    return nullptr;
  }
  std::unique_ptr<C3DScene> scene;
  try {
    scene = std::make_unique<C3DScene>();
    m_scene = scene.get();
    ResetReadState();
    std::vector<const st_lwLayer*> layers;
    for (const auto& layer : m_object->layers)
      layers.push_back(&layer);
    std::stable_sort(layers.begin(), layers.end(), [](const st_lwLayer* a, const st_lwLayer* b) {
      return ParentKey(*a) < ParentKey(*b);
    });
    for (const st_lwLayer* layer : layers) {
      if (ShouldCancel()) {
        m_object.reset();
        m_scene = nullptr;
        SetIoError(IO_FILE_CANCELLED);
        return nullptr;
      }
      if (!layer->points.empty() && !layer->polygons.empty())
        ConvertLayer(*layer);
    }
  } catch (const std::bad_alloc&) {
    m_object.reset();
    m_scene = nullptr;
    SetIoError(IO_FILE_BAD_FORMAT);
    return nullptr;
  }
  m_object.reset();
  m_activeLayer = nullptr;
  m_scene = nullptr;
  scene->CheckoutImport(int(flags));
  if (scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return nullptr;
  }
  return scene.release();
}

void CLightwaveIo::ConvertLayer(const st_lwLayer& layer) {
  m_activeLayer = &layer;
  m_pointRemap.assign(layer.points.size(), -1);
  const std::size_t n = layer.polygons.size();
  for (std::size_t i = 0; i < n;) {
    const std::uint32_t type = layer.polygons[i].type;
    std::size_t j = i + 1;
    while (j < n && layer.polygons[j].type == type)
      ++j;
    if (type == lwid::CURV) {
      for (std::size_t k = i; k < j; ++k)
        if (layer.polygons[k].vertexCount >= 3)
          ConvertCurve(layer, layer.polygons[k]);
    } else {
      ConvertRun(layer, i, j);
    }
    i = j;
  }
}

void CLightwaveIo::ConvertCurve(const st_lwLayer& layer, const st_lwPolygon& poly) {
  auto curve = std::make_unique<C3DCurve>();
  auto points = std::make_unique<C3DPointList>();
  points->SetSize(poly.vertexCount);
  const std::uint32_t* v = layer.Vertices(poly);
  C3DPoint* out = points->GetFirst();
  for (unsigned k = 0; k < poly.vertexCount; ++k) {
    const float* p = layer.points[v[k]].pos;
    out[k].x = p[0];
    out[k].y = p[1];
    out[k].z = p[2];
  }
  curve->SetPointList(points.release());
  curve->SetMaterialID(GetMaterial(curve.get(), poly.surface));
  CreateNode(m_scene, curve.release(), layer);
}

void CLightwaveIo::ConvertRun(const st_lwLayer& layer, std::size_t first, std::size_t end) {
  // Faces and the distinct surfaces (first-use order) in one pass over the run.
  std::size_t faceCount = 0;
  const std::size_t surfaceCount = m_surfaceMaterial.size();
  std::vector<bool> seen(surfaceCount + 1, false);
  m_runSurfaces.clear();
  for (std::size_t p = first; p < end; ++p) {
    const st_lwPolygon& poly = layer.polygons[p];
    if (poly.vertexCount >= 3)
      ++faceCount;
    const std::size_t key = poly.surface < surfaceCount ? poly.surface : surfaceCount;
    if (!seen[key]) {
      seen[key] = true;
      m_runSurfaces.push_back(poly.surface);
    }
  }
  if (faceCount == 0 || faceCount > std::size_t(INT_MAX))
    return;

  std::unique_ptr<C3DBaseObject> object;
  if (layer.polygons[first].type == lwid::FACE)
    object = std::make_unique<C3DObject>();
  else
    object = std::make_unique<C3DPatch>();

  // Faces run the other way round from Lightwave polygons; points are
  // renumbered in the order the faces first use them.
  auto faces = std::make_unique<C3DFaceList>();
  faces->SetSize(int(faceCount));
  std::vector<std::uint32_t> order; // object point -> layer point
  order.reserve(std::min(layer.points.size(), (end - first) * 4));
  int f = 0;
  for (std::size_t p = first; p < end; ++p) {
    const st_lwPolygon& poly = layer.polygons[p];
    if (poly.vertexCount < 3)
      continue;
    C3DFace& face = (*faces)[f++];
    face.SetSize(poly.vertexCount);
    int* idx = face.GetData();
    const std::uint32_t* v = layer.Vertices(poly);
    for (unsigned k = 0; k < poly.vertexCount; ++k) {
      std::uint32_t lp = v[poly.vertexCount - 1 - k];
      std::int32_t& mapped = m_pointRemap[lp];
      if (mapped < 0) {
        mapped = std::int32_t(order.size());
        order.push_back(lp);
      }
      idx[k] = mapped;
    }
    // Surfaces already converted are looked up without the call.
    const std::uint32_t s = poly.surface;
    face.SetMaterialID(s < m_surfaceMaterial.size() && m_surfaceMaterial[s] >= 0
                           ? unsigned(m_surfaceMaterial[s])
                           : GetMaterial(object.get(), s));
  }
  m_runPoints = std::move(order);

  auto points = std::make_unique<C3DPointList>();
  points->SetSize(int(m_runPoints.size()));
  C3DPoint* out = points->GetFirst();
  for (std::size_t i = 0; i < m_runPoints.size(); ++i) {
    const float* p = layer.points[m_runPoints[i]].pos;
    out[i].x = p[0];
    out[i].y = p[1];
    out[i].z = p[2];
  }
  object->SetPointList(points.release());
  object->SetFaceList(faces.release());
  CreateUVWChannel(object.get(), layer, first, end, int(faceCount));
  CreateVCChannel(object.get(), layer, first, end, int(faceCount));
  for (std::uint32_t lp : m_runPoints)
    m_pointRemap[lp] = -1;
  m_runPoints.clear();
  CreateNode(m_scene, object.release(), layer);
}

unsigned CLightwaveIo::GetMaterial(C3DBaseObject*, std::uint32_t surface) {
  if (surface >= m_surfaceMaterial.size())
    return m_scene->GetMaterial(0)->GetMaterialID();
  if (m_surfaceMaterial[surface] >= 0)
    return unsigned(m_surfaceMaterial[surface]);
  const st_lwSurface& s = m_object->surfaces[surface];
  C3DMaterial* material = m_scene->CreateNewMaterial();
  if (!s.source.empty()) {
    unsigned source = m_scene->GetMaterialID(s.source);
    if (source != 0xFFFFFFFFu)
      if (C3DMaterial* from = m_scene->GetMaterial(source); from && from != material)
        *material = *from;
  }

  const _lwChannelInfo* channel = s.FindChannel(lwid::COLR);
  if (!channel || channel->blocks.empty())
    channel = s.FindChannel(lwid::DIFF);
  if (channel)
    for (const auto& block : channel->blocks) {
      if (block.type != lwid::IMAP)
        continue;
      const st_lwClip* clip = m_object->FindClip(block.clip);
      if (!clip || clip->type != lwid::STIL || clip->fileName.empty())
        continue;
      if (!block.vmapName.empty() && m_surfaceUVMap[surface].empty())
        m_surfaceUVMap[surface] = block.vmapName;
      CFileInfo file(LwClipNameToLocal(clip->fileName));
      material->AddMaterialMap(file.GetCompleteName(), kNoChannel, MAP_DIFFUSE);
    }

  std::string name = s.name;
  for (int attempt = 1; attempt <= 100 && m_materialNames.count(name); ++attempt)
    name = s.name + std::to_string(attempt);
  m_materialNames.insert(name);
  material->SetName(name);

  CRGBColor colour(ColorByte(s.color[0]), ColorByte(s.color[1]), ColorByte(s.color[2]), 255);
  material->SetDiffuseColor(colour);
  material->SetAmbientColor(colour);
  material->SetDiffuseFactor(s.diffuse);
  material->SetAmbientFactor(s.luminosity);
  material->SetSpecularFactor(s.specular);
  material->SetTransparencyFactor(s.transparency);
  material->SetSmoothAngle(s.smoothingAngle);
  m_surfaceMaterial[surface] = material->GetMaterialID();
  return material->GetMaterialID();
}

void CLightwaveIo::CreateUVWChannel(C3DBaseObject* object, const st_lwLayer& layer,
                                    std::size_t first, std::size_t end, int faceCount) {
  auto maps = CollectMaps(layer, false);
  if (maps.empty())
    return;
  auto channel = std::make_unique<CUVWChannel>();
  CUVWFaceList& faces = *channel->GetUVWFaceList();
  CUVWPointList& points = *channel->GetUVWPointList();
  if (!FillWholeUVWMap(maps, m_runPoints, *object->GetFaceList(), faces, points)) {
    ChannelBuilder builder(layer, maps, m_surfaceUVMap, false);
    faces.SetSize(faceCount);
    FillChannelFaces(faces, layer, first, end, builder);
    if (!builder.FoundAny())
      return;
    const auto& values = builder.Values();
    points.SetSize(int(values.size()));
    for (std::size_t i = 0; i < values.size(); ++i)
      points[int(i)].SetUV(values[i].v[0], values[i].v[1], values[i].v[2]);
  }

  const unsigned id = channel->GetID();
  object->AddChannel(channel.release());
  if (object->GetGlobalUVWChannel() == kNoChannel)
    object->SetGlobalUVWChannel(id);
  // Image maps of the run's materials are placed by this channel.
  for (std::uint32_t s : m_runSurfaces) {
    if (s < m_surfaceMaterial.size() && m_surfaceMaterial[s] >= 0)
      if (C3DMaterial* m = m_scene->GetMaterial(unsigned(m_surfaceMaterial[s])))
        if (CMaterialMap* map = m->GetDiffuseMaps(); map && map->GetChannelID() == kNoChannel)
          map->SetChannelID(id);
  }
}

void CLightwaveIo::CreateVCChannel(C3DBaseObject* object, const st_lwLayer& layer,
                                   std::size_t first, std::size_t end, int faceCount) {
  auto maps = CollectMaps(layer, true);
  if (maps.empty())
    return;
  std::vector<std::string> surfaceMaps(m_object->surfaces.size());
  for (std::size_t s = 0; s < surfaceMaps.size(); ++s)
    surfaceMaps[s] = m_object->surfaces[s].vcolName;
  ChannelBuilder builder(layer, maps, surfaceMaps, true);
  auto channel = std::make_unique<CVCChannel>();
  CVCFaceList& faces = *channel->GetVCFaceList();
  faces.SetSize(faceCount);
  FillChannelFaces(faces, layer, first, end, builder);
  if (!builder.FoundAny())
    return;
  CVCPointList& points = *channel->GetVCPointList();
  const auto& values = builder.Values();
  points.SetSize(int(values.size()));
  for (std::size_t i = 0; i < values.size(); ++i) {
    const float* v = values[i].v;
    points[int(i)].SetColor(
        CRGBColor(ColorByte(v[0]), ColorByte(v[1]), ColorByte(v[2]), ColorByte(v[3])));
  }
  const unsigned id = channel->GetID();
  object->AddChannel(channel.release());
  // Materials whose surface asks for vertex colours are coloured by this channel.
  for (std::uint32_t s : m_runSurfaces) {
    if (s >= m_surfaceMaterial.size() || m_surfaceMaterial[s] < 0 ||
        m_object->surfaces[s].vcolName.empty())
      continue;
    if (C3DMaterial* m = m_scene->GetMaterial(unsigned(m_surfaceMaterial[s]))) {
      float factor;
      if (m->GetVertexColor(factor) == kNoChannel)
        m->SetVertexColor(id, m_object->surfaces[s].vcolIntensity);
    }
  }
}

C3DSceneNode* CLightwaveIo::CreateNode(C3DScene* scene, C3DBaseObject* object,
                                       const st_lwLayer& layer) {
  CCustomData record;
  record.SetInt(kCustomLayerNumber, int(layer.number) + 1);

  C3DSceneNode*& group = m_layerGroups[layer.number];
  if (!group) {
    group = new C3DSceneNode(new C3DGroup, 1);
    group->SetName(layer.name.empty() ? "Layer " + std::to_string(layer.number) : layer.name);
    group->GetCustomData().SetCustomData(kCustomLightwave, record);
    if (layer.flags & 1)
      group->SetFlag(kNodeHidden, 1);
    C3DSceneNode* parent = nullptr;
    int parentNumber = ParentKey(layer);
    if (parentNumber > 0) {
      auto it = m_layerGroups.find(std::uint32_t(parentNumber));
      if (it != m_layerGroups.end() && it->second && it->second != group)
        parent = it->second;
    }
    scene->AddNode(parent, group);
  }
  auto* node = new C3DSceneNode(object, 1);
  node->SetName(group->GetName());
  node->GetCustomData().SetCustomData(kCustomLightwave, record);
  scene->AddNode(group, node);
  return node;
}

// ---------------------------------------------------------------------------
// Writing

struct CLightwaveIo::Layout {
  struct Layer {
    std::string name;
    unsigned flags = 0;
    int parent = -1;
    unsigned number = 0;
    std::vector<C3DSceneNode*> nodes;
  };
  std::vector<Layer> layers;
  std::unordered_map<C3DSceneNode*, unsigned> layerOf;
};

void CLightwaveIo::ResetWriteState() {
  m_layerCounter = 1;
  m_vmapCounter = 0;
  m_materialTag.clear();
  m_fallbackTag = kLwNone;
  m_channelMapName.clear();
  m_materialMapName.clear();
  m_clipIndex.clear();
  m_materialClip.clear();
  m_saveFailed = false;
}

int CLightwaveIo::Save(const std::string& name, C3DScene* scene, unsigned flags) {
  if (!scene || scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  std::vector<std::uint8_t> bytes;
  if (!SaveToMemory(scene, flags, bytes))
    return 0;
  IoFile file(IsSilentMode(), 0);
  if (!file.OpenFile(name, 0)) {
    SetIoError(IO_FILE_CANT_OPEN);
    return 0;
  }
  for (std::size_t done = 0; done < bytes.size();) {
    unsigned n = unsigned(std::min<std::size_t>(bytes.size() - done, kMaxReadChunk));
    file.FileWrite(bytes.data() + done, n);
    done += n;
  }
  file.CloseFile();
  if (int cause = file.GetWriteError()) {
    SetIoError(cause == 13 ? IO_FILE_DISK_FULL : IO_FILE_CANT_OPEN);
    return 0;
  }
  return 1;
}

int CLightwaveIo::SaveToMemory(C3DScene* scene, unsigned flags, std::vector<std::uint8_t>& out) {
  if (!scene) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  int changed = 0;
  C3DScene* exported = scene->InitExport(int(flags), changed);
  CLwoWriter writer;
  int result = SaveLightwave6(writer, exported);
  exported->ReleaseExport(exported, exported != scene);
  if (result)
    out = std::move(writer.GetBuffer());
  return result;
}

// Layers are planned in the order the scene's nodes were created (siblings
// list newest first, so they are walked backwards): reading the file back
// then rebuilds the same tree. The object nodes of a Lightwave layer group
// share one layer, as they did in the file they came from.
void CLightwaveIo::PlanLayers(C3DSceneNode* parent, int parentLayer, Layout& layout) {
  std::vector<C3DSceneNode*> children;
  for (CTreeNode* c = parent ? parent->GetChild() : m_saveScene->GetRoot()->GetChild(); c;
       c = c->GetRight())
    children.push_back(static_cast<C3DSceneNode*>(c));
  std::reverse(children.begin(), children.end());

  auto eligible = [](C3DSceneNode* node) {
    C3DBaseObject* object = node->GetBaseObject();
    return object && !node->IsFlagSet(kNodeHidden) && !object->IsFlagSet(OBJECT_EMPTY) &&
           object->GetKindOf() != OBJECT_GROUP;
  };
  auto newLayer = [&](const std::string& name, unsigned flags) -> Layout::Layer& {
    Layout::Layer& layer = layout.layers.emplace_back();
    layer.name = name;
    layer.flags = flags;
    layer.parent = parentLayer;
    layer.number = m_layerCounter++;
    return layer;
  };

  for (C3DSceneNode* child : children) {
    C3DBaseObject* object = child->GetBaseObject();
    if (object && object->GetKindOf() == OBJECT_GROUP) {
      int groupLayer = parentLayer;
      if (child->GetCustomData().HasData(kCustomLightwave)) {
        std::vector<C3DSceneNode*> members;
        for (CTreeNode* c = child->GetChild(); c; c = c->GetRight()) {
          auto* member = static_cast<C3DSceneNode*>(c);
          if (eligible(member) && !layout.layerOf.count(member))
            members.push_back(member);
        }
        if (!members.empty()) {
          std::reverse(members.begin(), members.end());
          Layout::Layer& layer = newLayer(child->GetName(), child->IsFlagSet(kNodeHidden) ? 1 : 0);
          layer.nodes = members;
          groupLayer = int(layer.number);
          for (C3DSceneNode* member : members)
            layout.layerOf[member] = layer.number;
        }
      }
      PlanLayers(child, groupLayer, layout);
    } else if (auto it = layout.layerOf.find(child); it != layout.layerOf.end()) {
      PlanLayers(child, int(it->second), layout);
    } else if (eligible(child)) {
      Layout::Layer& layer = newLayer(child->GetName(), 0);
      layer.nodes.push_back(child);
      unsigned number = layer.number;
      layout.layerOf[child] = number;
      PlanLayers(child, int(number), layout);
    } else {
      PlanLayers(child, parentLayer, layout);
    }
  }
}

int CLightwaveIo::SaveLightwave6(CLwoWriter& file, C3DScene* scene) {
  if (!scene || scene->GetNodeNbr(0) == 0) {
    SetIoError(IO_FILE_EMPTY);
    return 0;
  }
  ResetWriteState();
  m_saveScene = scene;
  Layout layout;
  PlanLayers(nullptr, -1, layout);

  auto form = BeginWriteChunk(file, lwid::FORM, 1);
  file.WriteID(lwid::LWO2);

  // Faces whose material is not in the scene get a default surface.
  std::unordered_map<std::uint32_t, bool> known;
  for (MaterialPosition c = scene->GetFirstMaterial(); c;)
    known[scene->GetNextMaterial(c)->GetMaterialID()] = true;
  for (const auto& layer : layout.layers)
    for (C3DSceneNode* node : layer.nodes) {
      C3DBaseObject* object = node->GetBaseObject();
      C3DFaceList* faces = object->GetFaceList();
      if (object->GetKindOf() == OBJECT_CURVE) {
        if (!known.count(static_cast<C3DCurve*>(object)->GetMaterialID()))
          m_fallbackTag = 0;
      } else if (faces) {
        for (int i = 0; i < faces->GetSize() && m_fallbackTag == kLwNone; ++i)
          if (!known.count((*faces)[i].GetMaterialID()))
            m_fallbackTag = 0;
      }
    }
  SaveMaterialsNames6(file);
  SaveClips6(file);

  for (const auto& layer : layout.layers) {
    SaveLayer6(file, layer.number, layer.name, layer.flags,
               layer.parent < 0 ? 0xFFFF : unsigned(layer.parent));
    for (C3DSceneNode* node : layer.nodes) {
      C3DBaseObject* object = node->GetBaseObject();
      std::unique_ptr<C3DBaseObject> source;
      if (object->GetKindOf() == OBJECT_PATCH)
        if (C3DBaseObject* s = PatchSource(static_cast<C3DPatch*>(object)))
          source.reset(s);
      C3DBaseObject* written = source ? source.get() : object;
      if (!SaveObjects6(file, written, object->GetKindOf())) {
        m_saveFailed = true;
        break;
      }
      SaveUV6(file, written);
      SaveVC6(file, written);
    }
    if (m_saveFailed)
      break;
  }
  if (!m_saveFailed) {
    SaveMaterials6(file);
    EndWriteChunk(file, form, 1);
  }
  m_saveScene = nullptr;
  if (m_saveFailed || !file.IsValid()) {
    SetIoError(IO_FILE_CANT_SAVE_OPTIONS);
    return 0;
  }
  return 1;
}

std::uint32_t CLightwaveIo::TagOf(std::uint32_t materialID) {
  auto it = m_materialTag.find(materialID);
  return it != m_materialTag.end() ? it->second : m_fallbackTag;
}

void CLightwaveIo::SaveMaterialsNames6(CLwoWriter& file) {
  m_materialTag.clear();
  auto pos = BeginWriteChunk(file, lwid::TAGS, 1);
  std::uint32_t tag = 0;
  MaterialPosition cursor = m_saveScene->GetFirstMaterial();
  while (cursor) {
    C3DMaterial* material = m_saveScene->GetNextMaterial(cursor);
    WriteString(file, material->GetName());
    m_materialTag[material->GetMaterialID()] = tag++;
  }
  if (m_fallbackTag != kLwNone) {
    m_fallbackTag = tag;
    WriteString(file, "Default");
  }
  EndWriteChunk(file, pos, 1);
}

void CLightwaveIo::SaveClips6(CLwoWriter& file) {
  MaterialPosition cursor = m_saveScene->GetFirstMaterial();
  while (cursor) {
    C3DMaterial* material = m_saveScene->GetNextMaterial(cursor);
    CMaterialMap* map = material->GetDiffuseMaps();
    if (!map)
      continue;
    std::string name = LwLocalNameToClip(map->GetFileName());
    auto [it, inserted] = m_clipIndex.try_emplace(name, std::uint32_t(m_clipIndex.size()));
    m_materialClip[material->GetMaterialID()] = it->second;
    if (!inserted)
      continue;
    auto pos = BeginWriteChunk(file, lwid::CLIP, 1);
    file.WriteU4(it->second);
    auto stil = BeginWriteChunk(file, lwid::STIL, 0);
    WriteString(file, name);
    EndWriteChunk(file, stil, 0);
    EndWriteChunk(file, pos, 1);
  }
}

void CLightwaveIo::SaveLayer6(CLwoWriter& file, unsigned number, const std::string& name,
                              unsigned flags, unsigned parent) {
  auto pos = BeginWriteChunk(file, lwid::LAYR, 1);
  file.WriteU2(std::uint16_t(number));
  file.WriteU2(std::uint16_t(flags));
  for (int i = 0; i < 3; ++i)
    file.WriteF4(0.0f);
  WriteString(file, name);
  file.WriteU2(std::uint16_t(parent));
  EndWriteChunk(file, pos, 1);
}

bool CLightwaveIo::SaveObjects6(CLwoWriter& file, C3DBaseObject* object, std::uint32_t kind) {
  C3DPointList* points = object->GetPointList();
  const int pointCount = points ? points->GetSize() : 0;
  if (pointCount > 0) {
    if (pointCount > 0x01000000)
      return false;
    auto pos = BeginWriteChunk(file, lwid::PNTS, 1);
    std::uint8_t* p = file.Extend(std::size_t(pointCount) * 12);
    const C3DPoint* pt = points->GetFirst();
    for (int i = 0; i < pointCount; ++i, p += 12) {
      float xyz[3] = {pt[i].x, pt[i].y, pt[i].z};
      for (int k = 0; k < 3; ++k) {
        std::uint32_t u = std::bit_cast<std::uint32_t>(xyz[k]);
        p[4 * k] = std::uint8_t(u >> 24);
        p[4 * k + 1] = std::uint8_t(u >> 16);
        p[4 * k + 2] = std::uint8_t(u >> 8);
        p[4 * k + 3] = std::uint8_t(u);
      }
    }
    EndWriteChunk(file, pos, 1);
  }

  if (object->GetKindOf() == OBJECT_CURVE) {
    if (pointCount == 0)
      return true;
    if (pointCount > 0x3FF)
      return false;
    auto pos = BeginWriteChunk(file, lwid::POLS, 1);
    file.WriteID(lwid::CURV);
    file.WriteU2(std::uint16_t(pointCount));
    for (int i = 0; i < pointCount; ++i)
      WriteVXChunk(file, std::uint32_t(i));
    EndWriteChunk(file, pos, 1);
    auto ptag = BeginWriteChunk(file, lwid::PTAG, 1);
    file.WriteID(lwid::SURF);
    WriteVXChunk(file, 0);
    file.WriteU2(std::uint16_t(TagOf(static_cast<C3DCurve*>(object)->GetMaterialID())));
    EndWriteChunk(file, ptag, 1);
    return true;
  }

  C3DFaceList* faces = object->GetFaceList();
  if (!faces || faces->GetSize() == 0)
    return true;
  const int faceCount = faces->GetSize();
  if (faceCount > 0x01000000)
    return false;
  auto pos = BeginWriteChunk(file, lwid::POLS, 1);
  file.WriteID(kind == OBJECT_PATCH ? lwid::PACH : lwid::FACE);
  for (int i = 0; i < faceCount; ++i) {
    const C3DFace& face = (*faces)[i];
    const int n = face.GetSize();
    if (n > 0x3FF)
      return false;
    file.WriteU2(std::uint16_t(n));
    const int* idx = face.GetData();
    for (int k = n - 1; k >= 0; --k) {
      if (idx[k] < 0 || idx[k] >= pointCount)
        return false;
      WriteVXChunk(file, std::uint32_t(idx[k]));
    }
  }
  EndWriteChunk(file, pos, 1);

  auto ptag = BeginWriteChunk(file, lwid::PTAG, 1);
  file.WriteID(lwid::SURF);
  for (int i = 0; i < faceCount; ++i) {
    WriteVXChunk(file, std::uint32_t(i));
    file.WriteU2(std::uint16_t(TagOf((*faces)[i].GetMaterialID())));
  }
  EndWriteChunk(file, ptag, 1);
  return true;
}

void CLightwaveIo::SaveUV6(CLwoWriter& file, C3DBaseObject* object) {
  CDependentChannels* channels = object->GetChannels();
  C3DFaceList* faces = object->GetFaceList();
  if (!channels || !faces)
    return;
  bool globalSeen = false;
  for (int c = 0; c < channels->GetSize(); ++c) {
    CChannel* channel = channels->GetChannel(c);
    if (!channel || channel->GetType() != CHANNEL_UVW)
      continue;
    auto* uvw = static_cast<CUVWChannel*>(channel);
    CUVWFaceList* chFaces = uvw->GetUVWFaceList();
    CUVWPointList* chPoints = uvw->GetUVWPointList();
    if (!chFaces || !chPoints)
      continue;
    std::string name = "UV Texture " + std::to_string(m_vmapCounter++);
    auto pos = BeginWriteChunk(file, lwid::VMAD, 1);
    file.WriteID(lwid::TXUV);
    file.WriteU2(2);
    WriteString(file, name);
    const int n = std::min(faces->GetSize(), chFaces->GetSize());
    for (int i = 0; i < n; ++i) {
      const CUVWFace& cf = (*chFaces)[i];
      if (cf.IsOneFlagSet(kFaceSkipped))
        continue;
      const C3DFace& mf = (*faces)[i];
      const int corners = std::min(cf.GetSize(), mf.GetSize());
      for (int k = 0; k < corners; ++k) {
        int t = cf[k];
        if (t < 0 || t >= chPoints->GetSize())
          continue;
        WriteVXChunk(file, std::uint32_t(mf[k]));
        WriteVXChunk(file, std::uint32_t(i));
        file.WriteF4((*chPoints)[t].u);
        file.WriteF4(-(*chPoints)[t].v);
      }
    }
    EndWriteChunk(file, pos, 1);
    m_channelMapName[channel->GetID()] = name;
    // The object's main texture channel places its materials' images.
    bool global = object->GetGlobalUVWChannel() == channel->GetID() ||
                  (object->GetGlobalUVWChannel() == kNoChannel && !globalSeen);
    globalSeen = true;
    if (global)
      for (int i = 0; i < faces->GetSize(); ++i)
        m_materialMapName.try_emplace((*faces)[i].GetMaterialID(), name);
  }
}

void CLightwaveIo::SaveVC6(CLwoWriter& file, C3DBaseObject* object) {
  CDependentChannels* channels = object->GetChannels();
  C3DFaceList* faces = object->GetFaceList();
  if (!channels || !faces)
    return;
  for (int c = 0; c < channels->GetSize(); ++c) {
    CChannel* channel = channels->GetChannel(c);
    if (!channel || channel->GetType() != CHANNEL_VC)
      continue;
    auto* vc = static_cast<CVCChannel*>(channel);
    CVCFaceList* chFaces = vc->GetVCFaceList();
    CVCPointList* chPoints = vc->GetVCPointList();
    if (!chFaces || !chPoints)
      continue;
    std::string name = "VC Texture " + std::to_string(m_vmapCounter++);
    auto pos = BeginWriteChunk(file, lwid::VMAD, 1);
    file.WriteID(lwid::RGBA);
    file.WriteU2(4);
    WriteString(file, name);
    const int n = std::min(faces->GetSize(), chFaces->GetSize());
    for (int i = 0; i < n; ++i) {
      const CVCFace& cf = (*chFaces)[i];
      if (cf.IsOneFlagSet(kFaceSkipped))
        continue;
      const C3DFace& mf = (*faces)[i];
      const int corners = std::min(cf.GetSize(), mf.GetSize());
      for (int k = 0; k < corners; ++k) {
        int t = cf[k];
        if (t < 0 || t >= chPoints->GetSize())
          continue;
        const CRGBColor& colour = (*chPoints)[t].GetColor();
        WriteVXChunk(file, std::uint32_t(mf[k]));
        WriteVXChunk(file, std::uint32_t(i));
        file.WriteF4(colour.r / 255.0f);
        file.WriteF4(colour.g / 255.0f);
        file.WriteF4(colour.b / 255.0f);
        file.WriteF4(colour.a / 255.0f);
      }
    }
    EndWriteChunk(file, pos, 1);
    m_channelMapName[channel->GetID()] = name;
  }
}

struct CLightwaveIo::SurfaceValues {
  std::string name;
  float colour[3] = {200.0f / 255.0f, 200.0f / 255.0f, 200.0f / 255.0f};
  float luminosity = 0.0f, diffuse = 1.0f, specular = 0.0f, transparency = 0.0f;
  float smoothing = 0.0f;
  bool image = false; // write an image block
  std::uint32_t clip = kLwNone;
  std::string uvMap;
  std::string vcMap; // vertex-colour map, empty for none
  float vcIntensity = 1.0f;
};

void CLightwaveIo::WriteSurface(CLwoWriter& file, const SurfaceValues& s) {
  auto pos = BeginWriteChunk(file, lwid::SURF, 1);
  WriteString(file, s.name);
  WriteString(file, "");
  WriteColorChunk(file, s.colour, lwid::COLR);
  WriteFloatEnvChunk(file, s.luminosity, lwid::LUMI);
  WriteFloatEnvChunk(file, s.diffuse, lwid::DIFF);
  WriteFloatEnvChunk(file, s.specular, lwid::SPEC);
  WriteFloatEnvChunk(file, s.transparency, lwid::TRAN);
  WriteFloatEnvChunk(file, s.smoothing, lwid::SMAN);
  WriteShortChunk(file, 3, lwid::SIDE);
  if (s.image) {
    auto blok = BeginWriteChunk(file, lwid::BLOK, 0);
    auto head = BeginWriteChunk(file, lwid::IMAP, 0);
    WriteString(file, GetOrdinalString(0, 0));
    auto chan = BeginWriteChunk(file, lwid::CHAN, 0);
    file.WriteID(lwid::COLR);
    EndWriteChunk(file, chan, 0);
    WriteShortChunk(file, 1, lwid::ENAB);
    auto opac = BeginWriteChunk(file, lwid::OPAC, 0);
    file.WriteU2(0);
    file.WriteF4(1.0f);
    WriteVXChunk(file, 0);
    EndWriteChunk(file, opac, 0);
    WriteShortChunk(file, 2, lwid::AXIS);
    EndWriteChunk(file, head, 0);
    WriteShortChunk(file, 5, lwid::PROJ); // UV projection
    if (s.clip != kLwNone) {
      auto imag = BeginWriteChunk(file, lwid::IMAG, 0);
      WriteVXChunk(file, s.clip);
      EndWriteChunk(file, imag, 0);
    }
    if (!s.uvMap.empty()) {
      auto vmap = BeginWriteChunk(file, lwid::VMAP, 0);
      WriteString(file, s.uvMap);
      EndWriteChunk(file, vmap, 0);
    }
    EndWriteChunk(file, blok, 0);
  }
  if (!s.vcMap.empty()) {
    auto vcol = BeginWriteChunk(file, lwid::VCOL, 0);
    file.WriteF4(s.vcIntensity);
    file.WriteU2(0);
    file.WriteID(lwid::RGBA);
    WriteString(file, s.vcMap);
    EndWriteChunk(file, vcol, 0);
  }
  EndWriteChunk(file, pos, 1);
}

void CLightwaveIo::SaveMaterials6(CLwoWriter& file) {
  for (MaterialPosition cursor = m_saveScene->GetFirstMaterial(); cursor;) {
    const C3DMaterial& material = *m_saveScene->GetNextMaterial(cursor);
    const std::uint32_t id = material.GetMaterialID();
    SurfaceValues s;
    s.name = material.GetName();
    const CRGBColor& c = material.GetDiffuseColor();
    s.colour[0] = c.r / 255.0f;
    s.colour[1] = c.g / 255.0f;
    s.colour[2] = c.b / 255.0f;
    s.luminosity = material.GetAmbientFactor();
    s.diffuse = material.GetDiffuseFactor();
    s.specular = material.GetSpecularFactor();
    s.transparency = material.GetTransparencyFactor();
    s.smoothing = material.GetSmoothAngle();
    if (CMaterialMap* map = material.GetDiffuseMaps()) {
      if (auto it = m_channelMapName.find(map->GetChannelID()); it != m_channelMapName.end())
        s.uvMap = it->second;
      else if (auto jt = m_materialMapName.find(id); jt != m_materialMapName.end())
        s.uvMap = jt->second;
      if (auto clip = m_materialClip.find(id); clip != m_materialClip.end())
        s.clip = clip->second;
      s.image = s.clip != kLwNone || !s.uvMap.empty();
    }
    float factor = 1.0f;
    unsigned vcChannel = material.GetVertexColor(factor);
    if (auto it = m_channelMapName.find(vcChannel);
        vcChannel != kNoChannel && it != m_channelMapName.end()) {
      s.vcMap = it->second;
      s.vcIntensity = factor;
    }
    WriteSurface(file, s);
  }
  if (m_fallbackTag != kLwNone) {
    SurfaceValues s;
    s.name = "Default";
    WriteSurface(file, s);
  }
}

} // namespace meshcore
