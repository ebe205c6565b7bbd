#pragma once
// The proximity grid behind point welding: points are dropped into cubic cells
// by truncating their coordinates (divided by the cell size) toward zero, and
// two points are candidate neighbours when their cells touch. No distance is
// ever computed.

#include "meshcore/containers/hash_ex_map.h"
#include "meshcore/geometry/point_3d.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace meshcore {

class CArchive;
class CCancelCheck;
class C3DPointList;

// A cell of the proximity grid.
struct IntCoord {
  std::int32_t x = 0;
  std::int32_t y = 0;
  std::int32_t z = 0;

  bool operator==(const IntCoord& o) const { return x == o.x && y == o.y && z == o.z; }
  bool operator!=(const IntCoord& o) const { return !(*this == o); }
};

// For the library's own hash containers.
inline std::uint32_t HashKey(const IntCoord& c) {
  return static_cast<std::uint32_t>(c.x) * 393216u + static_cast<std::uint32_t>(c.y) * 133200u +
         static_cast<std::uint32_t>(c.z) * 7919u;
}

struct IntCoordHash {
  std::uint32_t operator()(const IntCoord& c) const {
    // Grid cells are regular: the high halves of 64-bit products depend on
    // every bit of each coordinate, so their low bits (which pick the slot)
    // spread the cells evenly.
    const std::uint64_t h = std::uint64_t{static_cast<std::uint32_t>(c.x)} * 0x9E3779B97F4A7C15ull ^
                            std::uint64_t{static_cast<std::uint32_t>(c.y)} * 0xC2B2AE3D27D4EB4Full ^
                            std::uint64_t{static_cast<std::uint32_t>(c.z)} * 0x165667B19E3779F9ull;
    return static_cast<std::uint32_t>(h >> 32);
  }
};

// The point indices of one cell, increasing (a view into the map).
struct CIndexRun {
  const int* data = nullptr;
  int size = 0;

  int GetSize() const { return size; }
  const int* GetData() const { return data; }
  int operator[](int k) const { return data[k]; }
};

// Cell -> indices of the points in it, increasing. Cells are numbered in the
// order in which they were first filled, which is also their iteration and
// archive order. Filled point by point, then frozen with Finish.
class CProximityMap {
public:
  CProximityMap() = default;
  // Room for about expectedCells cells and expectedPoints points.
  CProximityMap(int expectedCells, int expectedPoints);

  // Drops the next point (index 0, 1, 2, ... in call order) into cell;
  // returns the cell's number.
  int AddPoint(const IntCoord& cell);
  // Drops the next count points into their cells for the given cell size.
  // anyInvalid, when given, is set when one of them is flagged PT_INVALID.
  void AddPoints(const C3DPoint* points, int count, float cellSize, bool* anyInvalid = nullptr);
  // Adds the points of next, an unfinished map of the points that follow
  // this one's (filled on its own, say by another thread), exactly as if they
  // had been added here one by one.
  void Append(const CProximityMap& next);
  // Starts fetching what MayTouchOthers(c) will read.
  [[gnu::always_inline]] void PrefetchNeighbourhood(const IntCoord& c) const {
    if (m_occupied.empty())
      return;
    // The words of the blocks one step along y and z lie fixed steps away.
    const std::size_t w = BlockWordOf((c.x - 1) >> 2, (c.y - 1) >> 2, (c.z - 1) >> 2);
    __builtin_prefetch(&m_occupied[w]);
    __builtin_prefetch(&m_occupied[(w + kStepY) & m_wordMask]);
    __builtin_prefetch(&m_occupied[(w + kStepZ) & m_wordMask]);
    __builtin_prefetch(&m_occupied[(w + kStepY + kStepZ) & m_wordMask]);
  }
  // Freezes the map; call once after the last AddPoint. Without indices
  // only the points' cells and the cells' point counts are at hand until
  // BuildIndices: welding rarely needs more and spares the sort.
  void Finish(bool withIndices = true);
  // Groups the points by cell for GetIndices, once.
  void BuildIndices();

  // The number of a cell, or -1 when no point fell into it.
  int Find(const IntCoord& cell) const {
    if (m_slots.empty())
      return -1;
    if (m_occupied.empty())
      return FindSlot(cell); // not finished yet
    // Most searches are for empty neighbour cells. One bit per cell, in words
    // that each cover a block of 4 x 4 x 4 cells, answers them from the few
    // words around a cell instead of a slot per neighbour.
    if (!(m_occupied[BlockWord(cell)] >> BlockBit(cell) & 1))
      return -1;
    return FindSlot(cell);
  }
  // The point indices of a cell; empty when no point fell into it.
  CIndexRun Lookup(const IntCoord& cell) const {
    const int e = Find(cell);
    return e >= 0 ? GetIndices(e) : CIndexRun();
  }
  // Appends the numbers of the cells that hold points among the 27 around
  // cell, in the neighbour search's order (x slowest, z fastest); self, when
  // not -1, is taken as cell's own number without a search.
  void AppendNeighbourhood(const IntCoord& cell, int self, std::vector<int>& out) const;
  // False when no cell but c itself among the 27 around c holds points; a
  // true answer may be wrong (blocks of cells share words).
  bool MayTouchOthers(const IntCoord& c) const;
  int GetCount() const { return static_cast<int>(m_cells.size()); }
  const IntCoord& GetCell(int e) const { return m_cells[static_cast<std::size_t>(e)]; }
  // The point indices of cell e (empty while the indices are not built).
  CIndexRun GetIndices(int e) const {
    const auto i = static_cast<std::size_t>(e);
    if (!m_indexed)
      return {};
    return {m_indices.data() + m_start[i], m_start[i + 1] - m_start[i]};
  }
  int GetPointCount(int e) const {
    const auto i = static_cast<std::size_t>(e);
    return m_start[i + 1] - m_start[i];
  }
  // The cell number of every point entered with AddPoint, by point index.
  const std::vector<int>& GetCellOfPoints() const { return m_cellOf; }
  // Hands the points' cells over (the map no longer has them): a caller done
  // with the map can reuse their memory, already in place, for a table of
  // the same size.
  std::vector<int> ReleaseCellOfPoints() { return std::move(m_cellOf); }

