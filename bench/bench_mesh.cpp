// Mesh model: adjacency graph construction and the mesh clean on a grid of one
// million quadrilaterals (about one million points) with one texture channel.

#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/uvw_channel.h"

#include <benchmark/benchmark.h>

#include <memory>

namespace {

using namespace meshcore;

constexpr int kSide = 1000; // kSide x kSide quads

struct Mesh {
  C3DPointList points;
  C3DFaceList faces;
  CDependentChannels channels;
};

// Texture points are shared like the mesh points (one per grid point).
void BuildMesh(Mesh& m) {
  const int row = kSide + 1;
  m.points.SetSize(row * row, -1);
  auto* uv = new CUVWChannel;
  CUVWPointList& uvPoints = *uv->GetUVWPointList();
  uvPoints.SetSize(row * row, -1);
  for (int j = 0; j < row; ++j)
    for (int i = 0; i < row; ++i) {
      C3DPoint& p = m.points[j * row + i];
      p.x = static_cast<float>(i);
      p.y = static_cast<float>(j);
      uvPoints[j * row + i].SetUV(static_cast<float>(i) / kSide, static_cast<float>(j) / kSide, 0);
    }
  m.faces.SetSize(kSide * kSide, -1);
  CUVWFaceList& uvFaces = *uv->GetUVWFaceList();
  uvFaces.SetSize(kSide * kSide, -1);
  for (int j = 0; j < kSide; ++j)
    for (int i = 0; i < kSide; ++i) {
      const int a = j * row + i;
      const int f = j * kSide + i;
      C3DFace& face = m.faces[f];
      CUVWFace& uvFace = uvFaces[f];
      for (int c : {a, a + row, a + row + 1, a + 1}) {
        face.AddIndex(c);
        uvFace.AddIndex(c);
      }
    }
  m.channels.AddChannel(uv);
}

const Mesh& SharedMesh() {
  static const std::unique_ptr<Mesh> mesh = [] {
    auto m = std::make_unique<Mesh>();
    BuildMesh(*m);
    return m;
  }();
  return *mesh;
}

void BM_BuildBothGraphs(benchmark::State& state) {
  Mesh m;
  BuildMesh(m);
  CGeomInfo info(&m.faces, &m.points);
  for (auto _ : state) {
    state.PauseTiming();
    m.faces.DeletePointToFaceGraph();
    m.faces.DeleteEdgeToFaceGraph();
    state.ResumeTiming();
    m.faces.InitPointToFaceGraph(&info);
    m.faces.InitEdgeToFaceGraph(&info);
    benchmark::DoNotOptimize(m.faces.GetEdgeGraph().GetCount());
  }
  state.counters["faces"] = m.faces.GetSize();
  state.counters["edges"] = m.faces.GetEdgeGraph().GetCount();
}
BENCHMARK(BM_BuildBothGraphs)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_PointToFaceGraph(benchmark::State& state) {
  Mesh m;
  BuildMesh(m);
  CGeomInfo info(&m.faces, &m.points);
  for (auto _ : state) {
    state.PauseTiming();
    m.faces.DeletePointToFaceGraph();
    state.ResumeTiming();
    m.faces.InitPointToFaceGraph(&info);
  }
}
BENCHMARK(BM_PointToFaceGraph)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_EdgeToFaceGraph(benchmark::State& state) {
  Mesh m;
  BuildMesh(m);
  CGeomInfo info(&m.faces, &m.points);
  for (auto _ : state) {
    state.PauseTiming();
    m.faces.DeleteEdgeToFaceGraph();
    state.ResumeTiming();
    m.faces.InitEdgeToFaceGraph(&info);
  }
}
BENCHMARK(BM_EdgeToFaceGraph)->Unit(benchmark::kMillisecond)->Iterations(5);

// Every tenth face removed; the clean compacts the faces, the points left
// unused (the grid's corner point at most) and the texture channel.
void BM_MeshCleanTenPercent(benchmark::State& state) {
  const Mesh& source = SharedMesh();
  for (auto _ : state) {
    state.PauseTiming();
    auto m = std::make_unique<Mesh>();
    m->points = source.points;
    m->faces = source.faces;
    m->channels = source.channels;
    for (int f = 0; f < m->faces.GetSize(); f += 10)
      m->faces[f].SetFlag(FACE_INVALID, 1);
    CGeomInfo info(&m->faces, &m->points);
    info.SetChannels(&m->channels, nullptr);
    state.ResumeTiming();
    m->faces.Clean(&info);
    state.PauseTiming();
    if (m->faces.GetSize() != kSide * kSide * 9 / 10 || !m->channels.GetChannel(0)->IsValid())
      state.SkipWithError("clean gave an unexpected result");
    state.counters["points_left"] = m->points.GetSize();
    m.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_MeshCleanTenPercent)->Unit(benchmark::kMillisecond)->Iterations(5);

} // namespace
