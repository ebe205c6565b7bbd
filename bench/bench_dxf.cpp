// Reading a large DXF drawing: the whole codec through C3DIo against a floor
// that only reads the file and parses its group-code pairs (codes as integers,
// coordinates as doubles). The file (bench/dxf_faces_file.h, 200 000 3DFACE
// entities, about 50 MB) is the one the peers' read rows load.

#include "bench/bench_support.h"
#include "bench/dxf_faces_file.h"
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

void BM_DxfRead(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  InitMeshcore();
  const std::string& path = bench::DxfFacesFile();
  bench::ReportRead(state, path, bench::TimedSceneLoads(state, path));
}

// Reads the file and parses every pair: the code as an integer, and the
// values of coordinate codes as doubles into one flat array.
void BM_DxfFloor(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  const std::string& path = bench::DxfFacesFile();
  std::size_t values = 0;
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
    std::vector<double> coords;
    const char* p = bytes.get();
    const char* end = p + size;
    auto line = [&](const char*& start, const char*& stop) {
      const char* eol = static_cast<const char*>(std::memchr(p, '\n', std::size_t(end - p)));
      if (!eol)
        eol = end;
      start = p;
      stop = eol;
      while (start < stop && *start == ' ')
        ++start;
      p = eol + 1;
    };
    while (p < end) {
      const char *a, *b;
      line(a, b);
      int code = 0;
      std::from_chars(a, b, code);
      if (p >= end)
        break;
      line(a, b);
      if (code >= 10 && code < 40) {
        double v = 0;
        std::from_chars(a, b, v);
        coords.push_back(v);
      }
    }
    values = coords.size();
    benchmark::DoNotOptimize(coords.data());
  }
  state.SetBytesProcessed(std::int64_t(std::filesystem::file_size(path)) * state.iterations());
  state.counters["values"] = double(values);
}

} // namespace

BENCHMARK(BM_DxfRead)->Name("read_dxf@meshcore")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DxfFloor)->Name("read_dxf@floor")->Unit(benchmark::kMillisecond)->UseRealTime();
