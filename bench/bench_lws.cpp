// Loading a Lightwave scene of many items: the whole codec through C3DIo
// (object file found and loaded once, every item copied, parented and placed)
// against a floor that only reads the scene text and splits it into
// lower-cased tokens. The files are generated on first use.

#include "meshcore/formats/library.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/object_creator.h"
#include "meshcore/scene/scene.h"

#include <benchmark/benchmark.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>

using namespace meshcore;

namespace {

namespace fs = std::filesystem;

// A cube as the object every item shows.
void WriteCube(const std::string& path) {
  C3DScene scene;
  C3DObjectCreator creator;
  C3DBaseObject* object = creator.GetNewPolygonalObject();
  C3DPointList& points = *object->GetPointList();
  points.SetSize(8);
  for (int i = 0; i < 8; ++i)
    points[i] = C3DPoint(float(i & 1), float((i >> 1) & 1), float((i >> 2) & 1));
  const int quads[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4},
                           {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
  C3DFaceList& faces = *object->GetFaceList();
  faces.SetSize(6);
  for (int f = 0; f < 6; ++f) {
    faces[f].SetSize(4);
    for (int k = 0; k < 4; ++k)
      faces[f].GetData()[k] = quads[f][k];
  }
  scene.AddNode(nullptr, new C3DSceneNode(object, 0));
  C3DIo io(path, FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
  io.SaveScene(scene);
}

// The item id of newer scene files: the kind in the top four bits.
std::string ItemId(unsigned kind, int number) {
  char id[16];
  std::snprintf(id, sizeof id, "%08X", (kind << 28) | unsigned(number));
  return id;
}

// n items in chains of ten, each with nine keyed channels, and a light every
// hundred items, as scene files of animated rigs look.
const std::string& SceneFile(int n) {
  static std::map<int, std::string> files;
  std::string& path = files[n];
  if (!path.empty())
    return path;
  const fs::path dir = fs::temp_directory_path() / "meshcore_bench_lws";
  fs::create_directories(dir / "Objects");
  WriteCube((dir / "Objects" / "Cube.lwo").string());
  std::ostringstream text;
  text << "LWSC\n5\n\nFirstFrame 1\nLastFrame 60\n\n";
  int number = 0;
  for (int i = 0; i < n; ++i) {
    text << "LoadObjectLayer 1 " << ItemId(1, number) << " Objects/Cube.lwo\n"
         << "ShowObject 7 -1 0.3 0.8 0.9\nObjectMotion\nNumChannels 9\n";
    for (int c = 0; c < 9; ++c)
      text << "Channel " << c << "\n{ Envelope\n  2\n  Key " << (c < 6 ? 0.1 * c : 1.0)
           << " 0 0 0 0 0 0 0 0\n  Key 2 1 0 0 0 0 0 0 0\n  Behaviors 1 1\n}\n";
    if (i % 10 != 0)
      text << "ParentItem " << ItemId(1, number - 1) << "\n";
    text << "PivotPosition 0.5 0.5 0.5\n\n";
    ++number;
    if (i % 100 == 99) {
      text << "AddLight " << ItemId(2, number)
           << "\nLightName Light\nPlugin LightHandler 1 Distant\n"
           << "EndPlugin\n\n";
      ++number;
    }
  }
  path = (dir / ("scene_" + std::to_string(n) + ".lws")).string();
  std::ofstream(path, std::ios::binary) << text.str();
  return path;
}

void BM_LightwaveSceneFullLoad(benchmark::State& state) {
  InitMeshcore();
  const std::string& path = SceneFile(int(state.range(0)));
  int nodes = 0;
  for (auto _ : state) {
    C3DIo io(path, FILE_PARSER_LOADING | FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS);
    std::unique_ptr<C3DScene> scene(io.Read(0, 0));
    if (!scene) {
      state.SkipWithError("read failed");
      return;
    }
    nodes = scene->GetNodeNbr(0);
    state.PauseTiming(); // freeing the scene is not part of loading it
    scene.reset();
    state.ResumeTiming();
  }
  state.counters["nodes"] = nodes;
  state.counters["file_MB"] = double(fs::file_size(path)) / 1e6;
}

// Reads the scene text and splits it into lower-cased tokens, nothing more.
void BM_LightwaveSceneFloor(benchmark::State& state) {
  const std::string& path = SceneFile(int(state.range(0)));
  std::size_t tokens = 0;
  for (auto _ : state) {
    std::ifstream in(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    tokens = 0;
    bool inToken = false;
    for (char& c : text) {
      c = char(std::tolower(static_cast<unsigned char>(c)));
      const bool blank = std::isspace(static_cast<unsigned char>(c)) != 0;
      tokens += !blank && !inToken;
      inToken = !blank;
    }
    benchmark::DoNotOptimize(text.data());
  }
  state.counters["tokens"] = double(tokens);
}

} // namespace

BENCHMARK(BM_LightwaveSceneFullLoad)->Arg(5000)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_LightwaveSceneFloor)->Arg(5000)->Unit(benchmark::kMillisecond)->MinTime(1.0);
