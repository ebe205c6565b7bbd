#pragma once
// The edge-to-face graph of a face list: each edge key (smaller index first)
// with the faces that use it, iterated in the order the edges were first met.

#include "meshcore/mesh/connection_info.h"
#include "meshcore/mesh/edge_3d.h"
#include "meshcore/mesh/flat_map.h"

namespace meshcore {

using CEdgeGraph = CFlatMap<C3DEdge, CConnectionInfo, C3DEdgeFlatHash>;

} // namespace meshcore
