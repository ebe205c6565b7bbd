#pragma once
// What both sides of a read row report, so that a reader that fails fast, or
// reads less of the file, shows in the counters rather than as a fast time.

#include "bench/bench_support.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace meshcore::bench {

struct ReadCounts {
  std::size_t faces = 0;
  std::size_t vertices = 0; // as the reader stores them: shared points or corners
};

// TimedLoads, also counting the points of the last scene read.
inline ReadCounts TimedSceneLoads(benchmark::State& state, const std::string& path) {
  ReadCounts counts;
  for (auto _ : state) {
    C3DIo io(path, FILE_PARSER_SILENT);
    std::unique_ptr<C3DScene> scene(io.Read(0, 0));
    if (!scene) {
      state.SkipWithError("read failed");
      return {};
    }
    counts = {std::size_t(scene->GetFaceNbr()), std::size_t(scene->GetPointNbr())};
    state.PauseTiming(); // freeing the scene is not part of loading it
    scene.reset();
    state.ResumeTiming();
  }
  return counts;
}

// Sets the counters of a read row; a read that found no face is an error.
inline void ReportRead(benchmark::State& state, const std::string& path, ReadCounts counts) {
  if (state.error_occurred())
    return;
  if (counts.faces == 0) {
    state.SkipWithError("the file read as empty");
    return;
  }
  const auto bytes = std::int64_t(std::filesystem::file_size(path));
  state.SetBytesProcessed(bytes * state.iterations());
  state.counters["faces"] = double(counts.faces);
  state.counters["vertices"] = double(counts.vertices);
  state.counters["file_MB"] = double(bytes) / 1e6;
  state.counters["peak_rss_MB"] = PeakMegabytes();
}

} // namespace meshcore::bench
