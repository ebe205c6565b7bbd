#pragma once
// 2D work points (face projections and other planar algorithms).

#include "meshcore/geometry/point_2d.h"
#include "meshcore/mesh/point_list.h"

namespace meshcore {

class C2DPointList : public CPointListOf<C2DPoint, 12> {
  MESHCORE_DECLARE_SERIAL(C2DPointList)

public:
  explicit C2DPointList(std::uint32_t recordSize = 32) : CPointListOf(recordSize) {}
  C2DPointList& operator=(const C2DPointList& src) {
    CPointList::operator=(src);
    return *this;
  }
  using CPointList::operator=;
};

} // namespace meshcore
