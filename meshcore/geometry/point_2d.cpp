#include "meshcore/geometry/point_2d.h"

#include "meshcore/platform/archive.h"

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(C2DPoint, CPt, 1)

void C2DPoint::Serialize(CArchive& ar) {
  CPt::Serialize(ar);
  if (ar.IsStoring())
    ar << x << y;
  else
    ar >> x >> y;
}

} // namespace meshcore
