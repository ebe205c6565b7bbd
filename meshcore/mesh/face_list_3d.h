#pragma once
// The faces of a mesh, with the set of material ids they use.

#include "meshcore/containers/hash_table.h"
#include "meshcore/geometry/point_3d.h"
#include "meshcore/mesh/face_3d.h"
#include "meshcore/mesh/face_list.h"

namespace meshcore {

class C3DFaceList : public CFaceListOf<C3DFace, 8> {
  MESHCORE_DECLARE_SERIAL(C3DFaceList)

public:
  explicit C3DFaceList(std::uint32_t recordSize = 48) : CFaceListOf(recordSize) {}

  // Through the virtual assignment, so that the materials hash goes too.
  C3DFaceList& operator=(const C3DFaceList& src) {
    static_cast<CFaceList&>(*this) = src;
    return *this;
  }
  // Also drops the materials hash, which described the old faces.
  CFaceList& operator=(const CFaceList& src) override;
  // Rebuilds a built materials hash first when the list is marked changed.
  int UpdateList(CGeomInfo* info) override;

  void CreateMaterialsHash();
  // The material ids in use, built on demand.
  CHashUInt* GetMaterialsHash(CGeomInfo* info);
  void DeleteMaterialsHash();
  bool IsMaterialsHashBuilt() const { return m_materialsHashBuilt != 0; }

  // Every face index ordered by material id (unsigned, ascending); the caller
  // frees it with delete[]. Null for an empty list.
  int* SortByMaterial() const;
  // Box of the points used by faces not flagged FACE_INVALID, from info's point
  // list; 0 (min, max untouched) when there is none.
  int GetBoundingBox(CGeomInfo* info, C3DPoint& min, C3DPoint& max) const;

private:
  CHashUInt m_materialsHash;
  int m_materialsHashBuilt = 0;
};

} // namespace meshcore
