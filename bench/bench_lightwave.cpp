// Loading a large Lightwave object: the whole codec through C3DIo against a
// floor that only reads the file and decodes its points and polygons into
// flat arrays. The file (an N x N grid of quads, three surfaces, a per-point
// texture map) is generated on first use.

#include "bench/bench_support.h"
#include "meshcore/formats/common/detail/byte_order.h"
#include "meshcore/formats/library.h"
#include "meshcore/formats/lightwave/detail/lwo_writer.h"
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

void WriteGrid(const std::string& path, int n) {
  CLwoWriter w;
  const std::uint32_t side = std::uint32_t(n) + 1;
  auto form = w.BeginChunk(lwid::FORM);
  w.WriteID(lwid::LWO2);
  auto tags = w.BeginChunk(lwid::TAGS);
  for (const char* name : {"Red", "Green", "Blue"})
    w.WriteString(name);
  tags.Close();
  auto layr = w.BeginChunk(lwid::LAYR);
  w.WriteU2(0);
  w.WriteU2(0);
  for (int i = 0; i < 3; ++i)
    w.WriteF4(0);
  w.WriteString("grid");
  layr.Close();

  auto pnts = w.BeginChunk(lwid::PNTS);
  for (std::uint32_t y = 0; y < side; ++y)
    for (std::uint32_t x = 0; x < side; ++x) {
      w.WriteF4(float(x));
      w.WriteF4(float(y));
      w.WriteF4(float((x * 7 + y * 3) % 5) * 0.1f);
    }
  pnts.Close();

  auto vmap = w.BeginChunk(lwid::VMAP);
  w.WriteID(lwid::TXUV);
  w.WriteU2(2);
  w.WriteString("uv");
  for (std::uint32_t i = 0; i < side * side; ++i) {
    w.WriteVXChunk(i);
    w.WriteF4(float(i % side) / float(n));
    w.WriteF4(float(i / side) / float(n));
  }
  vmap.Close();

  auto pols = w.BeginChunk(lwid::POLS);
  w.WriteID(lwid::FACE);
  for (std::uint32_t y = 0; y < std::uint32_t(n); ++y)
    for (std::uint32_t x = 0; x < std::uint32_t(n); ++x) {
      std::uint32_t a = y * side + x;
      w.WriteU2(4);
      w.WriteVXChunk(a);
      w.WriteVXChunk(a + side);
      w.WriteVXChunk(a + side + 1);
      w.WriteVXChunk(a + 1);
    }
  pols.Close();

  auto ptag = w.BeginChunk(lwid::PTAG);
  w.WriteID(lwid::SURF);
  for (std::uint32_t i = 0; i < std::uint32_t(n) * std::uint32_t(n); ++i) {
    w.WriteVXChunk(i);
    w.WriteU2(std::uint16_t(i % 3));
  }
  ptag.Close();

  const float colours[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  const char* names[3] = {"Red", "Green", "Blue"};
  for (int s = 0; s < 3; ++s) {
    auto surf = w.BeginChunk(lwid::SURF);
    w.WriteString(names[s]);
    w.WriteString("");
    w.WriteColorChunk(colours[s], lwid::COLR);
    w.WriteFloatEnvChunk(1.0f, lwid::DIFF);
    surf.Close();
  }
  form.Close();

  std::FILE* f = std::fopen(path.c_str(), "wb");
  std::fwrite(w.GetBuffer().data(), 1, w.GetBuffer().size(), f);
  std::fclose(f);
}

const std::string& GridFile(int n) {
  static std::map<int, std::string> files;
  auto& path = files[n];
  if (path.empty()) {
    path = (std::filesystem::temp_directory_path() /
            ("meshcore_bench_grid_" + std::to_string(n) + ".lwo"))
               .string();
    WriteGrid(path, n);
  }
  return path;
}

void BM_LightwaveFullLoad(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  InitMeshcore();
  const std::string& path = GridFile(int(state.range(0)));
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
  const std::string& path = GridFile(int(state.range(0)));
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

BENCHMARK(BM_LightwaveFullLoad)->Arg(1000)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_LightwaveFloor)->Arg(1000)->Unit(benchmark::kMillisecond)->MinTime(2.0);
