#include "meshcore/mesh/uvw_point.h"

#include "meshcore/platform/archive.h"

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(CUVWPoint, CPt, 1)

void CUVWPoint::Serialize(CArchive& ar) {
  CPt::Serialize(ar);
  if (ar.IsStoring())
    ar << u << v << w;
  else
    ar >> u >> v >> w;
}

} // namespace meshcore
