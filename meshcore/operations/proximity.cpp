#include "meshcore/operations/proximity.h"

#include "meshcore/containers/next_prime.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/exceptions.h"

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

CProximityMap::CProximityMap(int expectedCells, int expectedPoints) {
  if (expectedCells > 0) {
    Grow(static_cast<std::size_t>(expectedCells) * 2);
    m_cells.reserve(static_cast<std::size_t>(expectedCells));
  }
  if (expectedPoints > 0)
    m_cellOf.reserve(static_cast<std::size_t>(expectedPoints));
}

void CProximityMap::Grow(std::size_t want) {
  std::size_t size = 16;
  while (size < want)
    size *= 2;
  m_slots.assign(size, Slot());
  m_mask = size - 1;
  m_occupied.assign(size / 2, 0);
  m_wordMask = size / 2 - 1;
  for (std::size_t e = 0; e < m_cells.size(); ++e) {
    m_occupied[BlockWord(m_cells[e])] |= std::uint64_t{1} << BlockBit(m_cells[e]);
    const std::uint32_t hash = IntCoordHash()(m_cells[e]);
    std::size_t pos = hash & m_mask;
    while (m_slots[pos].entry >= 0)
      pos = (pos + 1) & m_mask;
    m_slots[pos] = {hash, static_cast<int>(e)};
  }
}

int CProximityMap::Insert(const IntCoord& cell, std::uint32_t hash) {
  if ((m_cells.size() + 1) * 2 > m_slots.size())
    Grow(m_slots.empty() ? 16 : m_slots.size() * 2);
  Slot& slot = m_slots[FindPos(cell, hash)];
  if (slot.entry < 0) {
    m_occupied[BlockWord(cell)] |= std::uint64_t{1} << BlockBit(cell);
    slot = {hash, static_cast<int>(m_cells.size())};
    m_cells.push_back(cell);
  }
  return slot.entry;
}

int CProximityMap::AddPoint(const IntCoord& cell) {
  const std::uint32_t hash = IntCoordHash()(cell);
  Recent& recent = m_recent[hash & (kRecent - 1)];
  if (recent.entry < 0 || recent.cell != cell)
    recent = {cell, Insert(cell, hash)};
  m_cellOf.push_back(recent.entry);
  return recent.entry;
}

void CProximityMap::Finish() {
  // Counting sort of the points by cell: each cell's indices come out increasing.
  m_start.assign(m_cells.size() + 1, 0);
  for (int e : m_cellOf)
    ++m_start[static_cast<std::size_t>(e) + 1];
  for (std::size_t e = 0; e < m_cells.size(); ++e)
    m_start[e + 1] += m_start[e];
  m_indices.resize(m_cellOf.size());
  std::vector<int> fill(m_start.begin(), m_start.end() - 1);
  for (std::size_t i = 0; i < m_cellOf.size(); ++i)
    m_indices[static_cast<std::size_t>(fill[static_cast<std::size_t>(m_cellOf[i])]++)] =
        static_cast<int>(i);
}

void CProximityMap::AppendNeighbourhood(const IntCoord& c, int self, std::vector<int>& out) const {
  if (m_slots.empty())
    return;
  if (c.x == INT32_MIN || c.x == INT32_MAX || c.y == INT32_MIN || c.y == INT32_MAX ||
      c.z == INT32_MIN || c.z == INT32_MAX) {
    // At the edge of the grid: neighbours beyond it do not exist.
    for (int k = 0; k < 27; ++k) {
      const std::int64_t x = static_cast<std::int64_t>(c.x) + k / 9 - 1;
      const std::int64_t y = static_cast<std::int64_t>(c.y) + (k / 3) % 3 - 1;
      const std::int64_t z = static_cast<std::int64_t>(c.z) + k % 3 - 1;
      if (x < INT32_MIN || x > INT32_MAX || y < INT32_MIN || y > INT32_MAX || z < INT32_MIN ||
          z > INT32_MAX)
        continue;
      const int e = Find({static_cast<std::int32_t>(x), static_cast<std::int32_t>(y),
                          static_cast<std::int32_t>(z)});
      if (e >= 0)
        out.push_back(e);
    }
    return;
  }
  // The 27 cells span at most two blocks per axis: fetch each block's word once.
  const std::int32_t bx = (c.x - 1) >> 2, by = (c.y - 1) >> 2, bz = (c.z - 1) >> 2;
  std::uint64_t words[8];
  unsigned fetched = 0;
  for (int k = 0; k < 27; ++k) {
    if (k == 13 && self >= 0) {
      out.push_back(self);
      continue;
    }
    const IntCoord n{c.x + k / 9 - 1, c.y + (k / 3) % 3 - 1, c.z + k % 3 - 1};
    const unsigned w =
        static_cast<unsigned>(((n.x >> 2) - bx) << 2 | ((n.y >> 2) - by) << 1 | ((n.z >> 2) - bz));
    if (!(fetched >> w & 1)) {
      words[w] = m_occupied[BlockWord(n)];
      fetched |= 1u << w;
    }
    if (!(words[w] >> BlockBit(n) & 1))
      continue;
    const int e = FindSlot(n);
    if (e >= 0)
      out.push_back(e);
  }
}

