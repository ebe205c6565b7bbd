// glTF export speed: the 1000 x 1000 Lightwave grid with texture coordinates
// saved as one GLB file through C3DIo. Output megabytes per second of wall time.

#include "meshcore/formats/gltf/gltf_io.h"
#include "meshcore/formats/library.h"
#include "meshcore/formats/lightwave/detail/lwo_writer.h"
#include "meshcore/formats/lightwave/lightwave_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <memory>

using namespace meshcore;

namespace {

std::unique_ptr<C3DScene> GridScene(int n) {
  st_lwObject object;
  object.tags = {"Grid"};
  st_lwLayer& layer = object.layers.emplace_back();
  layer.name = "grid";
  layer.parent = 0xFFFF;
  const int side = n + 1;
  st_lwVMap& uv = layer.vmaps.emplace_back();
  uv.type = lwid::TXUV;
  uv.dimension = 2;
  uv.name = "uv";
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      layer.points.push_back({{float(x), float(y), float((x * 7 + y * 3) % 5) * 0.1f}});
      uv.points.push_back(std::uint32_t(y * side + x));
      uv.values.push_back(float(x) / float(n));
      uv.values.push_back(float(y) / float(n));
    }
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) {
      const auto a = std::uint32_t(y * side + x), s = std::uint32_t(side);
      st_lwPolygon p;
      p.tag = 0;
      p.firstVertex = std::uint32_t(layer.polygonVertices.size());
      p.vertexCount = 4;
      layer.polygonVertices.insert(layer.polygonVertices.end(), {a, a + s, a + s + 1, a + 1});
      layer.polygons.push_back(p);
    }
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
