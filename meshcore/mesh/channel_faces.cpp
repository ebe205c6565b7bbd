// Faces and face lists of the texture and colour channels.

#include "meshcore/geometry/point_4d.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list.h"
#include "meshcore/mesh/uvw_face_list.h"
#include "meshcore/mesh/vc_face_list.h"

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(CUVWFace, CFace, 1)
MESHCORE_IMPLEMENT_SERIAL(CVCFace, CFace, 1)
MESHCORE_IMPLEMENT_SERIAL(CUVWFaceList, CFaceList, 1)
MESHCORE_IMPLEMENT_SERIAL(CVCFaceList, CFaceList, 1)

namespace {

// Sum of the points' carriers divided by the number of indices; indices outside
// the list add nothing.
void AverageOfPoints(const CFace& face, CGeomInfo* info, C4DPoint& center) {
  CPointList* list = info ? info->GetPointList() : nullptr;
  center.Init(4);
  center.n = 0;
  if (!list || !list->HasPointElements())
    return;
  C4DPoint p;
  for (int k = 0; k < face.GetSize(); ++k) {
    const int i = face[k];
    if (i < 0 || i >= list->GetSize())
      continue;
    list->ElementAt(i).To4DPoint(p);
    if (center.n == 0)
      center.n = p.n;
    for (int c = 0; c < p.n && c < C4DPoint::kCapacity; ++c)
      center.v[c] += p.v[c];
  }
  if (face.GetSize() > 0)
    for (int c = 0; c < C4DPoint::kCapacity; ++c)
      center.v[c] /= static_cast<float>(face.GetSize());
}

} // namespace

void CUVWFace::GetCenter(CGeomInfo* info, C4DPoint& center) const {
  AverageOfPoints(*this, info, center);
}

void CVCFace::GetCenter(CGeomInfo* info, C4DPoint& center) const {
  AverageOfPoints(*this, info, center);
}

} // namespace meshcore
