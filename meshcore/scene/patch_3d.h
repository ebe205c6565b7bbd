#pragma once
// A subdivision patch. Until subdivision is available it behaves as its control mesh.

#include "meshcore/scene/base_object.h"

namespace meshcore {

class C3DPatch : public C3DBaseObject {
  MESHCORE_DECLARE_SERIAL(C3DPatch)
public:
  C3DPatch();
  ~C3DPatch() override;
};

} // namespace meshcore
