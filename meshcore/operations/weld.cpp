#include "meshcore/operations/weld.h"

#include "meshcore/containers/hash_table.h"
#include "meshcore/containers/next_prime.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/operations/detail/progress_scope.h"
#include "meshcore/operations/proximity.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/exceptions.h"
#include "meshcore/scene/base_object.h"

#include <algorithm>
#include <memory>
#include <numeric>
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
//   neighbour sets would make, so ReplaceIndex runs in the same order.

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

void CheckFaceIndices(const C3DFaceList& faces, int n) {
  for (int f = 0; f < faces.GetSize(); ++f) {
    const C3DFace& face = faces[f];
    if (face.IsFlagSet(FACE_EXCLUDED))
      continue;
    const int* d = face.GetData();
    for (int k = 0; k < face.GetSize(); ++k)
      if (d[k] < 0 || d[k] >= n)
        throw CInvalidArgException();
  }
}

// Leaves every face as the list's ReplaceIndex(m, target[m]) would, called for
// each cluster's members in their order: such a call only touches faces that
// hold m, never brings m back, and calls of different clusters touch disjoint
// indices, so each face can take its own members, cluster by cluster, in
// member order. Excluded faces are left alone, as the list's graph skips them.
// Returns whether a face changed.
bool RemapFaces(C3DFaceList& faces, const std::vector<int>& target, const std::vector<int>& order) {
  bool changed = false;
  std::vector<int> hits;
  for (int f = 0; f < faces.GetSize(); ++f) {
    C3DFace& face = faces[f];
    if (face.IsFlagSet(FACE_EXCLUDED))
      continue;
    const int* d = face.GetData();
    const int size = face.GetSize();
    hits.clear();
    for (int k = 0; k < size; ++k)
      if (target[static_cast<std::size_t>(d[k])] >= 0)
        hits.push_back(d[k]);
    if (hits.empty())
      continue;
    changed = true;
    if (hits.size() > 1) {
      std::sort(hits.begin(), hits.end(), [&](int a, int b) {
        const int ta = target[static_cast<std::size_t>(a)],
                  tb = target[static_cast<std::size_t>(b)];
        return ta != tb ? ta < tb
                        : order[static_cast<std::size_t>(a)] < order[static_cast<std::size_t>(b)];
      });
      // One call per member, however often the face lists it.
      hits.erase(std::unique(hits.begin(), hits.end()), hits.end());
    }
    for (int m : hits)
      face.ReplaceIndex(m, target[static_cast<std::size_t>(m)]);
  }
  return changed;
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
  // points are passed over about twice and the cells four times.
  CCancelCheck cancel(static_cast<std::uint64_t>(n) * 3);
  detail::CProgressScope progress;
  std::unique_ptr<CProximityMap> map(InitProximityMap(*points, tolerance, &cancel));
  if (!map)
    return kWeldCancelled;
  const int cellCount = map->GetCount();
  cancel.SetTotal(static_cast<std::uint64_t>(n) * 2 + static_cast<std::uint64_t>(cellCount) * 3);
  const std::vector<int>& cellOf = map->GetCellOfPoints();
  std::vector<int> start, around;
  if (!GetCellNeighbourhoods(*map, start, around, &cancel))
    return kWeldCancelled;

  // Groups of touching cells.
  std::vector<int> parent(static_cast<std::size_t>(cellCount));
  std::iota(parent.begin(), parent.end(), 0);
  for (int e = 0; e < cellCount; ++e) {
    for (int k = start[static_cast<std::size_t>(e)]; k < start[static_cast<std::size_t>(e) + 1];
         ++k) {
      const int a = Root(parent, e), b = Root(parent, around[static_cast<std::size_t>(k)]);
      if (a != b)
        parent[static_cast<std::size_t>(std::max(a, b))] = std::min(a, b);
    }
    if (cancel.Tick())
      return kWeldCancelled;
  }
  std::vector<int> groupSize(static_cast<std::size_t>(cellCount), 0);
  std::vector<int> groupCells(static_cast<std::size_t>(cellCount), 0);
  for (int e = 0; e < cellCount; ++e) {
    const int r = Root(parent, e);
    parent[static_cast<std::size_t>(e)] = r;
    groupSize[static_cast<std::size_t>(r)] += map->GetIndices(e).GetSize();
    ++groupCells[static_cast<std::size_t>(r)];
  }

  // The proximity result's keys, in its own slot order.
  CSlotOrder keys(47); // a fresh map's slot count
  for (int i = 0; i < n; ++i) {
    if (groupSize[static_cast<std::size_t>(
            parent[static_cast<std::size_t>(cellOf[static_cast<std::size_t>(i)])])] >= 2)
      keys.Insert(i);
    if (cancel.Tick())
      return kWeldCancelled;
  }

  // The cells of each multi-cell group, for the general case below.
  std::vector<int> groupStart(static_cast<std::size_t>(cellCount) + 1, 0);
  std::vector<int> groupList;
  bool anyMultiCell = false;
  for (int e = 0; e < cellCount; ++e)
    anyMultiCell = anyMultiCell || groupCells[static_cast<std::size_t>(e)] > 1;
  if (anyMultiCell) {
    for (int e = 0; e < cellCount; ++e)
      if (groupCells[static_cast<std::size_t>(parent[static_cast<std::size_t>(e)])] > 1)
        ++groupStart[static_cast<std::size_t>(parent[static_cast<std::size_t>(e)]) + 1];
    std::partial_sum(groupStart.begin(), groupStart.end(), groupStart.begin());
    groupList.resize(static_cast<std::size_t>(groupStart.back()));
    std::vector<int> fill(groupStart.begin(), groupStart.end() - 1);
    for (int e = 0; e < cellCount; ++e)
      if (groupCells[static_cast<std::size_t>(parent[static_cast<std::size_t>(e)])] > 1)
        groupList[static_cast<std::size_t>(
            fill[static_cast<std::size_t>(parent[static_cast<std::size_t>(e)])]++)] = e;
  }

  // Indices the graph of the faces could not hold are refused before anything moves.
  CheckFaceIndices(*faces, n);
  std::vector<int> members, stack, local;
  std::vector<std::unique_ptr<CHashTable<int>>> sets;
  CFlatMap<int, int> localOf;
  // Each member's target point and place in its cluster's replacement order.
  std::vector<int> target(static_cast<std::size_t>(n), -1), order(static_cast<std::size_t>(n), 0);

  CSlotOrder own(5), set(5); // a fresh set's slot count
  // A cluster's representative is its first point in the keys' slot order.
  // Clusters touch disjoint point indices, so the order in which they are
  // replaced does not change the result: take them in cell order, which walks
  // the faces far more coherently than the slot order.
  std::vector<int> representative(static_cast<std::size_t>(cellCount), -1);
  keys.ForEach([&](int p) {
    int& r = representative[static_cast<std::size_t>(
        parent[static_cast<std::size_t>(cellOf[static_cast<std::size_t>(p)])])];
    if (r < 0)
      r = p;
  });
  for (int group = 0; group < cellCount; ++group) {
    if (cancel.Tick())
      return kWeldCancelled;
    const int p = representative[static_cast<std::size_t>(group)];
    if (p < 0)
      continue;
    members.clear();

    if (groupCells[static_cast<std::size_t>(group)] == 1) {
      // One cell: every point neighbours every other. p's set is the others
      // in index order; the walk enters them into the member set in that set's
      // slot order and then p itself (met again as a neighbour), which goes.
      const CIndexRun a = map->GetIndices(group);
      if (a.GetSize() == 2) {
        members.push_back(a[0] == p ? a[1] : a[0]);
      } else {
        own.Reset(5);
        for (int k = 0; k < a.GetSize(); ++k)
          if (a[k] != p)
            own.Insert(a[k]);
        set.Reset(5);
        own.ForEach([&](int j) { set.Insert(j); });
        set.Insert(p);
        set.ForEach([&](int j) {
          if (j != p)
            members.push_back(j);
        });
      }
    } else {
      // Several cells: walk the neighbour sets themselves.
      localOf.RemoveAll();
      local.clear();
      sets.clear();
      for (int g = groupStart[static_cast<std::size_t>(group)];
           g < groupStart[static_cast<std::size_t>(group) + 1]; ++g) {
        const CIndexRun a = map->GetIndices(groupList[static_cast<std::size_t>(g)]);
        for (int k = 0; k < a.GetSize(); ++k) {
          localOf.SetAt(a[k], static_cast<int>(local.size()));
          local.push_back(a[k]);
          auto set = std::make_unique<CHashTable<int>>();
          const int e = groupList[static_cast<std::size_t>(g)];
          NeighbourSet(*map, around.data() + start[static_cast<std::size_t>(e)],
                       start[static_cast<std::size_t>(e) + 1] - start[static_cast<std::size_t>(e)],
                       a[k], *set);
          sets.push_back(std::move(set));
        }
      }
      std::vector<char> visited(local.size(), 0);
      CHashTable<int> memberSet;
      visited[static_cast<std::size_t>(*localOf.PLookup(p))] = 1;
      stack.push_back(p);
      while (!stack.empty()) {
        if (cancel.Tick())
          return kWeldCancelled;
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

    for (std::size_t k = 0; k < members.size(); ++k) {
      target[static_cast<std::size_t>(members[k])] = p;
      order[static_cast<std::size_t>(members[k])] = static_cast<int>(k);
    }
  }

  // From here on the object changes: the rest runs to its end.
  if (cancel.Check())
    return kWeldCancelled;
  if (RemapFaces(*faces, target, order)) {
    faces->DeleteEdgeToFaceGraph();
    object.Clean();
  }
  removedPoints = p0 - object.GetPointNbr();
  removedFaces = f0 - object.GetFaceNbr();
  return 0;
}

} // namespace meshcore
