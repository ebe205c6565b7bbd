#pragma once
// For a texture or colour channel: which channel points each mesh point uses,
// and in which faces. Records are grouped by mesh point (one contiguous run per
// point) in face order, then corner order.

#include "meshcore/mesh/face_list.h"

#include <algorithm>
#include <vector>

namespace meshcore {

// One use of a channel point by a mesh point: the channel point and the face.
struct _ChannelConnectionInfo {
  int pointIndex;
  int faceIndex;
};
using _UVWConnectionInfo = _ChannelConnectionInfo;
using _VCConnectionInfo = _ChannelConnectionInfo;

template <class Rec> class CChannelPointGraph {
public:
  bool IsBuilt() const { return m_built; }
  void Clear() {
    m_offsets.clear();
    m_records.clear();
    m_built = false;
  }

  // Corner k of mesh face i uses channel point channel[i][k]. Faces the channel
  // excludes (FACE_EXCLUDED), mesh indices outside [0, meshPointCount) and
  // corners a channel face lacks are skipped.
  void Build(const CFaceList& mesh, const CFaceList& channel, int meshPointCount) {
    Clear();
    m_built = true;
    const int faceCount = std::min(mesh.GetSize(), channel.GetSize());
    if (mesh.GetSize() == 0 || meshPointCount <= 0)
      return;
    m_offsets.assign(static_cast<std::size_t>(meshPointCount) + 1, 0);
    // Two passes (count, then place) keep the build linear without per-point arrays.
    for (int pass = 0; pass < 2; ++pass) {
      if (pass == 1) {
        for (std::size_t p = 1; p < m_offsets.size(); ++p)
          m_offsets[p] += m_offsets[p - 1];
        m_records.resize(static_cast<std::size_t>(m_offsets.back()));
      }
      for (int i = 0; i < faceCount; ++i) {
        const CFace& cf = channel[i];
        if (cf.IsFlagSet(FACE_EXCLUDED))
          continue;
        const CFace& mf = mesh[i];
        const int n = std::min(mf.GetSize(), cf.GetSize());
        for (int k = 0; k < n; ++k) {
          const int p = mf[k];
          if (p < 0 || p >= meshPointCount)
            continue;
          if (pass == 0)
            ++m_offsets[static_cast<std::size_t>(p) + 1];
          else
            m_records[static_cast<std::size_t>(m_offsets[static_cast<std::size_t>(p)]++)] =
                Rec{cf[k], i};
        }
      }
    }
    // The placing pass moved every start to the next point's start; shift back.
    for (std::size_t p = m_offsets.size() - 1; p > 0; --p)
      m_offsets[p] = m_offsets[p - 1];
    m_offsets[0] = 0;
  }

  // The records of a mesh point, or null when it has none.
  const Rec* Get(int meshPoint, int& count) const {
    count = 0;
    if (meshPoint < 0 || static_cast<std::size_t>(meshPoint) + 1 >= m_offsets.size())
      return nullptr;
    const int begin = m_offsets[static_cast<std::size_t>(meshPoint)];
    count = m_offsets[static_cast<std::size_t>(meshPoint) + 1] - begin;
    return count ? m_records.data() + begin : nullptr;
  }
  // The channel point the mesh point uses in face, or -1.
  int GetChannelPoint(int meshPoint, int face) const {
    int count = 0;
    const Rec* r = Get(meshPoint, count);
    for (int i = 0; i < count; ++i)
      if (r[i].faceIndex == face)
        return r[i].pointIndex;
    return -1;
  }

private:
  std::vector<int> m_offsets; // records of point p: [m_offsets[p], m_offsets[p + 1])
  std::vector<Rec> m_records;
  bool m_built = false;
};

} // namespace meshcore
