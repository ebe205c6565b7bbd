#include "meshcore/geometry/vector_3d.h"

#include "meshcore/platform/archive.h"

namespace meshcore {

void C3DVector::Serialize(CArchive& ar) {
  if (ar.IsStoring())
    ar << x << y << z;
  else
    ar >> x >> y >> z;
}

} // namespace meshcore
