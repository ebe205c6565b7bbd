#include "meshcore/operations/proximity.h"

#include "meshcore/containers/next_prime.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/exceptions.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace meshcore {

namespace {

[[gnu::always_inline]] inline std::int32_t CellIndex(float coordinate, float size) {
  // The conversion truncates toward zero; no float lies strictly between
  // 2^31 - 128 and 2^31, so the bounds are exact.
  const float q = coordinate / size;
  if (q >= 2147483648.0f)
    return INT32_MAX;
  if (q > -2147483648.0f)
    return static_cast<std::int32_t>(q);
  if (q <= -2147483648.0f)
    return INT32_MIN;
  return 0; // NaN
}

// The cell of a point: the three divisions at once when the quotients are
// all within the int range (nearly always), one by one otherwise.
using V4f = float __attribute__((vector_size(16)));
using V4i = std::int32_t __attribute__((vector_size(16)));
[[gnu::always_inline]] inline IntCoord CellOf(const C3DPoint& p, float size) {
  const V4f q = V4f{p.x, p.y, p.z, 0.0f} / size;
  // All lanes true (the fourth, 0, always is): tested as two 64-bit halves.
  const V4i inRange = (q < 2147483648.0f) & (q > -2147483648.0f);
  std::uint64_t halves[2];
  std::memcpy(halves, &inRange, sizeof halves);
  if ((halves[0] & halves[1]) == ~std::uint64_t{0}) {
    const V4i c = __builtin_convertvector(q, V4i); // truncates toward zero
    return {c[0], c[1], c[2]};
  }
  return {CellIndex(p.x, size), CellIndex(p.y, size), CellIndex(p.z, size)};
}

float CellSizeFor(float tolerance) {
  return (tolerance == 0.0f ? 1e-7f : tolerance) * 0.5f;
}

// Spreads four bits to the rows (y, four bits apart) and layers (z, sixteen
// bits apart) of a block's word.
constexpr std::uint64_t kSpreadY[16] = {0x0000, 0x0001, 0x0010, 0x0011, 0x0100, 0x0101,
                                        0x0110, 0x0111, 0x1000, 0x1001, 0x1010, 0x1011,
                                        0x1100, 0x1101, 0x1110, 0x1111};
constexpr std::uint64_t kSpreadZ[16] = {
    0x0000000000000000, 0x0000000000000001, 0x0000000000010000, 0x0000000000010001,
    0x0000000100000000, 0x0000000100000001, 0x0000000100010000, 0x0000000100010001,
    0x0001000000000000, 0x0001000000000001, 0x0001000000010000, 0x0001000000010001,
    0x0001000100000000, 0x0001000100000001, 0x0001000100010000, 0x0001000100010001};

} // namespace

