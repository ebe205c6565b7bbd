#include "meshcore/formats/maya/detail/maya_edges.h"

#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/platform/cancel.h"

#include <cstddef>

namespace meshcore::maya {

bool NumberEdges(const C3DFaceList& faces, const std::vector<int>& written, int pointCount,
                 EdgeNumbering& out, CCancelCheck& cancel) {
  // Edges are looked up in buckets by their smaller point: faces of large
  // meshes visit neighbouring points, so the buckets stay in cache where a
  // hash of every side would miss it at each step.
  std::vector<int> start(std::size_t(pointCount) + 1, 0);
  std::size_t corners = 0;
  for (int f : written) {
    const C3DFace& face = faces[f];
    const int n = face.GetSize();
    corners += std::size_t(n);
    for (int k = 0; k < n; ++k) {
      const int a = face[k], b = face[k + 1 < n ? k + 1 : 0];
      ++start[std::size_t(a < b ? a : b) + 1];
    }
  }
  for (std::size_t i = 1; i < start.size(); ++i)
    start[i] += start[i - 1];

  struct Slot {
    int higher;
    int edge;
  };
  std::vector<Slot> slots(corners);
  std::vector<int> used(std::size_t(pointCount), 0);
  out.edges.clear();
  out.edges.reserve(corners / 2 + 1);
  out.sides.clear();
  out.sides.reserve(corners);
  for (int f : written) {
    if (cancel.Tick())
      return false;
    const C3DFace& face = faces[f];
    const int n = face.GetSize();
    for (int k = 0; k < n; ++k) {
      const int a = face[k], b = face[k + 1 < n ? k + 1 : 0];
      const int lo = a < b ? a : b, hi = a < b ? b : a;
      Slot* bucket = slots.data() + start[std::size_t(lo)];
      int& count = used[std::size_t(lo)];
      int edge = -1;
      for (int i = 0; i < count; ++i)
        if (bucket[i].higher == hi) {
          edge = bucket[i].edge;
          break;
        }
      if (edge < 0) {
        edge = int(out.edges.size());
        out.edges.push_back(C3DEdge(lo, hi));
        bucket[count++] = {hi, edge};
      }
      out.sides.push_back(a < b ? edge : ~edge);
    }
  }
  return true;
}

} // namespace meshcore::maya
