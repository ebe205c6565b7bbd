#pragma once
// The loose grid the welding rows share with the exact-dedupe peer: an n x n
// grid of quads around the origin, 0.01 apart, every quad with four corners
// of its own, so that an inner corner is stored four times. n = 500 gives 1M
// points, n = 1000 gives 4M.

#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/scene/object_3d.h"

#include <ctime>
#include <memory>
#include <vector>

namespace meshcore::bench {

// Welds the grid's corners into one point per grid node.
inline constexpr float kLooseGridTolerance = 0.001f;

// Calls corner(point index, x, y, z) for corner k of quad f = j * n + i, in
// point order (point 4 * f + k).
template <class Corner> void ForEachLooseGridCorner(int n, Corner corner) {
  const int dx[4] = {0, 1, 1, 0}, dy[4] = {0, 0, 1, 1};
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i)
      for (int k = 0; k < 4; ++k)
        corner(4 * (j * n + i) + k, static_cast<float>(i + dx[k] - n / 2) * 0.01f,
               static_cast<float>(j + dy[k] - n / 2) * 0.01f, 0.0f);
}

// The grid as flat arrays: x, y, z per point and four point indices per quad.
struct LooseGridArrays {
  std::vector<float> xyz;
  std::vector<unsigned> corners;
};

inline LooseGridArrays MakeLooseGridArrays(int n) {
  LooseGridArrays g;
  g.xyz.resize(static_cast<std::size_t>(n) * n * 12);
  g.corners.resize(static_cast<std::size_t>(n) * n * 4);
  ForEachLooseGridCorner(n, [&](int p, float x, float y, float z) {
    const auto i = static_cast<std::size_t>(p);
    g.xyz[3 * i] = x;
    g.xyz[3 * i + 1] = y;
    g.xyz[3 * i + 2] = z;
    g.corners[i] = static_cast<unsigned>(p);
  });
  return g;
}

// The grid as a mesh object.
inline std::unique_ptr<C3DObject> MakeLooseGrid(int n) {
  auto obj = std::make_unique<C3DObject>(new C3DPointList, new C3DFaceList);
  C3DPointList& pts = *obj->GetPointList();
  C3DFaceList& faces = *obj->GetFaceList();
  pts.SetSize(4 * n * n);
  faces.SetSize(n * n);
  for (int f = 0; f < n * n; ++f)
    faces[f].SetSize(4);
  ForEachLooseGridCorner(n, [&](int p, float x, float y, float z) {
    pts[p].x = x;
    pts[p].y = y;
    pts[p].z = z;
    faces[p / 4][p % 4] = p;
  });
  return obj;
}

// The calling thread's CPU time in seconds: steadier than wall time on a
// shared machine, and what both sides of a welding row are timed with.
inline double ThreadCpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

} // namespace meshcore::bench
