#pragma once
// The faces of a vertex-colour channel, parallel to the mesh's faces.

#include "meshcore/mesh/face_list.h"
#include "meshcore/mesh/vc_face.h"

namespace meshcore {

class CVCFaceList : public CFaceListOf<CVCFace, 4> {
  MESHCORE_DECLARE_SERIAL(CVCFaceList)

public:
  explicit CVCFaceList(std::uint32_t recordSize = 40) : CFaceListOf(recordSize) {}
  CVCFaceList& operator=(const CVCFaceList& src) {
    CFaceList::operator=(src);
    return *this;
  }
  using CFaceList::operator=;
};

} // namespace meshcore
