#pragma once
// The key of a mesh edge: two point indices, the smaller first.

#include <cstdint>

namespace meshcore {

struct C3DEdge {
  int first = 0;
  int second = 0;

  C3DEdge() = default;
  // Stored as given; use Make (or Normalize) for a key that does not depend on
  // the direction in which a face runs along the edge.
  C3DEdge(int a, int b) : first(a), second(b) {}
  static C3DEdge Make(int a, int b) { return a < b ? C3DEdge(a, b) : C3DEdge(b, a); }
  void Normalize() {
    if (second < first) {
      const int t = first;
      first = second;
      second = t;
    }
  }
  bool operator==(const C3DEdge& e) const { return first == e.first && second == e.second; }
  bool operator!=(const C3DEdge& e) const { return !(*this == e); }
  // Order by first then second, for sorted edge lists.
  bool operator<(const C3DEdge& e) const {
    return first < e.first || (first == e.first && second < e.second);
  }
};

// The hash of the library's own hash tables.
inline std::uint32_t HashKey(const C3DEdge& e) {
  return static_cast<std::uint32_t>(e.second) * 133200u +
         static_cast<std::uint32_t>(e.first) * 393216u;
}

// Hash for the flat graph maps: mixes both indices so that a power-of-two index
// spreads them (the table hash above leaves its low bits constant).
struct C3DEdgeFlatHash {
  std::uint32_t operator()(const C3DEdge& e) const {
    const std::uint64_t k =
        (static_cast<std::uint64_t>(static_cast<std::uint32_t>(e.first)) << 32) |
        static_cast<std::uint32_t>(e.second);
    return static_cast<std::uint32_t>((k * 0x9E3779B97F4A7C15ull) >> 32);
  }
};

} // namespace meshcore
