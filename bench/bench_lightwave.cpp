// Loading a large Lightwave object: the whole codec through C3DIo against a
// floor that only reads the file and decodes its points and polygons into
// flat arrays. The file (an N x N grid of quads, three surfaces, a per-point
// texture map) is generated on first use.

#include "bench/bench_support.h"
#include "bench/lwo_grid_file.h"
#include "meshcore/formats/common/detail/byte_order.h"
#include "meshcore/formats/library.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

using namespace meshcore;

namespace {

void BM_LightwaveFullLoad(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  InitMeshcore();
  const std::string& path = bench::LwoGridFile(int(state.range(0)));
  const std::size_t faces = bench::TimedLoads(state, path);
  if (faces == 0)
    return;
  state.counters["faces"] = double(faces);
  state.counters["file_MB"] = double(std::filesystem::file_size(path)) / 1e6;
  state.counters["peak_rss_MB"] = bench::PeakMegabytes();
}

// Reads the file and decodes PNTS and POLS into flat arrays, nothing more.
void BM_LightwaveFloor(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  const std::string& path = bench::LwoGridFile(int(state.range(0)));
  std::size_t polygons = 0;
  for (auto _ : state) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    std::size_t size = std::filesystem::file_size(path);
    std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[size]);
    if (std::fread(bytes.get(), 1, size, f) != size) {
      std::fclose(f);
      state.SkipWithError("read failed");
      return;
    }
    std::fclose(f);
    std::vector<float> points;
    std::vector<std::uint32_t> counts, indices;
    for (std::size_t pos = 12; pos + 8 <= size;) {
      std::uint32_t id = codec::LoadU32BE(&bytes[pos]);
      std::uint32_t length = codec::LoadU32BE(&bytes[pos + 4]);
      const std::uint8_t* p = &bytes[pos + 8];
      const std::uint8_t* end = p + length;
      if (id == lwid::PNTS) {
        points.resize(length / 4);
        for (std::size_t i = 0; i < points.size(); ++i)
          points[i] = codec::LoadF32BE(p + 4 * i);
      } else if (id == lwid::POLS) {
        counts.reserve(length / 10);
        indices.reserve(length / 3);
        for (p += 4; p < end;) {
          unsigned n = codec::LoadU16BE(p) & 0x3FF;
          p += 2;
          counts.push_back(n);
          for (unsigned k = 0; k < n; ++k) {
            const bool wide = p[0] == 0xFF;
            indices.push_back(wide ? codec::LoadU32BE(p) & 0xFFFFFF : codec::LoadU16BE(p));
            p += wide ? 4 : 2;
          }
        }
      }
      pos += 8 + length + (length & 1);
    }
    polygons = counts.size();
    benchmark::DoNotOptimize(points.data());
    benchmark::DoNotOptimize(indices.data());
  }
  state.counters["polygons"] = double(polygons);
}

} // namespace

BENCHMARK(BM_LightwaveFullLoad)
    ->Name("read_lwo@meshcore")
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);
BENCHMARK(BM_LightwaveFloor)
    ->Name("read_lwo@floor")
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);
