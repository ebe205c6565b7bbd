#pragma once
// The colour points of a vertex-colour channel.

#include "meshcore/mesh/point_list.h"
#include "meshcore/mesh/vc_point.h"

namespace meshcore {

class CVCPointList : public CPointListOf<CVCPoint, 4> {
  MESHCORE_DECLARE_SERIAL(CVCPointList)

public:
  explicit CVCPointList(std::uint32_t recordSize = 40) : CPointListOf(recordSize) {}
  CVCPointList& operator=(const CVCPointList& src) {
    CPointList::operator=(src);
    return *this;
  }
  using CPointList::operator=;
};

} // namespace meshcore
