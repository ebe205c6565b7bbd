// Reading speed of the VRML 1.0 parser on a large indexed face set: an N x N grid of
// quads with texture coordinates (bench/vrml_grid_file.h, the file the peers'
// read rows load).

#include "bench/bench_support.h"
#include "bench/read_counts.h"
#include "bench/vrml_grid_file.h"
#include "meshcore/formats/library.h"
#include "meshcore/formats/vrml/vrml_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/vrml_parser/qv_graph.h"
#include "meshcore/vrml_parser/qv_nodes.h"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>

namespace {

using namespace meshcore;

void BM_VrmlReadGridFile(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::string& path = bench::VrmlGridFile(n);
  const auto bytes = static_cast<std::int64_t>(std::filesystem::file_size(path));
  std::size_t faces = 0;
  for (auto _ : state) {
    QvTextSource in;
    in.SetFile(path);
    std::unique_ptr<QvGraph> graph = QvGraph::Read(in);
    if (!graph) {
      state.SkipWithError("the grid file did not parse");
      return;
    }
    auto* sep = static_cast<QvGroup*>(graph->GetRoot());
    faces =
        static_cast<const QvIndexedFaceSet*>(sep->children.back())->coordIndex.values.size() / 5;
    benchmark::DoNotOptimize(graph);
  }
  state.SetBytesProcessed(state.iterations() * bytes);
  state.counters["MB"] = double(bytes) / 1e6;
  state.counters["faces"] = double(faces);
}
BENCHMARK(BM_VrmlReadGridFile)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

// The whole read through the front door: parse, build the scene's objects,
// materials and texture channel. Floor: 100 MB/s.
void BM_VrmlCodecReadGrid(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  InitMeshcore();
  const std::string& path = bench::VrmlGridFile(int(state.range(0)));
  bench::ReportRead(state, path, bench::TimedSceneLoads(state, path));
}
BENCHMARK(BM_VrmlCodecReadGrid)->Arg(100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_VrmlCodecReadGrid)
    ->Name("read_vrml@meshcore")
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond);

// Writing the scene read from the grid back as VRML text, in memory (the file
// write itself is the system's). Floor: 100 MB/s of text produced.
void BM_VrmlCodecWriteGrid(benchmark::State& state) {
  InitMeshcore();
  const int n = static_cast<int>(state.range(0));
  C3DIo io(bench::VrmlGridFile(n), FILE_PARSER_LOADING | FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  std::unique_ptr<C3DScene> scene = io.ReadScene();
  if (!scene) {
    state.SkipWithError("the grid file did not read");
    return;
  }
  std::size_t bytes = 0;
  for (auto _ : state) {
    C3DIo out("grid.wrl", FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
    CVrmlIo codec(out);
    std::string text;
    if (!codec.SaveToMemory(scene.get(), 0, text)) {
      state.SkipWithError("the scene did not write");
      return;
    }
    bytes = text.size();
    benchmark::DoNotOptimize(text);
  }
  state.SetBytesProcessed(state.iterations() * std::int64_t(bytes));
  state.counters["MB"] = double(bytes) / 1e6;
}
BENCHMARK(BM_VrmlCodecWriteGrid)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

} // namespace
