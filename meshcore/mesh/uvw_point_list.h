#pragma once
// The texture points of a texture channel.

#include "meshcore/mesh/point_list.h"
#include "meshcore/mesh/uvw_point.h"

namespace meshcore {

class CUVWPointList : public CPointListOf<CUVWPoint, 16> {
  MESHCORE_DECLARE_SERIAL(CUVWPointList)

public:
  explicit CUVWPointList(std::uint32_t recordSize = 40) : CPointListOf(recordSize) {}
  CUVWPointList& operator=(const CUVWPointList& src) {
    CPointList::operator=(src);
    return *this;
  }
  using CPointList::operator=;
};

} // namespace meshcore
