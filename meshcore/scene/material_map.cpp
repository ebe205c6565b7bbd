#include "meshcore/scene/material_map.h"

#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(CMaterialMap, CObject, 1)

CMaterialMap::CMaterialMap() = default;

CMaterialMap* CMaterialMap::Create(const std::string& file, unsigned channel, MapType type) {
  auto* map = new CMaterialMap;
  map->m_fileName = file.empty() ? LoadString(IDS_UNNAMED_MATERIAL) : file;
  map->m_status = 0;
  map->m_type = type;
  map->m_channelID = channel;
  return map;
}

void CMaterialMap::SetFileName(const std::string& file) {
  if (file == m_fileName)
    return;
  m_fileName = file;
  m_status = 0;
}

void CMaterialMap::SetFlag(unsigned flags, int on) {
  if (on)
    m_flags |= flags;
  else
    m_flags &= ~flags;
}

void CMaterialMap::SetUVWRepeat(float u, float v, float w) {
  m_matrix.Scale(u, v, w);
}

void CMaterialMap::SetUVWOffset(float u, float v, float w) {
  m_matrix.Init();
  m_matrix.InitTranslation(u, v, w);
}

void CMaterialMap::SetUVWAngle(float a, float b, float c) {
  m_matrix.Rotate(a, 1.0f, 0.0f, 0.0f);
  m_matrix.Rotate(b, 0.0f, 1.0f, 0.0f);
  m_matrix.Rotate(c, 0.0f, 0.0f, 1.0f);
}

void CMaterialMap::GetUVWRepeat(float&, float&, float&) const {}
void CMaterialMap::GetUVWOffset(float&, float&, float&) const {}
void CMaterialMap::GetUVWAngle(float&, float&, float&) const {}

CMaterialMap& CMaterialMap::operator=(const CMaterialMap& other) {
  if (this == &other)
    return *this;
  m_fileName = other.m_fileName;
  m_type = other.m_type;
  m_channelID = other.m_channelID;
  m_status = other.m_status == MAP_STATUS_LOADED ? other.m_status : 0u;
  return *this;
}

bool CMaterialMap::operator==(const CMaterialMap& other) const {
  return m_type == other.m_type && m_channelID == other.m_channelID &&
         m_fileName == other.m_fileName && m_alphaFileName == other.m_alphaFileName &&
         m_flags == other.m_flags && m_matrix == other.m_matrix;
}

void CMaterialMap::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << m_fileName << static_cast<std::uint32_t>(m_type) << m_status << m_channelID;
  } else {
    std::uint32_t type = 0;
    ar >> m_fileName >> type >> m_status >> m_channelID;
    m_type = static_cast<MapType>(type);
    m_alphaFileName.clear();
    m_flags = 0;
    m_matrix.Init();
  }
}

} // namespace meshcore
