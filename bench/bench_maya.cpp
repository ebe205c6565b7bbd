// Writing a large mesh as a Maya ASCII file: the whole codec through C3DIo
// (1000 x 1000 quads: one million faces, two million edges) against a floor
// that formats the same numbers from flat arrays and writes them.

#include "meshcore/formats/library.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

using namespace meshcore;

namespace {

std::unique_ptr<C3DScene> GridScene(int n) {
  auto scene = std::make_unique<C3DScene>();
  auto* object = new C3DObject(new C3DPointList, new C3DFaceList);
  const int side = n + 1;
  C3DPointList& points = *object->GetPointList();
  points.SetSize(side * side);
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x)
      points[y * side + x] = C3DPoint(float(x) * 0.5f, float(y) * 0.25f, float((x + y) % 7) * 0.1f);
  C3DFaceList& faces = *object->GetFaceList();
  faces.SetSize(n * n);
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) {
      C3DFace& f = faces[y * n + x];
      const int a = y * side + x;
      f.SetSize(4);
      f[0] = a;
      f[1] = a + side;
      f[2] = a + side + 1;
      f[3] = a + 1;
    }
  auto* node = new C3DSceneNode(object, 0);
  node->SetName("grid");
  scene->AddNode(nullptr, node);
  return scene;
}

std::string OutFile(const char* name) {
  return (std::filesystem::temp_directory_path() / name).string();
}

void BM_MayaSave(benchmark::State& state) {
  InitMeshcore();
  std::unique_ptr<C3DScene> scene = GridScene(int(state.range(0)));
  const std::string path = OutFile("meshcore_bench_grid.ma");
  for (auto _ : state) {
    C3DIo io(path, FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
    if (io.SaveScene(*scene) != 1) {
      state.SkipWithError("save failed");
      return;
    }
    // The edge graph is a cache of the face list: drop it so that every
    // iteration builds it, as a first save does.
    state.PauseTiming();
    scene->GetFirstNode(nullptr)->GetBaseObject()->GetFaceList()->DeleteEdgeToFaceGraph();
    state.ResumeTiming();
  }
  state.counters["faces"] = double(scene->GetFaceNbr());
  state.counters["file_MB"] = double(std::filesystem::file_size(path)) / 1e6;
  std::filesystem::remove(path);
}

// The same amount of text from flat arrays, with the edges known in advance.
void BM_MayaFloor(benchmark::State& state) {
  const int n = int(state.range(0)), side = n + 1;
  std::vector<float> xyz;
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x)
      xyz.insert(xyz.end(), {float(x) * 0.5f, float(y) * 0.25f, float((x + y) % 7) * 0.1f});
  const std::string path = OutFile("meshcore_bench_floor.ma");
  for (auto _ : state) {
    std::string out;
    char buf[64];
    auto put = [&](auto v, auto... fmt) {
      auto r = std::to_chars(buf, buf + sizeof buf, v, fmt...);
      out.append(buf, r.ptr);
      out += ' ';
    };
    for (float v : xyz)
      put(v, std::chars_format::fixed, 6);
    const int edges = 2 * n * side;
    for (int e = 0; e < edges; ++e) {
      put(e / 2);
      put(e / 2 + 1);
      put(0);
    }
    for (int f = 0; f < n * n; ++f) {
      out += "f 4 ";
      put(2 * f);
      put(2 * f + 1);
      put(~(2 * f + 2));
      put(~(2 * f + 3));
    }
    std::FILE* file = std::fopen(path.c_str(), "wb");
    std::fwrite(out.data(), 1, out.size(), file);
    std::fclose(file);
  }
  std::filesystem::remove(path);
}

} // namespace

BENCHMARK(BM_MayaSave)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MayaFloor)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();
