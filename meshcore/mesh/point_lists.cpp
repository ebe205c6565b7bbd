// Run-time classes of the list kinds that add nothing but their element type.

#include "meshcore/mesh/point_list_2d.h"
#include "meshcore/mesh/uvw_point_list.h"
#include "meshcore/mesh/vc_point_list.h"
#include "meshcore/mesh/vector_list_3d.h"

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(C2DPointList, CPointList, 1)
MESHCORE_IMPLEMENT_SERIAL(C3DVectorList, CPointList, 1)
MESHCORE_IMPLEMENT_SERIAL(CUVWPointList, CPointList, 1)
MESHCORE_IMPLEMENT_SERIAL(CVCPointList, CPointList, 1)

} // namespace meshcore
