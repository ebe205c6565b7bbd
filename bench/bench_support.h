#pragma once
// What the load benchmarks share: cold allocations, peak memory, and the
// timed loop that reads a file into a scene.

#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/scene/scene.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <memory>
#include <string>

#if defined(__GLIBC__)
#include <malloc.h>
#endif
#include <sys/resource.h>

namespace meshcore::bench {

// glibc raises its mmap threshold after the first large block is freed, so
// whichever benchmark runs second would reuse warm heap pages that a program
// loading one file never has. A fixed threshold keeps every iteration cold,
// as a first load is, whatever the order.
inline void FixAllocatorThresholds() {
#if defined(__GLIBC__)
  static const bool once = [] {
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    return true;
  }();
  (void)once;
#endif
}

inline double PeakMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return double(usage.ru_maxrss) / 1024.0;
}

// Reads path into a scene on every iteration (freeing it untimed) and returns
// the face count of the last scene, or 0 after reporting a failed read.
inline std::size_t TimedLoads(benchmark::State& state, const std::string& path) {
  std::size_t faces = 0;
  for (auto _ : state) {
    C3DIo io(path, FILE_PARSER_SILENT);
    std::unique_ptr<C3DScene> scene(io.Read(0, 0));
    if (!scene) {
      state.SkipWithError("read failed");
      return 0;
    }
    faces = std::size_t(scene->GetFaceNbr());
    state.PauseTiming(); // freeing the scene is not part of loading it
    scene.reset();
    state.ResumeTiming();
  }
  return faces;
}

} // namespace meshcore::bench