void CProximityMap::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar.WriteCount(static_cast<std::uint64_t>(m_cells.size()));
    for (int e = 0; e < GetCount(); ++e) {
      const IntCoord& c = m_cells[static_cast<std::size_t>(e)];
      ar << c.x << c.y << c.z;
      const CIndexRun run = GetIndices(e);
      ar.WriteCount(static_cast<std::uint64_t>(run.size));
      for (int k = 0; k < run.size; ++k)
        ar << static_cast<std::int32_t>(run[k]);
    }
    return;
  }
  m_slots.clear();
  m_mask = 0;
  m_occupied.clear();
  m_wordMask = 0;
  m_cells.clear();
  m_start.assign(1, 0);
  m_indices.clear();
  m_cellOf.clear(); // the indices read need not be 0, 1, 2, ...
  for (Recent& r : m_recent)
    r = Recent();
  // A cell takes at least three ints and a count.
  const std::uint64_t count = ar.ReadCount(14);
  for (std::uint64_t c = 0; c < count; ++c) {
    IntCoord cell;
    ar >> cell.x >> cell.y >> cell.z;
    const int e = Insert(cell, IntCoordHash()(cell));
    const std::uint64_t n = ar.ReadCount(4);
    if (static_cast<std::size_t>(e) + 1 < m_start.size())
      throw CArchiveException(CArchiveException::badIndex); // a cell listed twice
    for (std::uint64_t k = 0; k < n; ++k) {
      std::int32_t i = 0;
      ar >> i;
      m_indices.push_back(i);
    }
    m_start.push_back(static_cast<int>(m_indices.size()));
  }
}

namespace {

void Neighbourhood(const CProximityMap& map, const IntCoord& c, int self, std::vector<int>& out) {
  map.AppendNeighbourhood(c, self, out);
}

} // namespace

void GetCellNeighbourhood(const CProximityMap& map, const IntCoord& c, std::vector<int>& out) {
  Neighbourhood(map, c, -1, out);
}

bool GetCellNeighbourhoods(const CProximityMap& map, std::vector<int>& start,
                           std::vector<int>& around, CCancelCheck* cancel) {
  const int count = map.GetCount();
  start.assign(static_cast<std::size_t>(count) + 1, 0);
  around.clear();
  around.reserve(static_cast<std::size_t>(count) * 2);
  // Cells are visited in order, so the words of cells a little ahead can be
  // on their way while this one is searched.
  constexpr int kAhead = 8;
  for (int e = 0; e < count; ++e) {
    if (e + kAhead < count)
      map.PrefetchNeighbourhood(map.GetCell(e + kAhead));
    Neighbourhood(map, map.GetCell(e), e, around);
    start[static_cast<std::size_t>(e) + 1] = static_cast<int>(around.size());
    if (cancel && cancel->Tick())
      return false;
  }
  return true;
}

IntCoord ConvertToProximityCoordinate(const C3DPoint& p, float cellSize) {
  return {CellIndex(p.x, cellSize), CellIndex(p.y, cellSize), CellIndex(p.z, cellSize)};
}

IntCoord GetProximityCoordinate(const C3DPointList& points, int index) {
  return ConvertToProximityCoordinate(points[index], points.GetProximityCellSize());
}

CProximityMap* InitProximityMap(C3DPointList& points, float tolerance, CCancelCheck* cancel) {
  const float size = CellSizeFor(tolerance);
  points.SetProximityCellSize(size);
  const int n = points.GetSize();
  if (n == 0)
    return nullptr;
  // Welding input is mostly a few copies of each corner: a quarter of the
  // point count is a fair first guess of the cell count.
  auto* map = new CProximityMap(static_cast<int>(NextPrime(static_cast<unsigned>(n / 4 + 1))), n);
  // Cells of points a little ahead are worked out early so that their slots
  // are fetched while the current point is entered.
  constexpr int kAhead = 32;
  IntCoord ahead[kAhead];
  const C3DPoint* p = points.GetFirst();
  for (int i = 0; i < n && i < kAhead; ++i) {
    ahead[i] = ConvertToProximityCoordinate(p[i], size);
    map->PrefetchInsert(ahead[i]);
  }
  for (int i = 0; i < n; ++i) {
    const IntCoord cell = ahead[i % kAhead];
    if (i + kAhead < n) {
      ahead[i % kAhead] = ConvertToProximityCoordinate(p[i + kAhead], size);
      map->PrefetchInsert(ahead[i % kAhead]);
    }
    map->AddPoint(cell);
    if (cancel && cancel->Tick()) {
      delete map;
      return nullptr;
    }
  }
  map->Finish();
  return map;
}

CProximityResult* Get3DProximityPoints(const C3DPointList& points, const CProximityMap* map) {
  auto* result = new CProximityResult;
  const int n = points.GetSize();
  if (n == 0 || !map)
    return result;
  const float size = points.GetProximityCellSize();

  // Every point of a cell sees the same cells around it: look them up once per cell.
  std::vector<int> cellOf(static_cast<std::size_t>(n), -1);
  for (int e = 0; e < map->GetCount(); ++e) {
    const CIndexRun indices = map->GetIndices(e);
    for (int k = 0; k < indices.GetSize(); ++k)
      if (indices[k] >= 0 && indices[k] < n)
        cellOf[static_cast<std::size_t>(indices[k])] = e;
  }
  std::vector<int> start, around, own;
  GetCellNeighbourhoods(*map, start, around);

  const C3DPoint* p = points.GetFirst();
  for (int i = 0; i < n; ++i, ++p) {
    const int* first;
    const int* last;
    const int e = cellOf[static_cast<std::size_t>(i)];
    if (e >= 0) {
      first = around.data() + start[static_cast<std::size_t>(e)];
      last = around.data() + start[static_cast<std::size_t>(e) + 1];
    } else {
      // A point the map does not hold (a map made from other points).
      own.clear();
      GetCellNeighbourhood(*map, ConvertToProximityCoordinate(*p, size), own);
      first = own.data();
      last = own.data() + own.size();
    }
    CProximityResult::Set* set = nullptr;
    for (; first != last; ++first) {
      const CIndexRun a = map->GetIndices(*first);
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
