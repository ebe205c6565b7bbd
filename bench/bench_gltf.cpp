// glTF export speed: the 1000 x 1000 Lightwave grid with texture coordinates
// saved as one GLB file through C3DIo. Output megabytes per second of wall time.

#include "meshcore/formats/gltf/gltf_io.h"
#include "meshcore/formats/library.h"
#include "meshcore/formats/lightwave/detail/lwo_writer.h"
#include "meshcore/formats/lightwave/lightwave_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"
#include "tests/support/lwo_grid.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <memory>

using namespace meshcore;

namespace {

std::unique_ptr<C3DScene> GridScene(int n) {
  const st_lwObject object = test::LwoGrid(n, true);
  CLwoWriter writer;
  WriteLightwaveObject(object, writer);
  C3DIo io("grid.lwo", FILE_PARSER_SILENT);
  CLightwaveIo codec(io);
  return std::unique_ptr<C3DScene>(
      codec.ReadFromMemory(writer.GetBuffer().data(), writer.GetBuffer().size(), 0));
}

void BM_GltfWriteGrid(benchmark::State& state) {
  InitMeshcore();
  auto scene = GridScene(int(state.range(0)));
  const std::string path =
      (std::filesystem::temp_directory_path() / "meshcore_bench_grid.glb").string();
  std::size_t bytes = 0;
  for (auto _ : state) {
    C3DIo io(path, FILE_PARSER_SILENT);
    const auto start = std::chrono::steady_clock::now();
    io.Save(0, scene.get(), 0);
    const double s =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    state.SetIterationTime(s);
    bytes = std::filesystem::file_size(path);
  }
  std::filesystem::remove(path);
  state.counters["output_MB"] = double(bytes) / 1e6;
  state.counters["MB_per_s"] =
      benchmark::Counter(double(bytes) / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_GltfWriteGrid)
    ->Arg(1000)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

} // namespace
