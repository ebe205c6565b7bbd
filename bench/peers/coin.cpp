// Coin reading the generated VRML 1.0 grid of our VRML read row into its
// scene graph; the graph is released untimed, as our scene is.

#include "bench/bench_support.h"
#include "bench/read_counts.h"
#include "bench/vrml_grid_file.h"

#include <Inventor/SoDB.h>
#include <Inventor/SoInput.h>
#include <Inventor/actions/SoSearchAction.h>
#include <Inventor/nodes/SoCoordinate3.h>
#include <Inventor/nodes/SoIndexedFaceSet.h>
#include <Inventor/nodes/SoSeparator.h>
#include <benchmark/benchmark.h>

#include <string>

namespace {

using namespace meshcore;

// The first node of the type under root, or null.
template <typename Node> Node* FindNode(SoNode* root) {
  SoSearchAction search;
  search.setType(Node::getClassTypeId());
  search.apply(root);
  return search.getPath() ? static_cast<Node*>(search.getPath()->getTail()) : nullptr;
}

bench::ReadCounts CountGraph(SoNode* root) {
  bench::ReadCounts counts;
  if (const auto* faces = FindNode<SoIndexedFaceSet>(root)) {
    const int n = faces->coordIndex.getNum();
    const int32_t* index = faces->coordIndex.getValues(0);
    for (int i = 0; i < n; ++i)
      counts.faces += index[i] < 0;
  }
  if (const auto* coords = FindNode<SoCoordinate3>(root))
    counts.vertices = std::size_t(coords->point.getNum());
  return counts;
}

void BM_CoinRead(benchmark::State& state) {
  bench::FixAllocatorThresholds();
  SoDB::init();
  const std::string& path = bench::VrmlGridFile(int(state.range(0)));
  bench::ReadCounts counts;
  for (auto _ : state) {
    SoInput in;
    SoSeparator* root = in.openFile(path.c_str()) ? SoDB::readAll(&in) : nullptr;
    state.PauseTiming(); // counting and freeing are not part of loading
    if (!root) {
      state.SkipWithError("SoDB::readAll failed");
      return;
    }
    root->ref();
    counts = CountGraph(root);
    root->unref();
    state.ResumeTiming();
  }
  bench::ReportRead(state, path, counts);
}

} // namespace

BENCHMARK(BM_CoinRead)->Name("read_vrml@coin")->Arg(1000)->Unit(benchmark::kMillisecond);
