#pragma once
// Direction vectors (the normals of the normal channels). Its elements are bare
// vectors without flags, so the per-point operations of point lists skip it.

#include "meshcore/geometry/vector_3d.h"
#include "meshcore/mesh/point_list.h"

namespace meshcore {

class C3DVectorList : public CPointListOf<C3DVector, 12> {
  MESHCORE_DECLARE_SERIAL(C3DVectorList)

public:
  explicit C3DVectorList(std::uint32_t recordSize = 12) : CPointListOf(recordSize) {}
  C3DVectorList& operator=(const C3DVectorList& src) {
    CPointList::operator=(src);
    return *this;
  }
  using CPointList::operator=;
  bool HasPointElements() const override { return false; }
};

} // namespace meshcore
