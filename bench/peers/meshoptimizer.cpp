// meshoptimizer's exact dedupe on the loose grid of our welding rows: the
// vertex remap of the positions as 12-byte vertices, then the welded vertex
// and index buffers, so that both sides end with the welded mesh. Timed in
// thread CPU time, as our rows are; the output buffers are freed untimed.
// The peer takes triangle lists only: the grid's quads list every point once,
// in point order, so the remap runs on the points as an unindexed list, and
// the quads' index buffer goes through the peer's index remap in a length it
// takes (a multiple of three) with the last one or two indices done here.

#include "bench/bench_support.h"
#include "bench/weld_grids.h"

#include <benchmark/benchmark.h>
#include <meshoptimizer.h>

#include <memory>

namespace {

using namespace meshcore;

void DedupeRow(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  const int n = static_cast<int>(state.range(0));
  const bench::LooseGridArrays grid = bench::MakeLooseGridArrays(n);
  const std::size_t points = grid.xyz.size() / 3, corners = grid.corners.size();
  for (auto _ : state) {
    const double start = bench::ThreadCpuSeconds();
    std::unique_ptr<unsigned[]> remap(new unsigned[points]);
    const std::size_t unique = meshopt_generateVertexRemap(
        remap.get(), nullptr, points, grid.xyz.data(), points, 3 * sizeof(float));
    std::unique_ptr<float[]> xyz(new float[3 * unique]);
    meshopt_remapVertexBuffer(xyz.get(), grid.xyz.data(), points, 3 * sizeof(float), remap.get());
    std::unique_ptr<unsigned[]> indices(new unsigned[corners]);
    const std::size_t whole = corners - corners % 3;
    meshopt_remapIndexBuffer(indices.get(), grid.corners.data(), whole, remap.get());
    for (std::size_t k = whole; k < corners; ++k)
      indices[k] = remap[grid.corners[k]];
    state.SetIterationTime(bench::ThreadCpuSeconds() - start);
    benchmark::DoNotOptimize(indices.get());
    if (unique != static_cast<std::size_t>(n + 1) * static_cast<std::size_t>(n + 1)) {
      state.SkipWithError("wrong dedupe");
      return;
    }
  }
}

BENCHMARK(DedupeRow)
    ->Name("weld_1m@meshoptimizer")
    ->Arg(500)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(DedupeRow)
    ->Name("weld_4m@meshoptimizer")
    ->Arg(1000)
    ->UseManualTime()
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond);

} // namespace
