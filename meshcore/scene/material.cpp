#include "meshcore/scene/material.h"

#include "meshcore/scene/scene_settings.h"

#include <atomic>
#include <memory>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(C3DMaterial, CObject, 1)

namespace {
std::atomic<std::uint32_t> g_nextMaterialID{0};

// Ids handed out after a load must not collide with the ids read.
void RaiseMaterialCounter(std::uint32_t readID) {
  if (readID == 0xFFFFFFFFu)
    return; // the counter cannot go beyond; it wraps as every counter does
  std::uint32_t cur = g_nextMaterialID.load(std::memory_order_relaxed);
  while (readID >= cur &&
         !g_nextMaterialID.compare_exchange_weak(cur, readID + 1, std::memory_order_relaxed)) {
  }
}

constexpr float kRadToDeg = 180.0f / 3.1415927f;
} // namespace

C3DMaterial::C3DMaterial()
    : m_ambientColor(100, 100, 100, 255), m_diffuseColor(255, 255, 255, 255),
      m_specularColor(255, 255, 255, 255),
      m_materialID(g_nextMaterialID.fetch_add(1, std::memory_order_relaxed)) {}

C3DMaterial::~C3DMaterial() {
  delete m_ambientMaps;
  delete m_diffuseMaps;
  delete m_specularMaps;
  delete m_transparencyMaps;
}

unsigned C3DMaterial::PeekNextMaterialID() {
  return g_nextMaterialID.load(std::memory_order_relaxed);
}

void C3DMaterial::SetFlag(unsigned bits, int on) {
  if (on)
    m_flags |= bits;
  else
    m_flags &= ~bits;
}

void C3DMaterial::CopyColor(CRGBColor& dst, const CRGBColor& src) {
  for (int i = 0; i < 4; ++i)
    dst[i] = src[i];
}

void C3DMaterial::FloatColor(const CRGBColor& c, float factor, float out[4]) {
  for (int i = 0; i < 3; ++i)
    out[i] = static_cast<float>(c[i]) / 255.0f * factor;
  out[3] = static_cast<float>(c[3]) / 255.0f;
}

void C3DMaterial::FloatGetAmbientColor(float out[4]) const {
  FloatColor(m_ambientColor, m_ambientFactor, out);
}
void C3DMaterial::FloatGetDiffuseColor(float out[4]) const {
  FloatColor(m_diffuseColor, m_diffuseFactor, out);
}
void C3DMaterial::FloatGetSpecularColor(float out[4]) const {
  FloatColor(m_specularColor, m_specularFactor, out);
}

void C3DMaterial::SetSmoothAngle(float radians) {
  const float degrees = radians * kRadToDeg;
  if (degrees >= 0.0f && degrees <= 180.0f)
    m_smoothAngle = radians;
}

float C3DMaterial::GetSmoothAngle() const {
  return m_smoothAngle == -1.0f ? GetGlobalSmoothAngle() : m_smoothAngle;
}

void C3DMaterial::SetVertexColor(unsigned channel, float factor) {
  m_vertexColorChannel = channel;
  m_vertexColorFactor = factor;
}

unsigned C3DMaterial::GetVertexColor(float& factor) const {
  factor = m_vertexColorFactor;
  return m_vertexColorChannel;
}

CMaterialMap*& C3DMaterial::MapSlot(MapType type) {
  switch (type) {
  case MAP_AMBIENT:
    return m_ambientMaps;
  case MAP_SPECULAR:
    return m_specularMaps;
  case MAP_TRANSPARENCY:
    return m_transparencyMaps;
  default:
    return m_diffuseMaps;
  }
}

static bool IsKnownMapType(MapType type) {
  return type >= MAP_DIFFUSE && type <= MAP_TRANSPARENCY;
}

CMaterialMap* C3DMaterial::AddMaterialMap(const std::string& file, unsigned channel, MapType type) {
  if (!IsKnownMapType(type))
    return nullptr;
  CMaterialMap*& slot = MapSlot(type);
  if (!slot)
    slot = CMaterialMap::Create(file, channel, type);
  return slot;
}

CMaterialMap* C3DMaterial::GetMaterialMap(MapType type) const {
  switch (type) {
  case MAP_DIFFUSE:
    return m_diffuseMaps;
  case MAP_AMBIENT:
    return m_ambientMaps;
  case MAP_SPECULAR:
    return m_specularMaps;
  case MAP_TRANSPARENCY:
    return m_transparencyMaps;
  default:
    return nullptr;
  }
}

