// tinyobjloader reading the generated grid of our OBJ read row. Options:
// triangulate = false, so that both sides keep the quads, and
// default_vcols_fallback = false, so that it makes no vertex colours the file
// does not have (we make none either). The result is freed untimed, as ours is.

#include "bench/bench_support.h"
#include "bench/obj_grid_file.h"
#include "bench/read_counts.h"

#include <benchmark/benchmark.h>
#include <tiny_obj_loader.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace meshcore;

struct Loaded {
  tinyobj::attrib_t attrib;
  std::vector<tinyobj::shape_t> shapes;
  std::vector<tinyobj::material_t> materials;
};

void BM_TinyObjRead(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  const std::string& path = bench::ObjGridFile(int(state.range(0)));
  const std::string folder = std::filesystem::path(path).parent_path().string() + "/";
  bench::ReadCounts counts;
  for (auto _ : state) {
    auto loaded = std::make_unique<Loaded>();
    std::string warn, err;
    const bool ok = tinyobj::LoadObj(&loaded->attrib, &loaded->shapes, &loaded->materials, &warn,
                                     &err, path.c_str(), folder.c_str(), false, false);
    state.PauseTiming(); // counting and freeing are not part of loading
    if (!ok) {
      state.SkipWithError(err.c_str());
      return;
    }
    counts = {0, loaded->attrib.vertices.size() / 3};
    for (const auto& shape : loaded->shapes)
      counts.faces += shape.mesh.num_face_vertices.size();
    loaded.reset();
    state.ResumeTiming();
  }
  bench::ReportRead(state, path, counts);
}

} // namespace

BENCHMARK(BM_TinyObjRead)->Name("read_obj@tinyobjloader")->Arg(1000)->Unit(benchmark::kMillisecond);
