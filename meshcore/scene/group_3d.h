#pragma once
// A group: an object without geometry that only serves as a parent in the scene tree.

#include "meshcore/scene/base_object.h"

namespace meshcore {

class C3DGroup : public C3DBaseObject {
  MESHCORE_DECLARE_SERIAL(C3DGroup)
public:
  C3DGroup();
};

} // namespace meshcore
