// lib3ds (1.3) reading the generated file of our 3DS read row; the file it
// returns is freed untimed, as our scene is.

#include "bench/bench_support.h"
#include "bench/read_counts.h"
#include "bench/tds_grid_file.h"

#include <benchmark/benchmark.h>
#include <lib3ds/file.h>
#include <lib3ds/mesh.h>

#include <string>

namespace {

using namespace meshcore;

void BM_Lib3dsRead(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  const std::string& path = bench::TdsGridFile();
  bench::ReadCounts counts;
  for (auto _ : state) {
    Lib3dsFile* file = lib3ds_file_load(path.c_str());
    state.PauseTiming(); // counting and freeing are not part of loading
    if (!file) {
      state.SkipWithError("lib3ds_file_load failed");
      return;
    }
    counts = {};
    for (Lib3dsMesh* mesh = file->meshes; mesh; mesh = mesh->next) {
      counts.faces += mesh->faces;
      counts.vertices += mesh->points;
    }
    lib3ds_file_free(file);
    state.ResumeTiming();
  }
  bench::ReportRead(state, path, counts);
}

} // namespace

BENCHMARK(BM_Lib3dsRead)->Name("read_3ds@lib3ds")->Unit(benchmark::kMillisecond);
