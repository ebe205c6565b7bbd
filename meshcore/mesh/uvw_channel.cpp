#include "meshcore/mesh/uvw_channel.h"

#include "meshcore/mesh/geom_info.h"

#include <algorithm>
#include <cmath>

namespace meshcore {

MESHCORE_IMPLEMENT_SERIAL(CUVWChannel, CChannel, 1)

namespace {

// Mesh point count of info: its point list, else the indices its faces use.
int MeshPointCount(const CGeomInfo& info, const CFaceList& mesh) {
  if (const CPointList* points = info.GetPointList())
    return points->GetSize();
  int n = 0;
  for (int f = 0; f < mesh.GetSize(); ++f)
    for (int k = 0; k < mesh[f].GetSize(); ++k)
      n = std::max(n, mesh[f][k] + 1);
  return n;
}

} // namespace

CUVWChannel::CUVWChannel(unsigned id) : CChannel(id) {
  SetInfo(CHANNEL_UVW, new CUVWPointList, new CUVWFaceList);
}

const CRuntimeClass* CUVWChannel::GetPointListClass() const {
  return MESHCORE_RUNTIME_CLASS(CUVWPointList);
}
const CRuntimeClass* CUVWChannel::GetFaceListClass() const {
  return MESHCORE_RUNTIME_CLASS(CUVWFaceList);
}

CChannel* CUVWChannel::Copy(unsigned flags) const {
  auto* c = new CUVWChannel(flags & CHANNEL_COPY_KEEP_ID ? m_id : kNoChannel);
  c->CopyFrom(*this, flags);
  return c;
}

CChannel* CUVWChannel::InitFrom(unsigned flags) const {
  return Copy(flags | CHANNEL_COPY_NO_LISTS);
}

void CUVWChannel::Create3DPointIndexToUVWPointIndexGraph(CGeomInfo* info) {
  m_graph.Clear();
  const CFaceList* mesh = info ? info->GetFaceList() : nullptr;
  if (!mesh) {
    CFaceList* none = GetFaceList();
    m_graph.Build(*none, *none, 0);
    return;
  }
  m_graph.Build(*mesh, *GetFaceList(), MeshPointCount(*info, *mesh));
}

int CUVWChannel::InitShareUVFlag(CGeomInfo* info, float tolerance, int flag) {
  if (!m_graph.IsBuilt())
    Create3DPointIndexToUVWPointIndexGraph(info);
  CPointList* mesh = info ? info->GetPointList() : nullptr;
  if (!mesh || !mesh->HasPointElements())
    return 0;
  const CUVWPointList& uv = *GetUVWPointList();
  const auto f = static_cast<_POINT_PROPERTIES>(static_cast<std::uint32_t>(flag));
  int seams = 0;
  for (int p = 0; p < mesh->GetSize(); ++p) {
    int count = 0;
    const _UVWConnectionInfo* r = m_graph.Get(p, count);
    if (!count)
      continue;
    bool seam = false;
    const int c0 = r[0].pointIndex;
    for (int i = 1; i < count && !seam; ++i) {
      const int c = r[i].pointIndex;
      if (c == c0)
        continue;
      if (c0 < 0 || c < 0 || c0 >= uv.GetSize() || c >= uv.GetSize()) {
        seam = true;
        break;
      }
      for (int a = 0; a < 3; ++a)
        if (std::fabs(uv[c][a] - uv[c0][a]) > tolerance)
          seam = true;
    }
    mesh->ElementAt(p).SetFlag(f, seam);
    seams += seam;
  }
  return seams;
}

} // namespace meshcore
