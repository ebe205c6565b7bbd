#pragma once
// A polygonal mesh object.

#include "meshcore/scene/base_object.h"

namespace meshcore {

class C3DObject : public C3DBaseObject {
  MESHCORE_DECLARE_SERIAL(C3DObject)
public:
  C3DObject();
  C3DObject(C3DPointList* points, C3DFaceList* faces);

  // New face and point lists (earlier ones are NOT deleted) of faceCount faces
  // and pointCount points. With texture coordinates, adds a texture channel of
  // texturePointCount points whose face list is sized by pointCount (not
  // faceCount, as hosts have always seen): resize it yourself. Returns 1.
  int Init(int faceCount, int pointCount, int textured, int texturePointCount);
};

} // namespace meshcore
