#pragma once
// The control meshes of the subdivision rows, as plain arrays so that our
// benchmark and a peer's build their meshes from the same numbers: an n x n
// grid of (n + 1)^2 shared points with a little relief, made of quads or of
// quads cut into two triangles.

#include <ctime>
#include <vector>

namespace meshcore::bench {

struct ControlGrid {
  std::vector<float> xyz;       // three floats per point
  std::vector<int> faceSizes;   // corners per face
  std::vector<int> faceCorners; // point indices, face after face
};

inline ControlGrid MakeControlGrid(int n, bool triangles) {
  ControlGrid g;
  g.xyz.reserve(static_cast<std::size_t>(3 * (n + 1) * (n + 1)));
  for (int j = 0; j <= n; ++j)
    for (int i = 0; i <= n; ++i) {
      g.xyz.push_back(static_cast<float>(i));
      g.xyz.push_back(static_cast<float>(j));
      g.xyz.push_back(static_cast<float>((i * 7 + j * 3) % 5) * 0.1f);
    }
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) {
      const int a = j * (n + 1) + i, b = a + 1, c = a + n + 2, d = a + n + 1;
      if (triangles) {
        g.faceSizes.insert(g.faceSizes.end(), {3, 3});
        g.faceCorners.insert(g.faceCorners.end(), {a, b, c, a, c, d});
      } else {
        g.faceSizes.push_back(4);
        g.faceCorners.insert(g.faceCorners.end(), {a, b, c, d});
      }
    }
  return g;
}

// The rows' grid side and level: 100 x 100 to level 4.
inline constexpr int kSubdivideGridSide = 100;
inline constexpr int kSubdivideLevel = 4;

// Both sides time wall-clock seconds: our large patches build their records
// on a second thread, which a thread's CPU time would leave out.
inline double WallSeconds() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

} // namespace meshcore::bench
