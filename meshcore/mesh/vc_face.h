#pragma once
// A face of a vertex-colour channel: indices into the channel's colour points.

#include "meshcore/mesh/face.h"

namespace meshcore {

class CVCFace : public CFace {
  MESHCORE_DECLARE_SERIAL(CVCFace)

public:
  CVCFace() = default;
  CVCFace(const CVCFace& f) : CFace(f) {}
  CVCFace& operator=(const CVCFace& f) {
    CFace::operator=(f);
    return *this;
  }
  using CFace::operator=;
  // Average of the face's colours in info's source point list (a colour point list).
  void GetCenter(CGeomInfo* info, C4DPoint& center) const override;
};

} // namespace meshcore
