// Reading a large DXF drawing: the whole codec through C3DIo against a floor
// that only reads the file and parses its group-code pairs (codes as integers,
// coordinates as doubles). The file, 200 000 3DFACE entities of a grid on two
// layers (about 50 MB), is generated on first use.

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

constexpr int kFaces = 200000;

void WriteFaces(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  std::string block = "  0\nSECTION\n  2\nENTITIES\n";
  auto num = [&](float v) {
    char buf[32];
    block.append(buf, std::to_chars(buf, buf + sizeof buf, v).ptr);
    block += '\n';
  };
  const int side = 500; // quads per row
  for (int i = 0; i < kFaces; ++i) {
    const int x = i % side, y = i / side;
    block += "  0\n3DFACE\n  8\n";
    block += (y & 1) ? "ODD\n" : "EVEN\n";
    const int corner[4][2] = {{x, y}, {x + 1, y}, {x + 1, y + 1}, {x, y + 1}};
    for (int c = 0; c < 4; ++c) {
      for (int axis = 0; axis < 3; ++axis) {
        block += ' ';
        block += char('1' + axis);
        block += char('0' + c);
        block += '\n';
        num(axis == 2 ? float((corner[c][0] * 7 + corner[c][1] * 3) % 5) * 0.1f
                      : float(corner[c][axis]) * 0.01f);
      }
    }
    if (block.size() > (1u << 20)) {
      std::fwrite(block.data(), 1, block.size(), f);
      block.clear();
    }
  }
  block += "  0\nENDSEC\n  0\nEOF\n";
  std::fwrite(block.data(), 1, block.size(), f);
  std::fclose(f);
}

const std::string& FacesFile() {
  static std::string path;
  if (path.empty()) {
    path = (std::filesystem::temp_directory_path() / "meshcore_bench_faces.dxf").string();
    if (!std::filesystem::exists(path))
      WriteFaces(path);
  }
  return path;
}

void BM_DxfRead(benchmark::State& state) {
  InitMeshcore();
  const std::string& path = FacesFile();
  std::size_t faces = 0;
  for (auto _ : state) {
    C3DIo io(path, FILE_PARSER_SILENT);
    std::unique_ptr<C3DScene> scene(io.Read(0, 0));
    if (!scene) {
      state.SkipWithError("read failed");
      return;
    }
    faces = std::size_t(scene->GetFaceNbr());
    state.PauseTiming(); // freeing the scene is not part of loading it
    scene.reset();
    state.ResumeTiming();
  }
  const double bytes = double(std::filesystem::file_size(path));
  state.SetBytesProcessed(std::int64_t(bytes) * state.iterations());
  state.counters["faces"] = double(faces);
  state.counters["file_MB"] = bytes / 1e6;
}

// Reads the file and parses every pair: the code as an integer, and the
// values of coordinate codes as doubles into one flat array.
void BM_DxfFloor(benchmark::State& state) {
  const std::string& path = FacesFile();
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

BENCHMARK(BM_DxfFloor)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DxfRead)->Unit(benchmark::kMillisecond)->UseRealTime();
