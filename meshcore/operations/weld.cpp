#include "meshcore/operations/weld.h"

#include "meshcore/containers/hash_table.h"
#include "meshcore/containers/next_prime.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/operations/detail/progress_scope.h"
#include "meshcore/operations/proximity.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/exceptions.h"
#include "meshcore/scene/base_object.h"
#include "meshcore/scene/object_3d.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <numeric>
#include <typeinfo>
#include <vector>

namespace meshcore {

// Welding works from the cells rather than from a materialised proximity
// result (one hash set per point would dominate the cost), but reproduces
// exactly what the proximity result would give:
// - two points are neighbours when their cells touch, so clusters (connected
//   components of the neighbour relation) are the points of connected groups
//   of touching cells;
// - the result's keys are the points that have a neighbour, entered in index
//   order; the slot order a map of the result's kind gives them decides each
//   cluster's representative;
// - the member sets are built by the same insertions as the walk through the
//   neighbour sets would make, so ReplaceIndex runs in the same order. That
//   order only matters for a face holding two members of one cluster, so it
//   is worked out for such clusters alone.

namespace {

int Root(std::vector<int>& parent, int e) {
  while (parent[static_cast<std::size_t>(e)] != e) {
    parent[static_cast<std::size_t>(e)] =
        parent[static_cast<std::size_t>(parent[static_cast<std::size_t>(e)])];
    e = parent[static_cast<std::size_t>(e)];
  }
  return e;
}

// The slot order that the library's hash sets and maps of ints (quadratic
// probing on k << 4, growth into NextPrime(2 * size) once half full, re-entry
// in slot order) give to distinct keys inserted in a known order, kept in a
// plain array: the result and member sets need their order, not their storage.
class CSlotOrder {
public:
  explicit CSlotOrder(int initialSize) { Reset(initialSize); }
  void Reset(int initialSize) {
    m_slots.assign(static_cast<std::size_t>(initialSize), kEmpty);
    m_occupied = 0;
  }
  void Insert(int k) {
    Place(k);
    if (++m_occupied >= static_cast<int>(m_slots.size()) / 2) {
      m_old.swap(m_slots);
      m_slots.assign(NextPrime(2u * static_cast<unsigned>(m_old.size())), kEmpty);
      m_occupied = 0;
      for (int v : m_old)
        if (v != kEmpty) {
          Place(v);
          ++m_occupied;
        }
    }
  }
  // Calls f for every key in slot order.
  template <class F> void ForEach(F f) const {
    for (int v : m_slots)
      if (v != kEmpty)
        f(v);
  }

private:
  static constexpr int kEmpty = -1;
  void Place(int k) {
    const auto size = static_cast<std::uint32_t>(m_slots.size());
    std::uint32_t pos = (static_cast<std::uint32_t>(k) << 4) % size;
    for (std::uint32_t i = 1; m_slots[pos] != kEmpty; ++i) {
      pos += 2 * i - 1;
      while (pos >= size)
        pos -= size;
    }
    m_slots[pos] = k;
  }