CProximityMap::CProximityMap(int expectedCells, int expectedPoints) {
  if (expectedCells > 0) {
    Grow(static_cast<std::size_t>(expectedCells) * 2);
    m_cells.reserve(static_cast<std::size_t>(expectedCells));
    m_start.reserve(static_cast<std::size_t>(expectedCells) + 1);
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
  for (std::size_t e = 0; e < m_cells.size(); ++e) {
    std::size_t pos = IntCoordHash()(m_cells[e]) & m_mask;
    while (m_slots[pos].entry >= 0)
      pos = (pos + 1) & m_mask;
    m_slots[pos] = {IntCoordHash()(m_cells[e]), static_cast<int>(e)};
  }
}

int CProximityMap::Insert(const IntCoord& cell, std::uint32_t hash) {
  if ((m_cells.size() + 1) * 2 > m_slots.size())
    Grow(m_slots.empty() ? 16 : m_slots.size() * 2);
  Slot& slot = m_slots[FindPos(cell, hash)];
  if (slot.entry < 0) {
    slot = {hash, static_cast<int>(m_cells.size())};
    m_cells.push_back(cell);
  }
  return slot.entry;
}

int CProximityMap::AddPoint(const IntCoord& cell) {
  const int e = Insert(cell, IntCoordHash()(cell));
  m_cellOf.push_back(e);
  Count(e);
  return e;
}

void CProximityMap::AddPoints(const C3DPoint* points, int count, float cellSize, bool* anyInvalid) {
  // Points go in batches: their cells and hashes first, so that the slots of
  // the whole batch are on their way while its points are entered.
  constexpr int kBatch = 64;
  IntCoord cells[kBatch];
  std::uint32_t hashes[kBatch];
  std::size_t out = m_cellOf.size();
  m_cellOf.resize(out + static_cast<std::size_t>(count));
  bool invalid = false;
  for (int first = 0; first < count; first += kBatch) {
    const int batch = std::min(kBatch, count - first);
    for (int k = 0; k < batch; ++k) {
      invalid |= points[first + k].IsFlagSet(PT_INVALID); // read with the coordinates
      cells[k] = CellOf(points[first + k], cellSize);
      hashes[k] = IntCoordHash()(cells[k]);
      if (!m_slots.empty())
        __builtin_prefetch(&m_slots[hashes[k] & m_mask]);
    }
    for (int k = 0; k < batch; ++k) {
      // Most points find their cell filled already: search before any growth.
      std::size_t pos = hashes[k] & m_mask;
      int e = -1;
      for (; !m_slots.empty(); pos = (pos + 1) & m_mask) {
        const Slot& s = m_slots[pos];
        if (s.entry < 0)
          break;
        if (s.hash == hashes[k] && m_cells[static_cast<std::size_t>(s.entry)] == cells[k]) {
          e = s.entry;
          break;
        }
      }
      if (e < 0) {
        if ((m_cells.size() + 1) * 2 > m_slots.size()) {
          e = Insert(cells[k], hashes[k]);
        } else {
          e = static_cast<int>(m_cells.size());
          m_slots[pos] = {hashes[k], e};
          m_cells.push_back(cells[k]);
        }
        m_start.push_back(0);
      }
      m_cellOf[out++] = e;
      ++m_start[static_cast<std::size_t>(e) + 1];
    }
  }
  if (anyInvalid && invalid)
    *anyInvalid = true;
}

void CProximityMap::Append(const CProximityMap& next) {
  // Its cells in its own order of first use are exactly the order in which
  // the cells it adds would have come in here. They go in batches whose
  // slots are fetched first, as in AddPoints.
  constexpr std::size_t kBatch = 64;
  std::uint32_t hashes[kBatch];
  std::vector<int> entry(next.m_cells.size());
  for (std::size_t first = 0; first < next.m_cells.size(); first += kBatch) {
    const std::size_t batch = std::min(kBatch, next.m_cells.size() - first);
    for (std::size_t k = 0; k < batch; ++k) {
      hashes[k] = IntCoordHash()(next.m_cells[first + k]);
      if (!m_slots.empty())
        __builtin_prefetch(&m_slots[hashes[k] & m_mask]);
    }
    for (std::size_t k = 0; k < batch; ++k) {
      const std::size_t j = first + k;
      const IntCoord& cell = next.m_cells[j];
      std::size_t pos = m_slots.empty() ? 0 : FindPos(cell, hashes[k]);
      int e = m_slots.empty() ? -1 : m_slots[pos].entry;
      if (e < 0) {
        if ((m_cells.size() + 1) * 2 > m_slots.size()) {
          e = Insert(cell, hashes[k]);
        } else {
          e = static_cast<int>(m_cells.size());
          m_slots[pos] = {hashes[k], e};
          m_cells.push_back(cell);
        }
        m_start.push_back(0);
      }
      entry[j] = e;
      m_start[static_cast<std::size_t>(e) + 1] += next.m_start[j + 1];
    }
  }
  const std::size_t out = m_cellOf.size();
  m_cellOf.resize(out + next.m_cellOf.size());
  for (std::size_t i = 0; i < next.m_cellOf.size(); ++i)
    m_cellOf[out + i] = entry[static_cast<std::size_t>(next.m_cellOf[i])];
}

void CProximityMap::BuildOccupancy() {
  // Four words a cell keep blocks sharing a word (false alarms) rare.
  std::size_t words = 16;
  while (words < m_cells.size() * 4)
    words *= 2;
  m_occupied.assign(words, 0);
  m_wordMask = words - 1;
  for (const IntCoord& c : m_cells)
    m_occupied[BlockWord(c)] |= std::uint64_t{1} << BlockBit(c);
}

void CProximityMap::Finish(bool withIndices) {
  BuildOccupancy();
  if (!m_finished)
    for (std::size_t e = 0; e < m_cells.size(); ++e)
      m_start[e + 1] += m_start[e];
  m_finished = true;
  m_indices.clear();
  m_indexed = false;
  if (withIndices)
    BuildIndices();
}

void CProximityMap::BuildIndices() {
  if (m_indexed)
    return;
  // Counting sort of the points by cell: each cell's indices come out increasing.
  m_indices.resize(m_cellOf.size());
  std::vector<int> fill(m_start.begin(), m_start.end() - 1);
  for (std::size_t i = 0; i < m_cellOf.size(); ++i)
    m_indices[static_cast<std::size_t>(fill[static_cast<std::size_t>(m_cellOf[i])]++)] =
        static_cast<int>(i);
  m_indexed = true;
}

void CProximityMap::AppendNeighbourhood(const IntCoord& c, int self, std::vector<int>& out) const {
  if (m_slots.empty())
    return;
  if (m_occupied.empty() || c.x == INT32_MIN || c.x == INT32_MAX || c.y == INT32_MIN ||
      c.y == INT32_MAX || c.z == INT32_MIN || c.z == INT32_MAX) {
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
  // The candidates are the set bits of the words of the (at most two per
  // axis) blocks the 27 cells span, read as cells of those blocks; a bit
  // that another block sharing the word set finds no cell.
  const unsigned sx = 7u << ((c.x - 1) & 3), sy = 7u << ((c.y - 1) & 3), sz = 7u << ((c.z - 1) & 3);
  const std::uint64_t mx[2] = {sx & 15, sx >> 4};
  const unsigned my[2] = {sy & 15, sy >> 4}, mz[2] = {sz & 15, sz >> 4};
  const std::int32_t bx = (c.x - 1) >> 2, by = (c.y - 1) >> 2, bz = (c.z - 1) >> 2;
  struct Found {
    int k, e;
  };
  Found found[27];
  int count = 0;
  for (int iz = 0; iz < 2; ++iz)
    for (int iy = 0; iy < 2; ++iy) {
      if (!mz[iz] || !my[iy])
        continue;
      const std::uint64_t yz = kSpreadY[my[iy]] * kSpreadZ[mz[iz]];
      for (int ix = 0; ix < 2; ++ix) {
        std::uint64_t bits = m_occupied[BlockWordOf(bx + ix, by + iy, bz + iz)] & (mx[ix] * yz);
        for (; bits; bits &= bits - 1) {
          const auto bit = static_cast<unsigned>(__builtin_ctzll(bits));
          const IntCoord n{(bx + ix) * 4 + static_cast<std::int32_t>(bit & 3),
                           (by + iy) * 4 + static_cast<std::int32_t>(bit >> 2 & 3),
                           (bz + iz) * 4 + static_cast<std::int32_t>(bit >> 4)};
          const int e = n == c && self >= 0 ? self : FindSlot(n);
          if (e >= 0)
            found[count++] = {(n.x - c.x + 1) * 9 + (n.y - c.y + 1) * 3 + (n.z - c.z + 1), e};
        }
      }
    }
  // In the neighbour search's order.
  for (int i = 1; i < count; ++i)
    for (int j = i; j > 0 && found[j].k < found[j - 1].k; --j)
      std::swap(found[j], found[j - 1]);
  for (int i = 0; i < count; ++i)
    out.push_back(found[i].e);
}

bool CProximityMap::MayTouchOthers(const IntCoord& c) const {
  if (m_occupied.empty() || c.x == INT32_MIN || c.x == INT32_MAX || c.y == INT32_MIN ||
      c.y == INT32_MAX || c.z == INT32_MIN || c.z == INT32_MAX)
    return true;
  // The three cells c - 1 to c + 1 of each axis fall in one block or two:
  // as bits of a block's row, 7 << ((c - 1) & 3) split at bit 4. Welding data
  // is mostly cells with no other around, answered from these few words,
  // read without branches: a block the cells do not reach gets an empty
  // mask and rereads the first word instead of fetching its own.
  const unsigned sx = 7u << ((c.x - 1) & 3), sy = 7u << ((c.y - 1) & 3), sz = 7u << ((c.z - 1) & 3);
  const std::uint64_t x0 = sx & 15, x1 = sx >> 4;
  const std::uint64_t y0 = kSpreadY[sy & 15], y1 = kSpreadY[sy >> 4];
  const std::uint64_t z0 = kSpreadZ[sz & 15], z1 = kSpreadZ[sz >> 4];
  const std::size_t w00 = BlockWordOf((c.x - 1) >> 2, (c.y - 1) >> 2, (c.z - 1) >> 2);
  // Blocks next to each other along an axis have words a fixed step apart.
  const std::size_t w01 = y1 ? (w00 + kStepY) & m_wordMask : w00;
  const std::size_t w10 = z1 ? (w00 + kStepZ) & m_wordMask : w00;
  const std::size_t w11 = y1 && z1 ? (w00 + kStepY + kStepZ) & m_wordMask : w00;
  const auto pair = [&](std::size_t w, std::uint64_t yz) {
    return (m_occupied[w] & (x0 * yz)) | (m_occupied[(w + 1) & m_wordMask] & (x1 * yz));
  };
  std::uint64_t any =
      pair(w00, y0 * z0) | pair(w01, y1 * z0) | pair(w10, y0 * z1) | pair(w11, y1 * z1);
  // No other cell within one of c has c's bit (that takes a step of four),
  // so taking it out leaves only the others.
  any &= ~(std::uint64_t{1} << BlockBit(c));
  return any != 0;
}

void CProximityMap::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    BuildIndices();
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
  m_finished = true;
  m_indices.clear();
  m_indexed = true;
  m_cellOf.clear(); // the indices read need not be 0, 1, 2, ...
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
  BuildOccupancy();
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
    const IntCoord& c = map.GetCell(e);
    if (map.MayTouchOthers(c))
      map.AppendNeighbourhood(c, e, around);
    else
      around.push_back(e);
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

CProximityMap* InitProximityMap(C3DPointList& points, float tolerance, CCancelCheck* cancel,
                                bool withIndices, bool* anyInvalid) {
  const float size = CellSizeFor(tolerance);
  points.SetProximityCellSize(size);
  const int n = points.GetSize();
  if (anyInvalid)
    *anyInvalid = false;
  if (n == 0)
    return nullptr;
  // Welding input is mostly a few copies of each corner: a quarter of the
  // point count is a fair first guess of the cell count.
  auto* map = new CProximityMap(static_cast<int>(NextPrime(static_cast<unsigned>(n / 4 + 1))), n);
  // In slices, to answer a cancel request. A large set is split in two: a
  // second thread maps the later half on its own while this one maps the
  // first, then the later half is appended (the map comes out the same).
  constexpr int kSlice = 16384;
  constexpr int kHalvesFrom = 1 << 18;
  const C3DPoint* p = points.GetFirst();
  int split = n;
  std::unique_ptr<CProximityMap> later;
  std::thread helper;
  std::atomic<bool> stop{false};
  std::mutex doneMutex;
  std::condition_variable doneWake;
  bool done = false;
  std::exception_ptr helperError;
  bool laterInvalid = false;
  if (n >= kHalvesFrom && std::thread::hardware_concurrency() != 1) {
    split = n / 2;
    const int rest = n - split;
    later = std::make_unique<CProximityMap>(static_cast<int>(NextPrime(static_cast<unsigned>(rest / 4 + 1))), rest);
    try {
      helper = std::thread([&] {
        try {
          for (int first = split; first < n && !stop.load(std::memory_order_relaxed); first += kSlice)
            later->AddPoints(p + first, std::min(kSlice, n - first), size, &laterInvalid);
        } catch (...) {
          helperError = std::current_exception();
        }
        std::lock_guard lock(doneMutex);
        done = true;
        doneWake.notify_one();
      });
    } catch (const std::system_error&) {
      split = n; // no second thread: one pass
      later.reset();
    }
  }
  bool cancelled = false;
  for (int first = 0; first < split && !cancelled; first += kSlice) {
    const int count = std::min(kSlice, split - first);
    map->AddPoints(p + first, count, size, anyInvalid);
    cancelled = cancel && cancel->Advance(static_cast<std::uint64_t>(count));
  }
  if (helper.joinable()) {
    // A cancel request is still answered while the later half is finished.
    {
      std::unique_lock lock(doneMutex);
      while (!cancelled && !done) {
        doneWake.wait_for(lock, std::chrono::milliseconds(2));
        cancelled = cancel && cancel->Check();
      }
    }
    if (cancelled)
      stop.store(true, std::memory_order_relaxed);
    helper.join();
    if (helperError && !cancelled) {
      delete map;
      std::rethrow_exception(helperError);
    }
    if (!cancelled) {
      map->Append(*later);
      if (anyInvalid && laterInvalid)
        *anyInvalid = true;
      cancelled = cancel && cancel->Advance(static_cast<std::uint64_t>(n - split));
    }
  }
  if (cancelled) {
    delete map;
    return nullptr;
  }
  map->Finish(withIndices);
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
