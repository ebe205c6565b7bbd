#pragma once
// A subdivision patch: a control mesh shown subdivided a given number of times.
// Once a level is set, the base lists hold the subdivided result and the patch
// keeps the control mesh aside (at level 0 both are the same lists). The
// archive form and Copy are the base object's, i.e. of the result.

#include "meshcore/scene/base_object.h"

#include <cstdint>

namespace meshcore {

class C3DObject;

class C3DPatch : public C3DBaseObject {
  MESHCORE_DECLARE_SERIAL(C3DPatch)
public:
  C3DPatch();
  // Deletes the control mesh when a level above 0 had replaced it.
  ~C3DPatch() override;

  // -1 until the first SetLevel takes the control mesh over.
  int GetLevel() const { return m_level; }
  // Rebuilds the result at level (at most 8); an unchanged level does nothing.
  void SetLevel(int level);
  // A new plain mesh (the caller's) copying the control mesh.
  C3DObject* GetSourceObject();
  // Faces that subdividing object level times would give, for a host to warn
  // before a costly level.
  static std::uint64_t EstimateLevel(C3DObject* object, unsigned level);

  // Loading replaces the lists: the control mesh is let go first, so that the
  // loaded lists become the new control mesh.
  void Serialize(CArchive& ar) override;

protected:
  // Moves the base lists into the control mesh.
  void InitPatch();
  // Points the base lists at the control mesh and, above level 0, replaces
  // them by a new subdivided result.
  void Subdivide(int level);
  // Forgets the control mesh (deleted when level was above 0); level becomes -1.
  void ReleasePatch();

private:
  int m_level = -1;
  C3DFaceList* m_sourceFaces = nullptr;
  C3DPointList* m_sourcePoints = nullptr;
  CDependentChannels* m_sourceChannels = nullptr;
};

} // namespace meshcore
