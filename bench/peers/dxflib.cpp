// dxflib reading the generated drawing of our DXF read row, with a handler
// that keeps every 3DFACE's corners, so that the peer does comparable work to
// ours. What it kept is freed untimed, as our scene is.

#include "bench/bench_support.h"
#include "bench/dxf_faces_file.h"
#include "bench/read_counts.h"

#include <benchmark/benchmark.h>
#include <dl_creationadapter.h>
#include <dl_dxf.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace meshcore;

class CFaceKeeper : public DL_CreationAdapter {
public:
  void add3dFace(const DL_3dFaceData& data) override {
    for (int i = 0; i < 4; ++i)
      corners.push_back({data.x[i], data.y[i], data.z[i]});
    ++faces;
  }

  std::vector<std::array<double, 3>> corners;
  std::size_t faces = 0;
};

void BM_DxflibRead(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  const std::string& path = bench::DxfFacesFile();
  bench::ReadCounts counts;
  for (auto _ : state) {
    auto keeper = std::make_unique<CFaceKeeper>();
    DL_Dxf dxf;
    const bool ok = dxf.in(path, keeper.get());
    state.PauseTiming(); // counting and freeing are not part of loading
    if (!ok) {
      state.SkipWithError("DL_Dxf::in failed");
      return;
    }
    counts = {keeper->faces, keeper->corners.size()};
    keeper.reset();
    state.ResumeTiming();
  }
  bench::ReportRead(state, path, counts);
}

} // namespace

BENCHMARK(BM_DxflibRead)->Name("read_dxf@dxflib")->Unit(benchmark::kMillisecond);
