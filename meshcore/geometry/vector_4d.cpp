#include "meshcore/geometry/vector_4d.h"

#include "meshcore/platform/archive.h"

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(C4DVector, CObject, 1)

void C4DVector::Serialize(CArchive& ar) {
  if (ar.IsStoring())
    ar << x << y << z << w;
  else
    ar >> x >> y >> z >> w;
}

void C4DVector::GetPlaneVector(const C3DPoint& p1, const C3DPoint& p2, const C3DPoint& p3) {
  C3DVector n = C3DVector(p1, p2) ^ C3DVector(p1, p3);
  Init(n.x, n.y, n.z);
  Normalize();
  w = -(x * p1.x + y * p1.y + z * p1.z);
}

} // namespace meshcore
