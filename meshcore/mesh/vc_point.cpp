#include "meshcore/mesh/vc_point.h"

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(CVCPoint, CPt, 1)

} // namespace meshcore