  // Cell count, then each cell as three int32 and its indices (count, int32 each).
  void Serialize(CArchive& ar);

private:
  // Open addressing on small slots (the hash and the cell's number); the
  // cell itself is compared in the cell array, where the cells met lately
  // (most hits) are still in the cache.
  struct Slot {
    std::uint32_t hash = 0;
    int entry = -1;
  };
  void Grow(std::size_t slots);
  void Count(int e) {
    if (static_cast<std::size_t>(e) + 1 == m_start.size())
      m_start.push_back(0); // a new cell
    ++m_start[static_cast<std::size_t>(e) + 1];
  }
  // The words of the occupied cells, once they are all in.
  void BuildOccupancy();
  int Insert(const IntCoord& cell, std::uint32_t hash);
  // Blocks next to each other along x have words next to each other, so
  // that a sweep through neighbouring cells stays in the cache. Blocks that
  // share a word only cost extra searches.
  static constexpr std::uint32_t kStepY = 0x9E3779B1u, kStepZ = 0x85EBCA77u;
  std::size_t BlockWordOf(std::int32_t bx, std::int32_t by, std::int32_t bz) const {
    return (static_cast<std::uint32_t>(bx) + static_cast<std::uint32_t>(by) * kStepY +
            static_cast<std::uint32_t>(bz) * kStepZ) &
           m_wordMask;
  }
  std::size_t BlockWord(const IntCoord& c) const {
    return BlockWordOf(c.x >> 2, c.y >> 2, c.z >> 2);
  }
  static unsigned BlockBit(const IntCoord& c) {
    return static_cast<unsigned>((c.x & 3) | (c.y & 3) << 2 | (c.z & 3) << 4);
  }

  // The slot holding cell, or the empty slot where it belongs.
  std::size_t FindPos(const IntCoord& cell, std::uint32_t hash) const {
    for (std::size_t pos = hash & m_mask;; pos = (pos + 1) & m_mask) {
      const Slot& s = m_slots[pos];
      if (s.entry < 0 || (s.hash == hash && m_cells[static_cast<std::size_t>(s.entry)] == cell))
        return pos;
    }
  }
  int FindSlot(const IntCoord& cell) const {
    return m_slots[FindPos(cell, IntCoordHash()(cell))].entry;
  }

  std::vector<Slot> m_slots;
  std::size_t m_mask = 0;
  std::vector<std::uint64_t> m_occupied; // a word per block of cells (hashed), once finished
  std::size_t m_wordMask = 0;
  std::vector<IntCoord> m_cells;
  // Cell e's indices: m_indices[m_start[e]] to [m_start[e + 1] - 1]. While
  // the map fills, m_start[e + 1] counts the points of cell e.
  std::vector<int> m_start{0};
  bool m_finished = false;
  std::vector<int> m_indices;
  bool m_indexed = false;
  std::vector<int> m_cellOf;
};

// For every cell e of map, the numbers of the cells that hold points among
// the 27 around it (itself included), in the order the neighbour search
// visits them: around[start[e]] to around[start[e + 1] - 1].
// With cancel, stops and answers false once the thread is asked to stop.
bool GetCellNeighbourhoods(const CProximityMap& map, std::vector<int>& start,
                           std::vector<int>& around, CCancelCheck* cancel = nullptr);
// The same for any cell, appended to out.
void GetCellNeighbourhood(const CProximityMap& map, const IntCoord& cell, std::vector<int>& out);

// Point index -> set of candidate neighbour indices (the caller owns it).
using CProximityResult = CHashExMap<int, int, int>;

// The cell holding p for a given cell size: each coordinate divided by the
// size and truncated toward zero, so cell 0 spans (-size, size) and is twice as
// wide as the others. Coordinates beyond the int range clamp to it.
IntCoord ConvertToProximityCoordinate(const C3DPoint& p, float cellSize);
// The cell of point index of the list, with the cell size its last
// InitProximityMap stored.
IntCoord GetProximityCoordinate(const C3DPointList& points, int index);

// Stores half the tolerance (0.5e-7 for a zero tolerance) as the list's cell
// size and drops every point into the grid. Null for an empty list; otherwise
// the caller frees the map with DeleteProximityMap.
// With cancel, null as well once the thread is asked to stop (nothing to free).
// Without indices, the map is finished as Finish(false) leaves it.
// anyInvalid, when given, tells whether a point is flagged PT_INVALID.
CProximityMap* InitProximityMap(C3DPointList& points, float tolerance,
                                CCancelCheck* cancel = nullptr, bool withIndices = true,
                                bool* anyInvalid = nullptr);
// For every point, the points of the 27 cells around its own (itself left
// out). Never null; points without any candidate have no entry.
CProximityResult* Get3DProximityPoints(const C3DPointList& points, const CProximityMap* map);
void DeleteProximityMap(C3DPointList& points, CProximityMap* map);

} // namespace meshcore