  std::vector<int> m_slots, m_old;
  int m_occupied = 0;
};

// The neighbour set of point q as the proximity result holds it: the points
// of the cells around q's cell, in visiting order, without q.
void NeighbourSet(const CProximityMap& map, const int* cells, int cellCount, int q,
                  CHashTable<int>& set) {
  for (int c = 0; c < cellCount; ++c) {
    const CIndexRun a = map.GetIndices(cells[c]);
    for (int k = 0; k < a.GetSize(); ++k)
      if (a[k] != q)
        set.Insert(a[k]);
  }
}

// The slot count of a fresh set or map of ints of `initial` slots once
// `count` distinct keys are in (it grows into NextPrime(2 * size) once half
// full); 0 when that is beyond what the fast path below handles.
std::uint32_t FinalSlotCount(std::uint32_t initial, std::uint64_t count) {
  std::uint64_t size = initial;
  while (count >= size / 2) {
    if (size > (1u << 30))
      return 0;
    size = NextPrime(static_cast<unsigned>(2 * size));
  }
  return static_cast<std::uint32_t>(size);
}

// The inverse of 16 modulo an odd prime p (16^(p - 2) mod p).
std::uint64_t ModularInverse16(std::uint64_t p) {
  std::uint64_t result = 1, base = 16 % p;
  for (std::uint64_t e = p - 2; e; e >>= 1) {
    if (e & 1)
      result = result * base % p;
    base = base * base % p;
  }
  return result;
}

// False once the thread is asked to stop.
bool CheckFaceIndices(const C3DFaceList& faces, int n, CCancelCheck& cancel) {
  for (int f = 0; f < faces.GetSize(); ++f) {
    const C3DFace& face = faces[f];
    if (!face.IsFlagSet(FACE_EXCLUDED)) {
      const int* d = face.GetData();
      for (int k = 0; k < face.GetSize(); ++k)
        if (d[k] < 0 || d[k] >= n)
          throw CInvalidArgException();
    }
    if (cancel.Tick())
      return false;
  }
  return true;
}

// The cells grouped into connected groups of touching cells, and what the
// welding needs of them.
struct CCellGroups {
  CProximityMap& map;
  std::vector<int> root; // a cell's group, named by its first cell; empty while no cells touch
  std::vector<int> size; // by group: its points; by other cells: their own (with root)
  // By cell: the representative of its group, -1 for a group of one point.
  std::vector<int> representative;
  // The cells of each group, built on first need.
  std::vector<int> groupStart, groupList;

  explicit CCellGroups(CProximityMap& m) : map(m) {}

  int Root(int e) const { return root.empty() ? e : root[static_cast<std::size_t>(e)]; }
  int Points(int e) const {
    return root.empty() ? map.GetPointCount(e) : size[static_cast<std::size_t>(Root(e))];
  }

  void BuildGroupLists() {
    if (!groupStart.empty())
      return;
    const std::size_t count = representative.size();
    groupStart.assign(count + 1, 0);
    for (std::size_t e = 0; e < count; ++e)
      ++groupStart[static_cast<std::size_t>(Root(static_cast<int>(e))) + 1];
    std::partial_sum(groupStart.begin(), groupStart.end(), groupStart.begin());
    groupList.resize(count);
    std::vector<int> fill(groupStart.begin(), groupStart.end() - 1);
    for (std::size_t e = 0; e < count; ++e)
      groupList[static_cast<std::size_t>(
          fill[static_cast<std::size_t>(Root(static_cast<int>(e)))]++)] = static_cast<int>(e);
  }

