// Loading and saving a large ascii trueSpace file: the whole codec through
// C3DIo against a floor that only reads the file and converts every number
// on it with from_chars. The file (bench/cob_grid_file.h, 160 000 quads) is
// the one the peers' read rows load.

#include "bench/bench_support.h"
#include "bench/cob_grid_file.h"
#include "bench/read_counts.h"
#include "meshcore/formats/library.h"
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

void BM_TruespaceLoad(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  InitMeshcore();
  const std::string& path = bench::CobGridFile();
  bench::ReportRead(state, path, bench::TimedSceneLoads(state, path));
}

// Reads the file and converts every token that is a number: the least any
// reader of the text must do.
void BM_TruespaceFloor(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  const std::string& path = bench::CobGridFile();
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
  C3DIo in(bench::CobGridFile(), FILE_PARSER_SILENT);
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

BENCHMARK(BM_TruespaceLoad)->Name("read_cob@meshcore")->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_TruespaceFloor)->Name("read_cob@floor")->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_TruespaceSave)->Unit(benchmark::kMillisecond)->MinTime(1.0);
