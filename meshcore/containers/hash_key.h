#pragma once
// Hashes of the key kinds the library's own hash containers know, and the probe
// they share. Key types defined elsewhere (edges, grid cells) supply
// `std::uint32_t HashKey(const K&)` and `operator==` in namespace meshcore; the
// tables find them by argument-dependent lookup.

#include <concepts>
#include <cstdint>
#include <string>

namespace meshcore {

// Slot states of the open-addressing tables.
enum HASH_SLOT_INFO : int { HASH_ACTIVE = 0, HASH_EMPTY = 1, HASH_DELETED = 2 };

template <std::integral I> constexpr std::uint32_t HashKey(I k) {
  return static_cast<std::uint32_t>(k) << 4;
}

// Only the low 32 bits of the address take part; equality still compares the
// whole pointer. Iteration order of such tables depends on addresses, so
// nothing written to a file may follow it.
template <class P> std::uint32_t HashKey(P* p) {
  return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(p)) << 4;
}

// Walks the string backwards; characters count as signed bytes.
inline std::uint32_t HashKey(const std::string& s) {
  std::uint32_t h = 0;
  for (auto it = s.rbegin(); it != s.rend(); ++it) {
    auto c = static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(*it)));
    h = h ^ (c ^ (h << 5));
  }
  return h;
}

namespace detail {

// Quadratic probe: the slot holding k (active or deleted) or the first empty
// slot met. A table is never more than half occupied and its size is prime, so
// an empty slot is always reached; -1 only guards against a broken invariant.
template <class Slot, class K, class KeyOf>
int HashProbe(const Slot* slots, int tableSize, const K& k, KeyOf keyOf) {
  const auto size = static_cast<std::uint32_t>(tableSize);
  std::uint32_t pos = HashKey(k) % size;
  if (slots[pos].info == HASH_EMPTY)
    return static_cast<int>(pos);
  for (std::uint32_t i = 1; i <= size; ++i) {
    if (keyOf(slots[pos]) == k)
      return static_cast<int>(pos);
    pos += 2 * i - 1;
    while (pos >= size)
      pos -= size;
    if (slots[pos].info == HASH_EMPTY)
      return static_cast<int>(pos);
  }
  return -1;
}

} // namespace detail
} // namespace meshcore
