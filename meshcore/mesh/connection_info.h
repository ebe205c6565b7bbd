#pragma once
// The faces that use one edge, in increasing face order. An edge listed by a
// single face is a border edge.

#include "meshcore/containers/int_array_id.h"

namespace meshcore {

class CConnectionInfo : public CIntArrayID {
public:
  // Room for the two faces of a manifold edge.
  CConnectionInfo() : CIntArrayID(2, 0) {}
  bool IsBorder() const { return GetSize() == 1; }
};

} // namespace meshcore
