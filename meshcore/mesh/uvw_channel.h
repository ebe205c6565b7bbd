#pragma once
// Texture coordinates: texture points and faces parallel to the mesh's faces.

#include "meshcore/mesh/channel.h"
#include "meshcore/mesh/channel_point_graph.h"
#include "meshcore/mesh/uvw_face_list.h"
#include "meshcore/mesh/uvw_point_list.h"

namespace meshcore {

class CUVWChannel : public CChannel {
  MESHCORE_DECLARE_SERIAL(CUVWChannel)

public:
  explicit CUVWChannel(unsigned id = kNoChannel);

  // Texture faces keep repeated corners: they must stay corner-parallel to the mesh.
  int CleanFaceIndices() const override { return 0; }
  CChannel* Copy(unsigned flags) const override;
  CChannel* InitFrom(unsigned flags) const override;

  CUVWPointList* GetUVWPointList() const { return static_cast<CUVWPointList*>(m_pPointList); }
  CUVWFaceList* GetUVWFaceList() const { return static_cast<CUVWFaceList*>(m_pFaceList); }

  // Graph of the texture points each mesh point uses (mesh lists from info).
  void Create3DPointIndexToUVWPointIndexGraph(CGeomInfo* info);
  void Delete3DPointIndexToUVWPointIndexGraph() { m_graph.Clear(); }
  bool Is3DPointIndexToUVWPointIndexGraphBuilt() const { return m_graph.IsBuilt(); }
  // The records of a mesh point and their number; null when it has none.
  const _UVWConnectionInfo* GetUVWPointConnectedToPoint(int meshPoint, int& count) const {
    return m_graph.Get(meshPoint, count);
  }
  // The texture point the mesh point uses in face, or -1.
  int GetUVWPointIndex(int meshPoint, int face) const {
    return m_graph.GetChannelPoint(meshPoint, face);
  }
  // Texture seams: sets flag on the mesh points whose faces use texture points
  // that differ by more than tolerance in u, v or w, clears it on the others
  // that faces use. Builds the graph when needed; returns the number of seam points.
  int InitShareUVFlag(CGeomInfo* info, float tolerance, int flag);

protected:
  const CRuntimeClass* GetPointListClass() const override;
  const CRuntimeClass* GetFaceListClass() const override;

private:
  CChannelPointGraph<_UVWConnectionInfo> m_graph;
};

} // namespace meshcore
