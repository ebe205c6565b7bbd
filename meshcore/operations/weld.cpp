#include "meshcore/operations/weld.h"

#include "meshcore/containers/hash_map.h"
#include "meshcore/containers/hash_table.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/geom_info.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/operations/proximity.h"
#include "meshcore/scene/base_object.h"

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
//   order into a map of the result's kind; walking that map's slots gives the
//   order in which clusters and their representatives are met;
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

// The neighbour set of point q as the proximity result holds it: the points
// of the cells around q's cell, in visiting order, without q.
void NeighbourSet(const CProximityMap& map, const int* cells, int cellCount, int q,
                  CHashTable<int>& set) {
  for (int c = 0; c < cellCount; ++c) {
    const CIntArrayID& a = map.GetIndices(cells[c]);
    for (int k = 0; k < a.GetSize(); ++k)
      if (a[k] != q)
        set.Insert(a[k]);
  }
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

  std::unique_ptr<CProximityMap> map(InitProximityMap(*points, tolerance));
  const int cellCount = map->GetCount();
  std::vector<int> cellOf(static_cast<std::size_t>(n), 0);
  for (int e = 0; e < cellCount; ++e) {
    const CIntArrayID& a = map->GetIndices(e);
    for (int k = 0; k < a.GetSize(); ++k)
      cellOf[static_cast<std::size_t>(a[k])] = e;
  }
  std::vector<int> start, around;
  GetCellNeighbourhoods(*map, start, around);

  // Groups of touching cells.
  std::vector<int> parent(static_cast<std::size_t>(cellCount));
  std::iota(parent.begin(), parent.end(), 0);
  for (int e = 0; e < cellCount; ++e)
    for (int k = start[static_cast<std::size_t>(e)]; k < start[static_cast<std::size_t>(e) + 1];
         ++k) {
      const int a = Root(parent, e), b = Root(parent, around[static_cast<std::size_t>(k)]);
      if (a != b)
        parent[static_cast<std::size_t>(std::max(a, b))] = std::min(a, b);
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
  CHashMap<int, int, int> keys;
  for (int i = 0; i < n; ++i)
    if (groupSize[static_cast<std::size_t>(
            parent[static_cast<std::size_t>(cellOf[static_cast<std::size_t>(i)])])] >= 2)
      keys.SetAt(i, 0);

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

  CGeomInfo info(&object);
  faces->InitPointToFaceGraph(&info);
  std::vector<char> done(static_cast<std::size_t>(cellCount), 0);
  std::vector<int> members, stack, local;
  std::vector<std::unique_ptr<CHashTable<int>>> sets;
  CFlatMap<int, int> localOf;
  int changed = 0;

  for (int pos = keys.GetFirst(); pos >= 0;) {
    int p = 0, unused = 0;
    keys.GetNext(pos, p, unused);
    const int group = parent[static_cast<std::size_t>(cellOf[static_cast<std::size_t>(p)])];
    if (done[static_cast<std::size_t>(group)])
      continue;
    done[static_cast<std::size_t>(group)] = 1;
    members.clear();

    if (groupCells[static_cast<std::size_t>(group)] == 1) {
      // One cell: every point neighbours every other. p's set is the others
      // in index order; the walk enters them into the member set in that set's
      // slot order and then p itself (met again as a neighbour), which goes.
      const CIntArrayID& a = map->GetIndices(group);
      if (a.GetSize() == 2) {
        members.push_back(a[0] == p ? a[1] : a[0]);
      } else {
        CHashTable<int> own;
        for (int k = 0; k < a.GetSize(); ++k)
          if (a[k] != p)
            own.Insert(a[k]);
        CHashTable<int> set;
        for (int it = own.GetFirst(); it >= 0;) {
          int j = 0;
          own.GetNext(it, j);
          set.Insert(j);
        }
        set.Insert(p);
        set.Remove(p);
        for (int it = set.GetFirst(); it >= 0;) {
          int j = 0;
          set.GetNext(it, j);
          members.push_back(j);
        }
      }
    } else {
      // Several cells: walk the neighbour sets themselves.
      localOf.RemoveAll();
      local.clear();
      sets.clear();
      for (int g = groupStart[static_cast<std::size_t>(group)];
           g < groupStart[static_cast<std::size_t>(group) + 1]; ++g) {
        const CIntArrayID& a = map->GetIndices(groupList[static_cast<std::size_t>(g)]);
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
      CHashTable<int> set;
      visited[static_cast<std::size_t>(*localOf.PLookup(p))] = 1;
      stack.push_back(p);
      while (!stack.empty()) {
        const int q = stack.back();
        stack.pop_back();
        const CHashTable<int>& around_q = *sets[static_cast<std::size_t>(*localOf.PLookup(q))];
        for (int it = around_q.GetFirst(); it >= 0;) {
          int j = 0;
          around_q.GetNext(it, j);
          set.Insert(j);
          char& seen = visited[static_cast<std::size_t>(*localOf.PLookup(j))];
          if (!seen) {
            seen = 1;
            stack.push_back(j);
          }
        }
      }
      set.Remove(p);
      for (int it = set.GetFirst(); it >= 0;) {
        int j = 0;
        set.GetNext(it, j);
        members.push_back(j);
      }
    }

    for (int m : members)
      if (faces->ReplaceIndex(&info, m, p))
        changed = 1;
  }

  if (changed)
    object.Clean();
  removedPoints = p0 - object.GetPointNbr();
  removedFaces = f0 - object.GetFaceNbr();
  return 0;
}

} // namespace meshcore
