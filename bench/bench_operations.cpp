// Welding and triangulation on generated meshes. The welding
// figures come with a floor measured in the same run: an exact-duplicate pass
// over the same points through a hash map keyed by the coordinate bits.
// Times are the thread's CPU time (the best of the iterations), which other
// load on the machine disturbs less than wall time.

#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/operations/merge_coplanar.h"
#include "meshcore/operations/triangulate.h"
#include "meshcore/operations/weld.h"
#include "meshcore/scene/object_3d.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <memory>
#include <unordered_map>
#include <vector>

namespace {

using namespace meshcore;

double CpuNow() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// An n x n grid of quads around the origin, every quad with four corners of its own.
std::unique_ptr<C3DObject> LooseGrid(int n) {
  auto obj = std::make_unique<C3DObject>(new C3DPointList, new C3DFaceList);
  C3DPointList& pts = *obj->GetPointList();
  C3DFaceList& faces = *obj->GetFaceList();
  pts.SetSize(4 * n * n);
  faces.SetSize(n * n);
  const int dx[4] = {0, 1, 1, 0}, dy[4] = {0, 0, 1, 1};
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) {
      const int f = j * n + i;
      C3DFace& face = faces[f];
      face.SetSize(4);
      for (int k = 0; k < 4; ++k) {
        C3DPoint& p = pts[4 * f + k];
        p.x = static_cast<float>(i + dx[k] - n / 2) * 0.01f;
        p.y = static_cast<float>(j + dy[k] - n / 2) * 0.01f;
        p.z = 0.0f;
        face[k] = 4 * f + k;
      }
    }
  return obj;
}

struct BitsKey {
  std::uint32_t x, y, z;
  bool operator==(const BitsKey& o) const { return x == o.x && y == o.y && z == o.z; }
};
struct BitsHash {
  std::size_t operator()(const BitsKey& k) const {
    return (static_cast<std::size_t>(k.x) * 0x9E3779B97F4A7C15ull) ^
           (static_cast<std::size_t>(k.y) * 0xC2B2AE3D27D4EB4Full) ^ (k.z * 0x165667B1ull);
  }
};

// The floor: map every point to the first point with the same coordinate bits.
double ExactDuplicatePass(const C3DPointList& pts, std::vector<int>& remap) {
  const double start = CpuNow();
  std::unordered_map<BitsKey, int, BitsHash> first;
  first.reserve(static_cast<std::size_t>(pts.GetSize()) / 2);
  remap.resize(static_cast<std::size_t>(pts.GetSize()));
  for (int i = 0; i < pts.GetSize(); ++i) {
    BitsKey k;
    std::memcpy(&k.x, &pts[i].x, 4);
    std::memcpy(&k.y, &pts[i].y, 4);
    std::memcpy(&k.z, &pts[i].z, 4);
    remap[static_cast<std::size_t>(i)] = first.emplace(k, i).first->second;
  }
  return CpuNow() - start;
}

double TimedWeld(int n, int& remaining) {
  auto obj = LooseGrid(n);
  int points = 0, faces = 0;
  const double start = CpuNow();
  Weld3DPoints(*obj, 0.001f, points, faces);
  const double t = CpuNow() - start;
  remaining = obj->GetPointNbr();
  return t;
}

// 500 x 500 loose quads (1,000,000 points, 251,001 distinct) against the
// exact-duplicate floor, and 1000 x 1000 (4,000,000 points) for linearity.
void BM_WeldLooseGrid(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  double weld = 1e30, floor = 1e30;
  int remaining = 0;
  for (auto _ : state) {
    const double w = TimedWeld(n, remaining);
    weld = std::min(weld, w);
    auto obj = LooseGrid(n);
    std::vector<int> remap;
    floor = std::min(floor, ExactDuplicatePass(*obj->GetPointList(), remap));
    benchmark::DoNotOptimize(remap.data());
    state.SetIterationTime(w);
  }
  state.counters["points"] = 4.0 * n * n;
  state.counters["remaining"] = remaining;
  state.counters["weld_s"] = weld;
  state.counters["floor_s"] = floor;
  state.counters["weld_over_floor"] = weld / floor;
}
BENCHMARK(BM_WeldLooseGrid)
    ->Arg(500)
    ->Arg(1000)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

