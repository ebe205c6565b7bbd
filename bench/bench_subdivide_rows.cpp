// The subdivision rows of the peer table: a patch built from the shared
// control grid and taken to level 4, timed from the control mesh to the
// subdivided lists, as a host gets them from SetLevel.

#include "bench/subdivide_grids.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/operations/subdivide.h"
#include "meshcore/scene/patch_3d.h"

#include <benchmark/benchmark.h>

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

void SubdivideRow(benchmark::State& state, bool triangles) {
  const bench::ControlGrid grid = bench::MakeControlGrid(bench::kSubdivideGridSide, triangles);
  int faces = 0;
  for (auto _ : state) {
    std::unique_ptr<C3DPatch> patch = PatchOf(grid);
    const double start = bench::ThreadSeconds();
    patch->SetLevel(bench::kSubdivideLevel);
    state.SetIterationTime(bench::ThreadSeconds() - start);
    faces = patch->GetFaceNbr();
  }
  state.counters["faces"] = faces;
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
