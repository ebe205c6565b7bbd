// Reading and writing a large Wavefront OBJ: the whole codec through C3DIo
// against a floor that only reads the file and parses its numbers into flat
// arrays with std::from_chars. The file (bench/obj_grid_file.h) is the one the
// peers' read rows load.

#include "bench/bench_support.h"
#include "bench/obj_grid_file.h"
#include "bench/read_counts.h"
#include "meshcore/formats/library.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

using namespace meshcore;

namespace {

void BM_WavefrontRead(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  InitMeshcore();
  const std::string& path = bench::ObjGridFile(int(state.range(0)));
  bench::ReportRead(state, path, bench::TimedSceneLoads(state, path));
}

// Reads the file and parses every number of v, vt, vn and f into flat arrays.
void BM_WavefrontFloor(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  const std::string& path = bench::ObjGridFile(int(state.range(0)));
  std::size_t corners = 0;
  for (auto _ : state) {
    const std::size_t size = std::filesystem::file_size(path);
    std::unique_ptr<char[]> bytes(new char[size]);
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (std::fread(bytes.get(), 1, size, f) != size) {
      std::fclose(f);
      state.SkipWithError("read failed");
      return;
    }
    std::fclose(f);
    std::vector<float> v, vt, vn;
    std::vector<int> idx;
    const char* p = bytes.get();
    const char* end = p + size;
    while (p < end) {
      const char* eol = static_cast<const char*>(std::memchr(p, '\n', std::size_t(end - p)));
      if (!eol)
        eol = end;
      if (p[0] == 'v' || p[0] == 'f') {
        std::vector<float>* out = p[0] == 'f'   ? nullptr
                                  : p[1] == 't' ? &vt
                                  : p[1] == 'n' ? &vn
                                                : &v;
        p += out == &v || !out ? 1 : 2;
        while (p < eol) {
          while (p < eol && (*p == ' ' || *p == '/'))
            ++p;
          if (p >= eol)
            break;
          const char* start = p;
          if (out) {
            float x = 0;
            p = std::from_chars(p, eol, x).ptr;
            out->push_back(x);
          } else {
            int i = 0;
            p = std::from_chars(p, eol, i).ptr;
            idx.push_back(i);
          }
          if (p == start)
            ++p;
        }
      }
      p = eol + 1;
    }
    corners = idx.size() / 3;
    benchmark::DoNotOptimize(v.data());
    benchmark::DoNotOptimize(idx.data());
  }
  state.SetBytesProcessed(std::int64_t(std::filesystem::file_size(path)) * state.iterations());
  state.counters["corners"] = double(corners);
}

void BM_WavefrontWrite(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  InitMeshcore();
  const std::string& path = bench::ObjGridFile(int(state.range(0)));
  C3DIo in(path, FILE_PARSER_SILENT);
  std::unique_ptr<C3DScene> scene(in.Read(0, 0));
  if (!scene) {
    state.SkipWithError("read failed");
    return;
  }
  const std::string out =
      (std::filesystem::temp_directory_path() / "meshcore_bench_written.obj").string();
  for (auto _ : state) {
    C3DIo io(out, FILE_PARSER_SILENT);
    if (!io.Save(0, scene.get(), 0)) {
      state.SkipWithError("save failed");
      return;
    }
  }
  const auto bytes = std::filesystem::file_size(out);
  state.SetBytesProcessed(std::int64_t(bytes) * state.iterations());
  state.counters["file_MB"] = double(bytes) / 1e6;
  std::filesystem::remove(out);
}

} // namespace

BENCHMARK(BM_WavefrontRead)
    ->Name("read_obj@meshcore")
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);
BENCHMARK(BM_WavefrontFloor)
    ->Name("read_obj@floor")
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);
BENCHMARK(BM_WavefrontWrite)->Arg(1000)->Unit(benchmark::kMillisecond)->MinTime(2.0);