// The best of each size over the iterations, and their ratio: a side of 1000
// has four times the work of a side of 500.
template <class Timed>
void Linearity(benchmark::State& state, Timed timed, const char* smallName, const char* largeName) {
  double small = 1e30, large = 1e30;
  for (auto _ : state) {
    const double s = timed(500), l = timed(1000);
    small = std::min(small, s);
    large = std::min(large, l);
    state.SetIterationTime(s + l);
  }
  state.counters[smallName] = small;
  state.counters[largeName] = large;
  state.counters["ratio"] = large / small;
}

// Linearity in one run: 4 million points against 1 million.
void BM_WeldLinearity(benchmark::State& state) {
  int remaining = 0;
  Linearity(
      state, [&](int n) { return TimedWeld(n, remaining); }, "weld_1M_s", "weld_4M_s");
}
BENCHMARK(BM_WeldLinearity)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

// Ear clipping of a 300 x 300 grid of loose quads (180,000 triangles).
void BM_TriangulateGrid(benchmark::State& state) {
  for (auto _ : state) {
    auto obj = LooseGrid(300);
    const double start = CpuNow();
    TriangulateObject(*obj, FACE_NONE, 1);
    state.SetIterationTime(CpuNow() - start);
  }
}
BENCHMARK(BM_TriangulateGrid)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

// A flat n x n grid of shared points, each cell cut into two triangles; the
// left and right halves have materials of their own, so the merge makes two
// polygons whose outlines keep every corner along the seam.
std::unique_ptr<C3DObject> FlatTriangleGrid(int n) {
  auto obj = std::make_unique<C3DObject>(new C3DPointList, new C3DFaceList);
  C3DPointList& pts = *obj->GetPointList();
  C3DFaceList& faces = *obj->GetFaceList();
  pts.SetSize((n + 1) * (n + 1));
  for (int j = 0; j <= n; ++j)
    for (int i = 0; i <= n; ++i) {
      C3DPoint& p = pts[j * (n + 1) + i];
      p.x = static_cast<float>(i);
      p.y = static_cast<float>(j);
    }
  faces.SetSize(2 * n * n);
  int f = 0;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) {
      const int a = j * (n + 1) + i, b = a + 1, c = a + n + 2, d = a + n + 1;
      const unsigned material = i < n / 2 ? 1u : 2u;
      faces[f].SetMaterialID(material);
      faces[f++].SetTriangle(a, b, c);
      faces[f].SetMaterialID(material);
      faces[f++].SetTriangle(a, c, d);
    }
  return obj;
}

double TimedMerge(int n, int& faces) {
  auto obj = FlatTriangleGrid(n);
  const double start = CpuNow();
  MergeCoplanarObject(*obj, 1.0f);
  const double t = CpuNow() - start;
  faces = obj->GetFaceNbr();
  return t;
}

// 2,000,000 triangles (1000 x 1000) down to two polygons, and 500 x 500.
void BM_MergeCoplanarGrid(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  int faces = 0;
  for (auto _ : state)
    state.SetIterationTime(TimedMerge(n, faces));
  state.counters["triangles"] = 2.0 * n * n;
  state.counters["faces_after"] = faces;
}
BENCHMARK(BM_MergeCoplanarGrid)
    ->Arg(500)
    ->Arg(1000)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

// Linearity in one run: 2 million triangles against half a million.
void BM_MergeCoplanarLinearity(benchmark::State& state) {
  int faces = 0;
  Linearity(
      state, [&](int n) { return TimedMerge(n, faces); }, "merge_500k_s", "merge_2M_s");
}
BENCHMARK(BM_MergeCoplanarLinearity)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

} // namespace
