#pragma once
// A face of a texture channel: indices into the channel's texture points.

#include "meshcore/mesh/face.h"

namespace meshcore {

class CUVWFace : public CFace {
  MESHCORE_DECLARE_SERIAL(CUVWFace)

public:
  CUVWFace() = default;
  CUVWFace(const CUVWFace& f) : CFace(f) {}
  CUVWFace& operator=(const CUVWFace& f) {
    CFace::operator=(f);
    return *this;
  }
  using CFace::operator=;
  // Average of the face's points in info's source point list (a texture point list).
  void GetCenter(CGeomInfo* info, C4DPoint& center) const override;
};

} // namespace meshcore
