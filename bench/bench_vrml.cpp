// Reading speed of the VRML 1.0 parser on a large indexed face set: an N x N grid of
// quads with texture coordinates, written once to a temporary file.

#include "meshcore/formats/library.h"
#include "meshcore/formats/vrml/vrml_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/vrml_parser/qv_graph.h"
#include "meshcore/vrml_parser/qv_nodes.h"

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>

namespace {

using namespace meshcore;

void AppendFloat(std::string& s, float v) {
  char buf[32];
  auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed, 6);
  s.append(buf, r.ptr);
}

void AppendInt(std::string& s, int v) {
  char buf[16];
  auto r = std::to_chars(buf, buf + sizeof buf, v);
  s.append(buf, r.ptr);
}

std::string MakeGrid(int n) {
  const int side = n + 1;
  std::string s = "#VRML V1.0 ascii\n\nSeparator {\n  Coordinate3 {\n    point [\n";
  s.reserve(static_cast<std::size_t>(side) * side * 130);
  for (int j = 0; j < side; ++j) {
    for (int i = 0; i < side; ++i) {
      s += "      ";
      AppendFloat(s, float(i) / float(n));
      s += ' ';
      AppendFloat(s, float(j) / float(n));
      s += ' ';
      AppendFloat(s, float((i * 7 + j * 3) % 11) / 11.0f);
      s += ",\n";
    }
  }
  s += "    ]\n  }\n  TextureCoordinate2 {\n    point [\n";
  for (int j = 0; j < side; ++j) {
    for (int i = 0; i < side; ++i) {
      s += "      ";
      AppendFloat(s, float(i) / float(n));
      s += ' ';
      AppendFloat(s, float(j) / float(n));
      s += ",\n";
    }
  }
  s += "    ]\n  }\n  IndexedFaceSet {\n";
  for (const char* field : {"coordIndex", "textureCoordIndex"}) {
    s += "    ";
    s += field;
    s += " [\n";
    for (int j = 0; j < n; ++j) {
      for (int i = 0; i < n; ++i) {
        const int a = j * side + i;
        s += "      ";
        for (int v : {a, a + 1, a + side + 1, a + side}) {
          AppendInt(s, v);
          s += ", ";
        }
        s += "-1,\n";
      }
    }
    s += "    ]\n";
  }
  s += "  }\n}\n";
  return s;
}

// The grid file for n, written on first use.
const std::string& GridFile(int n) {
  static std::map<int, std::string> files;
  auto it = files.find(n);
  if (it != files.end())
    return it->second;
  const std::string path = (std::filesystem::temp_directory_path() /
                            ("meshcore_bench_vrml_grid_" + std::to_string(n) + ".wrl"))
                               .string();
  const std::string text = MakeGrid(n);
  if (std::FILE* fp = std::fopen(path.c_str(), "wb")) {
    std::fwrite(text.data(), 1, text.size(), fp);
    std::fclose(fp);
  }
  return files.emplace(n, path).first->second;
}

void BM_VrmlReadGridFile(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::string& path = GridFile(n);
  const auto bytes = static_cast<std::int64_t>(std::filesystem::file_size(path));
  std::size_t faces = 0;
  for (auto _ : state) {
    QvTextSource in;
    in.SetFile(path);
    std::unique_ptr<QvGraph> graph = QvGraph::Read(in);
    if (!graph) {
      state.SkipWithError("the grid file did not parse");
      return;
    }
    auto* sep = static_cast<QvGroup*>(graph->GetRoot());
    faces =
        static_cast<const QvIndexedFaceSet*>(sep->children.back())->coordIndex.values.size() / 5;
    benchmark::DoNotOptimize(graph);
  }
  state.SetBytesProcessed(state.iterations() * bytes);
  state.counters["MB"] = double(bytes) / 1e6;
  state.counters["faces"] = double(faces);
}
BENCHMARK(BM_VrmlReadGridFile)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

// The whole read through the front door: parse, build the scene's objects,
// materials and texture channel. Floor: 100 MB/s.
void BM_VrmlCodecReadGrid(benchmark::State& state) {
  InitMeshcore();
  const int n = static_cast<int>(state.range(0));
  const std::string& path = GridFile(n);
  const auto bytes = static_cast<std::int64_t>(std::filesystem::file_size(path));
  int faces = 0;
  for (auto _ : state) {
    C3DIo io(path, FILE_PARSER_LOADING | FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
    std::unique_ptr<C3DScene> scene = io.ReadScene();
    if (!scene) {
      state.SkipWithError("the grid file did not read");
      return;
    }
    faces = scene->GetFaceNbr();
  }
  state.SetBytesProcessed(state.iterations() * bytes);
  state.counters["faces"] = double(faces);
}
BENCHMARK(BM_VrmlCodecReadGrid)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

// Writing the scene read from the grid back as VRML text, in memory (the file
// write itself is the system's). Floor: 100 MB/s of text produced.
void BM_VrmlCodecWriteGrid(benchmark::State& state) {
  InitMeshcore();
  const int n = static_cast<int>(state.range(0));
  C3DIo io(GridFile(n), FILE_PARSER_LOADING | FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  std::unique_ptr<C3DScene> scene = io.ReadScene();
  if (!scene) {
    state.SkipWithError("the grid file did not read");
    return;
  }
  std::size_t bytes = 0;
  for (auto _ : state) {
    C3DIo out("grid.wrl", FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
    CVrmlIo codec(out);
    std::string text;
    if (!codec.SaveToMemory(scene.get(), 0, text)) {
      state.SkipWithError("the scene did not write");
      return;
    }
    bytes = text.size();
    benchmark::DoNotOptimize(text);
  }
  state.SetBytesProcessed(state.iterations() * std::int64_t(bytes));
  state.counters["MB"] = double(bytes) / 1e6;
}
BENCHMARK(BM_VrmlCodecWriteGrid)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

} // namespace
