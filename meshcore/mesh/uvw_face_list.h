#pragma once
// The faces of a texture channel, parallel to the mesh's faces.

#include "meshcore/mesh/face_list.h"
#include "meshcore/mesh/uvw_face.h"

namespace meshcore {

class CUVWFaceList : public CFaceListOf<CUVWFace, 4> {
  MESHCORE_DECLARE_SERIAL(CUVWFaceList)

public:
  explicit CUVWFaceList(std::uint32_t recordSize = 40) : CFaceListOf(recordSize) {}
  CUVWFaceList& operator=(const CUVWFaceList& src) {
    CFaceList::operator=(src);
    return *this;
  }
  using CFaceList::operator=;
};

} // namespace meshcore
