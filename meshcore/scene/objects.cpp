#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/uvw_face_list.h"
#include "meshcore/mesh/uvw_point_list.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/object_creator.h"
#include "meshcore/scene/patch_3d.h"

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(C3DObject, C3DBaseObject, 1)
MESHCORE_IMPLEMENT_SERIAL(C3DCurve, C3DBaseObject, 1)
MESHCORE_IMPLEMENT_SERIAL(C3DPatch, C3DBaseObject, 1)
MESHCORE_IMPLEMENT_SERIAL(C3DGroup, C3DBaseObject, 1)

C3DObject::C3DObject() {
  m_kind = OBJECT_POLYGONAL;
}

C3DObject::C3DObject(C3DPointList* points, C3DFaceList* faces) : C3DBaseObject(points, faces) {
  m_kind = OBJECT_POLYGONAL;
}

int C3DObject::Init(int faceCount, int pointCount, int textured, int texturePointCount) {
  auto* faces = new C3DFaceList;
  auto* points = new C3DPointList;
  faces->SetSize(faceCount > 0 ? faceCount : 0);
  points->SetSize(pointCount > 0 ? pointCount : 0);
  SetFaceList(faces);
  SetPointList(points);
  if (textured && texturePointCount) {
    auto* channel = new CUVWChannel(kNoChannel);
    if (channel->GetPointList())
      channel->GetPointList()->SetSize(texturePointCount > 0 ? texturePointCount : 0);
    // Sized by the point count, as codecs written against this call expect.
    if (channel->GetFaceList())
      channel->GetFaceList()->SetSize(pointCount > 0 ? pointCount : 0);
    AddChannel(channel);
  }
  return 1;
}

C3DCurve::C3DCurve() {
  m_kind = OBJECT_CURVE;
}

void C3DCurve::Serialize(CArchive& ar) {
  C3DBaseObject::Serialize(ar);
  if (ar.IsStoring())
    ar << m_materialID;
  else
    ar >> m_materialID;
}

C3DPatch::C3DPatch() {
  m_kind = OBJECT_PATCH;
}
C3DPatch::~C3DPatch() {
  ReleasePatch();
}

void C3DPatch::Serialize(CArchive& ar) {
  if (ar.IsLoading())
    ReleasePatch();
  C3DBaseObject::Serialize(ar);
}

C3DGroup::C3DGroup() {
  m_kind = OBJECT_GROUP;
}

C3DBaseObject* C3DObjectCreator::GetNewObjectFrom(const C3DBaseObject* source) {
  if (!source)
    return nullptr;
  switch (source->GetKindOf()) {
  case OBJECT_POLYGONAL:
    return GetNewPolygonalObject();
  case OBJECT_PATCH:
    return GetNewPatchObject();
  case OBJECT_CURVE:
    return GetNewCurveObject();
  case OBJECT_GROUP:
    return GetNewGroupObject();
  default:
    return nullptr;
  }
}

C3DFaceList* C3DObjectCreator::GetNewFaceList() {
  return new C3DFaceList;
}
C3DPointList* C3DObjectCreator::GetNewPointList() {
  return new C3DPointList;
}

C3DBaseObject* C3DObjectCreator::GetNewPolygonalObject() {
  C3DBaseObject* object = new C3DObject;
  object->SetFaceList(GetNewFaceList());
  object->SetPointList(GetNewPointList());
  return object;
}

C3DBaseObject* C3DObjectCreator::GetNewCurveObject() {
  C3DBaseObject* object = new C3DCurve;
  object->SetPointList(GetNewPointList());
  return object;
}

C3DBaseObject* C3DObjectCreator::GetNewPatchObject() {
  C3DBaseObject* object = new C3DPatch;
  object->SetFaceList(GetNewFaceList());
  object->SetPointList(GetNewPointList());
  return object;
}

C3DBaseObject* C3DObjectCreator::GetNewGroupObject() {
  return new C3DGroup;
}

C3DBaseObject* C3DMeshObjectCreator::GetNewObjectFrom(const C3DBaseObject*) {
  return GetNewPolygonalObject();
}

} // namespace meshcore
