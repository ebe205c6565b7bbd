// Loading and saving a large ascii trueSpace file: the whole codec through
// C3DIo against a floor that only reads the file and converts every number
// on it with from_chars. The file (one mesh of 400 x 400 quads with texture
// coordinates, 160 000 faces) is generated on first use.

#include "bench/bench_support.h"
#include "meshcore/formats/library.h"
#include "meshcore/formats/truespace/detail/cob_file.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

using namespace meshcore;

namespace {

constexpr int kSide = 400;

const std::string& BigFile() {
  static const std::string path = [] {
    std::string p = (std::filesystem::temp_directory_path() / "meshcore_bench_grid.cob").string();
    cob::File file;
    cob::Node& mesh = file.nodes.emplace_back();
    mesh.id = 1;
    mesh.name = "Grid";
    const int n = kSide + 1;
    for (int y = 0; y < n; ++y)
      for (int x = 0; x < n; ++x) {
        mesh.points.insert(mesh.points.end(),
                           {float(x) * 0.01f, float(y) * 0.01f, float((x * 7 + y * 3) % 5) * 0.1f});
        mesh.uvs.insert(mesh.uvs.end(), {float(x) / kSide, float(y) / kSide});
      }
    for (int y = 0; y < kSide; ++y)
      for (int x = 0; x < kSide; ++x) {
        const auto a = std::uint32_t(y * n + x);
        mesh.faces.push_back({std::uint32_t(mesh.corners.size()), 4, 0});
        for (std::uint32_t v : {a, a + 1, a + 1 + std::uint32_t(n), a + std::uint32_t(n)})
          mesh.corners.push_back({v, v});
      }
    file.materials.push_back({});
    file.materials.back().parent = 1;
    const std::string text = cob::WriteAscii(file);
    std::FILE* out = std::fopen(p.c_str(), "wb");
    std::fwrite(text.data(), 1, text.size(), out);
    std::fclose(out);
    return p;
  }();
  return path;
}

void BM_TruespaceLoad(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  InitMeshcore();
  const std::string& path = BigFile();
  const std::size_t faces = bench::TimedLoads(state, path);
  state.counters["faces"] = double(faces);
  state.counters["file_MB"] = double(std::filesystem::file_size(path)) / 1e6;
}

// Reads the file and converts every token that is a number: the least any
// reader of the text must do.
void BM_TruespaceFloor(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  const std::string& path = BigFile();
  for (auto _ : state) {
    const std::size_t size = std::filesystem::file_size(path);
    std::string bytes(size, '\0');
    std::FILE* f = std::fopen(path.c_str(), "rb");
    const bool ok = std::fread(bytes.data(), 1, size, f) == size;
    std::fclose(f);
    if (!ok) {
      state.SkipWithError("read failed");
      return;
    }
    std::vector<float> numbers;
    numbers.reserve(size / 4);
    const char* p = bytes.data();
    const char* end = p + size;
    while (p < end) {
      while (p < end && !((*p >= '0' && *p <= '9') || *p == '-'))
        ++p;
      float v = 0;
      const auto r = std::from_chars(p, end, v);
      if (r.ec == std::errc())
        numbers.push_back(v);
      p = r.ptr == p ? p + 1 : r.ptr;
    }
    benchmark::DoNotOptimize(numbers.data());
  }
}

void BM_TruespaceSave(benchmark::State& state) {
  InitMeshcore();
  C3DIo in(BigFile(), FILE_PARSER_SILENT);
  std::unique_ptr<C3DScene> scene(in.Read(0, 0));
  if (!scene) {
    state.SkipWithError("read failed");
    return;
  }
  const std::string out =
      (std::filesystem::temp_directory_path() / "meshcore_bench_grid_out.cob").string();
  for (auto _ : state) {
    C3DIo io(out, FILE_PARSER_SILENT);
    if (io.Save(0, scene.get(), 0) != 1) {
      state.SkipWithError("save failed");
      return;
    }
  }
  std::filesystem::remove(out);
}

} // namespace

BENCHMARK(BM_TruespaceLoad)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_TruespaceFloor)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_TruespaceSave)->Unit(benchmark::kMillisecond)->MinTime(1.0);
