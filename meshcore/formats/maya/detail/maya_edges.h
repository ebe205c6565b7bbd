#pragma once
// The edge list of a Maya mesh and the faces as signed edge numbers.

#include "meshcore/mesh/edge_3d.h"

#include <vector>

namespace meshcore {
class CCancelCheck;
class C3DFaceList;
} // namespace meshcore

namespace meshcore::maya {

struct EdgeNumbering {
  std::vector<C3DEdge> edges; // by number, smaller point first
  // Per side of each face, in face order: the edge's number, or its
  // complement when the side runs from the higher point to the lower.
  std::vector<int> sides;
};

// Numbers the edges of faces[written[i]] in the order the face list's edge
// graph meets them: face by face, side by side, each edge when first met.
// Every index must lie in [0, pointCount). False when cancelled.
bool NumberEdges(const C3DFaceList& faces, const std::vector<int>& written, int pointCount,
                 EdgeNumbering& out, CCancelCheck& cancel);

} // namespace meshcore::maya
