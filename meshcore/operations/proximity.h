#pragma once
// The proximity grid behind point welding: points are dropped into cubic cells
// by truncating their coordinates (divided by the cell size) toward zero, and
// two points are candidate neighbours when their cells touch. No distance is
// ever computed.

#include "meshcore/containers/hash_ex_map.h"
#include "meshcore/containers/int_array_id.h"
#include "meshcore/geometry/point_3d.h"
#include "meshcore/mesh/flat_map.h"

#include <cstdint>

namespace meshcore {

class CArchive;
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
    const std::uint64_t h =
        static_cast<std::uint64_t>(static_cast<std::uint32_t>(c.x)) * 0x9E3779B97F4A7C15ull ^
        static_cast<std::uint64_t>(static_cast<std::uint32_t>(c.y)) * 0xC2B2AE3D27D4EB4Full ^
        static_cast<std::uint64_t>(static_cast<std::uint32_t>(c.z)) * 0x165667B19E3779F9ull;
    return static_cast<std::uint32_t>(h >> 32) ^ static_cast<std::uint32_t>(h);
  }
};

// Cell -> indices of the points in it, increasing. Cells iterate in the order
// in which they were first filled, so the archive form is deterministic.
class CProximityMap {
public:
  using Map = CFlatMap<IntCoord, CIntArrayID, IntCoordHash>;

  CProximityMap() = default;
  // Room for about expectedCells cells.
  explicit CProximityMap(int expectedCells);

  // The point indices of a cell, or null when no point fell into it.
  const CIntArrayID* Lookup(const IntCoord& cell) const { return m_cells.PLookup(cell); }
  // Appends index to the cell's array (created on first use).
  void Add(const IntCoord& cell, int index) { m_cells.FindOrAdd(cell).Add(index); }
  int GetCount() const { return m_cells.GetCount(); }
  const Map& GetCells() const { return m_cells; }
  Map& GetCells() { return m_cells; }

  // Cell count, then each cell as three int32 and its indices (count, int32 each).
  void Serialize(CArchive& ar);

private:
  Map m_cells;
};

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
CProximityMap* InitProximityMap(C3DPointList& points, float tolerance);
// For every point, the points of the 27 cells around its own (itself left
// out). Never null; points without any candidate have no entry.
CProximityResult* Get3DProximityPoints(const C3DPointList& points, const CProximityMap* map);
void DeleteProximityMap(C3DPointList& points, CProximityMap* map);

} // namespace meshcore
