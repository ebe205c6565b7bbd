// The subdivision rows of the peer table: a patch built from the shared
// control grid and taken to level 4, timed from the control mesh to the
// subdivided lists, as a host gets them from SetLevel.

#include "bench/subdivide_grids.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/operations/subdivide.h"
#include "meshcore/scene/patch_3d.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <memory>

namespace {

using namespace meshcore;

std::unique_ptr<C3DPatch> PatchOf(const bench::ControlGrid& g) {
  auto patch = std::make_unique<C3DPatch>();
  patch->SetPointList(new C3DPointList);
  patch->SetFaceList(new C3DFaceList);
  C3DPointList& pts = *patch->GetPointList();
  C3DFaceList& faces = *patch->GetFaceList();
  pts.SetSize(static_cast<int>(g.xyz.size() / 3));
  for (int i = 0; i < pts.GetSize(); ++i) {
    pts[i].x = g.xyz[3 * static_cast<std::size_t>(i)];
    pts[i].y = g.xyz[3 * static_cast<std::size_t>(i) + 1];
    pts[i].z = g.xyz[3 * static_cast<std::size_t>(i) + 2];
  }
  faces.SetSize(static_cast<int>(g.faceSizes.size()));
  std::size_t c = 0;
  for (int f = 0; f < faces.GetSize(); ++f) {
    C3DFace& face = faces[f];
    face.SetSize(g.faceSizes[static_cast<std::size_t>(f)]);
    for (int k = 0; k < face.GetSize(); ++k)
      face[k] = g.faceCorners[c++];
  }
  return patch;
}

double ProcessSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

void SubdivideRow(benchmark::State& state, bool triangles) {
  const bench::ControlGrid grid = bench::MakeControlGrid(bench::kSubdivideGridSide, triangles);
  int faces = 0;
  double process = 1e9;
  for (auto _ : state) {
    std::unique_ptr<C3DPatch> patch = PatchOf(grid);
    const double start = bench::WallSeconds(), processStart = ProcessSeconds();
    patch->SetLevel(bench::kSubdivideLevel);
    state.SetIterationTime(bench::WallSeconds() - start);
    process = std::min(process, ProcessSeconds() - processStart);
    faces = patch->GetFaceNbr();
  }
  state.counters["faces"] = faces;
  // Large patches get their records constructed on a second thread: the best
  // whole-process CPU time shows what that costs beside the wall time saved.
  state.counters["process_ms"] = process * 1e3;
}

void BM_SubdivLoop(benchmark::State& state) {
  SubdivideRow(state, true);
}
void BM_SubdivCatmark(benchmark::State& state) {
  SubdivideRow(state, false);
}
BENCHMARK(BM_SubdivLoop)
    ->Name("subdiv_loop@meshcore")
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SubdivCatmark)
    ->Name("subdiv_catmark@meshcore")
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

} // namespace