C3DMaterial& C3DMaterial::operator=(const C3DMaterial& other) {
  if (this == &other)
    return *this;
  m_name = other.m_name;
  CopyColor(m_ambientColor, other.m_ambientColor);
  CopyColor(m_diffuseColor, other.m_diffuseColor);
  CopyColor(m_specularColor, other.m_specularColor);
  m_ambientFactor = other.m_ambientFactor;
  m_diffuseFactor = other.m_diffuseFactor;
  m_specularFactor = other.m_specularFactor;
  m_transparencyFactor = other.m_transparencyFactor;
  m_vertexColorFactor = other.m_vertexColorFactor;
  m_vertexColorChannel = other.m_vertexColorChannel;
  m_smoothAngle = other.m_smoothAngle;
  for (MapType type : {MAP_DIFFUSE, MAP_AMBIENT, MAP_SPECULAR, MAP_TRANSPARENCY}) {
    const CMaterialMap* src = other.GetMaterialMap(type);
    if (!src)
      continue; // a role the source lacks keeps the target's map
    auto map = std::make_unique<CMaterialMap>();
    *map = *src;
    CMaterialMap*& slot = MapSlot(type);
    delete slot;
    slot = map.release();
  }
  return *this;
}

// Both null passes; otherwise the maps are compared by value and must then also
// be the same object.
static bool SameMapRole(const CMaterialMap* a, const CMaterialMap* b) {
  if (a && b && *a != *b)
    return false;
  return a == b;
}

bool C3DMaterial::HasSameParameters(const C3DMaterial& o) const {
  return m_ambientFactor == o.m_ambientFactor && m_ambientColor == o.m_ambientColor &&
         SameMapRole(m_ambientMaps, o.m_ambientMaps) && m_diffuseFactor == o.m_diffuseFactor &&
         m_diffuseColor == o.m_diffuseColor && SameMapRole(m_diffuseMaps, o.m_diffuseMaps) &&
         m_specularFactor == o.m_specularFactor && m_specularColor == o.m_specularColor &&
         SameMapRole(m_specularMaps, o.m_specularMaps) &&
         m_transparencyFactor == o.m_transparencyFactor &&
         SameMapRole(m_transparencyMaps, o.m_transparencyMaps) &&
         m_vertexColorFactor == o.m_vertexColorFactor &&
         m_vertexColorChannel == o.m_vertexColorChannel && m_smoothAngle == o.m_smoothAngle;
}

bool C3DMaterial::operator==(const C3DMaterial& other) const {
  return m_name == other.m_name && HasSameParameters(other);
}

static void StoreMap(CArchive& ar, CMaterialMap* map) {
  ar << static_cast<std::uint32_t>(map ? 1 : 0);
  if (map)
    map->Serialize(ar);
}

// A present map is read into a fresh map that replaces the current one.
static void LoadMap(CArchive& ar, CMaterialMap*& slot) {
  std::uint32_t present = 0;
  ar >> present;
  if (!present)
    return;
  auto map = std::make_unique<CMaterialMap>();
  map->Serialize(ar);
  delete slot;
  slot = map.release();
}

void C3DMaterial::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << m_flags << m_name;
    ar << m_ambientFactor;
    m_ambientColor.Serialize(ar);
    StoreMap(ar, m_ambientMaps);
    ar << m_diffuseFactor;
    m_diffuseColor.Serialize(ar);
    StoreMap(ar, m_diffuseMaps);
    ar << m_specularFactor;
    m_specularColor.Serialize(ar);
    StoreMap(ar, m_specularMaps);
    ar << m_transparencyFactor;
    StoreMap(ar, m_transparencyMaps);
    ar << m_vertexColorFactor << m_vertexColorChannel << m_smoothAngle << m_materialID;
  } else {
    ar >> m_flags >> m_name;
    ar >> m_ambientFactor;
    m_ambientColor.Serialize(ar);
    LoadMap(ar, m_ambientMaps);
    ar >> m_diffuseFactor;
    m_diffuseColor.Serialize(ar);
    LoadMap(ar, m_diffuseMaps);
    ar >> m_specularFactor;
    m_specularColor.Serialize(ar);
    LoadMap(ar, m_specularMaps);
    ar >> m_transparencyFactor;
    LoadMap(ar, m_transparencyMaps);
    ar >> m_vertexColorFactor >> m_vertexColorChannel >> m_smoothAngle >> m_materialID;
    RaiseMaterialCounter(m_materialID);
  }
}

} // namespace meshcore
