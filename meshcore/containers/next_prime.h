#pragma once
// Prime sizes for the open-addressing tables and the chained maps' bucket counts.

namespace meshcore {

// The smallest odd number >= n (n + 1 when n is even) with no odd divisor d,
// 3 <= d, d * d <= m. Numbers up to 8 pass once made odd, so 1 counts as prime;
// callers that care never pass less than 2.
unsigned int NextPrime(unsigned int n);

} // namespace meshcore
