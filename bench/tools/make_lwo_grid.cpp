// Writes the generated Lightwave grid of the load benchmarks to a file, for
// whole-process timings: meshcore_make_lwo_grid N OUT.lwo
#include "bench/lwo_grid_file.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
  const int n = argc == 3 ? std::atoi(argv[1]) : 0;
  if (n <= 0 || n > 20000) {
    std::fprintf(stderr, "usage: meshcore_make_lwo_grid N OUT.lwo (N from 1 to 20000)\n");
    return 2;
  }
  meshcore::bench::WriteLwoGrid(argv[2], n);
  return 0;
}
