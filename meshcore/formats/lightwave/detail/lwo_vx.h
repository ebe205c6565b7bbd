#pragma once

#include "meshcore/formats/common/detail/byte_order.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace meshcore {

// Lightwave's variable-length index (VX): two bytes, or four when the first
// is 0xFF. Walking a list of them one at a time chains every read on the size
// of the one before, which is what bounds the speed of large files. Most
// lists are all short (fewer than 65280 points) or all long (indices past
// that), and then every index sits at a fixed stride.

// Records whose length is read from their own bytes make each step's address
// wait for the step before; the hardware then fetches one cache line at a
// time. Asking for the bytes well ahead of the walk keeps them coming (a hint
// only: it never faults, even past the end of the data).
inline void LwFetchAhead(const std::uint8_t* p) {
  __builtin_prefetch(p + 1024);
}

// The n indices starting at p when they all have the same width and [p, end)
// holds them: each goes to out (when not null), the largest to most, the
// position past them to next. False when the widths mix or the room is short;
// the caller then takes them one at a time.
inline bool LwUniformVX(const std::uint8_t* p, const std::uint8_t* end, unsigned n,
                        std::uint32_t* out, std::uint32_t& most, const std::uint8_t*& next) {
  const std::size_t room = std::size_t(end - p);
  std::uint32_t m = 0;
  if (n == 0) {
    most = 0;
    next = p;
    return true;
  }
  if (room >= 2 && p[0] != 0xFF) {
    if (room < 2 * std::size_t(n))
      return false;
    unsigned mixed = 0;
    for (unsigned i = 0; i < n; ++i) {
      const std::uint8_t* q = p + 2 * std::size_t(i);
      mixed |= q[0] == 0xFF;
      const std::uint32_t v = codec::LoadU16BE(q);
      m = std::max(m, v);
      if (out)
        out[i] = v;
    }
    if (mixed)
      return false;
    next = p + 2 * std::size_t(n);
  } else {
    if (room < 4 * std::size_t(n))
      return false;
    unsigned mixed = 0;
    for (unsigned i = 0; i < n; ++i) {
      const std::uint8_t* q = p + 4 * std::size_t(i);
      mixed |= q[0] != 0xFF;
      const std::uint32_t v = codec::LoadU32BE(q) & 0x00FFFFFFu;
      m = std::max(m, v);
      if (out)
        out[i] = v;
    }
    if (mixed)
      return false;
    next = p + 4 * std::size_t(n);
  }
  most = m;
  return true;
}

} // namespace meshcore
