#pragma once
// A curve: its points are its vertices in order; it normally has no faces.

#include "meshcore/scene/base_object.h"

#include <cstdint>

namespace meshcore {

class C3DCurve : public C3DBaseObject {
  MESHCORE_DECLARE_SERIAL(C3DCurve)
public:
  C3DCurve();

  void SetMaterialID(unsigned id) { m_materialID = id; }
  unsigned GetMaterialID() const { return m_materialID; }

  // The object's form followed by the material id.
  void Serialize(CArchive& ar) override;

private:
  std::uint32_t m_materialID = 0;
};

} // namespace meshcore
