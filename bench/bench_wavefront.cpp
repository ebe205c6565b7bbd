// Reading and writing a large Wavefront OBJ: the whole codec through C3DIo
// against a floor that only reads the file and parses its numbers into flat
// arrays with std::from_chars. The file (an N x N grid of quads with texture
// coordinates and normals, about 100 MB at N = 1000) is generated on first use.

#include "bench/bench_support.h"
#include "meshcore/formats/library.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"

#include <benchmark/benchmark.h>



#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

using namespace meshcore;

namespace {

// Streamed in blocks, so that making the file does not raise the peak that the
// read is measured against.
void WriteGrid(const std::string& path, int n) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  std::string block;
  auto flush = [&](bool force) {
    if (force || block.size() > (1u << 20)) {
      std::fwrite(block.data(), 1, block.size(), f);
      block.clear();
    }
  };
  auto num = [&](float v) {
    char buf[32];
    block.append(buf, std::to_chars(buf, buf + sizeof buf, v).ptr);
  };
  auto idx = [&](unsigned v) {
    char buf[16];
    block.append(buf, std::to_chars(buf, buf + sizeof buf, v).ptr);
  };
  const int side = n + 1;
  block += "mtllib grid.mtl\no grid\n";
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      block += "v ";
      num(float(x) * 0.01f);
      block += ' ';
      num(float(y) * 0.01f);
      block += ' ';
      num(float((x * 7 + y * 3) % 5) * 0.1f);
      block += '\n';
      flush(false);
    }
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      block += "vt ";
      num(float(x) / float(n));
      block += ' ';
      num(float(y) / float(n));
      block += '\n';
      flush(false);
    }
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      const float t = float((x + y) % 7) * 0.01f;
      block += "vn ";
      num(t);
      block += ' ';
      num(-t);
      block += " 0.99\n";
      flush(false);
    }
  block += "usemtl grid\n";
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) {
      const unsigned a = unsigned(y * side + x) + 1;
      const unsigned c[4] = {a, a + 1, a + unsigned(side) + 1, a + unsigned(side)};
      block += 'f';
      for (unsigned v : c) {
        block += ' ';
        idx(v);
        block += '/';
        idx(v);
        block += '/';
        idx(v);
      }
      block += '\n';
      flush(false);
    }
  flush(true);
  std::fclose(f);
}

const std::string& GridFile(int n) {
  static std::map<int, std::string> files;
  auto& path = files[n];
  if (path.empty()) {
    auto dir = std::filesystem::temp_directory_path();
    path = (dir / ("meshcore_bench_grid_" + std::to_string(n) + ".obj")).string();
    if (!std::filesystem::exists(path))
      WriteGrid(path, n);
    std::FILE* mtl = std::fopen((dir / "grid.mtl").string().c_str(), "wb");
    std::fputs("newmtl grid\nKd 0.5 0.6 0.7\n", mtl);
    std::fclose(mtl);
  }
  return path;
}

void BM_WavefrontRead(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  InitMeshcore();
  const std::string& path = GridFile(int(state.range(0)));
  const std::size_t faces = bench::TimedLoads(state, path);
  if (faces == 0)
    return;
  const double bytes = double(std::filesystem::file_size(path));
  state.SetBytesProcessed(std::int64_t(bytes) * state.iterations());
  state.counters["faces"] = double(faces);
  state.counters["file_MB"] = bytes / 1e6;
  state.counters["peak_rss_MB"] = bench::PeakMegabytes();
}

// Reads the file and parses every number of v, vt, vn and f into flat arrays.
void BM_WavefrontFloor(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  const std::string& path = GridFile(int(state.range(0)));
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
        std::vector<float>* out = p[0] == 'f' ? nullptr : p[1] == 't' ? &vt : p[1] == 'n' ? &vn : &v;
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
  const std::string& path = GridFile(int(state.range(0)));
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

BENCHMARK(BM_WavefrontRead)->Arg(1000)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_WavefrontFloor)->Arg(1000)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_WavefrontWrite)->Arg(1000)->Unit(benchmark::kMillisecond)->MinTime(2.0);
