#pragma once
// The PNG row filters' prediction, shared by the reader (which adds it back)
// and the writer (which subtracts it).

#include <cstdlib>

namespace meshcore::render {

// The byte predicted for a filter (0 none, 1 sub, 2 up, 3 average, 4 Paeth)
// from the bytes left (a), above (b) and above-left (c); 0 for filter 0 and
// for unknown filters.
inline int PngPredict(int filter, int a, int b, int c) {
  switch (filter) {
  case 1:
    return a;
  case 2:
    return b;
  case 3:
    return (a + b) / 2;
  case 4: {
    const int p = a + b - c;
    const int pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    if (pa <= pb && pa <= pc)
      return a;
    return pb <= pc ? b : c;
  }
  default:
    return 0;
  }
}

} // namespace meshcore::render
