#pragma once
// Vertex colours: colour points and faces parallel to the mesh's faces.

#include "meshcore/mesh/channel.h"
#include "meshcore/mesh/channel_point_graph.h"
#include "meshcore/mesh/vc_face_list.h"
#include "meshcore/mesh/vc_point_list.h"

namespace meshcore {

class CVCChannel : public CChannel {
  MESHCORE_DECLARE_SERIAL(CVCChannel)

public:
  explicit CVCChannel(unsigned id = kNoChannel);

  // Colour faces keep repeated corners: they must stay corner-parallel to the mesh.
  int CleanFaceIndices() const override { return 0; }
  CChannel* Copy(unsigned flags) const override;
  CChannel* InitFrom(unsigned flags) const override;

  CVCPointList* GetVCPointList() const { return static_cast<CVCPointList*>(m_pPointList); }
  CVCFaceList* GetVCFaceList() const { return static_cast<CVCFaceList*>(m_pFaceList); }

  // Graph of the colour points each mesh point uses (mesh lists from info).
  void Create3DPointIndexToVCPointIndexGraph(CGeomInfo* info);
  void Delete3DPointIndexToVCPointIndexGraph() { m_graph.Clear(); }
  bool Is3DPointIndexToVCPointIndexGraphBuilt() const { return m_graph.IsBuilt(); }
  // The records of a mesh point and their number; null when it has none.
  const _VCConnectionInfo* GetVCPointConnectedToPoint(int meshPoint, int& count) const {
    return m_graph.Get(meshPoint, count);
  }
  // The colour point the mesh point uses in face, or -1.
  int GetVCPointIndex(int meshPoint, int face) const {
    return m_graph.GetChannelPoint(meshPoint, face);
  }
  // Colour frontiers: sets flag on the mesh points whose faces use different
  // colour points (when byColor is non-zero, only points of different colours
  // count), clears it on the others that faces use. Builds the graph when
  // needed; returns the number of frontier points.
  int InitVCFrontierFlag(CGeomInfo* info, int flag, int byColor);

protected:
  const CRuntimeClass* GetPointListClass() const override;
  const CRuntimeClass* GetFaceListClass() const override;

private:
  CChannelPointGraph<_VCConnectionInfo> m_graph;
};

} // namespace meshcore
