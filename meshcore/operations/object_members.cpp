// The members that the point list, object, patch and scene classes offer for
// the geometry operations. Their code lives here, with the operations.

#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/operations/merge_coplanar.h"
#include "meshcore/operations/proximity.h"
#include "meshcore/operations/subdivide.h"
#include "meshcore/operations/triangulate.h"
#include "meshcore/operations/weld.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/global_settings.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/patch_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <algorithm>

namespace meshcore {

CProximityMap* C3DPointList::InitProximityMap(float tolerance) {
  return meshcore::InitProximityMap(*this, tolerance);
}
CProximityResult* C3DPointList::Get3DProximityPoints(CProximityMap* map) {
  return meshcore::Get3DProximityPoints(*this, map);
}
void C3DPointList::DeleteProximityMap(CProximityMap* map) {
  meshcore::DeleteProximityMap(*this, map);
}
IntCoord C3DPointList::ConvertToProximityCoordinate(const C3DPoint& p) const {
  return meshcore::ConvertToProximityCoordinate(p, GetProximityCellSize());
}
IntCoord C3DPointList::GetProximityCoordinate(int index) const {
  return meshcore::GetProximityCoordinate(*this, index);
}

int C3DBaseObject::Weld3DPoints(float tolerance, int& removedPoints, int& removedFaces) {
  return meshcore::Weld3DPoints(*this, tolerance, removedPoints, removedFaces);
}
int C3DBaseObject::Triangulate(_FACE_PROPERTIES flag, int set) {
  return TriangulateObject(*this, flag, set);
}
int C3DBaseObject::MergeCoplanarFaces(float angleDegrees, C3DScene*) {
  return MergeCoplanarObject(*this, angleDegrees);
}

namespace {
CPatchControl Control(int level, C3DFaceList* faces, C3DPointList* points,
                      CDependentChannels* channels) {
  CPatchControl c;
  c.level = level;
  c.sourceFaces = faces;
  c.sourcePoints = points;
  c.sourceChannels = channels;
  return c;
}
} // namespace

void C3DPatch::InitPatch() {
  CPatchControl c = Control(m_level, m_sourceFaces, m_sourcePoints, m_sourceChannels);
  meshcore::InitPatch(*this, c);
  m_sourceFaces = c.sourceFaces;
  m_sourcePoints = c.sourcePoints;
  m_sourceChannels = c.sourceChannels;
}

void C3DPatch::SetLevel(int level) {
  CPatchControl c = Control(m_level, m_sourceFaces, m_sourcePoints, m_sourceChannels);
  SetPatchLevel(*this, c, level);
  m_level = c.level;
  m_sourceFaces = c.sourceFaces;
  m_sourcePoints = c.sourcePoints;
  m_sourceChannels = c.sourceChannels;
}

void C3DPatch::Subdivide(int level) {
  CPatchControl c = Control(m_level, m_sourceFaces, m_sourcePoints, m_sourceChannels);
  SubdividePatch(*this, c, level);
}

void C3DPatch::ReleasePatch() {
  CPatchControl c = Control(m_level, m_sourceFaces, m_sourcePoints, m_sourceChannels);
  meshcore::ReleasePatch(c);
  m_level = c.level;
  m_sourceFaces = c.sourceFaces;
  m_sourcePoints = c.sourcePoints;
  m_sourceChannels = c.sourceChannels;
}

C3DObject* C3DPatch::GetSourceObject() {
  return GetPatchSourceObject(*this,
                              Control(m_level, m_sourceFaces, m_sourcePoints, m_sourceChannels));
}

std::uint64_t C3DPatch::EstimateLevel(C3DObject* object, unsigned level) {
  return meshcore::EstimateLevel(object, level);
}

void C3DScene::SetGlobalPatchLevel(unsigned level) {
  C3DSceneNode* cursor = GetFirstNode(nullptr);
  while (cursor) {
    const C3DBaseObject* unused = nullptr;
    C3DSceneNode* node = GetNextNode(unused, cursor, nullptr);
    C3DBaseObject* object = node ? node->GetBaseObject() : nullptr;
    if (object && object->GetKindOf() == OBJECT_PATCH)
      static_cast<C3DPatch*>(object)->SetLevel(
          static_cast<int>(std::min<unsigned>(level, kMaxPatchLevel)));
  }
  StoreGlobalPatchLevel(level);
}

} // namespace meshcore
