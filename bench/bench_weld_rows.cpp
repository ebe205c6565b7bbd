// The welding rows of the side-by-side table: a tolerance weld of the loose
// grid (bench/weld_grids.h), against the exact-dedupe peer on the same points
// in bench/peers/meshoptimizer.cpp. Each iteration welds a fresh grid, built
// and freed untimed; both sides are timed in thread CPU time.

#include "bench/bench_support.h"
#include "bench/weld_grids.h"
#include "meshcore/operations/weld.h"

#include <benchmark/benchmark.h>

namespace {

using namespace meshcore;

void WeldRow(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    auto obj = bench::MakeLooseGrid(n);
    int points = 0, faces = 0;
    const double start = bench::ThreadCpuSeconds();
    Weld3DPoints(*obj, bench::kLooseGridTolerance, points, faces);
    state.SetIterationTime(bench::ThreadCpuSeconds() - start);
    if (obj->GetPointNbr() != (n + 1) * (n + 1) || obj->GetFaceNbr() != n * n) {
      state.SkipWithError("wrong weld");
      return;
    }
  }
}

BENCHMARK(WeldRow)
    ->Name("weld_1m@meshcore")
    ->Arg(500)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(WeldRow)
    ->Name("weld_4m@meshcore")
    ->Arg(1000)
    ->UseManualTime()
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond);

} // namespace
