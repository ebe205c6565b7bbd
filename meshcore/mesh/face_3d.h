#pragma once
// A mesh face: indices into the object's point list, plus a material id, and
// the geometric queries on the polygon it spans.

#include "meshcore/geometry/point_3d.h"
#include "meshcore/geometry/vector_3d.h"
#include "meshcore/geometry/vector_4d.h"
#include "meshcore/mesh/face.h"

#include <cstdint>

namespace meshcore {

class C2DPointList;

class C3DFace : public CFace {
  MESHCORE_DECLARE_SERIAL(C3DFace)

public:
  C3DFace() = default;
  C3DFace(const C3DFace& f) : CFace(f), m_materialID(f.m_materialID) {}

  // Flags, then the material id.
  void Serialize(CArchive& ar) override;
  C3DFace& operator=(const CIntArrayID& indices) override {
    CFace::operator=(indices);
    return *this;
  }
  CFace& operator=(const CFace& f) override;
  C3DFace& operator=(const C3DFace& f);

  std::uint32_t GetMaterialID() const { return m_materialID; }
  void SetMaterialID(std::uint32_t id) { m_materialID = id; }
  using CFace::InheritFlags;
  // Flags, custom data and material id.
  void InheritFlags(const C3DFace& src);

  // The queries below read the points of info's source point list; indices
  // outside it are skipped.

  // Average of the face's points; (0, 0, 0) for a face without indices.
  void GetCenter(CGeomInfo* info, C3DPoint& center) const;
  void GetCenter(CGeomInfo* info, C4DPoint& center) const override;
  // Newell normal with the sign reversed (a face runs clockwise seen from its
  // front), scaled to unit length; the zero vector for a degenerate face.
  void GetNormal(CGeomInfo* info, C3DVector& normal) const;
  // One 2D point per corner in the face's own plane: corner 0 at the origin,
  // corner 1 on the positive x axis.
  void Get2DCoordinates(CGeomInfo* info, C2DPointList& out) const;
  // Plane (a, b, c, d) with the unit normal through the centre; 0 when degenerate.
  int GetPlane(CGeomInfo* info, C4DVector& plane) const;
  // 1 when every corner turns the same way in the face's plane (straight corners
  // do not count); triangles are convex, faces below three corners are not.
  int IsConvex(CGeomInfo* info) const;
  // 1 when every corner lies within tolerance of the face's plane (always 1
  // for a face without a plane: collinear corners lie in some plane).
  int IsPlane(CGeomInfo* info, float tolerance) const;
  // Isoperimetric ratio 4 pi area / perimeter^2: 1 for a disc, about 0.785 for a
  // square, lower for thin faces, 0 for degenerate ones.
  float GetCompacityFactor(CGeomInfo* info) const;
  // Box of the face's points; 0 (and min, max untouched) when it has none.
  int GetBoundingBox(CGeomInfo* info, C3DPoint& min, C3DPoint& max) const;

  // Ear-clipping triangulation into info's face lists; defined with the
  // geometry operations.
  int Triangulate(CGeomInfo* info, int faceIndex);

private:
  std::uint32_t m_materialID = 0;
};

} // namespace meshcore
