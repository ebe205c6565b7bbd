// Loading a large 3D Studio file: the whole codec through C3DIo against a
// floor that only reads the file and copies its point, face and texture
// arrays out. The file (bench/tds_grid_file.h, about a million triangles) is
// the one the peers' read rows load.

#include "bench/bench_support.h"
#include "bench/read_counts.h"
#include "bench/tds_grid_file.h"
#include "meshcore/formats/common/detail/byte_order.h"
#include "meshcore/formats/library.h"
#include "meshcore/formats/studio3d/detail/tds_file.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

using namespace meshcore;

namespace {

void BM_3dsFullLoad(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  InitMeshcore();
  const std::string& path = bench::TdsGridFile();
  bench::ReportRead(state, path, bench::TimedSceneLoads(state, path));
}

// Reads the file and copies every mesh's points, faces and texture
// coordinates into flat arrays, walking only the chunks that lead to them.
void BM_3dsFloor(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  const std::string& path = bench::TdsGridFile();
  std::size_t faces = 0;
  for (auto _ : state) {
    const std::size_t size = std::filesystem::file_size(path);
    std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[size]);
    std::FILE* f = std::fopen(path.c_str(), "rb");
    const bool ok = std::fread(bytes.get(), 1, size, f) == size;
    std::fclose(f);
    if (!ok) {
      state.SkipWithError("read failed");
      return;
    }
    std::vector<float> points, uvs;
    std::vector<std::uint32_t> indices;
    faces = 0;
    auto walk = [&](auto&& self, std::size_t pos, std::size_t end) -> void {
      while (pos + 6 <= end) {
        const std::uint16_t id = codec::LoadU16LE(&bytes[pos]);
        const std::size_t length = codec::LoadU32LE(&bytes[pos + 2]);
        const std::uint8_t* p = &bytes[pos + 6];
        switch (id) {
        case tds::kMain:
        case tds::kEditor:
        case tds::kTriMesh:
          self(self, pos + 6, pos + length);
          break;
        case tds::kObject: {
          std::size_t name = pos + 6;
          while (bytes[name])
            ++name;
          self(self, name + 1, pos + length);
          break;
        }
        case tds::kPoints: {
          const std::size_t n = codec::LoadU16LE(p) * 3u;
          const std::size_t at = points.size();
          points.resize(at + n);
          for (std::size_t i = 0; i < n; ++i)
            points[at + i] = codec::LoadF32LE(p + 2 + 4 * i);
          break;
        }
        case tds::kTexCoords: {
          const std::size_t n = codec::LoadU16LE(p) * 2u;
          const std::size_t at = uvs.size();
          uvs.resize(at + n);
          for (std::size_t i = 0; i < n; ++i)
            uvs[at + i] = codec::LoadF32LE(p + 2 + 4 * i);
          break;
        }
        case tds::kFaces: {
          const std::size_t n = codec::LoadU16LE(p);
          const std::size_t at = indices.size();
          indices.resize(at + n * 3);
          for (std::size_t i = 0; i < n; ++i)
            for (std::size_t k = 0; k < 3; ++k)
              indices[at + i * 3 + k] = codec::LoadU16LE(p + 2 + 8 * i + 2 * k);
          faces += n;
          break;
        }
        default:
          break;
        }
        pos += length;
      }
    };
    walk(walk, 0, size);
    benchmark::DoNotOptimize(points.data());
    benchmark::DoNotOptimize(uvs.data());
    benchmark::DoNotOptimize(indices.data());
  }
  state.counters["triangles"] = double(faces);
}

} // namespace

BENCHMARK(BM_3dsFullLoad)->Name("read_3ds@meshcore")->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_3dsFloor)->Name("read_3ds@floor")->Unit(benchmark::kMillisecond)->MinTime(2.0);
