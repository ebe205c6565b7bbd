#include "meshcore/mesh/vc_channel.h"

#include "meshcore/mesh/geom_info.h"

#include <algorithm>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(CVCChannel, CChannel, 1)

CVCChannel::CVCChannel(unsigned id) : CChannel(id) {
  SetInfo(CHANNEL_VC, new CVCPointList, new CVCFaceList);
}

const CRuntimeClass* CVCChannel::GetPointListClass() const {
  return MESHCORE_RUNTIME_CLASS(CVCPointList);
}
const CRuntimeClass* CVCChannel::GetFaceListClass() const {
  return MESHCORE_RUNTIME_CLASS(CVCFaceList);
}

CChannel* CVCChannel::Copy(unsigned flags) const {
  auto* c = new CVCChannel(flags & CHANNEL_COPY_KEEP_ID ? m_id : kNoChannel);
  c->CopyFrom(*this, flags);
  return c;
}

CChannel* CVCChannel::InitFrom(unsigned flags) const {
  return Copy(flags | CHANNEL_COPY_NO_LISTS);
}

void CVCChannel::Create3DPointIndexToVCPointIndexGraph(CGeomInfo* info) {
  m_graph.Clear();
  const CFaceList* mesh = info ? info->GetFaceList() : nullptr;
  if (!mesh) {
    m_graph.Build(*GetFaceList(), *GetFaceList(), 0);
    return;
  }
  int points = 0;
  if (const CPointList* list = info->GetPointList()) {
    points = list->GetSize();
  } else {
    for (int f = 0; f < mesh->GetSize(); ++f)
      for (int k = 0; k < (*mesh)[f].GetSize(); ++k)
        points = std::max(points, (*mesh)[f][k] + 1);
  }
  m_graph.Build(*mesh, *GetFaceList(), points);
}

int CVCChannel::InitVCFrontierFlag(CGeomInfo* info, int flag, int byColor) {
  if (!m_graph.IsBuilt())
    Create3DPointIndexToVCPointIndexGraph(info);
  CPointList* mesh = info ? info->GetPointList() : nullptr;
  if (!mesh || !mesh->HasPointElements())
    return 0;
  const CVCPointList& vc = *GetVCPointList();
  const auto f = static_cast<_POINT_PROPERTIES>(static_cast<std::uint32_t>(flag));
  int frontiers = 0;
  for (int p = 0; p < mesh->GetSize(); ++p) {
    int count = 0;
    const _VCConnectionInfo* r = m_graph.Get(p, count);
    if (!count)
      continue;
    bool frontier = false;
    const int c0 = r[0].pointIndex;
    for (int i = 1; i < count && !frontier; ++i) {
      const int c = r[i].pointIndex;
      if (c == c0)
        continue;
      if (!byColor || c0 < 0 || c < 0 || c0 >= vc.GetSize() || c >= vc.GetSize())
        frontier = true;
      else
        frontier = vc[c].GetColor() != vc[c0].GetColor();
    }
    mesh->ElementAt(p).SetFlag(f, frontier);
    frontiers += frontier;
  }
  return frontiers;
}

} // namespace meshcore
