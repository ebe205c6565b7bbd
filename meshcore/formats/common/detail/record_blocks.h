#pragma once

#include "meshcore/platform/memory.h"

#include <algorithm>
#include <cstddef>

namespace meshcore::codec {

// Constructs records [from, from + n) of a list whose room is taken, after
// backing their pages in one request: much cheaper than taking their
// first-touch faults one by one, and a chunk small enough that the zeroed
// pages are still in cache when the records are written.
template <class List> void ConstructBacked(List& list, int from, int n) {
  auto* at = list.GetFirst() + from;
  PrefaultBlock(at, sizeof(*at) * std::size_t(n));
  list.ConstructElements(at, n);
}

// Makes the n records of an empty list chunk by chunk (see ConstructBacked)
// and hands each chunk [begin, end) to fill while it is still in cache:
// constructing everything before filling it would stream the whole block
// through memory twice. If fill throws, the records made so far are
// destroyed and the list stays empty.
template <class List, class Fill> void BuildRecords(List& list, int n, Fill fill) {
  constexpr int kChunk = 8192;
  if (n <= 0 || !list.AllocateUnconstructed(n))
    return;
  auto* first = list.GetFirst();
  int made = 0;
  try {
    for (int begin = 0; begin < n; begin += kChunk) {
      const int end = std::min(n, begin + kChunk);
      ConstructBacked(list, begin, end - begin);
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
