// The general import library reading the same generated files as our read
// rows: a raw import (no post-processing step), the scene freed untimed as
// ours is.

#include "bench/bench_support.h"
#include "bench/cob_grid_file.h"
#include "bench/dxf_faces_file.h"
#include "bench/lwo_grid_file.h"
#include "bench/obj_grid_file.h"
#include "bench/read_counts.h"
#include "bench/tds_grid_file.h"

#include <assimp/Importer.hpp>
#include <assimp/scene.h>
#include <benchmark/benchmark.h>

#include <string>

namespace {

using namespace meshcore;

using FileOf = const std::string& (*)();

void BM_AssimpRead(benchmark::State& state, FileOf file) {
  bench::FixAllocatorThresholds();
  const std::string& path = file();
  Assimp::Importer importer;
  bench::ReadCounts counts;
  for (auto _ : state) {
    const aiScene* scene = importer.ReadFile(path, 0);
    state.PauseTiming(); // counting and freeing are not part of loading
    if (!scene) {
      state.SkipWithError(importer.GetErrorString());
      return;
    }
    counts = {};
    for (unsigned i = 0; i < scene->mNumMeshes; ++i) {
      counts.faces += scene->mMeshes[i]->mNumFaces;
      counts.vertices += scene->mMeshes[i]->mNumVertices;
    }
    importer.FreeScene();
    state.ResumeTiming();
  }
  bench::ReportRead(state, path, counts);
}

const std::string& ObjFile() {
  return bench::ObjGridFile(1000);
}
const std::string& LwoFile() {
  return bench::LwoGridFile(1000);
}

} // namespace

BENCHMARK_CAPTURE(BM_AssimpRead, obj, ObjFile)
    ->Name("read_obj@assimp")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_AssimpRead, tds, meshcore::bench::TdsGridFile)
    ->Name("read_3ds@assimp")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_AssimpRead, dxf, meshcore::bench::DxfFacesFile)
    ->Name("read_dxf@assimp")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_AssimpRead, cob, meshcore::bench::CobGridFile)
    ->Name("read_cob@assimp")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_AssimpRead, lwo, LwoFile)
    ->Name("read_lwo@assimp")
    ->Unit(benchmark::kMillisecond);
