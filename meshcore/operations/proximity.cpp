#include "meshcore/operations/proximity.h"

#include "meshcore/containers/next_prime.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/archive.h"

#include <cmath>
#include <cstdint>
#include <vector>

namespace meshcore {

namespace {

std::int32_t CellIndex(float coordinate, float size) {
  const double q = std::trunc(static_cast<double>(coordinate / size));
  if (!(q == q))
    return 0; // NaN
  if (q >= 2147483647.0)
    return INT32_MAX;
  if (q <= -2147483648.0)
    return INT32_MIN;
  return static_cast<std::int32_t>(q);
}

float CellSizeFor(float tolerance) {
  return (tolerance == 0.0f ? 1e-7f : tolerance) * 0.5f;
}

} // namespace

CProximityMap::CProximityMap(int expectedCells) {
  if (expectedCells > 0)
    m_cells.Reserve(static_cast<std::size_t>(expectedCells));
}

void CProximityMap::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar.WriteCount(static_cast<std::uint64_t>(m_cells.GetCount()));
    for (const auto& [cell, indices] : m_cells) {
      ar << cell.x << cell.y << cell.z;
      ar.WriteCount(static_cast<std::uint64_t>(indices.GetSize()));
      for (int k = 0; k < indices.GetSize(); ++k)
        ar << static_cast<std::int32_t>(indices[k]);
    }
    return;
  }
  m_cells.RemoveAll();
  // A cell takes at least three ints and a count.
  const std::uint64_t count = ar.ReadCount(14);
  for (std::uint64_t c = 0; c < count; ++c) {
    IntCoord cell;
    ar >> cell.x >> cell.y >> cell.z;
    const std::uint64_t n = ar.ReadCount(4);
    CIntArrayID& indices = m_cells.FindOrAdd(cell);
    indices.RemoveAll();
    for (std::uint64_t k = 0; k < n; ++k) {
      std::int32_t i = 0;
      ar >> i;
      indices.Add(i);
    }
  }
}

IntCoord ConvertToProximityCoordinate(const C3DPoint& p, float cellSize) {
  return {CellIndex(p.x, cellSize), CellIndex(p.y, cellSize), CellIndex(p.z, cellSize)};
}

IntCoord GetProximityCoordinate(const C3DPointList& points, int index) {
  return ConvertToProximityCoordinate(points[index], points.GetProximityCellSize());
}

CProximityMap* InitProximityMap(C3DPointList& points, float tolerance) {
  const float size = CellSizeFor(tolerance);
  points.SetProximityCellSize(size);
  const int n = points.GetSize();
  if (n == 0)
    return nullptr;
  // Welding input is mostly a few copies of each corner: a quarter of the
  // point count is a fair first guess of the cell count.
  auto* map = new CProximityMap(static_cast<int>(NextPrime(static_cast<unsigned>(n / 4 + 1))));
  const C3DPoint* p = points.GetFirst();
  for (int i = 0; i < n; ++i, ++p)
    map->Add(ConvertToProximityCoordinate(*p, size), i);
  return map;
}

CProximityResult* Get3DProximityPoints(const C3DPointList& points, const CProximityMap* map) {
  auto* result = new CProximityResult;
  const int n = points.GetSize();
  if (n == 0 || !map)
    return result;
  const float size = points.GetProximityCellSize();
  const CProximityMap::Map& cells = map->GetCells();
  const int cellCount = cells.GetCount();

  // Every point of a cell sees the same 27 cells: look them up once per cell.
  std::vector<int> cellOf(static_cast<std::size_t>(n), -1);
  for (int e = 0; e < cellCount; ++e) {
    const CIntArrayID& indices = cells.GetAt(e).second;
    for (int k = 0; k < indices.GetSize(); ++k)
      if (indices[k] >= 0 && indices[k] < n)
        cellOf[static_cast<std::size_t>(indices[k])] = e;
  }
  std::vector<int> start(static_cast<std::size_t>(cellCount) + 1, 0);
  std::vector<const CIntArrayID*> around;
  around.reserve(static_cast<std::size_t>(cellCount) * 2);
  auto collect = [&](const IntCoord& c, std::vector<const CIntArrayID*>& out) {
    for (int k = 0; k < 27; ++k) {
      const std::int64_t x = static_cast<std::int64_t>(c.x) + k / 9 - 1;
      const std::int64_t y = static_cast<std::int64_t>(c.y) + (k / 3) % 3 - 1;
      const std::int64_t z = static_cast<std::int64_t>(c.z) + k % 3 - 1;
      if (x < INT32_MIN || x > INT32_MAX || y < INT32_MIN || y > INT32_MAX || z < INT32_MIN ||
          z > INT32_MAX)
        continue;
      const IntCoord nc{static_cast<std::int32_t>(x), static_cast<std::int32_t>(y),
                        static_cast<std::int32_t>(z)};
      if (const CIntArrayID* a = map->Lookup(nc))
        out.push_back(a);
    }
  };
  for (int e = 0; e < cellCount; ++e) {
    collect(cells.GetAt(e).first, around);
    start[static_cast<std::size_t>(e) + 1] = static_cast<int>(around.size());
  }

  std::vector<const CIntArrayID*> own;
  const C3DPoint* p = points.GetFirst();
  for (int i = 0; i < n; ++i, ++p) {
    const CIntArrayID* const* first;
    const CIntArrayID* const* last;
    const int e = cellOf[static_cast<std::size_t>(i)];
    if (e >= 0) {
      first = around.data() + start[static_cast<std::size_t>(e)];
      last = around.data() + start[static_cast<std::size_t>(e) + 1];
    } else {
      // A point the map does not hold (a map made from other points).
      own.clear();
      collect(ConvertToProximityCoordinate(*p, size), own);
      first = own.data();
      last = own.data() + own.size();
    }
    CProximityResult::Set* set = nullptr;
    for (; first != last; ++first) {
      const CIntArrayID& a = **first;
      const int* j = a.GetData();
      for (int k = 0; k < a.GetSize(); ++k) {
        if (j[k] == i)
          continue;
        if (!set) {
          set = new CProximityResult::Set;
          result->SetAt(i, set);
        }
        set->Insert(j[k]);
      }
    }
  }
  return result;
}

void DeleteProximityMap(C3DPointList&, CProximityMap* map) {
  delete map;
}

} // namespace meshcore
