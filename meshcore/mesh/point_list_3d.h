#pragma once
// The vertex positions of a mesh, with geometric operations and the graph of
// the points shared by faces of several materials.

#include "meshcore/containers/hash_ex_map.h"
#include "meshcore/containers/hash_table.h"
#include "meshcore/geometry/matrix_4x4.h"
#include "meshcore/geometry/point_3d.h"
#include "meshcore/geometry/vector_3d.h"
#include "meshcore/mesh/flat_map.h"
#include "meshcore/mesh/point_list.h"

#include <memory>

namespace meshcore {

class C3DFaceList;
class CProximityMap;
struct IntCoord;
// Point index -> set of candidate neighbour indices (see the welding operation).
using CProximityResult = CHashExMap<int, int, int>;

class C3DPointList : public CPointListOf<C3DPoint, 16> {
  MESHCORE_DECLARE_SERIAL(C3DPointList)

public:
  explicit C3DPointList(std::uint32_t recordSize = 40) : CPointListOf(recordSize) {}
  ~C3DPointList() override;

  // Through the virtual assignment, so that the material graph goes too.
  C3DPointList& operator=(const C3DPointList& src) {
    static_cast<CPointList&>(*this) = src;
    return *this;
  }
  // Also drops the point-to-material graph.
  CPointList& operator=(const CPointList& src) override;

  // Box of the points whose all-bits test of flag equals (set != 0); flag 0
  // with set 1 takes every point. An empty list leaves min and max untouched;
  // no selected point gives (0, 0, 0) twice.
  void GetBoundingBox(C3DPoint& min, C3DPoint& max, _POINT_PROPERTIES flag = PT_NONE,
                      int set = 1) const;
  // Centre of the box of all points.
  C3DPoint GetCenterOfBoudingBox() const;
  // point * m for every point; the points' flags are reset (callers re-mark
  // them), custom data is kept. The identity changes nothing.
  void MatrixTransform(const C4x4Matrix& m);
  // C3DPoint::NoisyWaveFunc on the points whose all-bits test of flag equals set.
  void NoisyWaveFunc(const C3DPoint& centre, const C3DVector& direction, float amplitude,
                     float frequency, float phase, _POINT_PROPERTIES flag, int set);
  // Flags PT_INVALID every point that no face uses or whose faces are all
  // flagged FACE_INVALID.
  void SetInvalidPoints(C3DFaceList& faces);

  // Builds the graph of the points used by faces of two or more materials
  // from info's face list (after UpdateList).
  void InitPointMaterialGraph(CGeomInfo* info);
  void DeletePointMaterialGraph();
  bool IsPointMaterialGraphBuilt() const { return m_materialGraphBuilt != 0; }
  // Size of point i's material set; 1 for a point not in the graph.
  int GetNumberOfMaterialsConnectedToPoint(int i) const;
  // Point i's material set, or null when it has fewer than two materials.
  const CHashUInt* GetMaterialsConnectedToPoint(int i) const;

  // The proximity grid behind welding (meshcore/operations/proximity.h).
  // Stores half the tolerance as the cell size and drops every point into the
  // grid; null for an empty list, otherwise free it with DeleteProximityMap.
  CProximityMap* InitProximityMap(float tolerance);
  // For every point, the points of the 27 cells around its own; the caller owns it.
  CProximityResult* Get3DProximityPoints(CProximityMap* map);
  void DeleteProximityMap(CProximityMap* map);
  // The cell of p, and of point index, with the cell size of the last InitProximityMap.
  IntCoord ConvertToProximityCoordinate(const C3DPoint& p) const;
  IntCoord GetProximityCoordinate(int index) const;
  float GetProximityCellSize() const { return m_proximityCellSize; }
  void SetProximityCellSize(float size) { m_proximityCellSize = size; }

protected:
  int UpdateList(CGeomInfo* info) override;
  void CreatePointMaterialGraph(CGeomInfo* info);

private:
  CFlatMap<int, std::unique_ptr<CHashUInt>> m_pointMaterials;
  int m_materialGraphBuilt = 0;
  float m_proximityCellSize = 0.0f;
};

} // namespace meshcore
