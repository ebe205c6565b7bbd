// OpenSubdiv's side of the subdivision rows: uniform refinement of the shared
// control grid to level 4 with the positions interpolated level by level,
// timed from the control mesh (building the topology refiner included) to the
// last level's positions.

#include "bench/subdivide_grids.h"

#include <opensubdiv/far/primvarRefiner.h>
#include <opensubdiv/far/topologyDescriptor.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace {

using namespace OpenSubdiv;

struct Position {
  float x, y, z;
  void Clear(void* = nullptr) { x = y = z = 0.0f; }
  void AddWithWeight(const Position& p, float w) {
    x += w * p.x;
    y += w * p.y;
    z += w * p.z;
  }
};

void RefineRow(benchmark::State& state, bool triangles) {
  const meshcore::bench::ControlGrid grid =
      meshcore::bench::MakeControlGrid(meshcore::bench::kSubdivideGridSide, triangles);
  const int level = meshcore::bench::kSubdivideLevel;
  int faces = 0;
  for (auto _ : state) {
    const double start = meshcore::bench::WallSeconds();
    using Factory = Far::TopologyRefinerFactory<Far::TopologyDescriptor>;
    Far::TopologyDescriptor desc;
    desc.numVertices = static_cast<int>(grid.xyz.size() / 3);
    desc.numFaces = static_cast<int>(grid.faceSizes.size());
    desc.numVertsPerFace = grid.faceSizes.data();
    desc.vertIndicesPerFace = grid.faceCorners.data();
    Sdc::Options options;
    options.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_ONLY);
    std::unique_ptr<Far::TopologyRefiner> refiner(Factory::Create(
        desc, Factory::Options(triangles ? Sdc::SCHEME_LOOP : Sdc::SCHEME_CATMARK, options)));
    refiner->RefineUniform(Far::TopologyRefiner::UniformOptions(level));
    std::vector<Position> positions(static_cast<std::size_t>(refiner->GetNumVerticesTotal()));
    for (std::size_t i = 0; i < grid.xyz.size() / 3; ++i)
      positions[i] = {grid.xyz[3 * i], grid.xyz[3 * i + 1], grid.xyz[3 * i + 2]};
    Far::PrimvarRefiner primvars(*refiner);
    Position* src = positions.data();
    for (int l = 1; l <= level; ++l) {
      Position* dst = src + refiner->GetLevel(l - 1).GetNumVertices();
      primvars.Interpolate(l, src, dst);
      src = dst;
    }
    benchmark::DoNotOptimize(src);
    state.SetIterationTime(meshcore::bench::WallSeconds() - start);
    faces = refiner->GetLevel(level).GetNumFaces();
  }
  state.counters["faces"] = faces;
}

void BM_SubdivLoop(benchmark::State& state) {
  RefineRow(state, true);
}
void BM_SubdivCatmark(benchmark::State& state) {
  RefineRow(state, false);
}
BENCHMARK(BM_SubdivLoop)
    ->Name("subdiv_loop@opensubdiv")
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SubdivCatmark)
    ->Name("subdiv_catmark@opensubdiv")
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

} // namespace