  // The members of group's cluster (its points but the representative p) in
  // the order the walk through the proximity result enters them into the
  // member set.
  void Members(int group, std::vector<int>& members) {
    const int p = representative[static_cast<std::size_t>(group)];
    members.clear();
    map.BuildIndices();
    BuildGroupLists();
    const auto g = static_cast<std::size_t>(group);
    if (groupStart[g + 1] - groupStart[g] == 1) {
      // One cell: every point neighbours every other. p's set is the others
      // in index order; the walk enters them into the member set in that set's
      // slot order and then p itself (met again as a neighbour), which goes.
      const CIndexRun a = map.GetIndices(group);
      if (a.GetSize() == 2) {
        members.push_back(a[0] == p ? a[1] : a[0]);
        return;
      }
      CSlotOrder own(5), set(5); // a fresh set's slot count
      for (int k = 0; k < a.GetSize(); ++k)
        if (a[k] != p)
          own.Insert(a[k]);
      own.ForEach([&](int j) { set.Insert(j); });
      set.Insert(p);
      set.ForEach([&](int j) {
        if (j != p)
          members.push_back(j);
      });
      return;
    }
    // Several cells: walk the neighbour sets themselves.
    CFlatMap<int, int> localOf;
    std::vector<std::unique_ptr<CHashTable<int>>> sets;
    std::vector<int> around;
    for (int k = groupStart[g]; k < groupStart[g + 1]; ++k) {
      const int e = groupList[static_cast<std::size_t>(k)];
      around.clear();
      map.AppendNeighbourhood(map.GetCell(e), e, around);
      const CIndexRun a = map.GetIndices(e);
      for (int i = 0; i < a.GetSize(); ++i) {
        localOf.SetAt(a[i], static_cast<int>(sets.size()));
        auto neighbours = std::make_unique<CHashTable<int>>();
        NeighbourSet(map, around.data(), static_cast<int>(around.size()), a[i], *neighbours);
        sets.push_back(std::move(neighbours));
      }
    }
    std::vector<char> visited(sets.size(), 0);
    std::vector<int> stack{p};
    CHashTable<int> memberSet;
    visited[static_cast<std::size_t>(*localOf.PLookup(p))] = 1;
    while (!stack.empty()) {
      const int q = stack.back();
      stack.pop_back();
      const CHashTable<int>& around_q = *sets[static_cast<std::size_t>(*localOf.PLookup(q))];
      for (int it = around_q.GetFirst(); it >= 0;) {
        int j = 0;
        around_q.GetNext(it, j);
        memberSet.Insert(j);
        char& seen = visited[static_cast<std::size_t>(*localOf.PLookup(j))];
        if (!seen) {
          seen = 1;
          stack.push_back(j);
        }
      }
    }
    memberSet.Remove(p);
    for (int it = memberSet.GetFirst(); it >= 0;) {
      int j = 0;
      memberSet.GetNext(it, j);
      members.push_back(j);
    }
  }
};

// Leaves every face as the list's ReplaceIndex(m, p) would, called for each
// cluster's members m in their order: such a call only touches faces that
// hold m, never brings m back, and calls of different clusters touch disjoint
// indices, so each face can take its own members, cluster by cluster, in
// member order. Excluded faces are left alone, as the list's graph skips them.
class CFaceRewriter {
public:
  CFaceRewriter(const std::vector<int>& cellOf, const std::vector<int>& repOfCell,
                CCellGroups& groups)
      : m_cellOf(cellOf), m_repOfCell(repOfCell), m_groups(groups) {}

  // Rewrites a face that is not excluded; returns whether it changed.
  bool Rewrite(C3DFace& face) {
    const std::vector<int>& cellOf = m_cellOf;
    const std::vector<int>& repOfCell = m_repOfCell;
    int* d = face.GetData();
    const int size = face.GetSize();
    // Usually no cluster has two points in the face (a member and another
    // member, or its target): every call then just overwrites its member.
    constexpr int kShort = 8;
    if (size >= 3 && size <= kShort) {
      int r[kShort];
      bool hit = false, plain = true;
      for (int k = 0; k < size; ++k) {
        r[k] = repOfCell[static_cast<std::size_t>(cellOf[static_cast<std::size_t>(d[k])])];
        if (r[k] < 0)
          continue;
        hit = hit || r[k] != d[k];
        for (int j = 0; j < k; ++j)
          plain = plain && r[j] != r[k];
      }
      if (!hit)
        return false;
      if (plain) {
        for (int k = 0; k < size; ++k)
          if (r[k] >= 0)
            d[k] = r[k];
        return true;
      }
    }
    std::vector<Hit>& hits = m_hits;
    hits.clear();
    for (int k = 0; k < size; ++k) {
      const int r = repOfCell[static_cast<std::size_t>(cellOf[static_cast<std::size_t>(d[k])])];
      if (r >= 0 && r != d[k])
        hits.push_back({d[k], r, 0});
    }
    if (hits.empty())
      return false;
    if (hits.size() > 1) {
      // Faces are short: insertion sorts. One call per member, however often
      // the face lists it.
      const auto byTarget = [](const Hit& a, const Hit& b) {
        return a.target != b.target ? a.target < b.target : a.index < b.index;
      };
      for (std::size_t i = 1; i < hits.size(); ++i)
        for (std::size_t j = i; j > 0 && byTarget(hits[j], hits[j - 1]); --j)
          std::swap(hits[j], hits[j - 1]);
      hits.erase(std::unique(hits.begin(), hits.end(),
                             [](const Hit& a, const Hit& b) { return a.index == b.index; }),
                 hits.end());
      bool shared = false;
      for (std::size_t i = 1; i < hits.size(); ++i)
        shared = shared || hits[i].target == hits[i - 1].target;
      if (shared) {
        for (Hit& h : hits) {
          const int group = m_groups.Root(cellOf[static_cast<std::size_t>(h.target)]);
          if (m_ordered.empty()) {
            m_ordered.assign(m_groups.representative.size(), 0);
            m_order.assign(cellOf.size(), 0);
          }
          if (!m_ordered[static_cast<std::size_t>(group)]) {
            m_ordered[static_cast<std::size_t>(group)] = 1;
            m_groups.Members(group, m_members);
            for (std::size_t k = 0; k < m_members.size(); ++k)
              m_order[static_cast<std::size_t>(m_members[k])] = static_cast<int>(k);
          }
          h.order = m_order[static_cast<std::size_t>(h.index)];
        }
        const auto byOrder = [](const Hit& a, const Hit& b) {
          return a.target != b.target ? a.target < b.target : a.order < b.order;
        };
        for (std::size_t i = 1; i < hits.size(); ++i)
          for (std::size_t j = i; j > 0 && byOrder(hits[j], hits[j - 1]); --j)
            std::swap(hits[j], hits[j - 1]);
      }
    }
    for (const Hit& h : hits)
      face.ReplaceIndex(h.index, h.target);
    return true;
  }

private:
  struct Hit {
    int index, target, order;
  };
  const std::vector<int>& m_cellOf;
  const std::vector<int>& m_repOfCell;
  CCellGroups& m_groups;
  std::vector<Hit> m_hits;
  std::vector<int> m_order, m_members; // order by point, filled per group on first need
  std::vector<char> m_ordered;
};

// What the object's Clean does to each face before the points go, for a
// plain mesh: the faces are then cleaned in the pass that rewrites them
// instead of in passes of their own (and, when no point is flagged
// PT_INVALID, without reading the points at all).
class CFaceCleaner {
public:
  CFaceCleaner(const C3DPointList& points, bool anyInvalid)
      : m_points(points), m_anyInvalid(anyInvalid),
        m_used(static_cast<std::size_t>(points.GetSize()), 0) {}

