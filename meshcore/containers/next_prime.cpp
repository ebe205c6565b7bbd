#include "meshcore/containers/next_prime.h"

#include <cstdint>

namespace meshcore {

static bool HasOddDivisor(std::uint64_t m) {
  for (std::uint64_t d = 3; d * d <= m; d += 2)
    if (m % d == 0)
      return true;
  return false;
}

unsigned int NextPrime(unsigned int n) {
  std::uint64_t m = (n % 2 == 0) ? std::uint64_t(n) + 1 : n;
  while (HasOddDivisor(m))
    m += 2;
  // Past the largest 32-bit prime the search would leave the type; keep the
  // largest one instead (no table gets anywhere near that size).
  return m > 0xFFFFFFFFu ? 4294967291u : static_cast<unsigned int>(m);
}

} // namespace meshcore
