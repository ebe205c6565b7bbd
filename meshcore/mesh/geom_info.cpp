#include "meshcore/mesh/geom_info.h"

#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/exceptions.h"

namespace meshcore {

CGeomInfo::CGeomInfo(C3DFaceList* faces, C3DPointList* points)
    : CGeomInfo(static_cast<CFaceList*>(faces), static_cast<CPointList*>(points)) {}

CGeomInfo::CGeomInfo(CFaceList* faces, CPointList* points) {
  m_srcFaces = m_initialFaces = faces;
  m_srcPoints = m_initialPoints = points;
}

void CGeomInfo::Reset() {
  *this = CGeomInfo();
}

void CGeomInfo::InitSource(C3DBaseObject* object, C3DSceneNode* node, C3DPointList* points,
                           C3DFaceList* faces, CDependentChannels* channels) {
  Reset();
  m_object = object;
  m_node = node;
  m_srcPoints = m_initialPoints = points;
  m_srcFaces = m_initialFaces = faces;
  m_srcChannels = channels;
}

void CGeomInfo::SetPoints(CPointList* src, CPointList* dst) {
  if (!src && !dst)
    return;
  m_srcPoints = m_initialPoints = src;
  m_dstPoints = dst;
}

void CGeomInfo::SetFaces(CFaceList* src, CFaceList* dst) {
  if (!src && !dst)
    return;
  m_srcFaces = m_initialFaces = src;
  m_dstFaces = dst;
  m_facePairs.clear();
  m_pointPairs.clear();
}

C3DPointList* CGeomInfo::Get3DPointList() const {
  return dynamic_cast<C3DPointList*>(m_srcPoints);
}

C3DFaceList* CGeomInfo::Get3DFaceList() const {
  return dynamic_cast<C3DFaceList*>(m_srcFaces);
}

int CGeomInfo::SetChannels(CDependentChannels* src, CDependentChannels* dst) {
  if (dst) {
    for (int i = 0; i < dst->GetSize(); ++i) {
      const CChannel* channel = dst->GetChannel(i);
      if (!m_srcChannels || !m_srcChannels->GetChannel(channel->GetID()))
        return 0;
    }
  }
  m_srcChannels = src;
  m_dstChannels = dst;
  return 1;
}

int CGeomInfo::GetChannelsSize() const {
  return m_srcChannels ? m_srcChannels->GetChannelsNumber(65535, 1) : 0;
}

void CGeomInfo::AddFacesList(CFaceList* src, CFaceList* dst, int reset) {
  if (reset)
    m_facePairs.clear();
  if (src || dst)
    m_facePairs.emplace_back(src, dst);
}

void CGeomInfo::AddPointsList(CPointList* src, CPointList* dst, int reset) {
  if (reset)
    m_pointPairs.clear();
  if (src || dst)
    m_pointPairs.emplace_back(src, dst);
}

void CGeomInfo::GetFacesList(int i, CFaceList*& src, CFaceList*& dst) const {
  if (i < 0 || i >= GetFacesListSize())
    throw CInvalidArgException();
  src = m_facePairs[static_cast<std::size_t>(i)].first;
  dst = m_facePairs[static_cast<std::size_t>(i)].second;
}

void CGeomInfo::GetPointsList(int i, CPointList*& src, CPointList*& dst) const {
  if (i < 0 || i >= GetPointsListSize())
    throw CInvalidArgException();
  src = m_pointPairs[static_cast<std::size_t>(i)].first;
  dst = m_pointPairs[static_cast<std::size_t>(i)].second;
}

} // namespace meshcore