  void Clean(C3DFace& face) {
    if (face.IsFlagSet(FACE_EXCLUDED)) {
      m_kept += !face.IsFlagSet(FACE_INVALID);
      return;
    }
    // Faces that are not excluded hold only points of the list (checked
    // before, and welding keeps it so).
    if (m_anyInvalid && !face.IsFlagSet(FACE_INVALID)) {
      const int* d = face.GetData();
      for (int k = 0; k < face.GetSize(); ++k)
        if (m_points[d[k]].IsFlagSet(PT_INVALID)) {
          face.SetFlag(FACE_INVALID, 1);
          break;
        }
    }
    RemoveRepeatedIndices(face);
    if (face.IsFlagSet(FACE_INVALID))
      return;
    ++m_kept;
    const int* d = face.GetData();
    const int size = face.GetSize();
    for (int k = 0; k < size; ++k)
      m_used[static_cast<std::size_t>(d[k])] = 1;
  }
  int GetKept() const { return m_kept; }
  const std::vector<unsigned char>& GetUsed() const { return m_used; }

private:
  const C3DPointList& m_points;
  bool m_anyInvalid;
  std::vector<unsigned char> m_used;
  int m_kept = 0;
};

// The end of the object's Clean once every face went through the cleaner:
// faces flagged FACE_INVALID go, then the points no face uses.
// table is scratch room for the points' moves.
void FinishClean(C3DBaseObject& object, C3DFaceList& faces, C3DPointList& points,
                 const CFaceCleaner& cleaner, std::vector<int>& table) {
  const int facesRemoved =
      cleaner.GetKept() < faces.GetSize() ? faces.Clean(nullptr, 0, nullptr) : 0;
  const int pointsRemoved = points.Clean(&cleaner.GetUsed(), table);
  if (pointsRemoved) {
    const auto n = static_cast<unsigned>(table.size());
    for (int f = 0; f < faces.GetSize(); ++f) {
      C3DFace& face = faces[f];
      int* d = face.GetData();
      const int size = face.GetSize();
      for (int k = 0; k < size; ++k)
        if (static_cast<unsigned>(d[k]) < n && table[static_cast<std::size_t>(d[k])] >= 0)
          d[k] = table[static_cast<std::size_t>(d[k])];
    }
    points.SetFlag(PL_CHANGED, 1);
  }
  if (facesRemoved || pointsRemoved)
    faces.SetFlag(FL_CHANGED, 1);
  object.InvalidateBoundingBoxes();
  if (facesRemoved && pointsRemoved && faces.GetSize() == 0 && points.GetSize() == 0)
    object.SetFlag(OBJECT_EMPTY, 1);
}

} // namespace

int Weld3DPoints(C3DBaseObject& object, float tolerance, int& removedPoints, int& removedFaces) {
  removedPoints = 0;
  removedFaces = 0;
  C3DPointList* points = object.GetPointList();
  C3DFaceList* faces = object.GetFaceList();
  if (!points || !faces || points->GetSize() == 0)
    return 0;
  const int p0 = object.GetPointNbr();
  const int f0 = object.GetFaceNbr();
  const int n = points->GetSize();

  // Everything up to the rewriting of the faces works on data of its own, so
  // a cancel request is answered at once and leaves the object as it was. The
  // points are passed over about twice, the cells twice and the faces once.
  CCancelCheck cancel(static_cast<std::uint64_t>(n) * 3);
  detail::CProgressScope progress;
  bool anyInvalid = false;
  std::unique_ptr<CProximityMap> map(
      InitProximityMap(*points, tolerance, &cancel, false, &anyInvalid));
  if (!map)
    return kWeldCancelled;
  const auto cells = static_cast<std::size_t>(map->GetCount());
  cancel.SetTotal(static_cast<std::uint64_t>(n) * 2 + static_cast<std::uint64_t>(cells) * 2 +
                  static_cast<std::uint64_t>(faces->GetSize()));
  const std::vector<int>& cellOf = map->GetCellOfPoints();

  // Groups of touching cells. Most cells touch none, which the map tells
  // from a few words; the others are searched.
  CCellGroups groups(*map);
  std::vector<int>& root = groups.root;
  std::vector<int> around;
  constexpr std::size_t kAhead = 8; // cells whose words are fetched ahead
  for (std::size_t e = 0; e < cells; ++e) {
    if (e + kAhead < cells)
      map->PrefetchNeighbourhood(map->GetCell(static_cast<int>(e + kAhead)));
    const IntCoord& c = map->GetCell(static_cast<int>(e));
    if (map->MayTouchOthers(c)) {
      around.clear();
      map->AppendNeighbourhood(c, static_cast<int>(e), around);
      for (int o : around) {
        if (static_cast<std::size_t>(o) == e)
          continue;
        if (root.empty()) {
          root.resize(cells);
          std::iota(root.begin(), root.end(), 0);
        }
        const int a = Root(root, static_cast<int>(e)), b = Root(root, o);
        if (a != b)
          root[static_cast<std::size_t>(std::max(a, b))] = std::min(a, b);
      }
    }
    if (cancel.Tick())
      return kWeldCancelled;
  }
  if (!root.empty()) {
    std::vector<int>& size = groups.size;
    size.resize(cells);
    for (std::size_t e = 0; e < cells; ++e) {
      const int r = Root(root, static_cast<int>(e));
      root[e] = r;
      size[e] = map->GetPointCount(static_cast<int>(e));
      if (static_cast<std::size_t>(r) != e)
        size[static_cast<std::size_t>(r)] += size[e];
    }
  }

  // The proximity result's keys are the points of groups of two or more. A
  // cluster's representative is its first key in the result's slot order.
  std::uint64_t keyCount = 0;
  for (std::size_t e = 0; e < cells; ++e)
    if (groups.Points(static_cast<int>(e)) >= 2)
      keyCount += static_cast<std::uint64_t>(map->GetPointCount(static_cast<int>(e)));
  int maxKey = n - 1;
  while (maxKey >= 0 && groups.Points(cellOf[static_cast<std::size_t>(maxKey)]) < 2)
    --maxKey;
  const std::uint32_t slots = FinalSlotCount(47, keyCount); // a fresh map's slot count
  // By group, its representative (-1 for none); by cell once spread below.
  std::vector<int>& representative = groups.representative;
  if (maxKey >= 0 && maxKey < (1 << 27) && static_cast<std::uint32_t>(maxKey) < slots) {
    // Below the (prime) slot count, keys k have distinct home slots 16 k mod
    // slots, so each sits in its own whatever the order it came in. Each
    // group keeps its least slot, which gives back its key: slot / 16 mod slots.
    representative.assign(cells, INT32_MAX);
    std::uint32_t slot = 0;
    for (int i = 0; i < n; ++i) {
      const int e = cellOf[static_cast<std::size_t>(i)];
      if (groups.Points(e) >= 2) {
        int& best = representative[static_cast<std::size_t>(groups.Root(e))];
        best = std::min(best, static_cast<int>(slot));
      }
      slot += 16;
      if (slot >= slots)
        slot -= slots;
      if (cancel.Tick())
        return kWeldCancelled;
    }
    const std::uint64_t inverse = ModularInverse16(slots);
    for (int& r : representative)
      r = r == INT32_MAX ? -1 : static_cast<int>(static_cast<std::uint64_t>(r) * inverse % slots);
  } else {
    representative.assign(cells, -1);
    if (maxKey >= 0) {
      CSlotOrder keys(47);
      for (int i = 0; i < n; ++i) {
        if (groups.Points(cellOf[static_cast<std::size_t>(i)]) >= 2)
          keys.Insert(i);
        if (cancel.Tick())
          return kWeldCancelled;
      }
      keys.ForEach([&](int p) {
        int& r = representative[static_cast<std::size_t>(
            groups.Root(cellOf[static_cast<std::size_t>(p)]))];
        if (r < 0)
          r = p;
      });
    }
  }
  // A group is named by its least cell, so spreading in cell order reads
  // each group's own entry before any other cell overwrites it.
  if (!root.empty())
    for (std::size_t e = 0; e < cells; ++e)
      representative[e] = representative[static_cast<std::size_t>(root[e])];
  const std::vector<int>& repOfCell = representative;

  // Indices the graph of the faces could not hold are refused before anything moves.
  if (!CheckFaceIndices(*faces, n, cancel))
    return kWeldCancelled;

  // From here on the object changes: the rest runs to its end.
  if (cancel.Check())
    return kWeldCancelled;
  CFaceRewriter rewriter(cellOf, repOfCell, groups);
  // The object's own Clean follows unless the mesh is a plain one (nothing
  // but faces and points to renumber); then the faces are cleaned as they
  // are rewritten, from the first that changed, and the faces before it
  // once one has.
  std::unique_ptr<CFaceCleaner> cleaner;
  if (typeid(object) == typeid(C3DObject) && points->HasPointElements() &&
      (!object.GetChannels() || object.GetChannels()->GetSize() == 0))
    cleaner = std::make_unique<CFaceCleaner>(*points, anyInvalid);
  int firstChanged = -1;
  for (int f = 0; f < faces->GetSize(); ++f) {
    C3DFace& face = (*faces)[f];
    if (!face.IsFlagSet(FACE_EXCLUDED) && rewriter.Rewrite(face) && firstChanged < 0)
      firstChanged = f;
    if (cleaner && firstChanged >= 0)
      cleaner->Clean(face);
  }
  if (firstChanged >= 0) {
    faces->DeleteEdgeToFaceGraph();
    if (cleaner) {
      for (int f = 0; f < firstChanged; ++f)
        cleaner->Clean((*faces)[f]);
      // The map is done with: its table of the points' cells, as large as
      // the points' table of moves, serves again without fresh memory.
      std::vector<int> table = map->ReleaseCellOfPoints();
      FinishClean(object, *faces, *points, *cleaner, table);
    } else {
      object.Clean();
    }
  }
  removedPoints = p0 - object.GetPointNbr();
  removedFaces = f0 - object.GetFaceNbr();
  return 0;
}

} // namespace meshcore
