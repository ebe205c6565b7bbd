#pragma once
// One unit normal per mesh face. Derived data: invalid until computed, and
// invalidated (not compacted) by every mesh clean.

#include "meshcore/mesh/channel.h"
#include "meshcore/mesh/vector_list_3d.h"

namespace meshcore {

class CFaceNormalChannel : public CChannel {
  MESHCORE_DECLARE_SERIAL(CFaceNormalChannel)

public:
  explicit CFaceNormalChannel(unsigned id = kNoChannel);

  // Normals are recomputed after a clean: flags the channel invalid, returns 0.
  int Clean(CGeomInfo* info, const CIndexMap* faceMap, const CIndexMap* pointMap) override;
  CChannel* Copy(unsigned flags) const override;
  CChannel* InitFrom(unsigned flags) const override;

  C3DVectorList* GetNormalList() const { return static_cast<C3DVectorList*>(m_pPointList); }
  // The unit normal of every face of info's mesh (C3DFace::GetNormal); clears
  // the invalid flag. 0 (and nothing changed) without a mesh face list.
  int InitNormals(CGeomInfo* info);

protected:
  const CRuntimeClass* GetPointListClass() const override;
};

} // namespace meshcore
