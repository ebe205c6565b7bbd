#pragma once

#include "meshcore/platform/memory.h"

#include <algorithm>
#include <cstddef>

namespace meshcore::codec {

// Makes the n records of an empty list chunk by chunk and hands each chunk
// [begin, end) to fill while it is still in cache. A large list is mostly
// first touches of fresh pages: backing a chunk's pages in one request costs
// much less than taking their faults one by one, and constructing everything
// before filling it would stream the whole block through memory twice. If
// fill throws, the records made so far are destroyed and the list stays empty.
template <class List, class Fill> void BuildRecords(List& list, int n, Fill fill) {
  constexpr int kChunk = 8192;
  if (n <= 0 || !list.AllocateUnconstructed(n))
    return;
  auto* first = list.GetFirst();
  int made = 0;
  try {
    for (int begin = 0; begin < n; begin += kChunk) {
      const int end = std::min(n, begin + kChunk);
      PrefaultBlock(first + begin, sizeof(*first) * std::size_t(end - begin));
      list.ConstructElements(first + begin, end - begin);
      made = end;
      fill(begin, end);
    }
  } catch (...) {
    list.DestructElements(first, made);
    throw;
  }
  list.AdoptConstructed(n);
}

} // namespace meshcore::codec
